// Re-layering at command end, driven through the host's own commands in
// scripts: what is collected, what is filtered, the deferral pair, copies
// through a viewport, locked layers and DBMOD.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/dbsymtb.h"
#include "host/hostcommands.h"
#include "moduletestenv.h"
#include "suite/zeftprojecteditor.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/zeftlayermanagercommands.h"
#include "zeftlayermanager/zeftlayermanagereditorreactor.h"

namespace {

using Util = ZEFTLayerManagerUtil;
using Editor = ZEFTProjectEditor;
using Layers = std::vector<std::wstring>;

const std::wstring kTarget = L"Bâtiment A-Niveau 1";

class Reactor : public moduletest::ModuleTest {
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        acedRegisterHostCommands();
        acutSetPrintSink([](const std::wstring&) {});
        gpLayerManagerEditorReactor = &reactor;
        doc = acDocManager->open(AcDbDatabase::readDxf(ZEFT_SOURCE_DIR "/examples/sample.dxf"));
        db = doc->database();
        // Building, then level or view; "Draft" in drafts.
        ASSERT_TRUE(moduletest::installStandardText(db, moduletest::dataFile("module-reactor.std"), L"reactor.std"));
        ASSERT_EQ(Editor::setBuildingName(db, L"Bâtiment A"), Acad::eOk);
        ASSERT_EQ(Editor::setWorkingMode(db, 0), Acad::eOk);
        ASSERT_EQ(Editor::addEntry(db, ZEFTProjectKind::kLevel, L"Niveau 1", L"", L"", &level), Acad::eOk);
        ASSERT_EQ(Editor::setActiveView(db, level), Acad::eOk);
        run("TILEMODE 1");
    }
    void TearDown() override
    {
        if (doc) acDocManager->close(doc);
        gpLayerManagerEditorReactor = nullptr;
        WyAutoTestUtils::SetATExport(false);
        acutSetPrintSink(nullptr);
    }

    // Runs the script and answers the layers of what it appended, in order.
    Layers run(const std::string& script)
    {
        const auto before = entities();
        const AcedScriptResult result = acedRunScript(dxf::fromUtf8(script), "test.scr");
        last = result.errors;
        Layers out;
        for (const AcDbObjectId& id : entities())
            if (std::find(before.begin(), before.end(), id) == before.end()) out.push_back(layerOf(id));
        return out;
    }
    std::vector<AcDbObjectId> entities()
    {
        std::vector<AcDbObjectId> ids;
        for (const AcDbObjectId& space : db->blockRecordIds()) {
            AcDbObjectPointer<AcDbBlockTableRecord> block(space, AcDb::kForRead);
            for (const AcDbObjectId& id : block->entityIds())
                if (!id.isErased()) ids.push_back(id);
        }
        return ids;
    }
    std::wstring layerOf(AcDbObjectId id)
    {
        AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
        return entity ? entity->layer() : L"?";
    }
    // The first model-space entity of a DXF type.
    std::string first(const wchar_t* dxfType)
    {
        AcDbObjectPointer<AcDbBlockTableRecord> ms(db->modelSpaceId(), AcDb::kForRead);
        for (const AcDbObjectId& id : ms->entityIds()) {
            AcDbObjectPointer<AcDbEntity> e(id, AcDb::kForRead);
            if (e->dxfRecordName() == dxfType) return id.handle().str();
        }
        return "";
    }
    AcDbObjectId layer(const wchar_t* name)
    {
        AcDbObjectPointer<AcDbLayerTable> table(db->layerTableId(), AcDb::kForRead);
        AcDbObjectId id;
        table->getAt(name, id);
        return id;
    }
    bool locked(const wchar_t* name)
    {
        AcDbObjectPointer<AcDbLayerTableRecord> rec(layer(name), AcDb::kForRead);
        return rec && rec->isLocked();
    }

    ZEFTLayerManagerEditorReactor reactor{true};
    ZEFTLayerManagerDatabaseReactor databaseReactor;
    AcApDocument* doc = nullptr;
    AcDbDatabase* db = nullptr;
    AcDbObjectId level;
    std::vector<std::string> last;
};

