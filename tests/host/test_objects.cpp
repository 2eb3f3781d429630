// Objects and ids, open modes, runtime classes, entities of a loaded drawing,
// proxies, documents and deep cloning.
#include "host/document.h"
#include "host/filer.h"
#include "tests/host/builders.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using namespace Acad;
using AcDb::kForNotify;
using AcDb::kForRead;
using AcDb::kForWrite;

template <class F>
ErrorStatus statusThrown(F&& f) {
    try {
        f();
    } catch (const AcDbStatusError& e) {
        return e.status;
    }
    return eOk;
}

struct Counter : AcDbDatabaseReactor {
    int modified = 0, erased = 0;
    void objectModified(const AcDbDatabase*, const AcDbObject*) override { ++modified; }
    void objectErased(const AcDbDatabase*, const AcDbObject*, bool) override { ++erased; }
};

TEST(ObjectIds, NullValidAndErased) {
    AcDbObjectId none;
    EXPECT_TRUE(none.isNull() && !none.isValid() && !none.isErased() && none.handle().isNull() && !none.database());
    AcDbObject* obj = nullptr;
    EXPECT_EQ(acdbOpenObject(obj, none, kForRead), eNullObjectId);

    AcDbDatabase db;
    Counter counter;
    db.addReactor(&counter);
    const AcDbObjectId a = addLine(db), b = addLine(db);
    EXPECT_TRUE(a.isValid() && a.database() == &db && a.handle() != b.handle());
    {
        AcDbEntityPointer e(a, kForWrite);
        EXPECT_EQ(e->erase(), eOk);
        EXPECT_EQ(e->erase(), eWasErased);
    }
    EXPECT_EQ(counter.erased, 1);
    EXPECT_TRUE(a.isErased() && a.isValid());
    EXPECT_EQ(acdbOpenObject(obj, a, kForRead), eWasErased);
    EXPECT_EQ(recordOf(db.dxfText(), a.handle().str()), "");
    AcDbObjectPointer<AcDbBlockTableRecord> ms(db.modelSpaceId(), kForRead);
    EXPECT_EQ(ms->entityIds(), std::vector<AcDbObjectId>{b});

    ASSERT_EQ(acdbOpenObject(obj, a, kForWrite, true), eOk);
    EXPECT_EQ(obj->erase(false), eOk);
    obj->close();
    EXPECT_EQ(ms->entityIds(), (std::vector<AcDbObjectId>{a, b}));
    EXPECT_NE(recordOf(db.dxfText(), a.handle().str()), "");

    // A write open reports a change once, and only when something changed.
    const int modified = counter.modified, dbmod = db.dbmod();
    { AcDbObjectPointer<AcDbLine>(a, kForWrite)->setStartPoint({3, 3, 3}); }
    { AcDbObjectPointer<AcDbLine> unchanged(a, kForWrite); }
    { AcDbObjectPointer<AcDbLine> reader(a, kForRead); }
    EXPECT_EQ(counter.modified, modified + 1);
    EXPECT_EQ(db.dbmod(), dbmod + 1);
    db.removeReactor(&counter);
}

