// The layer standard tree in a drawing: the suite's dictionary tools, and the
// lookups that find the standard, its rules, exceptions, functions and enums.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "moduletestenv.h"
#include "suite/zeftdatabasetools.h"

namespace {

using Acad::eOk;
using Util = ZEFTLayerManagerUtil;
using Tools = ZEFTDatabaseTools;
using moduletest::enumeration;
using moduletest::Fields;
using moduletest::function;
using moduletest::Strings;

class DictionaryAccess : public moduletest::ModuleTest {
protected:
    // Adds as the installer does: under the layer manager dictionary.
    AcDbObjectId append(AcDbObject* obj, const wchar_t* key = nullptr)
    {
        AcDbObjectId id;
        EXPECT_EQ(Tools::appendToDictionary(L"ZEFT_LAYER_MANAGER", obj, id, &doc, key, Tools::kUniqueKey), eOk);
        return id;
    }
    // The standard and its three rules; each rule's second field names it.
    void installStandard()
    {
        ASSERT_TRUE(moduletest::installStandardText(&db, moduletest::dataFile("module-lookups.std"), L"lookups.std"));
    }
    // Which rule the context chose, or "none".
    std::wstring chosenRule(int workingMode, bool draftContext)
    {
        ApplicationContext ctx(&db);
        ctx.workingMode = workingMode;
        ctx.draftContext = draftContext;
        Fields fields{{L"stale", L"stale", false}};
        if (!Util::getRuleFromDictionary(&db, ctx, fields)) {
            EXPECT_EQ(fields.size(), 1u) << "a failed choice leaves the vector";
            return L"none";
        }
        EXPECT_EQ(fields.size(), 2u) << "the vector holds the rule alone";
        return fields.back().value;
    }
    int nodEntries()
    {
        AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), AcDb::kForRead);
        return nod->numEntries();
    }

    AcApDocument doc{std::make_unique<AcDbDatabase>()};
    AcDbDatabase& db = *doc.database();
};
using DatabaseTools = DictionaryAccess;
using StandardLookups = DictionaryAccess;

// ---------------------------------------------------------------------------
// The suite's dictionary tools

TEST_F(DatabaseTools, DictionariesAreMadeOnlyWhenAskedAndAppendClosesTheObject)
{
    const int before = nodEntries();
    EXPECT_EQ(Tools::openDictionary(L"ZEFT_TEST", AcDb::kForRead, &db, Tools::kOpenExisting), nullptr);
    EXPECT_EQ(nodEntries(), before);

    AcDbDictionary* made = Tools::openDictionary(L"ZEFT_TEST", AcDb::kForRead, &db, Tools::kCreateIfMissing);
    ASSERT_NE(made, nullptr);
    // In the mode asked for, not the one it was made in.
    EXPECT_FALSE(made->isWriteEnabled());
    const AcDbObjectId madeId = made->objectId();
    made->close();
    AcDbDictionary* again = Tools::openDictionary(L"zeft_test", AcDb::kForWrite, &db, Tools::kCreateIfMissing);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->objectId(), madeId);
    again->close();
    EXPECT_EQ(nodEntries(), before + 1);

    // Appending makes the layer manager's dictionary, once, and closes the object.
    AcDbObjectId id = db.modelSpaceId();
    EXPECT_EQ(Tools::getFromDictionary(L"ZEFT_LAYER_MANAGER", L"KEY", id, &db), Acad::eKeyNotFound);
    EXPECT_TRUE(id.isNull());

    const AcDbObjectId keyed = append(new AcDbXrecord, L"KEY");
    const AcDbObjectId first = append(new AcDbXrecord);
    append(new AcDbXrecord);
    EXPECT_EQ(nodEntries(), before + 2) << "the dictionary is made once";
    // Closed: the caller opens it again by id, even for write.
    EXPECT_EQ(AcDbObjectPointer<AcDbObject>(first, AcDb::kForWrite).openStatus(), eOk);
    EXPECT_EQ(Tools::getFromDictionary(L"ZEFT_LAYER_MANAGER", L"key", id, &db), eOk);
    EXPECT_EQ(id, keyed);
    EXPECT_EQ(Tools::getFromDictionary(L"ZEFT_LAYER_MANAGER", nullptr, id, &db), Acad::eInvalidKey);

    AcDbDictionary* dict = Tools::openDictionary(L"ZEFT_LAYER_MANAGER", AcDb::kForRead, &db, 0);
    ASSERT_NE(dict, nullptr);
    EXPECT_EQ(dict->numEntries(), 3) << "generated keys differ";
    dict->close();

    // Refusals change nothing and leave a new object to its owner.
    auto record = std::make_unique<AcDbXrecord>();
    EXPECT_EQ(Tools::appendToDictionary(L"ZEFT_OTHER", record.get(), id, &doc, nullptr, 0), Acad::eInvalidKey);
    AcApDocument otherDoc(std::make_unique<AcDbDatabase>());
    AcDbObjectId foreign;
    ASSERT_EQ(Tools::appendToDictionary(L"ZEFT_OTHER", record.get(), foreign, &otherDoc, L"K", 0), eOk);
    record.release();
    EXPECT_EQ(Tools::appendToDictionary(L"ZEFT_OTHER", foreign.object(), id, &doc, L"K", 0), Acad::eWrongDatabase);
    EXPECT_TRUE(id.isNull());
    EXPECT_EQ(nodEntries(), before + 2);
}

