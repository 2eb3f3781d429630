// Dictionaries: named references to objects, in insertion order.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "host/dbobject.h"

class AcDbDictionary : public AcDbObject {
    ACRX_DECLARE_MEMBERS(AcDbDictionary);

public:
    AcDbDictionary();

    // Keys compare without regard to case.
    Acad::ErrorStatus getAt(const wchar_t* key, AcDbObjectId& id) const;
    Acad::ErrorStatus getAt(const wchar_t* key, AcDbObject*& obj, AcDb::OpenMode mode) const;
    bool has(const wchar_t* key) const;
    bool has(AcDbObjectId id) const;
    Acad::ErrorStatus nameAt(AcDbObjectId id, std::wstring& key) const;
    int numEntries() const;
    // The first entry (insertion order) whose object the drawing has, or
    // null; without listing the others.
    AcDbObjectId firstEntryId() const;

    // Adds or replaces (the replaced object is erased). A new object is added
    // to the dictionary's database. A null key generates a unique key.
    Acad::ErrorStatus setAt(const wchar_t* key, AcDbObject* obj, AcDbObjectId& id);
    // Renames an entry; fails when the new key is taken.
    bool setName(const wchar_t* oldKey, const wchar_t* newKey);
    // Detaches the entry: the object stays, without owner.
    Acad::ErrorStatus remove(const wchar_t* key);
    Acad::ErrorStatus remove(const wchar_t* key, AcDbObjectId& id);
    Acad::ErrorStatus remove(AcDbObjectId id);

    struct Entry {
        std::wstring key;
        AcDbObjectId id;
    };
    // In insertion (file) order.
    std::vector<Entry> entries() const;
    bool isHardOwner() const;

    // --- host internals ---
    void hostPrepareRecord() const override;
    void hostLoadEntries() const;
    void hostRemoveEntryFor(AcDbObjectId id);  // the entry's object was erased

private:
    struct RawEntry {
        std::string key;  // file encoding
        AcDbHandle handle;
        int code;         // 350 soft owner, 360 hard owner
    };
    // Entries change in memory; the record's tags follow when it is written,
    // so that adding many entries stays linear.
    void writeEntries();
    int findKey(const std::wstring& key) const;
    mutable std::vector<RawEntry> entries_;
    mutable bool loaded_ = false;
    mutable bool tagsStale_ = false;
    mutable std::unordered_map<std::wstring, std::size_t> byKey_;  // upper-case key -> index
    mutable bool byKeyValid_ = false;
};

// Iterates a dictionary's entries (a snapshot taken at creation).
class AcDbDictionaryIterator {
public:
    explicit AcDbDictionaryIterator(const AcDbDictionary* dict);
    bool done() const { return i_ >= entries_.size(); }
    bool next() { ++i_; return !done(); }
    const wchar_t* name() const { return entries_[i_].key.c_str(); }
    AcDbObjectId objectId() const { return entries_[i_].id; }
    Acad::ErrorStatus getObject(AcDbObject*& obj, AcDb::OpenMode mode) const
    {
        return acdbOpenObject(obj, objectId(), mode);
    }

private:
    std::vector<AcDbDictionary::Entry> entries_;
    std::size_t i_ = 0;
};
