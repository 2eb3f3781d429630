// Containers: dictionaries, the layer table, block records, registered
// applications and linetypes.
#include "tests/host/builders.h"

#include <gtest/gtest.h>

namespace {

using namespace Acad;
using AcDb::kForRead;
using AcDb::kForWrite;
using Keys = std::vector<std::wstring>;
using namespace std::string_literals;

Keys keysOf(const AcDbDictionary* dict) {
    Keys keys;
    for (AcDbDictionaryIterator it(dict); !it.done(); it.next()) {
        EXPECT_EQ(dict->entries()[keys.size()].id, it.objectId());
        keys.push_back(it.name());
    }
    return keys;
}

AcDbObjectId at(const AcDbDictionary* dict, const wchar_t* key) {
    AcDbObjectId id;
    dict->getAt(key, id);
    return id;
}

TEST(Dictionaries, NamedObjectsAndLayoutsOfANewDrawing) {
    AcDbDatabase db;
    AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), kForRead);
    ASSERT_EQ(nod.openStatus(), eOk);
    EXPECT_TRUE(nod->has(L"acad_Layout"));
    AcDbObjectId layouts = at(nod.object(), L"ACAD_LAYOUT"), none = layouts;
    EXPECT_EQ(nod->getAt(L"NO_SUCH_KEY", none), eKeyNotFound);
    EXPECT_TRUE(none.isNull());
    EXPECT_EQ(nod->getAt(nullptr, none), eInvalidKey);

    AcDbObjectPointer<AcDbDictionary> dict(layouts, kForRead);
    ASSERT_EQ(dict.openStatus(), eOk);
    EXPECT_EQ(dict->ownerId(), nod->objectId());
    AcDbObject* model = nullptr;
    ASSERT_EQ(dict->getAt(L"model", model, kForRead), eOk);
    const auto* layout = AcDbLayout::cast(model);
    EXPECT_TRUE(layout && layout->getLayoutName() == L"Model" && layout->getBlockTableRecordId() == db.modelSpaceId());
    model->close();
}

TEST(Dictionaries, AddFindRenameIterateAndDetach) {
    AcDbDatabase db;
    AcDbObjectId subId;
    {
        AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), kForWrite);
        AcDbObjectPointer<AcDbDictionary> sub(new AcDbDictionary);
        ASSERT_EQ(nod->setAt(L"ZEFT_STATES", sub.object(), subId), eOk);
        EXPECT_TRUE(sub->isWriteEnabled() && sub->ownerId() == nod->objectId());
        EXPECT_TRUE(sub->getPersistentReactors().contains(nod->objectId()));
        AcDbObjectPointer<AcDbXrecord> spare(new AcDbXrecord);
        AcDbObjectId none;
        EXPECT_EQ(nod->setAt(L"", spare.object(), none), eInvalidKey);
        EXPECT_FALSE(spare->isDatabaseResident());
    }
    AcDbObjectPointer<AcDbDictionary> sub(subId, kForWrite);
    const AcDbObjectId beta = addEntry(sub.object(), L"Beta"), alpha = addEntry(sub.object(), L"alpha");
    const AcDbObjectId gen1 = addEntry(sub.object(), nullptr), gen2 = addEntry(sub.object(), nullptr);
    const Keys keys = keysOf(sub.object());
    ASSERT_EQ(keys.size(), 4u);
    EXPECT_EQ(Keys(keys.begin(), keys.begin() + 2), (Keys{L"Beta", L"alpha"}));  // insertion order
    EXPECT_TRUE(!keys[2].empty() && keys[2] != keys[3]);
    EXPECT_EQ(at(sub.object(), keys[3].c_str()), gen2);
    EXPECT_EQ(at(sub.object(), L"ALPHA"), alpha);
    EXPECT_TRUE(sub->has(gen1) && sub->has(L"BETA"));

    EXPECT_FALSE(sub->setName(L"beta", L"ALPHA"));  // taken
    EXPECT_TRUE(sub->setName(L"beta", L"Gamma"));
    EXPECT_TRUE(sub->setName(L"gamma", L"GAMMA"));  // same entry, other case
    EXPECT_FALSE(sub->has(L"Beta"));
    EXPECT_EQ(keysOf(sub.object())[0], L"GAMMA");
    EXPECT_EQ(at(sub.object(), L"gamma"), beta);

    // Removing detaches: the object stays, without owner or reactor.
    AcDbObjectId removed;
    EXPECT_EQ(sub->remove(L"ALPHA", removed), eOk);
    EXPECT_EQ(removed, alpha);
    EXPECT_EQ(sub->remove(L"alpha"), eKeyNotFound);
    EXPECT_EQ(sub->remove(gen1), eOk);
    {
        AcDbObjectPointer<AcDbXrecord> loose(alpha, kForWrite);
        ASSERT_EQ(loose.openStatus(), eOk);
        EXPECT_TRUE(loose->ownerId().isNull() && !loose->isErased());
        EXPECT_FALSE(loose->getPersistentReactors().contains(subId));
    }
    // Erasing an entry's object drops the entry.
    ASSERT_EQ(AcDbObjectPointer<AcDbXrecord>(gen2, kForWrite)->erase(), eOk);
    EXPECT_EQ(keysOf(sub.object()), Keys{L"GAMMA"});
    const AcDbObjectId last = addEntry(sub.object(), L"Last");
    // A dictionary erased with its entry, and a detached object that finds a new owner.
    AcDbObjectId doomed, doomedEntry;
    {
        AcDbObjectPointer<AcDbDictionary> d(new AcDbDictionary);
        ASSERT_EQ(sub->setAt(L"Doomed", d.object(), doomed), eOk);
        doomedEntry = addEntry(d.object(), L"Inside");
        ASSERT_EQ(d->erase(), eOk);
        AcDbObjectId same;
        ASSERT_EQ(sub->setAt(L"Back", AcDbObjectPointer<AcDbXrecord>(alpha, kForWrite).object(), same), eOk);
    }
    sub.close();

    auto back = AcDbDatabase::readDxfBytes(db.dxfText(), "back.dxf");
    AcDbObjectPointer<AcDbDictionary> again(back->idOf(subId.handle()), kForRead);
    ASSERT_EQ(again.openStatus(), eOk);
    EXPECT_EQ(keysOf(again.object()), (Keys{L"GAMMA", L"Last", L"Back"}));
    EXPECT_EQ(at(again.object(), L"last").handle(), last.handle());
    EXPECT_EQ(at(again.object(), L"back").handle(), alpha.handle());
    // Nothing erased or detached is saved, nor what such an object owns.
    for (AcDbObjectId gone : {gen1, gen2, doomed, doomedEntry})
        EXPECT_EQ(back->idOf(gone.handle()).object(), nullptr) << gone.handle().str();
}

