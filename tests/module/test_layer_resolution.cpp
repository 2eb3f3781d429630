// From an entity to its layer: the evaluator, the context, exceptions and
// imposed layers, layer creation and resolution, function names and helps.
#include <gtest/gtest.h>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "moduletestenv.h"
#include "suite/wybase.h"
#include "suite/zeftprojecteditor.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftresolutionbatch.h"
#include "zeftlayermanager/zeftruleevaluator.h"
#include "zeftlayermanager/zeftrxclassinfo.h"

namespace {

using Util = ZEFTLayerManagerUtil;
using Editor = ZEFTProjectEditor;
using moduletest::Fields;
using moduletest::ids;
using moduletest::Strings;

RuleField lit(const std::wstring& v) { return {L"", v, false}; }
RuleField fn(const std::wstring& v) { return {L"", v, true}; }

class Resolution : public moduletest::ModuleTest {
protected:
    // A drawing with suite entities known from CLASSES only: a mould (A00),
    // two bars whose class derives from the mould's (A01, A07), an image
    // (A02), a mesh cut symbol (A03), a "QRV" object (A04), and the
    // paper-space viewports 1 (A05) and 2 (A06).
    void SetUp() override
    {
        ModuleTest::SetUp();
        doc = acDocManager->open(AcDbDatabase::readDxfBytes(moduletest::dataFile("module-resolution.dxf"), "fixture.dxf"));
        db = doc->database();
    }
    void TearDown() override { acDocManager->close(doc); }

    // The default standard's rules and exceptions, with user functions.
    void installStandard()
    {
        ASSERT_TRUE(moduletest::installStandardText(db, moduletest::dataFile("module-resolution.std"), L"resolution.std"));
    }
    // "Bâtiment A" with level "Niveau 1" (active) and view "Coupe AA".
    void makeProject(std::int32_t mode = 0)
    {
        ASSERT_EQ(Editor::setBuildingName(db, L"Bâtiment A"), Acad::eOk);
        ASSERT_EQ(Editor::setProjectName(db, L"Maison"), Acad::eOk);
        ASSERT_EQ(Editor::setWorkingMode(db, mode), Acad::eOk);
        ASSERT_EQ(Editor::addEntry(db, ZEFTProjectKind::kLevel, L"Niveau 1", L"", L"Plan N1", &level), Acad::eOk);
        ASSERT_EQ(Editor::addEntry(db, ZEFTProjectKind::kView, L"Coupe AA", L"Coupe", L"Plan C", &view), Acad::eOk);
        ASSERT_EQ(Editor::setActiveView(db, level), Acad::eOk);
    }
    AcDbObjectId add(AcDbEntity* entity, AcDbObjectId owner = {}) { return moduletest::addEntity(db, entity, owner); }
    AcDbObjectId line() { return moduletest::addLine(db); }
    AcDbObjectId at(const char* handle) { return db->idOf(AcDbHandle(std::stoull(handle, nullptr, 16))); }
    ApplicationContext context(const wchar_t* command = nullptr, AcDbObjectId object = {})
    {
        ApplicationContext ctx;
        Util::getApplicationContext(ctx, db, command, object);
        return ctx;
    }
    std::wstring evaluate(AcDbObjectId id, const Fields& fields, const ApplicationContext& ctx)
    {
        ZEFTRuleEvaluator evaluator(id, fields);
        evaluator.evaluate(ctx);
        return evaluator.getEvaluatedLayerName();
    }
    std::wstring layerOf(AcDbObjectId id)
    {
        AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
        return entity->layer();
    }

