// The layer manager's persistent objects: binary and DXF filing, older and
// newer object versions, malformed records, copies, open states, and a
// damaged record in a drawing.
#include <gtest/gtest.h>

#include <cwchar>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dxf/codec.h"
#include "host/filer.h"
#include "moduletestenv.h"

namespace {

using Acad::eOk;
using moduletest::describe;
using moduletest::Fields;

using PersistentObjects = moduletest::ModuleTest;

std::vector<std::uint8_t> dwgBytes(const AcDbObject& obj, AcDbDatabase* db)
{
    AcDbMemoryFiler filer(db);
    EXPECT_EQ(obj.dwgOutFields(&filer), eOk);
    return filer.bytes();
}

// The binary stream holds the items of the DXF record in the same order,
// without their codes: the version in 16 bits, counts in 32, the rule's
// flags as booleans, the standard's rules as hard pointers. The base
// object's part comes first, `owner`'s or a new object's.
AcDbMemoryFiler binary(const DxfTags& items, AcDbDatabase* db, const AcDbObject& owner = AcDbObject())
{
    AcDbMemoryFiler filer(db);
    owner.AcDbObject::dwgOutFields(&filer);
    for (std::size_t i = 0; i < items.size(); ++i) {
        const DxfTag& t = items[i];
        if (t.code == 70 && i == 0) filer.writeUInt16(std::uint16_t(std::stoi(t.value)));
        else if (t.code == 70) filer.writeBool(t.value == "1");
        else if (t.code == 90) filer.writeUInt32(std::uint32_t(std::stoul(t.value)));
        else if (t.code == 340) filer.writeHardPointerId(t.value == "0" ? AcDbObjectId() : db->idOf(AcDbHandle(std::stoull(t.value, nullptr, 16))));
        else filer.writeString(std::wstring(t.value.begin(), t.value.end()));
    }
    filer.rewind();
    return filer;
}

struct DxfRead {
    Acad::ErrorStatus status;
    std::wstring message;
    std::size_t position;  // where the filer stopped
};

DxfRead dxfIn(AcDbObject& obj, DxfTags tags, AcDbDatabase* db = nullptr)
{
    AcDbDxfFiler in(db, std::move(tags));
    const Acad::ErrorStatus es = obj.dxfInFields(&in);
    return {es, in.errorMessage(), in.position()};
}

DxfTags dxfOut(const AcDbObject& obj, AcDbDatabase* db)
{
    AcDbDxfFiler out(db);
    EXPECT_EQ(obj.dxfOutFields(&out), eOk);
    return out.takeTags();
}

DxfTags withMarker(const wchar_t* cls, DxfTags items)
{
    items.insert(items.begin(), {100, std::string(cls, cls + std::wcslen(cls))});
    return items;
}

std::unique_ptr<AcDbObject> make(const wchar_t* cls)
{
    return std::unique_ptr<AcDbObject>(AcDbObject::cast(acrxFindClass(cls)->create()));
}

TEST_F(PersistentObjects, CurrentOlderNewerAndMalformedRecords)
{
    AcDbDatabase db;
    AcDbObjectId rules[3];
    for (AcDbObjectId& id : rules) {
        auto* rule = new ZEFTLayerRule;
        ASSERT_EQ(db.addAcDbObject(id, rule), eOk);
        rule->close();
    }
    auto h = [&](int i) { return rules[i].handle().str(); };
    const std::string ids = h(0) + "," + h(1) + "," + h(2);

    // kCurrent: what the object writes back, through either filer; each is
    // read over the previous one of its class, which it replaces whole.
    enum Filers { kCurrent, kBoth, kDxf, kBinary };
    struct Record {
        const char* what;
        const wchar_t* cls;
        Filers filers;
        DxfTags items;  // after the subclass marker
        Acad::ErrorStatus status;
        std::wstring after;        // describe() after the reading; empty: not checked
        int code = 0;              // the group code a refusal names
        std::size_t position = 0;  // where the DXF reading stopped; 0: not checked
    };
    const DxfTags nullRules = {{340, "0"}, {340, "0"}, {340, "0"}};
    auto standard = [&](const char* version, DxfTags rest) {
        DxfTags items{{70, version}};
        items.insert(items.end(), nullRules.begin(), nullRules.end());
        items.insert(items.end(), rest.begin(), rest.end());
        return items;
    };
    const Record records[] = {
        // The flag is as stored, never recomputed from the value.
        {"rule", L"ZEFTLayerRule", kCurrent, {{70, "2"}, {90, "3"}, {1, "=BUILDING()"}, {70, "1"}, {1, "Building Name"},
         {1, "=GENERAL TYPE()"}, {70, "0"}, {1, "Element Type"}, {1, ""}, {70, "0"}, {1, ""}}, eOk,
         L"rule [Building Name|=BUILDING()|f] [Element Type|=GENERAL TYPE()] [|]"},
        {"empty rule", L"ZEFTLayerRule", kCurrent, {{70, "2"}, {90, "0"}}, eOk, L"rule"},
        {"rule version 1 had no names", L"ZEFTLayerRule", kBoth,
         {{70, "1"}, {90, "2"}, {1, "=BUILDING()"}, {70, "1"}, {1, "Lit"}, {70, "0"}}, eOk,
         L"rule [|=BUILDING()|f] [|Lit]"},
        {"rule count's 16-bit view: 65537 is 1", L"ZEFTLayerRule", kDxf,
         {{70, "2"}, {90, "65537"}, {1, "A"}, {70, "1"}, {1, "a"}}, eOk, L"rule [a|A|f]"},
        {"65535 is -1: no field, no error", L"ZEFTLayerRule", kDxf,
         {{70, "2"}, {90, "65535"}, {1, "A"}, {70, "1"}, {1, "a"}}, eOk, L"rule"},
        {"newer rule", L"ZEFTLayerRule", kBoth, {{70, "3"}}, Acad::eMakeMeProxy, L""},
        {"rule version pushed back", L"ZEFTLayerRule", kDxf, {{71, "2"}}, Acad::eInvalidDxfCode, L"", 70, 1},
        {"rule count", L"ZEFTLayerRule", kDxf, {{70, "2"}, {91, "1"}}, Acad::eInvalidDxfCode, L"", 90},
        {"second flag with code 71: the first field stays appended", L"ZEFTLayerRule", kDxf,
         {{70, "2"}, {90, "2"}, {1, "A"}, {70, "0"}, {1, "a"}, {1, "B"}, {71, "0"}, {1, "b"}}, Acad::eInvalidDxfCode,
         L"rule [a|A]", 70, 7},
        {"rule name missing", L"ZEFTLayerRule", kDxf, {{70, "2"}, {90, "1"}, {1, "A"}, {70, "1"}},
         Acad::eInvalidDxfCode, L"", 1},
        {"standard", L"ZEFTLayerStandard", kCurrent,
         {{70, "3"}, {340, h(0)}, {340, h(1)}, {340, h(2)}, {1, "Beltrix"}, {1, "Beltrix.std"}, {1, " - "}}, eOk,
         L"standard Beltrix|Beltrix.std| -  rules " + dxf::fromUtf8(ids)},
        {"empty standard", L"ZEFTLayerStandard", kCurrent, standard("3", {{1, ""}, {1, ""}, {1, "_"}}), eOk,
         L"standard ||_ rules null,null,null"},
        {"standard version 1", L"ZEFTLayerStandard", kBoth, standard("1", {}), eOk,
         L"standard ||_ rules null,null,null"},
        {"standard version 2 had no separator", L"ZEFTLayerStandard", kBoth,
         standard("2", {{1, "Old"}, {1, "Old.std"}}), eOk, L"standard Old|Old.std|_ rules null,null,null"},
        {"newer standard", L"ZEFTLayerStandard", kBoth, {{70, "4"}}, Acad::eMakeMeProxy, L""},
        {"standard version", L"ZEFTLayerStandard", kDxf, {{90, "3"}}, Acad::eInvalidDxfCode, L"", 70},
        {"standard's second rule", L"ZEFTLayerStandard", kDxf, {{70, "3"}, {340, "0"}, {330, "0"}},
         Acad::eInvalidDxfCode, L"", 340, 3},
        {"standard's separator", L"ZEFTLayerStandard", kDxf, standard("3", {{1, "n"}, {1, "f"}}),
         Acad::eInvalidDxfCode, L"", 1},
        {"enum, duplicates kept", L"ZEFTRuleEnum", kCurrent,
         {{70, "1"}, {1, "Levels"}, {90, "3"}, {1, "RDC"}, {1, "R+1"}, {1, "RDC"}}, eOk, L"enum Levels: RDC R+1 RDC"},
        {"empty enum", L"ZEFTRuleEnum", kCurrent, {{70, "1"}, {1, ""}, {90, "0"}}, eOk, L"enum :"},
        {"newer enum", L"ZEFTRuleEnum", kBoth, {{70, "2"}}, Acad::eMakeMeProxy, L""},
        {"enum count", L"ZEFTRuleEnum", kDxf, {{70, "1"}, {1, "n"}, {91, "1"}, {1, "v"}}, Acad::eInvalidDxfCode, L"", 90},
        {"enum value missing", L"ZEFTRuleEnum", kDxf, {{70, "1"}, {1, "n"}, {90, "2"}, {1, "v"}},
         Acad::eInvalidDxfCode, L"", 1},
        {"enum count 65538 is 2", L"ZEFTRuleEnum", kDxf, {{70, "1"}, {1, "n"}, {90, "65538"}, {1, "v"}, {1, "w"}}, eOk,
         L"enum n: v w"},
        {"function", L"ZEFTRuleFunction", kCurrent, {{70, "2"}, {1, "MATERIAL"}, {90, "2"}, {1, "AcDbLine"},
         {1, "Steel"}, {1, "AcDbCircle"}, {1, ""}, {1, "Other"}}, eOk,
         L"function MATERIAL|Other: AcDbLine=Steel AcDbCircle="},
        {"function without pairs", L"ZEFTRuleFunction", kCurrent, {{70, "2"}, {1, ""}, {90, "0"}, {1, "Only"}}, eOk,
         L"function |Only:"},
        // Version 1 had no default value: binary reads without it, the text expects it whatever the version.
        {"function version 1", L"ZEFTRuleFunction", kBinary, {{70, "1"}, {1, "F"}, {90, "1"}, {1, "k"}, {1, "v"}}, eOk,
         L"function F|: k=v"},
        {"function version 1 in text", L"ZEFTRuleFunction", kDxf, {{70, "1"}, {1, "F"}, {90, "1"}, {1, "k"}, {1, "v"}},
         Acad::eInvalidDxfCode, L"", 1},
        {"function version 1 in text, with a default", L"ZEFTRuleFunction", kDxf,
         {{70, "1"}, {1, "F"}, {90, "0"}, {1, "d"}}, eOk, L"function F|d:"},
        {"newer function", L"ZEFTRuleFunction", kBoth, {{70, "3"}}, Acad::eMakeMeProxy, L""},
        {"function version", L"ZEFTRuleFunction", kDxf, {{280, "2"}}, Acad::eInvalidDxfCode, L"", 70},
        {"function count", L"ZEFTRuleFunction", kDxf, {{70, "2"}, {1, "F"}, {70, "0"}}, Acad::eInvalidDxfCode, L"", 90},
        {"function value", L"ZEFTRuleFunction", kDxf, {{70, "2"}, {1, "F"}, {90, "1"}, {1, "k"}, {2, "v"}},
         Acad::eInvalidDxfCode, L"", 1},
        {"exception", L"ZEFTRuleException", kCurrent,
         {{70, "1"}, {90, "2"}, {1, "AcDbViewport"}, {1, "Frames"}, {1, "AcDbViewport"}, {1, "Auto..."}}, eOk,
         L"exception: AcDbViewport=Frames AcDbViewport=Auto..."},
        {"empty exception", L"ZEFTRuleException", kCurrent, {{70, "1"}, {90, "0"}}, eOk, L"exception:"},
        {"newer exception", L"ZEFTRuleException", kBoth, {{70, "2"}}, Acad::eMakeMeProxy, L""},
        {"exception count", L"ZEFTRuleException", kDxf, {{70, "1"}, {1, "k"}}, Acad::eInvalidDxfCode, L"", 90},
        {"exception value", L"ZEFTRuleException", kDxf, {{70, "1"}, {90, "1"}, {1, "k"}, {3, "v"}},
         Acad::eInvalidDxfCode, L"", 1},
    };
    std::map<std::wstring, std::unique_ptr<AcDbObject>> current[2];  // per filer and class
    for (const Record& r : records) {
        SCOPED_TRACE(r.what);
        for (int b : {0, 1}) {
            if ((b && r.filers == kDxf) || (!b && r.filers == kBinary)) continue;
            std::unique_ptr<AcDbObject> fresh;
            std::unique_ptr<AcDbObject>& obj = r.filers == kCurrent ? current[b][r.cls] : fresh;
            if (!obj) obj = make(r.cls);
            AcDbMemoryFiler stream = binary(r.items, &db);
            const DxfRead read = b ? DxfRead{obj->dwgInFields(&stream), L"", 0} : dxfIn(*obj, withMarker(r.cls, r.items), &db);
            EXPECT_EQ(read.status, r.status);
            if (!r.after.empty()) {
                EXPECT_EQ(describe(*obj), r.after);
            }
            if (b == 0 && r.code) {
                EXPECT_EQ(read.message, L"\nError: expected group code " + std::to_wstring(r.code));
            }
            if (b == 0 && r.position) {
                EXPECT_EQ(read.position, r.position);
            }
            if (r.filers == kCurrent) {
                EXPECT_EQ(dxfOut(*obj, &db), withMarker(r.cls, r.items));
                EXPECT_EQ(dwgBytes(*obj, &db), binary(r.items, &db, *obj).bytes());
            }
        }
    }
    ZEFTLayerRule rule;
    EXPECT_EQ(dxfIn(rule, {{100, "AcDbXrecord"}, {70, "2"}}).status, Acad::eBadDxfSequence);

    // Out of range: nothing, and the caller's strings untouched.
    const auto e = moduletest::enumeration(L"Levels", {L"RDC", L"R+1"});
    EXPECT_EQ(e->getValue(1), L"R+1");
    EXPECT_EQ(e->getValue(2), L"");
    const auto f = moduletest::function(L"F", L"", {{L"k", L"v"}});
    std::wstring key = L"key", value = L"value";
    f->getPair(1, key, value);
    EXPECT_EQ(key + value, L"keyvalue");
    ZEFTRuleException x;
    x.addPair(L"k", L"v");
    e->removeAllValues();
    f->removeAllPairs();
    x.removeAllPairs();
    EXPECT_EQ(e->getValuesNumber() + f->getPairsNumber() + x.getPairsNumber(), 0);
}

TEST_F(PersistentObjects, StandardRuleSettersTestTheirIdsDifferently)
{
    AcDbDatabase db;
    AcDbObjectId ids[2];
    for (AcDbObjectId& id : ids) {
        auto* rule = new ZEFTLayerRule;
        ASSERT_EQ(db.addAcDbObject(id, rule), eOk);
        rule->close();
    }
    AcDbStub gone{nullptr, &db, AcDbHandle(0xFFFF)};
    const AcDbObjectId stale(&gone);  // not null, yet not valid
    ZEFTLayerStandard standard;
    standard.setModelRule(ids[0]);
    standard.setDraftRule(ids[0]);
    standard.setDocRule(ids[0]);
    for (AcDbObjectId bad : {AcDbObjectId(), stale}) {
        standard.setModelRule(bad);
        standard.setDraftRule(bad);
    }
    EXPECT_EQ(standard.getModelRule(), ids[0]);
    EXPECT_EQ(standard.getDraftRule(), ids[0]);
    standard.setDocRule(AcDbObjectId());
    EXPECT_EQ(standard.getDocRule(), ids[0]);
    standard.setDocRule(stale);
    EXPECT_EQ(standard.getDocRule(), stale);
    standard.setModelRule(ids[1]);
    EXPECT_EQ(standard.getModelRule(), ids[1]);
}

TEST_F(PersistentObjects, ClosedOrReadOnlyStandardIsReportedNotChanged)
{
    AcDbDatabase db;
    AcDbObjectId id;
    auto* standard = new ZEFTLayerStandard;
    ASSERT_EQ(db.addAcDbObject(id, standard), eOk);
    standard->setName(L"Kept");
    standard->close();

    std::vector<WyCrashReport> reports;
    wySetCrashSink([&](const WyCrashReport& r) { reports.push_back(r); });
    EXPECT_EQ(standard->getName(), L"");
    {
        AcDbObjectPointer<ZEFTLayerStandard> reading(id, AcDb::kForRead);
        ASSERT_EQ(reading.openStatus(), eOk);
        reading->setName(L"Lost");
        AcDbMemoryFiler filer;
        EXPECT_EQ(reading->dwgInFields(&filer), Acad::eNotOpenForWrite);
        EXPECT_EQ(reading->getName(), L"Kept");
    }
    AcDbMemoryFiler filer;
    EXPECT_EQ(standard->dwgOutFields(&filer), Acad::eNotOpenForRead);
    wySetCrashSink(nullptr);
    ASSERT_EQ(reports.size(), 4u);
    EXPECT_EQ(reports[0].file, "zeftlayerstandard");
    EXPECT_GT(reports[0].line, 0);
}

TEST_F(PersistentObjects, ExceptionMatchesTheRuntimeClassExactly)
{
    AcDbViewport viewport;
    AcDbLine line;
    std::wstring layer = L"untouched";
    EXPECT_TRUE(ZEFTRuleException().layerRulesApplicable(&viewport, layer));
    EXPECT_EQ(layer, L"untouched");

    ZEFTRuleException frames;
    frames.addPair(L"acdbviewport", L"Wrong case");
    frames.addPair(L"AcDbEntity", L"Base class");  // only the runtime class itself matches
    frames.addPair(L"AcDbViewport", L"Frames");
    frames.addPair(L"AcDbViewport", L"Second");
    EXPECT_TRUE(frames.layerRulesApplicable(&line, layer));
    EXPECT_EQ(layer, L"untouched");
    EXPECT_TRUE(frames.layerRulesApplicable(&viewport, layer));
    EXPECT_EQ(layer, L"Frames");

    ZEFTRuleException automatic;
    automatic.addPair(L"AcDbViewport", L"Auto...");
    automatic.addPair(L"AcDbLine", L"auto...");  // only the exact text is reserved
    layer = L"untouched";
    EXPECT_FALSE(automatic.layerRulesApplicable(&viewport, layer));
    EXPECT_EQ(layer, L"untouched");
    EXPECT_TRUE(automatic.layerRulesApplicable(&line, layer));
    EXPECT_EQ(layer, L"auto...");
}

TEST_F(PersistentObjects, RecordWithAWrongCodeIsKeptAsReadInTheDrawing)
{
    std::string text = moduletest::dataFile("module-objects.dxf");
    // The Draft rule (23) gets code 71 for its flag...
    const std::size_t record = text.find("\n  5\n23\n");
    const std::size_t flag = text.find("\n 70\n1\n", text.find("=LEVEL/VIEW()", record));
    ASSERT_NE(flag, std::string::npos);
    text.replace(flag, 4, "\n 71");
    const std::size_t start = text.rfind("\n  0\n", record) + 1;
    const std::string recordText = text.substr(start, text.find("\n  0\n", record) + 1 - start);
    // ...and the standard's Doc rule names nothing.
    const std::size_t doc = text.find("340\n24\n", text.find("100\nZEFTLayerStandard\n"));
    ASSERT_NE(doc, std::string::npos);
    text.replace(doc, 7, "340\nFFFF0\n");

    const auto back = AcDbDatabase::readDxfBytes(text, "broken.dxf");
    ASSERT_EQ(back->readWarnings().size(), 1u);
    EXPECT_NE(back->readWarnings()[0].find("ZEFTLAYERRULE 23 kept as read (eInvalidDxfCode: Error: expected group code 70)"),
              std::string::npos)
        << back->readWarnings()[0];
    AcDbObject* draft = back->idOf(AcDbHandle(0x23)).object();
    ASSERT_NE(draft, nullptr);
    EXPECT_TRUE(draft->isAProxy());
    EXPECT_EQ(ZEFTLayerRule::cast(draft), nullptr);

    // The rest opened natively; the broken record and the pointer to nothing go out as they came in.
    AcDbObjectPointer<ZEFTLayerStandard> standard(back->idOf(AcDbHandle(0x21)), AcDb::kForRead);
    ASSERT_EQ(standard.openStatus(), eOk);
    EXPECT_EQ(standard->getModelRule(), back->idOf(AcDbHandle(0x22)));
    EXPECT_FALSE(standard->getDocRule().isValid());
    standard.close();
    EXPECT_NE(back->dxfText().find(recordText), std::string::npos);
    EXPECT_EQ(back->dxfText(), text);
}

}  // namespace