TEST(Dictionaries, SetAtOnATakenKeyErasesTheReplacedObject) {
    AcDbDatabase db;
    AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), kForWrite);
    const AcDbObjectId a = addEntry(nod.object(), L"ZT_A"), b = addEntry(nod.object(), L"ZT_B"),
                       c = addEntry(nod.object(), L"ZT_C");
    const int count = nod->numEntries();
    const AcDbObjectId newB = addEntry(nod.object(), L"zt_b"), newC = addEntry(nod.object(), L"ZT_C");
    EXPECT_TRUE(b.isErased() && c.isErased() && !a.isErased());
    EXPECT_EQ(nod->numEntries(), count);
    EXPECT_TRUE(at(nod.object(), L"ZT_A") == a && at(nod.object(), L"ZT_B") == newB && at(nod.object(), L"ZT_C") == newC);
    const Keys keys = keysOf(nod.object());
    EXPECT_EQ(Keys(keys.end() - 3, keys.end()), (Keys{L"ZT_A", L"ZT_B", L"ZT_C"}));
}

// Pointers the host set to objects it then erased are saved null, and left
// out of a reactor group; a pointer the file already had to nothing stays.
TEST(Dictionaries, PointersToErasedObjectsAreSavedNull) {
    const std::string record = tagText({{0, "XRECORD"}, {5, "F0"}, {100, "AcDbXrecord"}, {280, "1"}, {340, "FFFF"}});
    auto db = AcDbDatabase::readDxfBytes(drawingWith("", "OBJECTS", record), "in.dxf");
    const AcDbObjectId erased = addLine(*db), kept = addLine(*db);
    {
        AcDbObjectPointer<AcDbXrecord> rec(idAt(*db, "F0"), kForWrite);
        ASSERT_EQ(rec.openStatus(), eOk);
        ASSERT_EQ(rec->appendRbChain({ResBuf::objectId(330, erased), ResBuf::objectId(340, kept)}), eOk);
        rec->addPersistentReactor(erased);
    }
    ASSERT_EQ(AcDbObjectPointer<AcDbEntity>(erased, kForWrite)->erase(), eOk);
    EXPECT_EQ(recordOf(db->dxfText(), "F0"), tagText({{5, "F0"}, {102, "{ACAD_REACTORS"}, {102, "}"}, {100, "AcDbXrecord"},
                                                      {280, "1"}, {340, "FFFF"}, {330, "0"}, {340, kept.handle().str()}}));
}

