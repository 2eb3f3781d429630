// The layer manager's persistent objects: binary and DXF filing, older and
// newer object versions, malformed records, copies, open states, and a
// damaged record in a drawing.
#include <gtest/gtest.h>

#include <cwchar>
#include <map>
#include <sstream>
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

    // tests/data/module-records.tsv: one record per line, its fields
    // separated by tabs, as its header says.
    struct Record {
        std::string what, filers;
        std::wstring cls, after;
        DxfTags items;
        Acad::ErrorStatus status = eOk;
        int code = 0;
        std::size_t position = 0;
    };
    const auto fields = [](const std::string& line, char separator) {
        std::vector<std::string> out(1);
        for (const char c : line) {
            if (c == separator) out.emplace_back();
            else out.back().push_back(c);
        }
        return out;
    };
    const std::pair<std::string, std::string> tokens[] = {{"$ids", ids}, {"$0", h(0)}, {"$1", h(1)}, {"$2", h(2)}};
    const auto handles = [&](std::string text) {
        for (const auto& [token, value] : tokens)
            for (std::size_t at; (at = text.find(token)) != std::string::npos;) text.replace(at, token.size(), value);
        return text;
    };
    const std::map<std::string, Acad::ErrorStatus> statuses = {
        {"eOk", eOk}, {"eMakeMeProxy", Acad::eMakeMeProxy}, {"eInvalidDxfCode", Acad::eInvalidDxfCode}};
    std::vector<Record> records;
    std::istringstream table(moduletest::dataFile("module-records.tsv"));
    for (std::string line; std::getline(table, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> f = fields(line, '\t');
        f.resize(8);
        Record r{f[0], f[2], dxf::fromUtf8(f[1]), dxf::fromUtf8(handles(f[5])), {}, statuses.at(f[4])};
        for (const std::string& item : fields(f[3], '|')) {
            const std::size_t colon = item.find(':');
            r.items.push_back({std::stoi(item.substr(0, colon)), handles(item.substr(colon + 1))});
        }
        r.code = f[6].empty() ? 0 : std::stoi(f[6]);
        r.position = f[7].empty() ? 0 : std::stoul(f[7]);
        records.push_back(std::move(r));
    }
    ASSERT_EQ(records.size(), 38u);
    std::map<std::wstring, std::unique_ptr<AcDbObject>> objects[2];  // per filer and class
    for (const Record& r : records) {
        SCOPED_TRACE(r.what);
        const bool current = r.filers == "current";
        for (int b : {0, 1}) {
            if ((b && r.filers == "dxf") || (!b && r.filers == "binary")) continue;
            std::unique_ptr<AcDbObject> fresh;
            std::unique_ptr<AcDbObject>& obj = current ? objects[b][r.cls] : fresh;
            if (!obj) obj = make(r.cls.c_str());
            AcDbMemoryFiler stream = binary(r.items, &db);
            const DxfRead read =
                b ? DxfRead{obj->dwgInFields(&stream), L"", 0} : dxfIn(*obj, withMarker(r.cls.c_str(), r.items), &db);
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
            if (current) {
                EXPECT_EQ(dxfOut(*obj, &db), withMarker(r.cls.c_str(), r.items));
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