TEST(OpenModes, ReadersWriterNotifyAndClosedObjects) {
    AcDbDatabase db;
    const AcDbObjectId id = addLine(db, {1, 2, 3});
    AcDbObject *r1 = nullptr, *r2 = nullptr, *other = nullptr, *n = nullptr;
    ASSERT_EQ(acdbOpenObject(r1, id, kForRead), eOk);
    ASSERT_EQ(acdbOpenObject(r2, id, kForRead), eOk);
    EXPECT_EQ(acdbOpenObject(other, id, kForWrite), eWasOpenForRead);
    EXPECT_EQ(r1->upgradeOpen(), eWasOpenForRead);  // another reader holds it
    EXPECT_EQ(r2->close(), eOk);
    ASSERT_EQ(r1->upgradeOpen(), eOk);
    EXPECT_EQ(acdbOpenObject(other, id, kForWrite), eWasOpenForWrite);
    EXPECT_EQ(acdbOpenObject(other, id, kForRead), eWasOpenForWrite);
    ASSERT_EQ(acdbOpenObject(n, id, kForNotify), eOk);
    EXPECT_EQ(n->close(), eOk);  // ends the notify open, not the write open
    EXPECT_TRUE(!r1->isNotifyEnabled() && r1->isWriteEnabled());
    EXPECT_EQ(r1->downgradeOpen(), eOk);
    EXPECT_TRUE(r1->isReadEnabled() && !r1->isWriteEnabled());
    EXPECT_EQ(r1->downgradeOpen(), eNotOpenForWrite);
    auto* line = AcDbLine::cast(r1);
    EXPECT_EQ(line->startPoint(), (AcGePoint3d{1, 2, 3}));
    EXPECT_EQ(statusThrown([&] { line->setEndPoint({}); }), eNotOpenForWrite);
    EXPECT_EQ(statusThrown([&] { line->erase(); }), eNotOpenForWrite);
    EXPECT_EQ(r1->close(), eOk);
    EXPECT_EQ(r1->close(), eNotOpenForRead);
    EXPECT_EQ(r1->upgradeOpen(), eNotOpenForRead);
    // Closed: access is refused with a status, never a crash.
    EXPECT_EQ(statusThrown([&] { line->assertReadEnabled(); }), eNotOpenForRead);
    EXPECT_EQ(statusThrown([&] { line->assertWriteEnabled(); }), eNotOpenForWrite);
    EXPECT_EQ(statusThrown([&] { line->layer(); }), eNotOpenForRead);
    // Opening as the wrong class leaves the object closed.
    AcDbLayerTableRecord* layer = nullptr;
    EXPECT_EQ(acdbOpenObject(layer, id, kForWrite), eNotThatKindOfClass);
    ASSERT_EQ(acdbOpenObject(other, id, kForWrite), eOk);
    other->close();
}

struct Probe : AcDbLine {
    explicit Probe(bool* gone) : gone_(gone) {}
    ~Probe() override { *gone_ = true; }
    bool* gone_;
};

TEST(ObjectPointer, ClosesAtScopeExitAndDeletesObjectsNeverAdded) {
    bool firstGone = false, secondGone = false;
    AcDbDatabase db;
    { AcDbObjectPointer<AcDbLine> p(new Probe(&firstGone)); }
    EXPECT_TRUE(firstGone);
    AcDbObjectId added;
    {
        AcDbObjectPointer<AcDbLine> p(new Probe(&secondGone));
        AcDbObjectPointer<AcDbBlockTableRecord> ms(db.modelSpaceId(), kForWrite);
        ASSERT_EQ(ms->appendAcDbEntity(added, p.object()), eOk);
    }
    EXPECT_FALSE(secondGone);
    EXPECT_EQ(AcDbObjectPointer<AcDbLine>(added, kForWrite).openStatus(), eOk);
}

TEST(RuntimeClasses, RegistrationTreeAndRemoval) {
    AcRxClass* base = newAcRxClass(L"ZtTestBase", L"AcDbObject", 27, 3, 1, nullptr, L"ztTestBase", L"ZeftApp");
    ASSERT_NE(base, nullptr);
    EXPECT_STREQ(base->dxfName(), L"ZTTESTBASE");
    EXPECT_FALSE(base->isProxyClass());
    AcRxClass* leaf = newAcRxClass(L"ZtTestLeaf", L"ZtTestBase", 27, 3, 0, nullptr, L"ZTTESTLEAF", L"ZeftApp");
    EXPECT_EQ(lineage(leaf), "ZtTestLeaf < ZtTestBase < AcDbObject < AcRxObject");
    EXPECT_TRUE(leaf->isDerivedFrom(base) && !base->isDerivedFrom(leaf) && !leaf->isDerivedFrom(AcDbEntity::desc()));
    EXPECT_EQ(newAcRxClass(L"ZtTestLeaf", L"ZtTestBase", 27, 3, 0, nullptr, L"ZTTESTLEAF", L"ZeftApp"), leaf);
    auto* dict = static_cast<AcRxDictionary*>(acrxSysRegistry()->at(L"ClassDictionary"));
    ASSERT_EQ(dict, acrxClassDictionary());
    EXPECT_EQ(dict->at(L"ZtTestLeaf"), leaf);
    std::vector<AcRxClass*> told;
    const int token = acrxAddClassDeletionListener([&](AcRxClass* c) { told.push_back(c); });
    deleteAcRxClass(leaf);
    acrxRemoveClassDeletionListener(token);
    EXPECT_EQ(told, std::vector<AcRxClass*>{leaf});
    EXPECT_FALSE(dict->has(L"ZtTestLeaf"));
    deleteAcRxClass(base);
    EXPECT_EQ(acrxFindClass(L"ZtTestBase"), nullptr);
}