// A layer's settings survive the save.
TEST(LayerTable, NewLayersTheirSettingsAndRefusedNames) {
    auto db = sample();
    AcDbObjectId dashdot, grid, plain;
    ASSERT_EQ(AcDbObjectPointer<AcDbLinetypeTable>(db->linetypeTableId(), kForRead)->getAt(L"dashdot", dashdot), eOk);
    {
        AcDbObjectPointer<AcDbLayerTable> table(db->layerTableId(), kForWrite);
        AcDbObjectPointer<AcDbLayerTableRecord> copy(db->newLayerRecord());
        ASSERT_EQ(copy->setName(L"Zeft Grid"), eOk);
        ASSERT_EQ(table->add(grid, copy.object()), eOk);
        EXPECT_TRUE(copy->isWriteEnabled() && copy->ownerId() == table->objectId());
        copy->setIsOff(true);
        copy->setColorIndex(5);
        copy->setIsFrozen(true);
        copy->setVPDFLT(true);
        copy->setIsLocked(true);
        copy->setLinetypeObjectId(dashdot);
        copy->setLineWeight(35);
        copy->setIsPlottable(false);

        AcDbObjectPointer<AcDbLayerTableRecord> fresh(new AcDbLayerTableRecord);
        ASSERT_EQ(fresh->setName(L"Fa\u00e7ade 2"), eOk);
        ASSERT_EQ(table->add(plain, fresh.object()), eOk);
        fresh->setColorIndex(30);

        AcDbObjectPointer<AcDbLayerTableRecord> dup(db->newLayerRecord());
        ASSERT_EQ(dup->setName(L"zeft GRID"), eOk);
        EXPECT_EQ(table->add(dup.object()), eDuplicateRecordName);
        EXPECT_FALSE(dup->isDatabaseResident());
        for (const std::wstring& bad : {L""s, L"a<b"s, L"a:b"s, L"x*"s, L"a|b"s, L" lead"s, L"trail "s, L"tab\tin"s,
                                        std::wstring(256, L'x')})
            EXPECT_EQ(dup->setName(bad.c_str()), eInvalidSymbolTableName) << dxf::toUtf8(bad);
        AcDbObjectPointer<AcDbLayerTableRecord> unnamed(new AcDbLayerTableRecord);
        EXPECT_EQ(table->add(unnamed.object()), eInvalidSymbolTableName);
    }
    {
        AcDbObjectPointer<AcDbLayerTableRecord> rec(plain, kForWrite);
        EXPECT_EQ(rec->setName(L"ZEFT GRID"), eDuplicateRecordName);
        EXPECT_EQ(rec->setName(L"Zeft Facade"), eOk);
    }
    auto back = AcDbDatabase::readDxfBytes(db->dxfText(), "back.dxf");
    for (AcDbDatabase* d : {db.get(), back.get()}) {
        AcDbObjectPointer<AcDbLayerTable> table(d->layerTableId(), kForRead);
        AcDbObjectId id;
        EXPECT_EQ(table->getAt(L"Fa\u00e7ade 2", id), eKeyNotFound);
        AcDbObjectPointer<AcDbLayerTableRecord> g, p;
        ASSERT_EQ(table->getAt(L"ZEFT GRID", id), eOk);
        ASSERT_EQ(g.open(id, kForRead), eOk);
        ASSERT_EQ(table->getAt(L"zeft facade", id), eOk);
        ASSERT_EQ(p.open(id, kForRead), eOk);
        EXPECT_EQ(g->getName(), L"Zeft Grid");
        EXPECT_TRUE(g->isOff() && g->isFrozen() && g->VPDFLT() && g->isLocked() && !g->isPlottable());
        EXPECT_TRUE(g->colorIndex() == 5 && g->lineWeight() == 35 && !g->linetypeObjectId().isNull());
        EXPECT_EQ(g->linetypeName(), L"DASHDOT");
        EXPECT_FALSE(p->isOff() || p->isFrozen() || p->VPDFLT() || p->isLocked() || !p->isPlottable());
        EXPECT_TRUE(p->colorIndex() == 30 && p->lineWeight() == -3);
        EXPECT_EQ(p->linetypeName(), L"Continuous");
    }
}