// A drawing before R13 has no named-object dictionary and no OBJECTS section.
TEST_F(DatabaseTools, AnR12DrawingRefusesAndIsLeftAsItWas)
{
    AcApDocument r12(AcDbDatabase::readDxfBytes(moduletest::dataFile("module-r12.dxf"), "r12.dxf"));
    AcDbDatabase* r12Db = r12.database();
    ASSERT_EQ(r12Db->version(), "AC1009");
    const std::string text = r12Db->dxfText();
    const int dbmod = r12Db->dbmod();

    auto standard = std::make_unique<ZEFTLayerStandard>();
    AcDbObjectId id;
    EXPECT_NE(Tools::appendToDictionary(L"ZEFT_LAYER_MANAGER", standard.get(), id, &r12, L"ZEFT_LAYER_MANAGER", 0),
              eOk);
    EXPECT_NE(Tools::appendToDictionary(L"ZEFT_LAYER_MANAGER", standard.get(), id, &r12, nullptr, 1), eOk);
    EXPECT_TRUE(id.isNull());
    EXPECT_EQ(Tools::openDictionary(L"ZEFT_LAYER_MANAGER", AcDb::kForWrite, r12Db, Tools::kCreateIfMissing), nullptr);
    if (standard->isDatabaseResident()) standard.release();
    EXPECT_FALSE(moduletest::installStandardText(r12Db, moduletest::dataFile("module-default.std"), L"Beltrix.std"));
    EXPECT_EQ(r12Db->dbmod(), dbmod);
    EXPECT_EQ(r12Db->dxfText(), text);
}

// ---------------------------------------------------------------------------
// Lookups of the layer standard

TEST_F(StandardLookups, DrawingWithoutStandardGivesEmptyResults)
{
    for (AcDbDatabase* d : {&db, static_cast<AcDbDatabase*>(nullptr)}) {
        SCOPED_TRACE(d ? "drawing without standard" : "null database");
        EXPECT_TRUE(Util::getStandardFromDictionary(d).isNull());
        EXPECT_TRUE(Util::getModelRuleFromDictionary(d).isNull());
        EXPECT_TRUE(Util::getDraftRuleFromDictionary(d).isNull());
        EXPECT_TRUE(Util::getDocRuleFromDictionary(d).isNull());
        EXPECT_EQ(Util::getFieldsSeparator(d), L"_");
        ApplicationContext ctx(d);
        ctx.workingMode = 1;
        Fields fields;
        EXPECT_FALSE(Util::getRuleFromDictionary(d, ctx, fields));
        EXPECT_TRUE(Util::getExceptionFromDictionary(d).isNull());
        EXPECT_TRUE(Util::getFunctionFromDictionary(d, L"BUILDING").isNull());
        ZEFTRuleException given;
        ZEFTRuleException* exception = &given;
        Util::getCloneException(d, exception);
        EXPECT_EQ(exception, &given);
        std::vector<ZEFTRuleFunction*> functions;
        Util::getCloneFunctions(d, functions);
        std::vector<ZEFTRuleEnum*> enums;
        Util::getCloneEnums(d, enums);
        EXPECT_TRUE(functions.empty() && enums.empty());
    }
    // Something other than a standard under the standard's key.
    append(new AcDbXrecord, L"ZEFT_LAYER_MANAGER");
    EXPECT_TRUE(Util::getModelRuleFromDictionary(&db).isNull());
    EXPECT_EQ(Util::getFieldsSeparator(&db), L"_");
    EXPECT_EQ(chosenRule(0, false), L"none");
}

