// The layer standard tree in a drawing: the suite's dictionary tools, and the
// lookups that find the standard, its rules, exceptions, functions and enums.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/document.h"
#include "moduletestenv.h"
#include "suite/zeftdatabasetools.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

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
        standardId = append(new ZEFTLayerStandard, L"ZEFT_LAYER_MANAGER");
        AcDbObjectId ids[3];
        const wchar_t* tags[3] = {L"Model", L"Draft", L"Doc"};
        for (int i = 0; i < 3; ++i) {
            auto* rule = new ZEFTLayerRule;
            rule->addRule({L"Building Name", L"=BUILDING()", true});
            rule->addRule({L"Which", tags[i], false});
            ids[i] = append(rule);
        }
        AcDbObjectPointer<ZEFTLayerStandard> standard(standardId, AcDb::kForWrite);
        standard->setModelRule(ids[0]);
        standard->setDraftRule(ids[1]);
        standard->setDocRule(ids[2]);
        standard->setSeparator(L"-");
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
    AcDbObjectId standardId;
};
using DatabaseTools = DictionaryAccess;
using StandardLookups = DictionaryAccess;

// ---------------------------------------------------------------------------
// The suite's dictionary tools

TEST_F(DatabaseTools, OpenDictionaryCreatesOnlyWithFlagOne)
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
}

TEST_F(DatabaseTools, AppendMakesTheDictionaryAndClosesTheObject)
{
    const int before = nodEntries();
    AcDbObjectId id = db.modelSpaceId();
    EXPECT_EQ(Tools::getFromDictionary(L"ZEFT_LAYER_MANAGER", L"KEY", id, &db), Acad::eKeyNotFound);
    EXPECT_TRUE(id.isNull());

    const AcDbObjectId keyed = append(new AcDbXrecord, L"KEY");
    const AcDbObjectId first = append(new AcDbXrecord);
    const AcDbObjectId second = append(new AcDbXrecord);
    EXPECT_EQ(nodEntries(), before + 1) << "the dictionary is made once";
    // Closed: the caller opens it again by id, even for write.
    EXPECT_EQ(AcDbObjectPointer<AcDbObject>(first, AcDb::kForWrite).openStatus(), eOk);
    EXPECT_EQ(Tools::getFromDictionary(L"ZEFT_LAYER_MANAGER", L"key", id, &db), eOk);
    EXPECT_EQ(id, keyed);
    EXPECT_EQ(Tools::getFromDictionary(L"ZEFT_LAYER_MANAGER", nullptr, id, &db), Acad::eInvalidKey);

    AcDbDictionary* dict = Tools::openDictionary(L"ZEFT_LAYER_MANAGER", AcDb::kForRead, &db, 0);
    ASSERT_NE(dict, nullptr);
    std::wstring k1, k2;
    EXPECT_EQ(dict->nameAt(first, k1), eOk);
    EXPECT_EQ(dict->nameAt(second, k2), eOk);
    EXPECT_NE(k1, k2);
    EXPECT_EQ(dict->numEntries(), 3);
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
    EXPECT_EQ(nodEntries(), before + 1);
}

// A drawing before R13 has no named-object dictionary and no OBJECTS section.
class R12Drawing : public DictionaryAccess, public ::testing::WithParamInterface<std::string> {};

TEST_P(R12Drawing, AppendFailsAndLeavesTheDrawingAsItWas)
{
    std::string bytes = "0\nSECTION\n2\nHEADER\n9\n$ACADVER\n1\nAC1009\n0\nENDSEC\n"
                        "0\nSECTION\n2\nENTITIES\n0\nLINE\n8\n0\n10\n0\n20\n0\n30\n0\n11\n1\n21\n1\n31\n0\n"
                        "0\nENDSEC\n0\nEOF\n";
    if (!GetParam().empty()) {
        const std::string path = std::string(ZEFT_SOURCE_DIR) + "/../shared/corpus/dxf/" + GetParam();
        if (!std::filesystem::exists(path)) GTEST_SKIP() << "corpus drawing not found: " << path;
        std::ostringstream s;
        s << std::ifstream(path, std::ios::binary).rdbuf();
        bytes = s.str();
    }
    AcApDocument r12(AcDbDatabase::readDxfBytes(bytes, "r12.dxf"));
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
    EXPECT_EQ(r12Db->dbmod(), dbmod);
    EXPECT_EQ(r12Db->dxfText(), text);
}