// Also the first test of a run: modules register under host classes before any drawing exists.
TEST(RuntimeClassesDeathTest, SameNameUnderAnotherParentAborts) {
    newAcRxClass(L"ZtDeathBase", L"AcDbObject", 27, 3, 0, nullptr, L"ZTDEATHBASE", L"ZeftApp");
    EXPECT_DEATH(newAcRxClass(L"ZtDeathBase", L"AcDbEntity", 27, 3, 0, nullptr, L"ZTDEATHBASE", L"ZeftApp"),
                 "Class mismatch");
    deleteAcRxClass(acrxFindClass(L"ZtDeathBase"));
}

// A module's class that files itself: a counter under its own subclass marker.
class ZtCounter : public AcDbObject {
    ACRX_DECLARE_MEMBERS(ZtCounter);

public:
    std::int32_t value = 0;
    bool filesItself() const override { return true; }
    ErrorStatus dxfInFields(AcDbDxfFiler* filer) override {
        if (AcDbObject::dxfInFields(filer) != eOk || !filer->atSubClassData(L"ZtCounter")) return filer->filerStatus();
        ResBuf rb;
        if (filer->readItem(rb) != eOk || rb.restype != 90)
            return filer->setError(eInvalidDxfCode, L"\nError: expected group code %d", 90);
        value = rb.rlong();
        return eOk;
    }
    ErrorStatus dxfOutFields(AcDbDxfFiler* filer) const override {
        AcDbObject::dxfOutFields(filer);
        filer->writeString(100, L"ZtCounter");
        filer->writeInt32(90, value);
        return filer->filerStatus();
    }
};
ACRX_DXF_DEFINE_MEMBERS(ZtCounter, AcDbObject, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0, ZTCOUNTER, ZeftApp)

// Unloading such a class is checked with the real module (module_load_tests).
TEST(ModuleClasses, ReplaceProxiesAndFileThemselves) {
    const std::string refused = tagText({{0, "ZTCOUNTER"}, {5, "9C1"}, {330, "0"}, {100, "ZtCounter"}, {91, "7"}});
    const std::string text = drawingWith(
        tagText({{0, "CLASS"}, {1, "ZTCOUNTER"}, {2, "ZtCounter"}, {3, "ZeftApp"}, {90, "0"}, {91, "2"},
                 {280, "0"}, {281, "0"}}),
        "OBJECTS", tagText({{0, "ZTCOUNTER"}, {5, "9C0"}, {330, "0"}, {100, "ZtCounter"}, {90, "41"}}) + refused);

    // Before the module registers its class, its objects are proxies.
    auto before = AcDbDatabase::readDxfBytes(text, "before.dxf");
    AcDbObject* proxy = idAt(*before, "9C0").object();
    ASSERT_NE(proxy, nullptr);
    EXPECT_TRUE(proxy->isAProxy() && lineage(proxy->isA()) == "ZtCounter < AcDbObject < AcRxObject");
    ZtCounter::rxInit();
    EXPECT_TRUE(proxy->isKindOf(ZtCounter::desc()));  // one class to callers...
    EXPECT_EQ(ZtCounter::cast(proxy), nullptr);        // ...but no ZtCounter object
    EXPECT_EQ(AcDbObjectPointer<ZtCounter>(proxy->objectId(), kForRead).openStatus(), eNotThatKindOfClass);

    auto db = AcDbDatabase::readDxfBytes(text, "after.dxf");
    {
        AcDbObjectPointer<ZtCounter> counter(idAt(*db, "9C0"), kForWrite);
        ASSERT_EQ(counter.openStatus(), eOk);
        EXPECT_TRUE(!counter->isAProxy() && counter->value == 41);
        counter->value = 42;
    }
    // A record the class refuses is kept as read, with a warning.
    ASSERT_EQ(db->readWarnings().size(), 1u);
    EXPECT_NE(db->readWarnings()[0].find("9C1 kept as read (eInvalidDxfCode: Error: expected group code 90)"),
              std::string::npos)
        << db->readWarnings()[0];
    const std::string out = db->dxfText();
    EXPECT_NE(out.find("100\nZtCounter\n 90\n42\n"), std::string::npos);
    EXPECT_NE(out.find(refused), std::string::npos);
    deleteAcRxClass(ZtCounter::desc());
}

