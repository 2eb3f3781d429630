// The project object and the mould lists kept in the drawing, as the layer
// manager reads them, and the editor that writes them.
#include <gtest/gtest.h>

#include "moduletestenv.h"
#include "suite/zeftmouldentities.h"
#include "suite/zeftproject.h"
#include "suite/zeftprojecteditor.h"

namespace {

using namespace Acad;
using AcDb::kForRead;
using AcDb::kForWrite;
using moduletest::addLine;
using moduletest::ids;
using E = ZEFTProjectEditor;
using Kind = ZEFTProjectKind;

// Puts `obj` under `key` of the named-object dictionary.
AcDbObjectId putNamed(AcDbDatabase& db, const wchar_t* key, AcDbObject* obj)
{
    AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), kForWrite);
    AcDbObjectId id;
    EXPECT_EQ(nod->setAt(key, obj, id), eOk);
    obj->close();
    return id;
}

AcDbObjectId add(AcDbDatabase& db, Kind kind, const wchar_t* name, const wchar_t* plan = L"")
{
    AcDbObjectId id;
    EXPECT_EQ(E::addEntry(&db, kind, name, kind == Kind::kView ? L"Section" : L"", plan, &id), eOk);
    return id;
}

std::wstring levelName(AcDbDatabase& db, AcDbObjectId id)
{
    std::wstring name = L"unset";
    EXPECT_TRUE(zeftGetProjectObject(&db)->getLevelName(id, name));
    return name;
}

std::wstring viewName(AcDbDatabase& db, AcDbObjectId object, AcDbObjectId view)
{
    std::wstring name = L"unset";
    EXPECT_TRUE(zeftGetProjectObject(&db)->getViewName(object, view, name));
    return name;
}

AcDbObjectId holder(AcDbDatabase& db, AcDbObjectId object)
{
    AcDbObjectId id = db.layerZero();
    EXPECT_TRUE(zeftGetProjectObject(&db)->getViewOfObject(object, id));
    return id;
}

TEST(ProjectObject, AbsentOrForeignDataIsNoProjectAndIsLeftAlone)
{
    AcDbDatabase db;
    EXPECT_EQ(zeftGetProjectObject(&db), nullptr);
    AcDbObjectId dict = putNamed(db, L"ZEFT_PROJECT", new AcDbDictionary);
    EXPECT_EQ(zeftGetProjectObject(&db), nullptr);  // empty
    {
        AcDbObjectPointer<AcDbDictionary> d(dict, kForWrite);
        AcDbObjectPointer<AcDbXrecord> level(new AcDbXrecord);
        level->setFromRbChain({ResBuf::int16(70, 1), ResBuf::text(300, L"L")});
        AcDbObjectId id;
        ASSERT_EQ(d->setAt(L"PROJECT", level.object(), id), eOk);
    }
    EXPECT_EQ(zeftGetProjectObject(&db), nullptr);  // first entry is no project record
    EXPECT_EQ(E::createProject(&db), eNotThatKindOfClass);
    EXPECT_EQ(E::addEntry(&db, Kind::kLevel, L"L", L"", L""), eNotThatKindOfClass);
    EXPECT_EQ(AcDbObjectPointer<AcDbDictionary>(dict, kForRead)->numEntries(), 1);

    AcDbDatabase other;
    putNamed(other, L"ZEFT_PROJECT", new AcDbXrecord);
    EXPECT_EQ(zeftGetProjectObject(&other), nullptr);
    EXPECT_EQ(E::setProjectName(&other, L"P"), eNotThatKindOfClass);
}