TEST_F(Reactor, CommandEndsRelayerWhatWasAppendedUnlessTheCommandIsFiltered)
{
    run("LAYER make Esquisse");
    const std::wstring sketch = L"Esquisse";
    struct Case {
        std::string script;
        Layers layers;
    };
    const std::string insert = first(L"INSERT");
    const Case cases[] = {
        {"LINE 0,0 10,0 20,0\nCIRCLE 5,5 2", {kTarget, kTarget, kTarget}},
        {"line 0,0 10,0 20,0 *cancel*", {kTarget, kTarget}},         // cancelled: still re-layered
        {"LINE 0,0 10,0 nowhere", {kTarget}},                        // failed: likewise
        {"ZEFTDCALC LINE 0,0 1,0", {L"Draft"}},                      // a draft command: the Draft rule
        {"ZEFTFORCECALC LINE 0,0 1,0", {kTarget}},
        {"ZEFTDEXPORT LINE 0,0 1,0", {sketch}},
        {"zeftpexport LINE 0,0 1,0", {sketch}},
        {"ZEFTDBCONNECT LINE 0,0 1,0", {sketch}},
        {"ZEFTCREATEDRAWINGSET LINE 0,0 1,0", {sketch}},
    };
    for (const Case& c : cases) EXPECT_EQ(run(c.script), c.layers) << c.script;
    // Exploding keeps the pieces on their own layers.
    for (const std::wstring& l : run("EXPLODE " + insert)) EXPECT_NE(l, kTarget);
    WyAutoTestUtils::SetATExport(true);
    EXPECT_EQ(run("LINE 0,0 1,0"), Layers{sketch}) << "automatic-test export mode";
}

TEST_F(Reactor, InViewModeEntitiesOfOneClassInOneBatchGetTheirOwnViews)
{
    // Two lines held by two views go through one command end: the name of
    // each comes from its own view, not from the first line of the batch.
    ASSERT_EQ(Editor::setWorkingMode(db, 1), Acad::eOk);
    AcDbObjectId views[2];
    const wchar_t* names[2] = {L"Coupe A", L"Coupe B"};
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(Editor::addEntry(db, ZEFTProjectKind::kView, names[i], L"", L"", &views[i]), Acad::eOk);
    ASSERT_EQ(Editor::setActiveView(db, AcDbObjectId()), Acad::eOk);
    const AcDbObjectId lines[2] = {moduletest::addLine(db), moduletest::addLine(db, 1)};
    for (int i = 0; i < 2; ++i) ASSERT_EQ(Editor::assignEntities(db, views[i], {lines[i]}), Acad::eOk);
    Util::lock(L"TEST");
    reactor.addObjectsToProcess({lines[0], lines[1]});
    Util::unlock(L"TEST", AcDbObjectId());
    for (int i = 0; i < 2; ++i) EXPECT_EQ(layerOf(lines[i]), std::wstring(L"Bâtiment A-") + names[i]);
}

TEST_F(Reactor, CopiesAreRelayeredOnTheModelTabButNotThroughAViewport)
{
    const std::string line = first(L"LINE");
    const std::wstring source = layerOf(db->idOf(AcDbHandle(std::stoull(line, nullptr, 16))));
    EXPECT_EQ(run("COPY " + line + " 0,100"), Layers{kTarget});
    EXPECT_EQ(run("TILEMODE 0\nMSPACE\nCOPY " + line + " 0,100"), Layers{source}) << (last.empty() ? "" : last[0]);
    EXPECT_EQ(run("PSPACE\nCOPY " + line + " 0,100"), Layers{kTarget}) << "paper space of the layout";
}

