// edit_drawing IN OUT: edits a drawing through the host's object API the way a
// layer-managing module does, and writes the result, for the end-to-end checks
// (test_edits_audit.py) to inspect with independent readers.
//
// The edits: a new layer "Bâtiment A. Niveau 1" that every model-space entity
// moves onto; a dictionary "ZEFT_TEST" under the named-object dictionary with
// an empty child dictionary under a generated key; the application "ZEFT_TEST"
// registered and extended data set on the first model-space entity; a new
// line (12.5,-7.25)-(4012.5,3007.75) appended to model space.
//
// Exit status: 0 done, 1 failure (message on stderr), 2 usage.
#include <cstdio>
#include <exception>
#include <string>

#include "host/database.h"
#include "host/dbclasses.h"

namespace {

const wchar_t* const kLayer = L"B\u00e2timent A. Niveau 1";
const wchar_t* const kApp = L"ZEFT_TEST";

struct Failure {
    std::string what;
};

void check(Acad::ErrorStatus es, const char* what)
{
    if (es != Acad::eOk) throw Failure{std::string(what) + ": " + Acad::errorName(es)};
}

AcDbObjectId addLayer(AcDbDatabase& db)
{
    AcDbLayerTableRecord* rec = db.newLayerRecord();
    check(rec->setName(kLayer), "layer name");
    AcDbObjectPointer<AcDbLayerTable> table(db.layerTableId(), AcDb::kForWrite);
    check(table.openStatus(), "open layer table");
    AcDbObjectId id;
    if (Acad::ErrorStatus es = table->add(id, rec); es != Acad::eOk) {
        delete rec;
        check(es, "add layer");
    }
    rec->close();
    return id;
}

// Moves the entities onto the layer; returns the first entity (or null).
AcDbObjectId moveModelSpace(AcDbDatabase& db, AcDbObjectId layer)
{
    AcDbObjectPointer<AcDbBlockTableRecord> ms(db.modelSpaceId(), AcDb::kForRead);
    check(ms.openStatus(), "open model space");
    const std::vector<AcDbObjectId> ids = ms->entityIds();
    ms.close();
    for (AcDbObjectId id : ids) {
        AcDbEntityPointer ent(id, AcDb::kForWrite);
        check(ent.openStatus(), "open entity");
        check(ent->setLayer(layer), "set layer");
    }
    return ids.empty() ? AcDbObjectId() : ids.front();
}

void addDictionaries(AcDbDatabase& db)
{
    AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), AcDb::kForWrite);
    check(nod.openStatus(), "open named-object dictionary");
    auto* dict = new AcDbDictionary;
    AcDbObjectId dictId;
    if (Acad::ErrorStatus es = nod->setAt(kApp, dict, dictId); es != Acad::eOk) {
        delete dict;
        check(es, "add dictionary");
    }
    auto* child = new AcDbDictionary;
    AcDbObjectId childId;
    if (Acad::ErrorStatus es = dict->setAt(nullptr, child, childId); es != Acad::eOk) {
        delete child;
        dict->close();
        check(es, "add child dictionary");
    }
    child->close();
    dict->close();
}

void setXData(AcDbDatabase& db, AcDbObjectId entity)
{
    if (!acdbRegApp(&db, kApp)) throw Failure{"cannot register the application"};
    AcDbEntityPointer ent(entity, AcDb::kForWrite);
    check(ent.openStatus(), "open first entity");
    check(ent->setXData({ResBuf::text(1001, kApp), ResBuf::text(1000, L"\u00c9tage sup\u00e9rieur, fa\u00e7ade nord"),
                         ResBuf::int16(1070, -42), ResBuf::int32(1071, 1234567), ResBuf::real64(1040, 3.25),
                         ResBuf::pt(1010, {1.5, -2.5, 7.0})}),
          "set extended data");
}

void appendLine(AcDbDatabase& db)
{
    AcDbObjectPointer<AcDbBlockTableRecord> ms(db.modelSpaceId(), AcDb::kForWrite);
    check(ms.openStatus(), "open model space for write");
    auto* line = new AcDbLine({12.5, -7.25, 0}, {4012.5, 3007.75, 0});
    AcDbObjectId id;
    if (Acad::ErrorStatus es = ms->appendAcDbEntity(id, line); es != Acad::eOk) {
        delete line;
        check(es, "append line");
    }
    line->close();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: edit_drawing IN OUT\n");
        return 2;
    }
    try {
        auto db = AcDbDatabase::readDxf(argv[1]);
        AcDbObjectId layer = addLayer(*db);
        AcDbObjectId first = moveModelSpace(*db, layer);
        addDictionaries(*db);
        if (!first.isNull()) setXData(*db, first);
        appendLine(*db);
        db->writeDxf(argv[2]);
    } catch (const Failure& f) {
        std::fprintf(stderr, "edit_drawing: %s: %s\n", argv[1], f.what.c_str());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "edit_drawing: %s\n", e.what());
        return 1;
    }
    return 0;
}