    AcApDocument* doc = nullptr;
    AcDbDatabase* db = nullptr;
    AcDbObjectId level, view;
};

TEST(Evaluator, FunctionFormsJoiningAndCleaning)
{
    // A call is "=NAME()", nothing around it.
    const std::pair<const wchar_t*, const wchar_t*> calls[] = {{L"=LEVEL/VIEW()", L"LEVEL/VIEW"}, {L"=()", L""}, {L"==()", L"="}};
    for (const auto& [value, expected] : calls) {
        std::wstring name = L"unset";
        EXPECT_TRUE(ZEFTRuleEvaluator::isFunction(value, &name)) << value;
        EXPECT_EQ(name, expected);
    }
    EXPECT_TRUE(ZEFTRuleEvaluator::isFunction(L"=X()", nullptr));
    for (const wchar_t* literal : {L"", L"=", L"()", L"=(", L"=X(", L"=X(Y", L"X()", L"=X( )", L"=X)(", L" =X()"}) {
        std::wstring name = L"unset";
        EXPECT_FALSE(ZEFTRuleEvaluator::isFunction(literal, &name)) << literal;
        EXPECT_EQ(name, L"unset");
    }

    struct Join {
        Fields fields;
        const wchar_t* separator;
        std::wstring expected;
    };
    const Join joins[] = {
        {{lit(L"A"), lit(L""), lit(L"C")}, L"_", L"A_C"},
        {{lit(L""), lit(L"B")}, L"_", L"_B"},
        {{lit(L"A"), lit(L"B")}, L",", L"AB"},  // a separator of removed characters is lost
        {{lit(L"  A ?")}, L"_", L"A "},         // trimmed before the removal
        {{lit(L"<a>/b\\\":?*|,='#~!@$%^&;`c")}, L"_", L"abc"},
        {{lit(std::wstring(256, L'x'))}, L"_", std::wstring(255, L'x')},
        {{}, L"_", L""},
    };
    for (const Join& j : joins) EXPECT_EQ(ZEFTRuleEvaluator::getEvaluatedLayerName(j.fields, j.separator), j.expected) << j.expected;

    Strings names;
    ZEFTRuleEvaluator::getPredefinedFunctionNames(names);
    EXPECT_EQ(names, (Strings{L"PROJECT", L"BUILDING", L"LEVEL", L"VIEW NAME", L"VIEW TYPE", L"PLAN NAME",
                              L"PROJECTION", L"LEVEL/VIEW"}));
}

TEST_F(Resolution, FunctionsAnswerFromProjectThenUserFunctionsThenName)
{
    installStandard();
    const AcDbObjectId ln = line();
    const Fields building{fn(L"=BUILDING()")};
    EXPECT_EQ(evaluate(ln, building, context()), L"BUILDING") << "no project: the bare name";
    makeProject();
    ApplicationContext ctx = context();
    EXPECT_EQ(evaluate(ln, {fn(L"=PROJECT()"), fn(L"=BUILDING()")}, ctx), L"Maison. Bâtiment A");
    // Case counts: "level" is the user function, not LEVEL.
    EXPECT_EQ(evaluate(ln, {fn(L"=level()")}, ctx), L"petit niveau");
    EXPECT_EQ(evaluate(ln, {fn(L"=FOO()"), fn(L"=()"), fn(L"=VIEW TYPE()"), lit(L"z")}, ctx), L"FOO. VIEW TYPE. z");
    // User functions: the class itself, then the nearest base class, then the default.
    EXPECT_EQ(evaluate(ln, {fn(L"=GENERAL TYPE()")}, ctx), L"Lignes");
    const AcDbObjectId circle = add(new AcDbCircle({0, 0, 0}, 1));
    EXPECT_EQ(evaluate(circle, {fn(L"=GENERAL TYPE()")}, ctx), L"Courbes");
    EXPECT_EQ(evaluate(at("A01"), {fn(L"=GENERAL TYPE()")}, ctx), L"Moules");
    ZEFTRuleEvaluator byClass(std::wstring(L"AcDbText"), {fn(L"=GENERAL TYPE()")});
    byClass.evaluate(ctx);
    EXPECT_EQ(byClass.getEvaluatedLayerName(), L"Divers");
    // Predefined only: user functions are not asked.
    ZEFTRuleEvaluator predefined(ln, {fn(L"=GENERAL TYPE()"), fn(L"=BUILDING()")});
    predefined.evaluatePredefined(ctx);
    Fields out{lit(L"stale")};
    predefined.getEvaluatedFields(out);
    EXPECT_EQ(out, (Fields{fn(L"GENERAL TYPE"), fn(L"Bâtiment A")}));
}

TEST_F(Resolution, LevelViewFollowsTheContext)
{
    makeProject();
    const AcDbObjectId ln = line(), other = line();
    ASSERT_EQ(Editor::assignEntities(db, view, ids({other})), Acad::eOk);
    const Fields lv{fn(L"=LEVEL/VIEW()")};
    ApplicationContext ctx = context(nullptr, ln);
    EXPECT_FALSE(ctx.viewId.isValid()) << "no level holds the line yet";
    EXPECT_EQ(evaluate(ln, lv, ctx), L"Niveau 1") << "mode 0: the active level";
    ctx.viewId = view;
    EXPECT_EQ(evaluate(ln, lv, ctx), L"") << "outside drafts a view id names its level";
    ctx.draftContext = true;
    EXPECT_EQ(evaluate(ln, lv, ctx), L"Coupe AA");
    EXPECT_EQ(evaluate(ln, {fn(L"=PLAN NAME()"), fn(L"=VIEW NAME()")}, ctx), L"Plan C_Coupe AA");
    ctx = context(nullptr, ln);
    ctx.workingMode = 1;
    EXPECT_EQ(evaluate(other, lv, ctx), L"Coupe AA") << "mode 1: the view holding the object";
    ctx.workingMode = -1;
    EXPECT_EQ(evaluate(ln, {lit(L"a"), fn(L"=LEVEL/VIEW()"), lit(L"b")}, ctx), L"a_b");

    ASSERT_EQ(Editor::assignEntities(db, level, ids({ln})), Acad::eOk);
    EXPECT_EQ(context(L"line", ln).viewId, level);
    EXPECT_EQ(evaluate(ln, {fn(L"=LEVEL()")}, context(L"line", ln)), L"Niveau 1");
}

TEST_F(Resolution, ImagesAndCutSymbolsAreNamedAfterWhatTheyStandFor)
{
    installStandard();
    makeProject();
    const Fields type{fn(L"=GENERAL TYPE()")};
    const ApplicationContext ctx = context();
    EXPECT_EQ(evaluate(at("A02"), type, ctx), L"Divers") << "an image showing nothing stays an image";
    ASSERT_EQ(Editor::setImageReference(db, at("A02"), at("A01")), Acad::eOk);
    ZEFTRuleEvaluator image(at("A02"), type);
    image.evaluate(ctx);
    EXPECT_EQ(image.getEvaluatedLayerName(), L"Moules");
    image.evaluate(ctx);  // converted once and for all
    EXPECT_EQ(image.getEvaluatedLayerName(), L"Moules");
    EXPECT_EQ(evaluate(at("A03"), type, ctx), L"Coupes");
}

TEST_F(Resolution, ContextFromCommandProjectAndMouldLists)
{
    ApplicationContext ctx = context();
    EXPECT_FALSE(ctx.draftContext);
    EXPECT_TRUE(ctx.modelRulesActive);
    EXPECT_EQ(ctx.workingMode, -1);
    EXPECT_TRUE(ctx.mouldEntities.empty());
    EXPECT_TRUE(context(L"ZEFTDCALC").draftContext);
    EXPECT_TRUE(context(L"zeftvtopbottom").draftContext);
    EXPECT_FALSE(context(L"zeftdcalcx").draftContext);

    makeProject(1);
    ASSERT_EQ(Editor::setModelRulesActive(db, false), Acad::eOk);
    ASSERT_EQ(Editor::addMouldEntities(db, L"MouleList", ids({at("A01")})), Acad::eOk);
    ASSERT_EQ(Editor::addMouldEntities(db, L"ZEFT_MOULD_ENTITIES", ids({at("A00")})), Acad::eOk);
    ctx = context(L"line");
    EXPECT_EQ(ctx.workingMode, 1);
    EXPECT_FALSE(ctx.modelRulesActive);
    EXPECT_TRUE(context(L"ZeftForceCalc").modelRulesActive);
    EXPECT_EQ(ctx.mouldEntities, ids({at("A00"), at("A01")})) << "lists in their order";

    // Moulds answer by class: the bar derives from the mould's class.
    EXPECT_EQ(Util::getMouldEntity(at("A01"), ctx), at("A00"));
    EXPECT_EQ(Util::getMouldEntity(at("A02"), ctx), AcDbObjectId());
    EXPECT_EQ(Util::getMouldEntity(line(), ctx), AcDbObjectId()) << "the host's entities have no mould";
}

TEST_F(Resolution, WhereTheRulesApply)
{
    installStandard();
    const ApplicationContext ctx = context();
    std::wstring imposed = L"kept";
    EXPECT_TRUE(Util::layerRulesAplicable(line(), ctx, imposed));
    EXPECT_EQ(imposed, L"kept");
    EXPECT_FALSE(Util::layerRulesAplicable(at("A04"), ctx, imposed)) << "QRV classes";
    EXPECT_FALSE(Util::layerRulesAplicable(at("A05"), ctx, imposed)) << "the overall paper-space viewport";
    EXPECT_TRUE(Util::layerRulesAplicable(at("A06"), ctx, imposed));
    EXPECT_EQ(imposed, L"Frames") << "the first of two pairs";
    imposed.clear();
    const AcDbObjectId circle = add(new AcDbCircle({0, 0, 0}, 1));
    EXPECT_FALSE(Util::layerRulesAplicable(circle, ctx, imposed)) << "Auto...";
    EXPECT_EQ(Util::getImposedLayer(circle, ctx), L"");
    EXPECT_EQ(Util::getImposedLayer(at("A05"), ctx), L"Frames") << "placement is not checked";

    // A block definition is never layered.
    auto* block = new AcDbBlockTableRecord;
    block->setName(L"B");
    AcDbObjectId blockId;
    {
        AcDbObjectPointer<AcDbBlockTable> table(db->blockTableId(), AcDb::kForWrite);
        ASSERT_EQ(table->add(blockId, block), Acad::eOk);
        block->close();
    }
    EXPECT_FALSE(Util::layerRulesAplicable(add(new AcDbLine({0, 0, 0}, {1, 0, 0}), blockId), ctx, imposed));

    // Only entities of the context's drawing, and of a drawing a document holds.
    AcDbDatabase loose;
    ApplicationContext other = ctx;
    other.ignoreDatabase = true;
    EXPECT_FALSE(Util::layerRulesAplicable(moduletest::addLine(&loose), other, imposed));
    AcDbDatabase* second = acDocManager->open(std::make_unique<AcDbDatabase>())->database();
    const AcDbObjectId secondLine = moduletest::addLine(second);
    EXPECT_FALSE(Util::layerRulesAplicable(secondLine, ctx, imposed));
    acDocManager->close(acDocManager->documentOf(second));

    Strings layers{L"stale"};
    Util::getExceptionLayerNames(db, layers);
    EXPECT_EQ(layers, (Strings{L"Frames", L"Auto...", L"Second"}));
    ASSERT_TRUE(Util::removeLayerStandard(db));
    Util::getExceptionLayerNames(db, layers);
    EXPECT_TRUE(layers.empty());
    EXPECT_TRUE(Util::layerRulesAplicable(circle, ctx, imposed)) << "no exception list: every class";
}

TEST_F(Resolution, EntitiesMoveToTheLayerTheirRuleGives)
{
    installStandard();
    makeProject();
    const AcDbObjectId ln = line();
    ASSERT_EQ(Editor::assignEntities(db, level, ids({ln})), Acad::eOk);
    const AcDbObjectId layerId = Util::processEntityLayerRules(ln, context(L"line", ln));
    ASSERT_TRUE(layerId.isValid());
    EXPECT_EQ(layerOf(ln), L"Bâtiment A. Niveau 1");
    EXPECT_FALSE(Util::hasXDataLayerRule(ln)) << "the host's entities carry no rule";
    AcDbObjectIdArray registered;
    ASSERT_EQ(Editor::registeredLayers(db, registered), Acad::eOk);
    EXPECT_EQ(registered, ids({layerId}));
    {
        AcDbObjectPointer<AcDbLayerTableRecord> layer(layerId, AcDb::kForRead);
        EXPECT_EQ(layer->linetypeName(), L"Continuous");
    }

    // An existing layer is turned on, thawed and unlocked, unless inside a view.
    auto setStates = [&](bool v) {
        AcDbObjectPointer<AcDbLayerTableRecord> layer(layerId, AcDb::kForWrite);
        layer->setIsOff(v);
        layer->setIsFrozen(v);
        layer->setIsLocked(v);
    };
    auto states = [&] {
        AcDbObjectPointer<AcDbLayerTableRecord> layer(layerId, AcDb::kForRead);
        return int(layer->isOff()) + int(layer->isFrozen()) + int(layer->isLocked());
    };
    setStates(true);
    ApplicationContext inView = context(L"line", ln);
    inView.viewId = level;
    EXPECT_EQ(Util::processEntityLayerRules(ln, inView), layerId);
    EXPECT_EQ(states(), 3);
    EXPECT_EQ(Util::processEntityLayerRules(ln, context(L"line")), layerId);
    EXPECT_EQ(states(), 0);

    // An empty name leaves the entity on "0".
    ASSERT_EQ(Editor::setBuildingName(db, L""), Acad::eOk);
    ASSERT_EQ(Editor::setActiveView(db, AcDbObjectId()), Acad::eOk);
    const AcDbObjectId bare = line();
    {
        AcDbObjectPointer<AcDbEntity> entity(bare, AcDb::kForWrite);
        entity->setLayer(layerId);
    }
    EXPECT_EQ(Util::processEntityLayerRules(bare, context(L"line")), AcDbObjectId());
    EXPECT_EQ(layerOf(bare), L"0");

    // Model rules inactive: nothing changes, not even layer "0".
    ASSERT_EQ(Editor::setModelRulesActive(db, false), Acad::eOk);
    {
        AcDbObjectPointer<AcDbEntity> entity(bare, AcDb::kForWrite);
        entity->setLayer(layerId);
    }
    EXPECT_EQ(Util::processEntityLayerRules(bare, context(L"line")), AcDbObjectId());
    EXPECT_EQ(layerOf(bare), L"Bâtiment A. Niveau 1");

    // An imposed layer needs no rule.
    EXPECT_EQ(layerOf(at("A06")), L"0");
    Util::processEntityLayerRules(at("A06"), context(L"zeftforcecalc"));
    EXPECT_EQ(layerOf(at("A06")), L"Frames");
}

TEST_F(Resolution, SuiteEntitiesCarryTheirRuleFromMouldOrStandard)
{
    installStandard();
    makeProject();
    ASSERT_EQ(Editor::addMouldEntities(db, L"MeshMouldEntities", ids({at("A00")})), Acad::eOk);
    const ApplicationContext ctx = context(L"line");
    // The bar's mould gets the standard's rule, and the bar inherits it.
    const Fields mouldRule{lit(L"Moule"), lit(L"perso")};
    ASSERT_TRUE(Util::writeXDataLayerRule(at("A00"), mouldRule, 0));
    EXPECT_TRUE(Util::processEntityLayerRules(at("A01"), ctx).isValid());
    EXPECT_EQ(layerOf(at("A01")), L"Moule. perso") << "the mould's rule";
    Fields fields;
    int type = -1;
    ASSERT_TRUE(Util::readXDataLayerRule(at("A01"), fields, type));
    EXPECT_EQ(fields, mouldRule);
    // In one command end, entities of one suite class keep their own rules.
    ASSERT_TRUE(Util::writeXDataLayerRule(at("A07"), {lit(L"Barre")}, 0));
    {
        ZEFTResolutionBatch batch(db);
        for (const char* h : {"A01", "A07"}) Util::processEntityLayerRules(at(h), ctx);
    }
    EXPECT_EQ(layerOf(at("A01")), L"Moule. perso");
    EXPECT_EQ(layerOf(at("A07")), L"Barre");
    // A mould of the lists takes the standard's rule, never another mould's.
    Util::createEntityLayerRule(at("A00"), ctx);
    fields.clear();
    ASSERT_TRUE(Util::readXDataLayerRule(at("A00"), fields, type));
    EXPECT_EQ(fields, (Fields{fn(L"=BUILDING()"), fn(L"=LEVEL/VIEW()")}));
    EXPECT_EQ(type, 0);

    // In a draft the view's rule goes onto the entity, with origin 1 and type 1.
    ApplicationContext draft = context(L"zeftdcalc");
    draft.viewId = view;
    const AcDbObjectId ln = line();
    EXPECT_TRUE(Util::processEntityLayerRules(ln, draft).isValid());
    EXPECT_EQ(layerOf(ln), L"Bâtiment A. Coupe AA. Lignes");
    EXPECT_TRUE(Util::hasXDataLayerRule(view));
    ASSERT_TRUE(Util::readXDataLayerRule(ln, fields, type));
    EXPECT_EQ(type, 1);
    std::wstring name;
    EXPECT_TRUE(Util::getEntityLayerName(ln, name, draft));
    EXPECT_EQ(name, L"Bâtiment A. Coupe AA. Lignes");
    EXPECT_FALSE(Util::getEntityLayerName(ln, name, ctx)) << "outside drafts";
    EXPECT_FALSE(Util::getEntityLayerName(at("A06"), name, draft));
    EXPECT_EQ(name, L"Frames");

    // In one command end, "=VIEW NAME()" answers for each entity's own view.
    AcDbObjectId other;
    ASSERT_EQ(Editor::addEntry(db, ZEFTProjectKind::kView, L"Coupe BB", L"", L"", &other), Acad::eOk);
    ASSERT_EQ(Editor::assignEntities(db, view, ids({at("A01")})), Acad::eOk);
    ASSERT_EQ(Editor::assignEntities(db, other, ids({at("A07")})), Acad::eOk);
    ZEFTResolutionBatch batch(db);
    EXPECT_EQ(evaluate(at("A01"), {fn(L"=VIEW NAME()")}, ctx), L"Coupe AA");
    EXPECT_EQ(evaluate(at("A07"), {fn(L"=VIEW NAME()")}, ctx), L"Coupe BB");
}

TEST_F(Resolution, FunctionNamesAndHelps)
{
    Strings names{L"stale"};
    Util::getAllFunctionNames(nullptr, names);
    EXPECT_EQ(names, Strings{L"stale"});
    Util::getAllFunctionNames(db, names);
    EXPECT_EQ(names.size(), 8u);
    installStandard();
    Util::getAllFunctionNames(db, names);
    ASSERT_EQ(names.size(), 10u);
    EXPECT_EQ(names[8], L"GENERAL TYPE");
    EXPECT_EQ(names[9], L"level");

    Strings helps{L"first"};
    Util::getFunctionHelpStrings({L"LEVEL", L"level", L"TYPE", L"PLAN NAME"}, helps);
    ASSERT_EQ(helps.size(), 5u) << "appended to";
    EXPECT_EQ(helps[1], L"If the entity is part of a level than it is the  level name.\nOtherwise is nothing.");
    EXPECT_EQ(helps[2], L"Custon user function.");
    EXPECT_EQ(helps[3], L"A code for each entity type.");
    EXPECT_EQ(helps[4], L"If entity is part of a layout than it is layout name.\nOtherwise nothing.");
}

TEST_F(Resolution, EntityClassTable)
{
    std::vector<ZEFTEntityClassInfo> classes;
    ZEFTRxClassInfo::GetEntitiesClassInfo(classes);
    using Info = ZEFTRxClassInfo;
    EXPECT_EQ(Info::GetEntityDisplayName(classes, L"AcDbLine"), L"Line");
    EXPECT_EQ(Info::GetEntityClassName(classes, L"Line"), L"AcDbLine");
    EXPECT_EQ(Info::GetEntityDisplayName(classes, L"ZEFTBar"), L"ZEFTBAR") << "known from the drawing";
    EXPECT_EQ(Info::GetEntityDisplayName(classes, L"ZEFTImageEntity"), L"") << "a helper class";
    EXPECT_EQ(Info::GetEntityDisplayName(classes, L"AcDbLayout"), L"") << "not an entity";
    EXPECT_EQ(Info::GetEntityDisplayName(classes, L"AcDbCurve"), L"") << "no DXF name";
    for (const auto& info : classes)
        if (info.className == L"ZEFTBar") {
            EXPECT_EQ(info.appName, L"Beltrix");
        }
}

}  // namespace
