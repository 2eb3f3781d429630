// The layer manager's persistent objects: binary and DXF filing, older and
// newer object versions, malformed records, accessors, and the five objects
// in a drawing written and read back.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dbdict.h"
#include "host/filer.h"
#include "moduletestenv.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

using Acad::eOk;
using moduletest::Fields;
using moduletest::Pairs;
using moduletest::pairsOf;
using moduletest::Strings;
using moduletest::valuesOf;

using PersistentObjects = moduletest::ModuleTest;
using LayerRule = PersistentObjects;
using LayerStandard = PersistentObjects;
using RuleEnum = PersistentObjects;
using RuleFunction = PersistentObjects;
using RuleException = PersistentObjects;

// A binary stream as the module writes it: the base object's part, then `body`.
AcDbMemoryFiler handWritten(const std::function<void(AcDbMemoryFiler&)>& body)
{
    AcDbMemoryFiler filer;
    AcDbObject head;
    head.dwgOutFields(&filer);
    body(filer);
    filer.rewind();
    return filer;
}

std::vector<std::uint8_t> dwgBytes(const AcDbObject& obj)
{
    AcDbMemoryFiler filer;
    EXPECT_EQ(obj.dwgOutFields(&filer), eOk);
    return filer.bytes();
}

template <class T>
Acad::ErrorStatus dwgCopy(const T& from, T& to, AcDbDatabase* db = nullptr)
{
    AcDbMemoryFiler filer(db);
    if (Acad::ErrorStatus es = from.dwgOutFields(&filer); es != eOk) return es;
    filer.rewind();
    return to.dwgInFields(&filer);
}