TEST(Entities, ClassesOfALoadedDrawing) {
    auto db = sample();
    const std::map<std::wstring, AcRxClass*> expected = {
        {L"LINE", AcDbLine::desc()}, {L"INSERT", AcDbBlockReference::desc()}, {L"VIEWPORT", AcDbViewport::desc()},
        {L"CIRCLE", AcDbCircle::desc()}, {L"TEXT", AcDbText::desc()}, {L"ARC", AcDbCurve::desc()},
        {L"LWPOLYLINE", AcDbCurve::desc()}};
    std::map<std::wstring, int> seen;
    for (AcDbObjectId space : {db->modelSpaceId(), db->paperSpaceId()}) {
        AcDbObjectPointer<AcDbBlockTableRecord> btr(space, kForRead);
        for (AcDbObjectId id : btr->entityIds()) {
            AcDbEntityPointer ent(id, kForRead);
            ASSERT_EQ(ent.openStatus(), eOk);
            EXPECT_EQ(ent->ownerId(), space);
            EXPECT_EQ(ent->isInPaperSpace(), space == db->paperSpaceId());
            const std::wstring name = ent->isA()->dxfName();
            ++seen[name];
            const auto want = expected.find(name);
            if (want == expected.end()) continue;
            EXPECT_TRUE(ent->isKindOf(want->second)) << dxf::toUtf8(name);
            // Classes known by name only (ARC, LWPOLYLINE) cast to their nearest host class.
            EXPECT_TRUE(want->second != AcDbCurve::desc() || AcDbCurve::cast(ent.object())) << dxf::toUtf8(name);
        }
    }
    EXPECT_GT(seen[L"LINE"] * seen[L"INSERT"] * seen[L"ARC"] * seen[L"LWPOLYLINE"], 0);
    EXPECT_EQ(seen[L"VIEWPORT"], 2);

    AcDbObjectPointer<AcDbBlockReference> door(idAt(*db, "C0"), kForRead);
    ASSERT_EQ(door.openStatus(), eOk);
    EXPECT_EQ(AcDbObjectPointer<AcDbBlockTableRecord>(door->blockTableRecord(), kForRead)->getName(), L"DOOR");
    ASSERT_EQ(door->subEntities().size(), 3u);  // two ATTRIBs and the SEQEND
    AcDbObjectPointer<AcDbText> number(door->subEntities()[0], kForRead);
    ASSERT_EQ(number.openStatus(), eOk);
    EXPECT_EQ(number->textString(), L"P-01");
}

TEST(Entities, LayerByNameAndIdAndOfSubEntities) {
    auto db = sample();
    AcDbObjectId walls, doors;
    {
        AcDbObjectPointer<AcDbLayerTable> layers(db->layerTableId(), kForRead);
        ASSERT_EQ(layers->getAt(L"WALLS", walls), eOk);
        ASSERT_EQ(layers->getAt(L"doors", doors), eOk);
    }
    auto layerOf = [](AcDbObjectId id) -> std::wstring { return AcDbEntityPointer(id, kForRead)->layer(); };
    {
        AcDbEntityPointer door(idAt(*db, "C0"), kForWrite);
        ASSERT_EQ(door.openStatus(), eOk);
        EXPECT_EQ(door->layerId(), doors);
        EXPECT_EQ(door->setLayer(L"No such layer"), eKeyNotFound);
        EXPECT_EQ(door->setLayer(L"walls", false), eOk);
        EXPECT_EQ(door->layer(), L"WALLS");  // the table's spelling
        EXPECT_EQ(door->layerId(), walls);
        EXPECT_EQ(layerOf(door->subEntities()[0]), L"0");
        EXPECT_EQ(door->setLayer(walls), eOk);
        for (AcDbObjectId sub : door->subEntities()) EXPECT_EQ(layerOf(sub), L"WALLS");
    }
    auto back = AcDbDatabase::readDxfBytes(db->dxfText(), "back.dxf");
    EXPECT_EQ(layerOf(idAt(*back, "C0")), L"WALLS");
    EXPECT_EQ(layerOf(idAt(*back, "C3")), L"WALLS");

    // A layer just added, still open for write, can be given to entities.
    AcDbObjectPointer<AcDbLayerTable> table(db->layerTableId(), kForWrite);
    AcDbObjectPointer<AcDbLayerTableRecord> fresh(db->newLayerRecord());
    ASSERT_EQ(fresh->setName(L"Fresh"), eOk);
    ASSERT_EQ(table->add(fresh.object()), eOk);
    AcDbEntityPointer door(idAt(*db, "C0"), kForWrite);
    EXPECT_EQ(door->setLayer(fresh->objectId()), eOk);
    EXPECT_EQ(door->layer(), L"Fresh");
}