TEST(ProjectObject, SettingsLevelsViewsAndEntitiesSurviveTheDrawing)
{
    AcDbDatabase db;
    const AcDbObjectId a = addLine(&db, 0), b = addLine(&db, 10), c = addLine(&db, 20);
    ASSERT_EQ(E::createProject(&db), eOk);
    auto p = zeftGetProjectObject(&db);
    ASSERT_NE(p, nullptr);
    std::int32_t mode = 7;
    bool rules = false;
    std::wstring text = L"unset";
    EXPECT_TRUE(p->getWorkingMode(mode) && mode == -1);
    EXPECT_TRUE(p->getModelRulesActive(rules) && rules);
    EXPECT_TRUE(p->getBuildingName(text) && text.empty());
    EXPECT_EQ(levelName(db, AcDbObjectId()), L"");
    EXPECT_EQ(holder(db, a), AcDbObjectId());  // held by nothing: success, null

    const AcDbObjectId n0 = add(db, Kind::kLevel, L"Niveau 0", L"RDC"), n1 = add(db, Kind::kLevel, L"Niveau 1");
    const AcDbObjectId cut = add(db, Kind::kView, L"Niveau 1");  // kinds have their own names
    for (const wchar_t* bad : {L"", L"  ", L"a\nb"})
        EXPECT_EQ(E::addEntry(&db, Kind::kView, bad, L"", L""), eInvalidInput);
    ASSERT_EQ(E::setProjectName(&db, L"R\u00e9sidence"), eOk);
    ASSERT_EQ(E::setBuildingName(&db, L"B\u00e2timent A"), eOk);
    ASSERT_EQ(E::setWorkingMode(&db, 0), eOk);
    ASSERT_EQ(E::setModelRulesActive(&db, false), eOk);
    ASSERT_EQ(E::setActiveView(&db, n1), eOk);
    EXPECT_EQ(E::setActiveView(&db, a), eKeyNotFound);
    ASSERT_EQ(E::assignEntities(&db, n0, ids({a, b})), eOk);
    ASSERT_EQ(E::assignEntities(&db, cut, ids({b})), eOk);  // b moves
    EXPECT_EQ(E::assignEntities(&db, n0, ids({c, n1})), eNotThatKindOfClass);
    EXPECT_EQ(holder(db, c), AcDbObjectId());  // refused as a whole
    ASSERT_EQ(E::setImageReference(&db, c, cut), eOk);

    auto back = AcDbDatabase::readDxfBytes(db.dxfText(), "project.dxf");
    for (AcDbDatabase* d : {&db, back.get()}) {
        SCOPED_TRACE(d == &db ? "in memory" : "read back");
        auto id = [&](AcDbObjectId x) { return d->idOf(x.handle()); };
        auto q = zeftGetProjectObject(d);
        ASSERT_NE(q, nullptr);
        AcDbObjectId active, shown;
        EXPECT_TRUE(q->getWorkingMode(mode) && mode == 0);
        EXPECT_TRUE(q->getModelRulesActive(rules) && !rules);
        EXPECT_TRUE(q->getProjectName(text) && text == L"R\u00e9sidence");
        EXPECT_TRUE(q->getBuildingName(text) && text == L"B\u00e2timent A");
        EXPECT_TRUE(q->getActiveView(active) && active == id(n1));
        EXPECT_EQ(holder(*d, id(a)), id(n0));
        EXPECT_EQ(holder(*d, id(b)), id(cut));
        EXPECT_EQ(levelName(*d, id(a)), L"Niveau 0");  // of the level holding it
        EXPECT_EQ(levelName(*d, id(n0)), L"Niveau 0");
        EXPECT_EQ(levelName(*d, id(b)), L"");           // held by a view
        EXPECT_EQ(levelName(*d, AcDbObjectId()), L"Niveau 1");
        EXPECT_EQ(viewName(*d, id(b), AcDbObjectId()), L"Niveau 1");
        EXPECT_EQ(viewName(*d, AcDbObjectId(), id(n0)), L"");  // a level is no draft view
        EXPECT_EQ(viewName(*d, AcDbObjectId(), AcDbObjectId()), L"");  // the active one is a level
        EXPECT_TRUE(q->getPlanName(id(n0), text) && text == L"RDC");
        EXPECT_TRUE(q->getReferencedObject(id(c), shown) && shown == id(cut));
        EXPECT_FALSE(q->getReferencedObject(id(a), shown));
        EXPECT_FALSE(q->getViewOfObject(AcDbObjectId(), active));
    }

    // Reading does not depend on what callers hold open.
    {
        AcDbObjectPointer<AcDbEntity> open(a, kForWrite);
        EXPECT_EQ(holder(db, a), n0);
    }
    ASSERT_EQ(E::renameEntry(&db, Kind::kLevel, L"niveau 0", L"Rez-de-chauss\u00e9e"), eOk);
    EXPECT_EQ(E::renameEntry(&db, Kind::kLevel, L"Niveau 1", L"REZ-DE-CHAUSS\u00e9E"), eDuplicateKey);
    EXPECT_EQ(levelName(db, a), L"Rez-de-chauss\u00e9e");
    ASSERT_EQ(E::removeEntry(&db, Kind::kView, L"niveau 1"), eOk);
    ASSERT_EQ(E::removeEntry(&db, Kind::kLevel, L"Niveau 1"), eOk);
    EXPECT_EQ(E::removeEntry(&db, Kind::kLevel, L"Niveau 1"), eKeyNotFound);
    AcDbObjectId none = a;
    EXPECT_TRUE(zeftGetProjectObject(&db)->getActiveView(none) && none.isNull());
    EXPECT_EQ(holder(db, b), AcDbObjectId());
    EXPECT_FALSE(zeftGetProjectObject(&db)->getReferencedObject(c, none));
    EXPECT_TRUE(AcDbObjectPointer<AcDbEntity>(b, kForRead)->xData(L"ZEFT_PROJECT").empty());  // no leftovers
    std::vector<ZEFTProjectEntry> entries;
    ASSERT_EQ(E::listEntries(&db, entries, true), eOk);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].entities, ids({a}));
}