TEST(BlockTable, ModelAndPaperSpaceAndAppendedEntities) {
    AcDbDatabase db;
    AcDbObjectPointer<AcDbBlockTableRecord> ms(db.modelSpaceId(), kForWrite), ps(db.paperSpaceId(), kForWrite);
    ASSERT_TRUE(ms.openStatus() == eOk && ps.openStatus() == eOk);
    EXPECT_TRUE(ms->isModelSpace() && !ms->isPaperSpace() && ps->isPaperSpace() && !ps->isModelSpace());

    AcDbObjectId first, second, paper;
    AcDbObjectPointer<AcDbLine> line(new AcDbLine({1, 2, 0}, {3, 4, 0}));
    acdbHostRemoveBodyValue(line->record().mutableTags(), 8);
    ASSERT_EQ(ms->appendAcDbEntity(first, line.object()), eOk);
    EXPECT_TRUE(line->isWriteEnabled() && line->ownerId() == db.modelSpaceId());
    EXPECT_EQ(line->layerId(), db.layerZero());
    EXPECT_NE(db.dxfText().find("\n  8\n0\n100\nAcDbLine\n"), std::string::npos);  // layer "0" given
    EXPECT_EQ(ms->appendAcDbEntity(line.object()), eAlreadyInDb);
    line.close();
    AcDbObjectPointer<AcDbCircle> circle(new AcDbCircle({5, 5, 0}, 2));
    ASSERT_EQ(ms->appendAcDbEntity(second, circle.object()), eOk);
    circle.close();
    EXPECT_EQ(ms->entityIds(), (std::vector<AcDbObjectId>{first, second}));
    AcDbObjectPointer<AcDbText> text(new AcDbText({0, 0, 0}, L"Title"));
    ASSERT_EQ(ps->appendAcDbEntity(paper, text.object()), eOk);
    EXPECT_TRUE(text->isInPaperSpace());
    text.close();
    ms->downgradeOpen();
    AcDbLine spare;
    EXPECT_THROW(ms->appendAcDbEntity(&spare), AcDbStatusError);
    ms.close();
    ps.close();

    auto back = AcDbDatabase::readDxfBytes(db.dxfText(), "back.dxf");
    EXPECT_EQ(AcDbObjectPointer<AcDbBlockTableRecord>(back->modelSpaceId(), kForRead)->entityIds().size(), 2u);
    AcDbObjectPointer<AcDbText> title(back->idOf(paper.handle()), kForRead);
    ASSERT_EQ(title.openStatus(), eOk);
    EXPECT_TRUE(title->ownerId() == back->paperSpaceId() && title->textString() == L"Title");
}

TEST(SymbolTables, RegisteredApplicationsAndContinuousLinetype) {
    AcDbDatabase db;
    auto apps = [&] { return AcDbObjectPointer<AcDbRegAppTable>(db.regAppTableId(), kForRead)->recordIds().size(); };
    const std::size_t before = apps();
    EXPECT_TRUE(acdbRegApp(&db, L"ZeftApp") && acdbRegApp(&db, L"ZEFTAPP"));
    EXPECT_FALSE(acdbRegApp(&db, L"bad|name") || acdbRegApp(&db, nullptr) || acdbRegApp(nullptr, L"ZeftApp"));
    EXPECT_EQ(apps(), before + 1);
    EXPECT_TRUE(AcDbObjectPointer<AcDbRegAppTable>(db.regAppTableId(), kForWrite)->has(L"zeftapp"));  // left closed
    EXPECT_NE(db.dxfText().find("\n  2\nZeftApp\n"), std::string::npos);

    AcDbObjectId continuous;
    ASSERT_EQ(AcDbObjectPointer<AcDbLinetypeTable>(db.linetypeTableId(), kForRead)->getAt(L"CONTINUOUS", continuous),
              eOk);
    EXPECT_EQ(db.continuousLinetype(), continuous);
    // A drawing without it gets one.
    auto old = AcDbDatabase::readDxf(ZEFT_SOURCE_DIR "/tests/data/host-empty-linetypes.dxf");
    const AcDbObjectId made = old->continuousLinetype();
    ASSERT_FALSE(made.isNull());
    EXPECT_EQ(old->continuousLinetype(), made);
    EXPECT_EQ(AcDbObjectPointer<AcDbLinetypeTableRecord>(made, kForRead)->getName(), L"Continuous");
    EXPECT_NE(old->dxfText().find("\n  2\nContinuous\n"), std::string::npos);
}

}  // namespace