// Moving an entity replaces its layer in the view of the file (twice, as
// the layering moves through layer "0"); the drawing is written exactly as
// when the record had become owned tags, with LF or CR LF line ends.
TEST(Entities, MovedEntityStaysAViewOfTheFile) {
    for (const std::string& text : {sampleText(), withCrlf(sampleText())}) {
        auto viewed = AcDbDatabase::readDxfBytes(text, "a.dxf"), owned = AcDbDatabase::readDxfBytes(text, "b.dxf");
        for (AcDbDatabase* db : {viewed.get(), owned.get()}) {
            AcDbObjectId walls;
            AcDbObjectPointer<AcDbLayerTable>(db->layerTableId(), kForRead)->getAt(L"WALLS", walls);
            AcDbEntityPointer door(idAt(*db, "C0"), kForWrite);
            ASSERT_EQ(door.openStatus(), eOk);
            if (db == owned.get()) door->record().mutableTags();
            ASSERT_EQ(door->setLayer(db->layerZero()), eOk);
            ASSERT_EQ(door->setLayer(walls), eOk);
            EXPECT_EQ(door->layer(), L"WALLS");
            EXPECT_EQ(door->record().raw().empty(), db == owned.get());
        }
        EXPECT_EQ(viewed->dxfText(), owned->dxfText()) << (text.find('\r') == std::string::npos ? "LF" : "CR LF");
    }
}

TEST(Proxies, ClassFromTheDrawingAndTagsKept) {
    const std::string entity = gridEntity(AcDbDatabase().modelSpaceId().handle().str(), true);
    auto db = AcDbDatabase::readDxfBytes(drawingWith(gridClass(), "ENTITIES", entity), "grid.dxf");
    {
        AcDbEntityPointer ent(idAt(*db, "9A0"), kForRead);
        ASSERT_EQ(ent.openStatus(), eOk);
        const AcRxClass* c = ent->isA();
        EXPECT_TRUE(ent->isAProxy() && c->isProxyClass());
        EXPECT_EQ(lineage(c), "ZEFTGridRectangularE < ZEFTGridBase < AcDbEntity < AcDbObject < AcRxObject");
        EXPECT_STREQ(c->dxfName(), L"ZEFTGRIDRECTE");
        EXPECT_STREQ(c->appName(), L"ZeftApp");
        EXPECT_EQ(ent->ownerId(), db->modelSpaceId());
        EXPECT_EQ(ent->xData(L"ZeftApp").size(), 2u);
    }
    const std::string out = db->dxfText();
    EXPECT_NE(out.find(entity), std::string::npos);
    EXPECT_NE(out.find(gridClass()), std::string::npos);
}

TEST(Documents, CurrentDocumentDbmodAndViewportVariables) {
    auto fresh = std::make_unique<AcDbDatabase>();
    fresh->setTilemode(0);
    AcDbDatabase* db = fresh.get();
    AcApDocument* doc = acDocManager->open(std::move(fresh));
    EXPECT_TRUE(acDocManager->curDocument() == doc && acdbWorkingDatabase() == db);
    EXPECT_TRUE(var(L"TILEMODE") == 0 && var(L"cvport") == 1 && var(L"DBMOD") == 0 && var(L"NOSUCHVAR") == -99);
    doc->pushDbmod();
    addLine(*db);
    EXPECT_GT(db->dbmod(), 0);
    doc->popDbmod();
    EXPECT_EQ(var(L"DBMOD"), 0);

    AcApDocument* drawing = acDocManager->open(sample());
    EXPECT_EQ(acDocManager->curDocument(), drawing);
    EXPECT_TRUE(var(L"TILEMODE") == 1 && var(L"CVPORT") == 2);
    acDocManager->close(drawing);
    EXPECT_EQ(acDocManager->curDocument(), doc);
    acDocManager->close(doc);
    EXPECT_EQ(var(L"TILEMODE"), -99);
}