TEST(ProjectObject, LayerReportsGoToTheirOwnRecords)
{
    AcDbDatabase db;
    const AcDbObjectId line = addLine(&db, 0), layer = db.layerZero();
    ASSERT_EQ(E::createProject(&db), eOk);
    const AcDbObjectId view = add(db, Kind::kView, L"Coupe A");
    auto p = zeftGetProjectObject(&db);
    AcDbObjectId previous = line;
    EXPECT_FALSE(p->selectView(line, previous));
    EXPECT_TRUE(p->selectView(view, previous) && previous.isNull());
    EXPECT_TRUE(p->setObjectLayers(line, ids({layer}), AcDbObjectId()));  // reported for the selected view
    EXPECT_TRUE(p->selectView(AcDbObjectId(), previous) && previous == view);
    EXPECT_TRUE(p->setObjectLayers(line, ids({layer, layer}), AcDbObjectId()));
    EXPECT_FALSE(p->setObjectLayers(AcDbObjectId(), ids({layer}), view));
    EXPECT_TRUE(p->registerLayer(layer) && p->registerLayer(layer));
    EXPECT_FALSE(p->registerLayer(AcDbObjectId()));

    std::vector<ZEFTObjectLayers> bindings;
    ASSERT_EQ(E::objectLayers(&db, bindings), eOk);
    ASSERT_EQ(bindings.size(), 2u);
    EXPECT_TRUE(bindings[0].object == line && bindings[0].view == view && bindings[0].layers.length() == 1);
    EXPECT_TRUE(bindings[1].view.isNull() && bindings[1].layers.length() == 2);
    AcDbObjectIdArray registered;
    ASSERT_EQ(E::registeredLayers(&db, registered), eOk);
    EXPECT_EQ(registered, ids({layer}));
    // The project record stays as small as it was.
    AcDbObjectPointer<AcDbDictionary> dict(view.object()->ownerId(), kForRead);
    AcDbObjectPointer<AcDbXrecord> record(dict->firstEntryId(), kForRead);
    EXPECT_EQ(record->rbChain().size(), 5u);
}

TEST(MouldLists, AbsentListsAreEmptyAndLostReferencesAreSkipped)
{
    AcDbDatabase db;
    const AcDbObjectId a = addLine(&db, 0), b = addLine(&db, 10);
    AcDbObjectIdArray got;
    EXPECT_FALSE(ZEFTMouldEntities::getAllMouldEntities(L"MouleList", got, &db));
    ASSERT_EQ(E::addMouldEntities(&db, L"MouleList", ids({a, b, a})), eOk);
    ASSERT_EQ(E::addMouldEntities(&db, L"MouleList", ids({b})), eOk);
    EXPECT_EQ(E::addMouldEntities(&db, L"MouleList", ids({AcDbObjectId()})), eKeyNotFound);
    EXPECT_FALSE(ZEFTMouldEntities::getAllMouldEntities(L"RebarMouldEntities", got, &db));
    got = ids({b});
    EXPECT_TRUE(ZEFTMouldEntities::getAllMouldEntities(L"moulelist", got, &db));
    EXPECT_EQ(got, ids({b, a, b}));  // appended
    EXPECT_EQ(E::removeMouldEntities(&db, L"MouleList", ids({b, db.layerZero()})), eKeyNotFound);
    ASSERT_EQ(AcDbObjectPointer<AcDbEntity>(a, kForWrite)->erase(), eOk);
    got.clear();
    EXPECT_TRUE(ZEFTMouldEntities::getAllMouldEntities(L"MouleList", got, &db));
    EXPECT_EQ(got, ids({b}));
    ASSERT_EQ(E::removeMouldEntities(&db, L"MouleList", ids({b})), eOk);
    std::vector<AcDbHandle> handles;
    ASSERT_EQ(E::mouldList(&db, L"MouleList", handles), eOk);
    EXPECT_EQ(handles, std::vector<AcDbHandle>{a.handle()});  // kept as stored
    EXPECT_EQ(E::mouldListNames(&db), std::vector<std::wstring>{L"MouleList"});
}

}  // namespace