DxfTags dxfOut(const AcDbObject& obj, AcDbDatabase* db = nullptr)
{
    AcDbDxfFiler out(db);
    EXPECT_EQ(obj.dxfOutFields(&out), eOk);
    return out.takeTags();
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

// Filed out and back in through the binary filer, or the DXF filer.
template <class T>
Acad::ErrorStatus copy(bool binary, const T& from, T& to, AcDbDatabase* db = nullptr)
{
    return binary ? dwgCopy(from, to, db) : dxfIn(to, dxfOut(from, db), db).status;
}

void expectInvalidCode(const DxfRead& r, int code)
{
    EXPECT_EQ(r.status, Acad::eInvalidDxfCode);
    EXPECT_EQ(r.message, L"\nError: expected group code " + std::to_wstring(code));
}

Fields fieldsOf(const ZEFTLayerRule& rule)
{
    Fields fields;
    rule.getFields(fields);
    return fields;
}

const Fields kFields = {
    {L"Building Name", L"=BUILDING()", true},
    {L"Element Type", L"=GENERAL TYPE()", false},  // the flag as stored, never recomputed
    {L"", L"", false},
};

// --- rule ---

TEST_F(LayerRule, FilesItsFieldsInOrder)
{
    ZEFTLayerRule rule;
    for (const RuleField& f : kFields) rule.addRule(f);
    for (bool binary : {true, false}) {
        ZEFTLayerRule back, empty, emptyBack;
        back.addRule({L"stale", L"stale", true});  // reading replaces the fields
        ASSERT_EQ(copy(binary, rule, back), eOk);
        EXPECT_EQ(fieldsOf(back), kFields);
        ASSERT_EQ(copy(binary, empty, emptyBack), eOk);
        Fields caller = kFields;
        emptyBack.getFields(caller);
        EXPECT_TRUE(caller.empty());
    }
    EXPECT_EQ(dxfOut(rule), (DxfTags{{100, "ZEFTLayerRule"}, {70, "2"}, {90, "3"},
                                     {1, "=BUILDING()"}, {70, "1"}, {1, "Building Name"},
                                     {1, "=GENERAL TYPE()"}, {70, "0"}, {1, "Element Type"},
                                     {1, ""}, {70, "0"}, {1, ""}}));
    EXPECT_EQ(dwgBytes(rule), handWritten([](AcDbMemoryFiler& f) {
                                  f.writeUInt16(2);
                                  f.writeUInt32(3);
                                  for (const RuleField& field : kFields) {
                                      f.writeString(field.value);
                                      f.writeBool(field.isFunction);
                                      f.writeString(field.name);
                                  }
                              }).bytes());
}

TEST_F(LayerRule, OlderNewerAndMalformedRecords)
{
    // Version 1 had no names.
    AcDbMemoryFiler v1 = handWritten([](AcDbMemoryFiler& f) {
        f.writeUInt16(1);
        f.writeUInt32(2);
        f.writeString(L"=BUILDING()");
        f.writeBool(true);
        f.writeString(L"Lit");
        f.writeBool(false);
    });
    const Fields old = {{L"", L"=BUILDING()", true}, {L"", L"Lit", false}};
    ZEFTLayerRule rule;
    ASSERT_EQ(rule.dwgInFields(&v1), eOk);
    EXPECT_EQ(fieldsOf(rule), old);
    const DxfTags head = {{100, "ZEFTLayerRule"}, {70, "1"}};
    auto tags = [&](DxfTags body) {
        body.insert(body.begin(), head.begin(), head.end());
        return body;
    };
    ASSERT_EQ(dxfIn(rule, tags({{90, "2"}, {1, "=BUILDING()"}, {70, "1"}, {1, "Lit"}, {70, "0"}})).status, eOk);
    EXPECT_EQ(fieldsOf(rule), old);

    AcDbMemoryFiler v3 = handWritten([](AcDbMemoryFiler& f) { f.writeUInt16(3); });
    EXPECT_EQ(rule.dwgInFields(&v3), Acad::eMakeMeProxy);
    EXPECT_EQ(dxfIn(rule, {{100, "ZEFTLayerRule"}, {70, "3"}}).status, Acad::eMakeMeProxy);

    const DxfTags v2 = {{100, "ZEFTLayerRule"}, {70, "2"}};
    auto current = [&](DxfTags body) {
        body.insert(body.begin(), v2.begin(), v2.end());
        return body;
    };
    DxfRead r = dxfIn(rule, {{100, "ZEFTLayerRule"}, {71, "2"}});
    expectInvalidCode(r, 70);
    EXPECT_EQ(r.position, 1u);  // pushed back
    expectInvalidCode(dxfIn(rule, current({{91, "1"}})), 90);
    // A flag with code 71 in the second field: the first stays appended.
    r = dxfIn(rule, current({{90, "2"}, {1, "A"}, {70, "0"}, {1, "a"}, {1, "B"}, {71, "0"}, {1, "b"}}));
    expectInvalidCode(r, 70);
    EXPECT_EQ(r.position, 7u);
    EXPECT_EQ(fieldsOf(rule), (Fields{{L"a", L"A", false}}));
    expectInvalidCode(dxfIn(rule, current({{90, "1"}, {1, "A"}, {70, "1"}})), 1);
    EXPECT_EQ(dxfIn(rule, {{100, "AcDbXrecord"}, {70, "2"}}).status, Acad::eBadDxfSequence);

    // The count is its 16-bit view: 65537 is 1, 65535 is -1 (no field, no error).
    ASSERT_EQ(dxfIn(rule, current({{90, "65537"}, {1, "A"}, {70, "1"}, {1, "a"}})).status, eOk);
    EXPECT_EQ(fieldsOf(rule), (Fields{{L"a", L"A", true}}));
    ASSERT_EQ(dxfIn(rule, current({{90, "65535"}, {1, "A"}, {70, "1"}, {1, "a"}})).status, eOk);
    EXPECT_TRUE(fieldsOf(rule).empty());
}

// --- standard ---

std::vector<AcDbObjectId> addRules(AcDbDatabase& db, int n)
{
    std::vector<AcDbObjectId> ids(static_cast<std::size_t>(n));
    for (AcDbObjectId& id : ids) {
        auto* rule = new ZEFTLayerRule;
        EXPECT_EQ(db.addAcDbObject(id, rule), eOk);
        rule->close();
    }
    return ids;
}

TEST_F(LayerStandard, FilesIdsAndTexts)
{
    AcDbDatabase db;
    const auto ids = addRules(db, 3);
    ZEFTLayerStandard standard, empty;
    standard.setModelRule(ids[0]);
    standard.setDraftRule(ids[1]);
    standard.setDocRule(ids[2]);
    standard.setName(L"Beltrix");
    standard.setFileName(L"Beltrix.std");
    standard.setSeparator(L" - ");
    for (bool binary : {true, false}) {
        ZEFTLayerStandard back;
        ASSERT_EQ(copy(binary, standard, back, &db), eOk);
        EXPECT_EQ(back.getModelRule(), ids[0]);
        EXPECT_EQ(back.getDraftRule(), ids[1]);
        EXPECT_EQ(back.getDocRule(), ids[2]);
        EXPECT_EQ(back.getName() + L"|" + back.getFileName() + L"|" + back.getSeparator(), L"Beltrix|Beltrix.std| - ");
        // Null ids and the default separator replace what was there.
        ASSERT_EQ(copy(binary, empty, back, &db), eOk);
        EXPECT_TRUE(back.getModelRule().isNull() && back.getDraftRule().isNull() && back.getDocRule().isNull());
        EXPECT_EQ(back.getName() + L"|" + back.getFileName() + L"|" + back.getSeparator(), L"||_");
    }
    EXPECT_EQ(dxfOut(standard, &db),
              (DxfTags{{100, "ZEFTLayerStandard"}, {70, "3"}, {340, ids[0].handle().str()},
                       {340, ids[1].handle().str()}, {340, ids[2].handle().str()},
                       {1, "Beltrix"}, {1, "Beltrix.std"}, {1, " - "}}));
    EXPECT_EQ(dxfOut(empty), (DxfTags{{100, "ZEFTLayerStandard"}, {70, "3"}, {340, "0"}, {340, "0"}, {340, "0"},
                                      {1, ""}, {1, ""}, {1, "_"}}));
    EXPECT_EQ(dwgBytes(empty), handWritten([](AcDbMemoryFiler& f) {
                                   f.writeUInt16(3);
                                   for (int i = 0; i < 3; ++i) f.writeHardPointerId(AcDbObjectId());
                                   for (const wchar_t* s : {L"", L"", L"_"}) f.writeString(s);
                               }).bytes());
}

TEST_F(LayerStandard, OlderNewerAndMalformedRecords)
{
    for (std::uint16_t version : {1, 2}) {
        SCOPED_TRACE(version);
        AcDbMemoryFiler dwg = handWritten([&](AcDbMemoryFiler& f) {
            f.writeUInt16(version);
            for (int i = 0; i < 3; ++i) f.writeHardPointerId(AcDbObjectId());
            if (version == 2) {
                f.writeString(L"Old");
                f.writeString(L"Old.std");
            }
        });
        DxfTags dxf = {{100, "ZEFTLayerStandard"}, {70, std::to_string(version)}, {340, "0"}, {340, "0"}, {340, "0"}};
        if (version == 2) dxf.insert(dxf.end(), {{1, "Old"}, {1, "Old.std"}});
        const std::wstring expected = version == 2 ? L"Old|Old.std|_" : L"||_";
        ZEFTLayerStandard a, b;
        ASSERT_EQ(a.dwgInFields(&dwg), eOk);
        EXPECT_EQ(a.getName() + L"|" + a.getFileName() + L"|" + a.getSeparator(), expected);
        ASSERT_EQ(dxfIn(b, dxf).status, eOk);
        EXPECT_EQ(b.getName() + L"|" + b.getFileName() + L"|" + b.getSeparator(), expected);
    }
    ZEFTLayerStandard standard;
    AcDbMemoryFiler v4 = handWritten([](AcDbMemoryFiler& f) { f.writeUInt16(4); });
    EXPECT_EQ(standard.dwgInFields(&v4), Acad::eMakeMeProxy);
    EXPECT_EQ(dxfIn(standard, {{100, "ZEFTLayerStandard"}, {70, "4"}}).status, Acad::eMakeMeProxy);
    expectInvalidCode(dxfIn(standard, {{100, "ZEFTLayerStandard"}, {90, "3"}}), 70);
    const DxfRead r = dxfIn(standard, {{100, "ZEFTLayerStandard"}, {70, "3"}, {340, "0"}, {330, "0"}});
    expectInvalidCode(r, 340);
    EXPECT_EQ(r.position, 3u);
    expectInvalidCode(dxfIn(standard, {{100, "ZEFTLayerStandard"}, {70, "3"}, {340, "0"}, {340, "0"}, {340, "0"},
                                       {1, "n"}, {1, "f"}}),
                      1);
}

TEST_F(LayerStandard, RuleSettersTestTheirIdsDifferently)
{
    AcDbDatabase db;
    const auto ids = addRules(db, 2);
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

TEST_F(LayerStandard, ClosedOrReadOnlyObjectIsReportedNotChanged)
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

// --- enumeration, function, exception ---

TEST_F(RuleEnum, FilesNameAndValues)
{
    ZEFTRuleEnum e, empty;
    e.setName(L"Levels");
    for (const wchar_t* v : {L"RDC", L"R+1", L"RDC"}) e.addValue(v);  // duplicates kept
    for (bool binary : {true, false}) {
        ZEFTRuleEnum back;
        back.addValue(L"stale");
        ASSERT_EQ(copy(binary, e, back), eOk);
        EXPECT_EQ(back.getName(), L"Levels");
        EXPECT_EQ(valuesOf(back), (Strings{L"RDC", L"R+1", L"RDC"}));
        ASSERT_EQ(copy(binary, empty, back), eOk);
        EXPECT_EQ(back.getValuesNumber(), 0);
    }
    EXPECT_EQ(dxfOut(e), (DxfTags{{100, "ZEFTRuleEnum"}, {70, "1"}, {1, "Levels"}, {90, "3"}, {1, "RDC"},
                                  {1, "R+1"}, {1, "RDC"}}));
    EXPECT_EQ(dwgBytes(e), handWritten([](AcDbMemoryFiler& f) {
                               f.writeUInt16(1);
                               f.writeString(L"Levels");
                               f.writeUInt32(3);
                               for (const wchar_t* v : {L"RDC", L"R+1", L"RDC"}) f.writeString(v);
                           }).bytes());
    EXPECT_EQ(e.getValue(1), L"R+1");
    EXPECT_EQ(e.getValue(3), L"");
    e.removeAllValues();
    EXPECT_EQ(e.getValuesNumber(), 0);

    AcDbMemoryFiler v2 = handWritten([](AcDbMemoryFiler& f) { f.writeUInt16(2); });
    EXPECT_EQ(e.dwgInFields(&v2), Acad::eMakeMeProxy);
    EXPECT_EQ(dxfIn(e, {{100, "ZEFTRuleEnum"}, {70, "2"}}).status, Acad::eMakeMeProxy);
    expectInvalidCode(dxfIn(e, {{100, "ZEFTRuleEnum"}, {70, "1"}, {1, "n"}, {91, "1"}, {1, "v"}}), 90);
    expectInvalidCode(dxfIn(e, {{100, "ZEFTRuleEnum"}, {70, "1"}, {1, "n"}, {90, "2"}, {1, "v"}}), 1);
    ASSERT_EQ(dxfIn(e, {{100, "ZEFTRuleEnum"}, {70, "1"}, {1, "n"}, {90, "65538"}, {1, "v"}, {1, "w"}}).status, eOk);
    EXPECT_EQ(valuesOf(e), (Strings{L"v", L"w"}));
}

TEST_F(RuleFunction, FilesNamePairsAndDefault)
{
    ZEFTRuleFunction f, noPairs;
    f.setName(L"MATERIAL");
    f.setDefaultValue(L"Other");
    f.addPair(L"AcDbLine", L"Steel");
    f.addPair(L"AcDbCircle", L"");
    noPairs.setDefaultValue(L"Only");
    for (bool binary : {true, false}) {
        ZEFTRuleFunction back;
        back.addPair(L"stale", L"stale");
        ASSERT_EQ(copy(binary, f, back), eOk);
        EXPECT_EQ(back.getName() + L"|" + back.getDefaultValue(), L"MATERIAL|Other");
        EXPECT_EQ(pairsOf(back), (Pairs{{L"AcDbLine", L"Steel"}, {L"AcDbCircle", L""}}));
        ASSERT_EQ(copy(binary, noPairs, back), eOk);
        EXPECT_EQ(back.getPairsNumber(), 0);
        EXPECT_EQ(back.getDefaultValue(), L"Only");
    }
    EXPECT_EQ(dxfOut(f), (DxfTags{{100, "ZEFTRuleFunction"}, {70, "2"}, {1, "MATERIAL"}, {90, "2"},
                                  {1, "AcDbLine"}, {1, "Steel"}, {1, "AcDbCircle"}, {1, ""}, {1, "Other"}}));
    EXPECT_EQ(dwgBytes(f), handWritten([](AcDbMemoryFiler& out) {
                               out.writeUInt16(2);
                               out.writeString(L"MATERIAL");
                               out.writeUInt32(2);
                               for (const wchar_t* s : {L"AcDbLine", L"Steel", L"AcDbCircle", L"", L"Other"})
                                   out.writeString(s);
                           }).bytes());
    std::wstring key = L"key", value = L"value";
    f.getPair(2, key, value);
    EXPECT_EQ(key + value, L"keyvalue");
    f.removeAllPairs();
    EXPECT_EQ(f.getPairsNumber(), 0);
}

TEST_F(RuleFunction, OlderNewerAndMalformedRecords)
{
    // Version 1 had no default value: binary reads without it...
    AcDbMemoryFiler v1 = handWritten([](AcDbMemoryFiler& f) {
        f.writeUInt16(1);
        f.writeString(L"F");
        f.writeUInt32(1);
        f.writeString(L"k");
        f.writeString(L"v");
    });
    ZEFTRuleFunction f;
    ASSERT_EQ(f.dwgInFields(&v1), eOk);
    EXPECT_EQ(f.getName() + L"|" + f.getDefaultValue(), L"F|");
    EXPECT_EQ(pairsOf(f), (Pairs{{L"k", L"v"}}));
    // ...but the text reading expects it whatever the version.
    expectInvalidCode(dxfIn(f, {{100, "ZEFTRuleFunction"}, {70, "1"}, {1, "F"}, {90, "1"}, {1, "k"}, {1, "v"}}), 1);
    ASSERT_EQ(dxfIn(f, {{100, "ZEFTRuleFunction"}, {70, "1"}, {1, "F"}, {90, "0"}, {1, "d"}}).status, eOk);
    EXPECT_EQ(f.getDefaultValue(), L"d");

    AcDbMemoryFiler v3 = handWritten([](AcDbMemoryFiler& out) { out.writeUInt16(3); });
    EXPECT_EQ(f.dwgInFields(&v3), Acad::eMakeMeProxy);
    EXPECT_EQ(dxfIn(f, {{100, "ZEFTRuleFunction"}, {70, "3"}}).status, Acad::eMakeMeProxy);
    expectInvalidCode(dxfIn(f, {{100, "ZEFTRuleFunction"}, {280, "2"}}), 70);
    expectInvalidCode(dxfIn(f, {{100, "ZEFTRuleFunction"}, {70, "2"}, {1, "F"}, {70, "0"}}), 90);
    expectInvalidCode(dxfIn(f, {{100, "ZEFTRuleFunction"}, {70, "2"}, {1, "F"}, {90, "1"}, {1, "k"}, {2, "v"}}), 1);
}

TEST_F(RuleException, LayerRulesApplicableOutcomes)
{
    AcDbViewport viewport;
    AcDbLine line;
    std::wstring layer = L"untouched";
    ZEFTRuleException none;
    EXPECT_TRUE(none.layerRulesApplicable(&viewport, layer));
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

TEST_F(RuleException, FilesPairsAndRefusesBadRecords)
{
    ZEFTRuleException e, empty;
    e.addPair(L"AcDbViewport", L"Frames");
    e.addPair(L"AcDbViewport", L"Auto...");
    for (bool binary : {true, false}) {
        ZEFTRuleException back;
        back.addPair(L"stale", L"stale");
        ASSERT_EQ(copy(binary, e, back), eOk);
        EXPECT_EQ(pairsOf(back), (Pairs{{L"AcDbViewport", L"Frames"}, {L"AcDbViewport", L"Auto..."}}));
        ASSERT_EQ(copy(binary, empty, back), eOk);
        EXPECT_EQ(back.getPairsNumber(), 0);
    }
    EXPECT_EQ(dxfOut(e), (DxfTags{{100, "ZEFTRuleException"}, {70, "1"}, {90, "2"}, {1, "AcDbViewport"},
                                  {1, "Frames"}, {1, "AcDbViewport"}, {1, "Auto..."}}));
    EXPECT_EQ(dwgBytes(e), handWritten([](AcDbMemoryFiler& f) {
                               f.writeUInt16(1);
                               f.writeUInt32(2);
                               for (const wchar_t* s : {L"AcDbViewport", L"Frames", L"AcDbViewport", L"Auto..."})
                                   f.writeString(s);
                           }).bytes());

    AcDbMemoryFiler v2 = handWritten([](AcDbMemoryFiler& f) { f.writeUInt16(2); });
    EXPECT_EQ(e.dwgInFields(&v2), Acad::eMakeMeProxy);
    EXPECT_EQ(dxfIn(e, {{100, "ZEFTRuleException"}, {70, "2"}}).status, Acad::eMakeMeProxy);
    expectInvalidCode(dxfIn(e, {{100, "ZEFTRuleException"}, {70, "1"}, {1, "k"}}), 90);
    expectInvalidCode(dxfIn(e, {{100, "ZEFTRuleException"}, {70, "1"}, {90, "1"}, {1, "k"}, {3, "v"}}), 1);
}

// --- copies and drawings ---

TEST_F(PersistentObjects, CloneGivesAFreeCopyOfADrawingsObject)
{
    AcDbDatabase db;
    const auto ids = addRules(db, 1);
    auto* rule = new ZEFTLayerRule;
    auto* standard = new ZEFTLayerStandard;
    auto* e = new ZEFTRuleEnum;
    auto* f = new ZEFTRuleFunction;
    auto* x = new ZEFTRuleException;
    const std::vector<AcDbObject*> all = {rule, standard, e, f, x};
    for (AcDbObject* o : all) ASSERT_EQ(db.addAcDbObject(o), eOk);
    for (const RuleField& field : kFields) rule->addRule(field);
    standard->setModelRule(ids[0]);
    standard->setSeparator(L".");
    e->setName(L"E");
    e->addValue(L"v");
    f->setDefaultValue(L"d");
    f->addPair(L"k", L"v");
    x->addPair(L"AcDbLine", L"Lines");

    std::vector<std::unique_ptr<AcRxObject>> copies;
    for (AcDbObject* o : all) {
        copies.emplace_back(o->clone());
        auto* c = AcDbObject::cast(copies.back().get());
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(c->isA(), o->isA());
        EXPECT_FALSE(c->isDatabaseResident());
        o->close();
    }
    auto* rc = ZEFTLayerRule::cast(copies[0].get());
    EXPECT_EQ(fieldsOf(*rc), kFields);
    rc->addRule({});  // the copy is free to change; the original is not touched
    EXPECT_EQ(fieldsOf(*AcDbObjectPointer<ZEFTLayerRule>(rule->objectId(), AcDb::kForRead).object()), kFields);
    auto* sc = ZEFTLayerStandard::cast(copies[1].get());
    EXPECT_EQ(sc->getModelRule(), ids[0]);
    EXPECT_EQ(sc->getSeparator(), L".");
    auto* ec = ZEFTRuleEnum::cast(copies[2].get());
    EXPECT_EQ(ec->getName() + valuesOf(*ec).at(0), L"Ev");
    auto* fc = ZEFTRuleFunction::cast(copies[3].get());
    EXPECT_EQ(fc->getDefaultValue(), L"d");
    EXPECT_EQ(pairsOf(*fc), (Pairs{{L"k", L"v"}}));
    EXPECT_EQ(pairsOf(*ZEFTRuleException::cast(copies[4].get())), (Pairs{{L"AcDbLine", L"Lines"}}));
}

struct Installed {
    AcDbObjectId dict, standard, model, draft, doc, function, enumeration, exception;
};

// A drawing's standard as the installer lays it out: the standard first,
// under its key, then the others under generated keys.
Installed install(AcDbDatabase& db)
{
    Installed ids;
    AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), AcDb::kForWrite);
    auto* dict = new AcDbDictionary;
    EXPECT_EQ(nod->setAt(L"ZEFT_LAYER_MANAGER", dict, ids.dict), eOk);
    auto add = [&](const wchar_t* key, AcDbObject* obj, bool close = true) {
        AcDbObjectId id;
        EXPECT_EQ(dict->setAt(key, obj, id), eOk);
        if (close) obj->close();
        return id;
    };
    auto* standard = new ZEFTLayerStandard;
    ids.standard = add(L"ZEFT_LAYER_MANAGER", standard, false);
    for (AcDbObjectId* id : {&ids.model, &ids.draft, &ids.doc}) {
        auto* rule = new ZEFTLayerRule;
        rule->addRule({L"Building Name", L"=BUILDING()", true});
        rule->addRule({L"User defined", id == &ids.draft ? L"Draft" : L"Other", false});
        *id = add(nullptr, rule);
    }
    ids.function = add(nullptr, moduletest::function(L"MATERIAL", L"Other", {{L"AcDbLine", L"Béton"}}).release());
    ids.enumeration = add(nullptr, moduletest::enumeration(L"Levels", {L"RDC", L"R+1"}).release());
    auto* exception = new ZEFTRuleException;
    exception->addPair(L"AcDbViewport", L"Frames");
    ids.exception = add(nullptr, exception);

    standard->setName(L"Beltrix");
    standard->setFileName(L"Beltrix.std");
    standard->setSeparator(L"-");
    standard->setModelRule(ids.model);
    standard->setDraftRule(ids.draft);
    standard->setDocRule(ids.doc);
    standard->close();
    dict->close();
    return ids;
}

TEST_F(PersistentObjects, DrawingKeepsTheStandardThroughItsText)
{
    AcDbDatabase db;
    const Installed ids = install(db);
    const std::string text = db.dxfText();
    // Its rules follow the standard: their ids are not known yet when it is read.
    ASSERT_LT(text.find("100\nZEFTLayerStandard\n"), text.find("100\nZEFTLayerRule\n"));

    const auto back = AcDbDatabase::readDxfBytes(text, "standard.dxf");
    EXPECT_TRUE(back->readWarnings().empty());
    auto same = [&](AcDbObjectId id) { return back->idOf(id.handle()); };
    {
        AcDbObjectPointer<AcDbDictionary> dict(same(ids.dict), AcDb::kForRead);
        AcDbObjectId standardId;
        ASSERT_EQ(dict->getAt(L"ZEFT_LAYER_MANAGER", standardId), eOk);
        EXPECT_EQ(standardId, same(ids.standard));
        EXPECT_EQ(dict->numEntries(), 7);
    }
    AcDbObjectPointer<ZEFTLayerStandard> standard(same(ids.standard), AcDb::kForRead);
    ASSERT_EQ(standard.openStatus(), eOk);
    EXPECT_EQ(standard->getName() + L"|" + standard->getFileName() + L"|" + standard->getSeparator(),
              L"Beltrix|Beltrix.std|-");
    EXPECT_EQ(standard->getModelRule(), same(ids.model));
    EXPECT_EQ(standard->getDraftRule(), same(ids.draft));
    EXPECT_EQ(standard->getDocRule(), same(ids.doc));
    EXPECT_TRUE(standard->getDocRule().isValid());
    standard.close();

    AcDbObjectPointer<ZEFTLayerRule> draft(same(ids.draft), AcDb::kForRead);
    ASSERT_EQ(draft.openStatus(), eOk);
    EXPECT_EQ(fieldsOf(*draft.object()),
              (Fields{{L"Building Name", L"=BUILDING()", true}, {L"User defined", L"Draft", false}}));
    draft.close();
    AcDbObjectPointer<ZEFTRuleFunction> function(same(ids.function), AcDb::kForRead);
    ASSERT_EQ(function.openStatus(), eOk);
    EXPECT_EQ(function->getName() + L"|" + function->getDefaultValue(), L"MATERIAL|Other");
    EXPECT_EQ(pairsOf(*function.object()), (Pairs{{L"AcDbLine", L"Béton"}}));
    function.close();
    AcDbObjectPointer<ZEFTRuleEnum> enumeration(same(ids.enumeration), AcDb::kForRead);
    ASSERT_EQ(enumeration.openStatus(), eOk);
    EXPECT_EQ(valuesOf(*enumeration.object()), (Strings{L"RDC", L"R+1"}));
    enumeration.close();
    AcDbObjectPointer<ZEFTRuleException> exception(same(ids.exception), AcDb::kForRead);
    ASSERT_EQ(exception.openStatus(), eOk);
    EXPECT_EQ(pairsOf(*exception.object()), (Pairs{{L"AcDbViewport", L"Frames"}}));
    EXPECT_EQ(exception->ownerId(), same(ids.dict));
    exception.close();

    EXPECT_EQ(back->dxfText(), text);
}

TEST_F(PersistentObjects, RecordWithAWrongCodeIsKeptAsReadInTheDrawing)
{
    AcDbDatabase db;
    const Installed ids = install(db);
    std::string text = db.dxfText();

    // The Draft rule's first flag item gets code 71...
    const std::string handle = ids.draft.handle().str();
    const std::size_t record = text.find("\n  5\n" + handle + "\n");
    ASSERT_NE(record, std::string::npos);
    const std::size_t flag = text.find("\n 70\n1\n", text.find("=BUILDING()", record));
    ASSERT_NE(flag, std::string::npos);
    text.replace(flag, 4, "\n 71");
    const std::size_t start = text.rfind("\n  0\n", record) + 1;
    const std::string recordText = text.substr(start, text.find("\n  0\n", record) + 1 - start);
    // ...and the standard's Doc rule names nothing.
    const std::string docPointer = "340\n" + ids.doc.handle().str() + "\n";
    const std::size_t doc = text.find(docPointer, text.find("100\nZEFTLayerStandard\n"));
    ASSERT_NE(doc, std::string::npos);
    text.replace(doc, docPointer.size(), "340\nFFFF0\n");

    const auto back = AcDbDatabase::readDxfBytes(text, "broken.dxf");
    ASSERT_EQ(back->readWarnings().size(), 1u);
    EXPECT_NE(back->readWarnings()[0].find("ZEFTLAYERRULE " + handle +
                                           " kept as read (eInvalidDxfCode: Error: expected group code 70)"),
              std::string::npos)
        << back->readWarnings()[0];
    AcDbObject* draft = back->idOf(ids.draft.handle()).object();
    ASSERT_NE(draft, nullptr);
    EXPECT_TRUE(draft->isAProxy());
    EXPECT_EQ(ZEFTLayerRule::cast(draft), nullptr);

    // The rest opened natively; the broken record and the pointer to nothing go out as they came in.
    AcDbObjectPointer<ZEFTLayerStandard> standard(back->idOf(ids.standard.handle()), AcDb::kForRead);
    ASSERT_EQ(standard.openStatus(), eOk);
    EXPECT_EQ(standard->getModelRule(), back->idOf(ids.model.handle()));
    EXPECT_FALSE(standard->getDocRule().isValid());
    standard.close();
    EXPECT_NE(back->dxfText().find(recordText), std::string::npos);
    EXPECT_EQ(back->dxfText(), text);
}

}  // namespace