TEST(DeepClone, CopiesIntoModelSpaceWithNewHandles) {
    AcDbDatabase db;
    const AcDbObjectId a = addLine(db, {0, 0, 0}, {1, 0, 0});
    const AcDbObjectId p = addLine(db, {0, 2, 0}, {1, 2, 0}, db.paperSpaceId());
    {
        AcDbEntityPointer ent(a, kForWrite);
        ASSERT_EQ(ent->setXData({ResBuf::text(1001, L"ZeftApp"), ResBuf::int16(1070, 12)}), eOk);
        ent->addPersistentReactor(db.namedObjectsDictionaryId());
    }
    AcDbObjectIdArray ids;
    ids.append(a).append(p);
    AcDbIdMapping map;
    {
        AcDbObjectPointer<AcDbLine> held(a, kForRead);  // the caller may hold a source open for read
        ASSERT_EQ(db.deepCloneObjects(ids, db.modelSpaceId(), map), eOk);
        EXPECT_TRUE(held->isReadEnabled());
    }
    ASSERT_EQ(map.pairs().size(), 2u);
    std::vector<AcDbObjectId> clones;
    for (AcDbIdMappingIter it(map); !it.done(); it.next()) {
        AcDbIdMapping::Pair pair;
        ASSERT_TRUE(it.getMap(pair));
        clones.push_back(pair.value);
        AcDbObjectPointer<AcDbLine> src(pair.key, kForRead), copy(pair.value, kForWrite);
        ASSERT_EQ(copy.openStatus(), eOk);
        EXPECT_NE(pair.value.handle(), pair.key.handle());
        EXPECT_TRUE(copy->ownerId() == db.modelSpaceId() && !copy->isInPaperSpace());
        EXPECT_EQ(copy->startPoint(), src->startPoint());
        EXPECT_EQ(copy->xData(), src->xData());
        EXPECT_TRUE(copy->getPersistentReactors().isEmpty());
    }
    AcDbIdMapping::Pair q{p, {}};
    ASSERT_TRUE(map.compute(q));
    EXPECT_EQ(q.value, clones[1]);
    EXPECT_EQ(AcDbObjectPointer<AcDbBlockTableRecord>(db.modelSpaceId(), kForRead)->entityIds(),
              (std::vector<AcDbObjectId>{a, clones[0], clones[1]}));
    AcDbDatabase other;
    EXPECT_EQ(db.deepCloneObjects(ids, db.layerZero(), map), eInvalidOwnerObject);
    EXPECT_EQ(db.deepCloneObjects(ids, other.modelSpaceId(), map), eInvalidOwnerObject);
}

// Structure that would be written twice, with every handle in it twice, is
// refused with the line of the second copy.
TEST(Drawings, StructureReadTwiceIsRefusedNamingTheLine) {
    const std::string plain = AcDbDatabase().dxfText();
    auto copyBefore = [&](const std::string& head, const std::string& end) {
        std::string text = plain;
        const std::size_t at = text.find(head);
        return text.insert(at, text.substr(at, text.find(end, at) + end.size() - at));
    };
    const std::pair<std::string, std::string> cases[] = {
        {copyBefore("  0\nSECTION\n  2\nENTITIES\n", "  0\nENDSEC\n"), "section ENTITIES appears a second time"},
        {copyBefore("  0\nBLOCK\n", "  0\nENDBLK\n"), "block '*Model_Space' appears a second time (first at line "},
    };
    for (const auto& [text, message] : cases) {
        const std::string e = errorOf([&] { AcDbDatabase::readDxfBytes(text, "twice.dxf"); });
        EXPECT_EQ(e.rfind("twice.dxf: line ", 0), 0u) << e;
        EXPECT_NE(e.find(message), std::string::npos) << e;
    }
}

}  // namespace