TEST_F(Reactor, LockDefersOverSeveralCommandsAndRestoresTheCollection)
{
    reactor.m_objectsToProcess.append(db->idOf(AcDbHandle(std::stoull(first(L"LINE"), nullptr, 16))));
    const AcDbObjectIdArray outer = reactor.m_objectsToProcess;
    Util::lock(L"OUTER");
    for (const std::wstring& l : run("LINE 0,0 1,0\nCIRCLE 0,0 1\nTEXT 0,0 1 Étage"))
        EXPECT_NE(l, kTarget) << "nothing moves while locked";
    ASSERT_EQ(reactor.m_objectsToProcess.size(), 3u);
    ASSERT_EQ(reactor.m_savedObjects, std::vector<AcDbObjectIdArray>{outer});
    // Handed in explicitly: processed now, never again from the saved collection.
    reactor.addObjectToProcess(outer.first());
    EXPECT_EQ(reactor.m_savedObjects.front().size(), 0u);
    const AcDbObjectIdArray collected = reactor.m_objectsToProcess;
    Util::unlock(L"OUTER", collected.first());
    for (const AcDbObjectId& id : collected) EXPECT_EQ(layerOf(id), kTarget);
    EXPECT_EQ(reactor.m_lockCount, 0);
    EXPECT_TRUE(reactor.m_objectsToProcess.isEmpty()) << "the saved (now empty) collection is back";

    // Every entity to one layer: one group, in which an entity collected twice appears twice.
    std::vector<ZEFTObjectLayers> bindings;
    ASSERT_EQ(Editor::objectLayers(db, bindings), Acad::eOk);
    const std::size_t before = bindings.size();
    const AcDbObjectId line = collected.first();
    Util::lock(L"PAIR");
    reactor.addObjectsToProcess(AcDbObjectIdArray{line, line});
    Util::unlock(L"PAIR", AcDbObjectId());
    bindings.clear();
    ASSERT_EQ(Editor::objectLayers(db, bindings), Acad::eOk);
    ASSERT_EQ(bindings.size(), before + 1);
    EXPECT_EQ(bindings.back().object, layer(kTarget.c_str()));
    EXPECT_EQ(bindings.back().layers, (AcDbObjectIdArray{line, line}));

    // Unlock without lock: the depth goes below zero and command ends still process.
    Util::unlock(L"NONE", AcDbObjectId());
    EXPECT_EQ(reactor.m_lockCount, -1);
    EXPECT_EQ(run("LINE 0,0 1,0"), Layers{kTarget});
}

TEST_F(Reactor, LockedLayersAreUnlockedForTheMoveAndDbmodKeepsTheToggling)
{
    const std::string target = "\"" + dxf::toUtf8(kTarget) + "\"";
    run("LAYER make " + target + "\nLAYER lock " + target + "\nLAYER make Esquisse\nLAYER lock Esquisse");
    ASSERT_TRUE(last.empty()) << last[0];
    ASSERT_TRUE(locked(L"Esquisse") && locked(kTarget.c_str()));
    EXPECT_EQ(run("LINE 0,0 1,0"), Layers{kTarget}) << "from one locked layer to another";
    EXPECT_TRUE(locked(L"Esquisse") && locked(kTarget.c_str()));

    // Only the locks toggle (the entity lies in a block definition): DBMOD is unchanged.
    AcDbObjectId inBlock;
    for (const AcDbObjectId& id : db->blockRecordIds())
        if (id != db->modelSpaceId() && id != db->paperSpaceId()) {
            AcDbObjectPointer<AcDbBlockTableRecord> block(id, AcDb::kForRead);
            if (!block->entityIds().empty()) inBlock = block->entityIds().front();
        }
    ASSERT_TRUE(inBlock.isValid());
    const int dbmod = db->dbmod();
    Util::lock(L"BLOCK");
    reactor.addObjectToProcess(inBlock);
    Util::unlock(L"BLOCK", AcDbObjectId());
    EXPECT_EQ(db->dbmod(), dbmod);
    EXPECT_TRUE(locked(L"Esquisse"));
}

TEST_F(Reactor, ADrawingClosedWhileCollectedLeavesEveryCollection)
{
    Util::lock(L"A");
    run("LINE 0,0 1,0");
    Util::lock(L"B");
    run("LINE 0,0 1,0");
    acDocManager->close(doc);
    doc = nullptr;
    EXPECT_TRUE(reactor.m_objectsToProcess.isEmpty());
    for (const AcDbObjectIdArray& saved : reactor.m_savedObjects) EXPECT_TRUE(saved.isEmpty());
    Util::unlock(L"B", AcDbObjectId());
    Util::unlock(L"A", AcDbObjectId());
    EXPECT_EQ(reactor.m_lockCount, 0);
}

TEST_F(Reactor, TheStandardsCommandOnlyWarnsInADrawingSet)
{
    std::vector<std::wstring> shown;
    ZEFTUITools::setMessageBoxHandler([&](const std::wstring& caption, const std::wstring& text, unsigned flags) {
        shown.push_back(caption + L"|" + text + L"|" + std::to_wstring(flags));
        return IDOK;
    });
    ASSERT_EQ(Editor::setDrawingSet(db, true), Acad::eOk);
    ZEFTLayerManagerCommands::ZEFTLayerStandards();
    ZEFTUITools::setMessageBoxHandler(nullptr);
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0], L"Beltrix gestion des calques|" + WyPrompts::getPrompt(L"ZEFTTOOLS", 14111) + L"|48");
}

}  // namespace
