#include "suite/zeftdatabasetools.h"

#include "suite/wybase.h"
#include "suite/zeftprojecteditor.h"

namespace {

using Acad::eOk;

AcDbDatabase* databaseOr(AcDbDatabase* db) { return db ? db : acdbWorkingDatabase(); }

// Opens dictionary `name` of the named-object dictionary in `mode`; with
// `create` a missing one is made first and `created` says so. On success
// the caller owns the open dictionary.
Acad::ErrorStatus openNamedDictionary(AcDbDatabase* db, const wchar_t* name, AcDb::OpenMode mode, bool create,
                                      AcDbDictionary*& out, bool& created)
{
    out = nullptr;
    created = false;
    if (!db) return Acad::eNoDatabase;
    if (!name || !*name) return Acad::eInvalidKey;
    AcDbObjectPointer<AcDbDictionary> nod(db->namedObjectsDictionaryId(), AcDb::kForRead);
    if (!nod) return nod.openStatus();
    AcDbObjectId id;
    Acad::ErrorStatus es = nod->getAt(name, id);
    if (es == eOk) {
        nod.close();
        return acdbOpenObject(out, id, mode);
    }
    if (es != Acad::eKeyNotFound || !create) return es;
    // Before R13 a drawing has nowhere to keep a dictionary.
    if (db->isR12OrOlder()) return Acad::eNotApplicable;
    if ((es = nod->upgradeOpen()) != eOk) return es;
    AcDbObjectPointer<AcDbDictionary> dict(new AcDbDictionary);
    if ((es = nod->setAt(name, dict.object(), id)) != eOk) return es;  // the pointer deletes the new dictionary
    created = true;
    nod.close();
    dict.close();
    return acdbOpenObject(out, id, mode);
}

}  // namespace

AcDbDictionary* ZEFTDatabaseTools::openDictionary(const wchar_t* name, AcDb::OpenMode mode, AcDbDatabase* db, int flag)
{
    ZEFT_GUARD("ZEFTDatabaseTools::openDictionary", static_cast<AcDbDictionary*>(nullptr), {
        AcDbDictionary* dict = nullptr;
        bool created = false;
        openNamedDictionary(databaseOr(db), name, mode, flag == kCreateIfMissing, dict, created);
        return dict;
    });
}

int ZEFTDatabaseTools::getFromDictionary(const wchar_t* dictName, const wchar_t* key, AcDbObjectId& id,
                                         AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTDatabaseTools::getFromDictionary", int(Acad::eInvalidInput), {
        id = AcDbObjectId();
        if (!key) return int(Acad::eInvalidKey);
        AcDbDictionary* raw = nullptr;
        bool created = false;
        Acad::ErrorStatus es = openNamedDictionary(databaseOr(db), dictName, AcDb::kForRead, false, raw, created);
        if (es != eOk) return int(es);
        AcDbObjectPointer<AcDbDictionary> dict(raw);
        return int(dict->getAt(key, id));
    });
}

int ZEFTDatabaseTools::appendToDictionary(const wchar_t* dictName, AcDbObject* obj, AcDbObjectId& id,
                                          AcApDocument* doc, const wchar_t* key, int flag)
{
    ZEFT_GUARD("ZEFTDatabaseTools::appendToDictionary", int(Acad::eInvalidInput), {
        id = AcDbObjectId();
        AcDbDatabase* db = doc ? doc->database() : acdbWorkingDatabase();
        if (!db) return int(Acad::eNoDatabase);
        if (!obj) return int(Acad::eNullObjectId);
        if (key ? !*key : flag != kUniqueKey) return int(Acad::eInvalidKey);
        // Checked before the dictionary is made, so that a refusal changes nothing.
        if (db->isR12OrOlder()) return int(Acad::eNotApplicable);
        if (obj->isDatabaseResident() && obj->database() != db) return int(Acad::eWrongDatabase);

        AcDbDictionary* raw = nullptr;
        bool created = false;
        Acad::ErrorStatus es = openNamedDictionary(db, dictName, AcDb::kForWrite, true, raw, created);
        if (es != eOk) return int(es);
        AcDbObjectPointer<AcDbDictionary> dict(raw);
        AcDbObjectId newId;
        es = dict->setAt(key, obj, newId);
        if (es != eOk) {
            // Take back a dictionary made for nothing.
            if (created) dict->erase();
            return int(es);
        }
        dict.close();
        obj->close();
        id = newId;
        return int(eOk);
    });
}

bool ZEFTDatabaseTools::GetIsDrawingSet(AcDbDatabase* db)
{
    ZEFTProjectSettings settings;
    return ZEFTProjectEditor::getSettings(db ? db : acdbWorkingDatabase(), settings) == Acad::eOk && settings.drawingSet;
}