INSTANTIATE_TEST_SUITE_P(Drawings, R12Drawing,
                         ::testing::Values("", "ezdxf/integration_tests/data/POLI-ALL210_12.DXF",
                                           "ezdxf/integration_tests/data/cc_dxflib.dxf"));

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
    EXPECT_EQ(Util::getStandardFromDictionary(&db), standardId);
    EXPECT_EQ(Util::getFieldsSeparator(&db), L"-");
    EXPECT_EQ(chosenRule(0, false), L"Model");
    EXPECT_EQ(chosenRule(1, false), L"Model");
    EXPECT_EQ(chosenRule(2, false), L"Doc");
    EXPECT_EQ(chosenRule(1, true), L"Draft");
    EXPECT_EQ(chosenRule(2, true), L"Draft");
    // Drafting does not stand in for a working mode.
    EXPECT_EQ(chosenRule(-1, true), L"none");
    EXPECT_EQ(chosenRule(3, false), L"none");
    EXPECT_EQ(chosenRule(3, true), L"none");
    Fields fields;
    EXPECT_FALSE(Util::getRuleFromDictionary(&db, ApplicationContext(&db), fields)) << "a fresh context has no mode";

    // The ids the standard refers to are the rules chosen.
    AcDbObjectPointer<ZEFTLayerRule> draft(Util::getDraftRuleFromDictionary(&db), AcDb::kForRead);
    ASSERT_EQ(draft.openStatus(), eOk);
    draft->getFields(fields);
    EXPECT_EQ(fields, (Fields{{L"Building Name", L"=BUILDING()", true}, {L"Which", L"Draft", false}}));
}

TEST_F(StandardLookups, FunctionsByExactNameAndExceptionByClass)
{
    installStandard();
    EXPECT_TRUE(Util::getExceptionFromDictionary(&db).isNull());
    const AcDbObjectId first = append(function(L"BUILDING", L"first").release());
    const AcDbObjectId exception = append(new ZEFTRuleException);
    append(function(L"BUILDING", L"second").release());
    append(new ZEFTRuleException);
    EXPECT_EQ(Util::getFunctionFromDictionary(&db, L"BUILDING"), first);
    EXPECT_TRUE(Util::getFunctionFromDictionary(&db, L"Building").isNull());
    EXPECT_EQ(Util::getExceptionFromDictionary(&db), exception);
}

TEST_F(StandardLookups, ClonesAreTheCallersFreeCopies)
{
    installStandard();
    append(function(L"F1", L"d1").release());
    append(enumeration(L"Levels", {L"RDC"}).release());
    append(function(L"F2", L"d2").release());
    append(enumeration(L"LEVELS", {L"upper"}).release());
    append(enumeration(L"Levels", {L"second"}).release());
    auto* exception = new ZEFTRuleException;
    exception->addPair(L"AcDbViewport", L"Frames");
    const AcDbObjectId exceptionId = append(exception);

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
    EXPECT_EQ(names, (Strings{L"", L"F1", L"F2"}));
    Util::getNamesFromEnums(enums, names);
    EXPECT_EQ(names, (Strings{L"Levels", L"LEVELS", L"Levels"}));
    Util::getNamesFromEnums({}, names);
    EXPECT_TRUE(names.empty());

    Strings values{L"kept"};
    Util::getEnumValues(L"levels", enums, values);
    EXPECT_EQ(values, (Strings{L"kept"}));
    Util::getEnumValues(L"Levels", enums, values);
    EXPECT_EQ(values, (Strings{L"RDC"}));
}

}  // namespace
