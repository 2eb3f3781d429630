// Dictionary access for the suite's modules: the dictionaries that hang
// under a drawing's named-object dictionary, found, created and filled by
// name.
#pragma once

#include "host/dbdict.h"
#include "host/document.h"

class ZEFTDatabaseTools {
public:
    // Flags of openDictionary.
    static constexpr int kOpenExisting = 0;
    static constexpr int kCreateIfMissing = 1;
    // Flags of appendToDictionary.
    static constexpr int kKeyAsGiven = 0;
    static constexpr int kUniqueKey = 1;

    // The dictionary `name` of the named-object dictionary of `db`, opened in
    // `mode`; the caller closes it. With flag kCreateIfMissing a missing
    // dictionary is created first (then handed out in the mode asked for);
    // with kOpenExisting (or any other value) it is not. Null when the
    // drawing, the entry or the open fails, or when the entry is not a
    // dictionary. A null `db` means the working database.
    static AcDbDictionary* openDictionary(const wchar_t* name, AcDb::OpenMode mode, AcDbDatabase* db = nullptr,
                                          int flag = kOpenExisting);

    // The id of entry `key` of dictionary `dictName`. 0 (Acad::eOk) on
    // success, else a host error status: eNoDatabase, eInvalidKey for a
    // null key, eKeyNotFound when the dictionary or the key is missing, or
    // the status of a failed open. `id` is null unless found. A null `db`
    // means the working database.
    static int getFromDictionary(const wchar_t* dictName, const wchar_t* key, AcDbObjectId& id,
                                 AcDbDatabase* db = nullptr);

    // Adds `obj` to dictionary `dictName` of the document's drawing (the
    // current document when null), creating the dictionary under the
    // named-object dictionary when missing. The entry is `key`; with a null
    // key, flag kUniqueKey has the host make a unique key, and any other
    // flag is refused (eInvalidKey). An existing entry of the same key is
    // replaced, as the host's dictionaries do. On success (0) `id` is the
    // object's id and the object is closed: callers open it again by id. On
    // failure the drawing is unchanged, `obj` is left as given (a new object
    // stays the caller's to delete) and a host error status is returned; a
    // drawing that cannot hold dictionaries (R12 and older) gives
    // eNotApplicable.
    // Whether the drawing (the working database when null) is a drawing
    // set, as its project says; false without a project.
    static bool GetIsDrawingSet(AcDbDatabase* db = nullptr);

    static int appendToDictionary(const wchar_t* dictName, AcDbObject* obj, AcDbObjectId& id, AcApDocument* doc,
                                  const wchar_t* key, int flag);
};