TEST_F(StandardLookups, WorkingModeAndDraftContextChooseTheRule)
{
    installStandard();
    EXPECT_EQ(Util::getFieldsSeparator(&db), L"-");
    // Drafting does not stand in for a working mode.
    const std::tuple<int, bool, const wchar_t*> cases[] = {
        {0, false, L"Model"}, {1, false, L"Model"}, {2, false, L"Doc"},  {1, true, L"Draft"},
        {2, true, L"Draft"},  {-1, true, L"none"},  {3, false, L"none"}, {3, true, L"none"}};
    for (const auto& [mode, draft, rule] : cases) EXPECT_EQ(chosenRule(mode, draft), rule) << mode << draft;
    Fields fields;
    EXPECT_FALSE(Util::getRuleFromDictionary(&db, ApplicationContext(&db), fields)) << "a fresh context has no mode";

    // The ids the standard refers to are the rules chosen.
    AcDbObjectPointer<ZEFTLayerRule> draft(Util::getDraftRuleFromDictionary(&db), AcDb::kForRead);
    ASSERT_EQ(draft.openStatus(), eOk);
    draft->getFields(fields);
    EXPECT_EQ(fields, (Fields{{L"Building Name", L"=BUILDING()", true}, {L"Which", L"Draft", false}}));
}

TEST_F(StandardLookups, FunctionsByExactNameExceptionByClassAndClonesAsFreeCopies)
{
    installStandard();
    EXPECT_TRUE(Util::getExceptionFromDictionary(&db).isNull());
    const AcDbObjectId first = append(function(L"F1", L"d1").release());
    append(enumeration(L"Levels", {L"RDC"}).release());
    append(function(L"F2", L"d2").release());
    auto* exception = new ZEFTRuleException;
    exception->addPair(L"AcDbViewport", L"Frames");
    const AcDbObjectId exceptionId = append(exception);
    append(function(L"F1", L"second").release());
    append(enumeration(L"LEVELS", {L"upper"}).release());
    append(enumeration(L"Levels", {L"second"}).release());
    append(new ZEFTRuleException);
    EXPECT_EQ(Util::getFunctionFromDictionary(&db, L"F1"), first);
    EXPECT_TRUE(Util::getFunctionFromDictionary(&db, L"f1").isNull());
    EXPECT_EQ(Util::getExceptionFromDictionary(&db), exceptionId);

    std::vector<std::unique_ptr<AcDbObject>> owned;
    ZEFTRuleException* exceptionCopy = nullptr;
    Util::getCloneException(&db, exceptionCopy);
    ASSERT_NE(exceptionCopy, nullptr);
    owned.emplace_back(exceptionCopy);
    exceptionCopy->removeAllPairs();
    EXPECT_EQ(AcDbObjectPointer<ZEFTRuleException>(exceptionId, AcDb::kForRead)->getPairsNumber(), 1);

    std::vector<ZEFTRuleFunction*> functions{nullptr};  // appended to
    Util::getCloneFunctions(&db, functions);
    std::vector<ZEFTRuleEnum*> enums;
    Util::getCloneEnums(&db, enums);
    for (auto* f : functions)
        if (f) owned.emplace_back(f);
    for (auto* e : enums) owned.emplace_back(e);
    for (auto& obj : owned) EXPECT_FALSE(obj->isDatabaseResident());

    Strings names;
    Util::getNamesFromFunctions(functions, names);
    EXPECT_EQ(names, (Strings{L"", L"F1", L"F2", L"F1"}));
    Util::getNamesFromEnums(enums, names);
    EXPECT_EQ(names, (Strings{L"Levels", L"LEVELS", L"Levels"})) << "replaced, not appended";

    Strings values{L"kept"};
    Util::getEnumValues(L"levels", enums, values);
    EXPECT_EQ(values, (Strings{L"kept"}));
    Util::getEnumValues(L"Levels", enums, values);
    EXPECT_EQ(values, (Strings{L"RDC"}));
}

}  // namespace
