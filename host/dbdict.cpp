#include "host/dbdict.h"

#include <algorithm>
#include <cwctype>

#include "host/database.h"

ACDB_HOST_DEFINE_MEMBERS(AcDbDictionary, AcDbObject, "DICTIONARY")

AcDbDictionary::AcDbDictionary()
{
    // Entries are read from the record on first use: the loader and the
    // filers give the record after construction.
    record_.assign({{0, "DICTIONARY"}, {100, "AcDbDictionary"}, {281, "1"}});
}

void AcDbDictionary::hostLoadEntries() const
{
    if (loaded_) return;
    loaded_ = true;
    byKeyValid_ = false;
    entries_.clear();
    bool body = false, inGroup = false, haveKey = false;
    std::string key;
    record_.scan([&](int code, std::string_view v) {
        if (code >= 1000) return false;
        if (code == 102) {
            inGroup = !v.empty() && v[0] == '{';
            return true;
        }
        if (inGroup) return true;
        if (code == 100) body = true;
        if (!body) return true;
        if (code == 3) {
            key.assign(v);
            haveKey = true;
        } else if ((code == 350 || code == 360) && haveKey) {
            AcDbHandle h;
            AcDbHandle::parse(v, h);
            entries_.push_back({key, h, code});
            haveKey = false;
        }
        return true;
    });
}

void AcDbDictionary::writeEntries()
{
    tagsStale_ = true;
    hostSetModified();
}

void AcDbDictionary::hostPrepareRecord() const
{
    if (!tagsStale_) return;
    tagsStale_ = false;
    DxfTags& tags = const_cast<TagRecord&>(record_).mutableTags();
    RecordLayout l = layoutOf(tags);
    std::size_t insertAt = SIZE_MAX;
    DxfTags kept;
    for (std::size_t i = 0; i < tags.size(); ++i) {
        bool inBody = i >= l.bodyBegin && i < l.xdataBegin;
        if (inBody && tags[i].code == 3 && i + 1 < l.xdataBegin && (tags[i + 1].code == 350 || tags[i + 1].code == 360)) {
            if (insertAt == SIZE_MAX) insertAt = kept.size();
            ++i;
            continue;
        }
        kept.push_back(tags[i]);
    }
    if (insertAt == SIZE_MAX) {
        // After the dictionary's subclass marker and its flags.
        insertAt = kept.size();
        for (std::size_t i = 0; i < kept.size(); ++i)
            if (kept[i].code == 100 && kept[i].value == "AcDbDictionary") {
                insertAt = i + 1;
                while (insertAt < kept.size() && (kept[insertAt].code == 280 || kept[insertAt].code == 281)) ++insertAt;
                break;
            }
    }
    DxfTags pairs;
    for (const RawEntry& e : entries_) {
        pairs.push_back({3, e.key});
        pairs.push_back({e.code, e.handle.str()});
    }
    kept.insert(kept.begin() + long(insertAt), pairs.begin(), pairs.end());
    tags = std::move(kept);
}

int AcDbDictionary::findKey(const std::wstring& key) const
{
    hostLoadEntries();
    if (!byKeyValid_) {
        byKey_.clear();
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            std::wstring k = database() ? database()->decode(entries_[i].key) : dxf::fromUtf8(entries_[i].key);
            byKey_.emplace(acdbToUpper(k), i);  // the first of two equal keys wins
        }
        byKeyValid_ = true;
    }
    auto it = byKey_.find(acdbToUpper(key));
    return it == byKey_.end() ? -1 : int(it->second);
}

Acad::ErrorStatus AcDbDictionary::getAt(const wchar_t* key, AcDbObjectId& id) const
{
    assertReadEnabled();
    id = AcDbObjectId();
    if (!key) return Acad::eInvalidKey;
    int i = findKey(key);
    if (i < 0) return Acad::eKeyNotFound;
    id = database() ? database()->idOf(entries_[std::size_t(i)].handle) : AcDbObjectId();
    return id.isNull() ? Acad::eKeyNotFound : Acad::eOk;
}

Acad::ErrorStatus AcDbDictionary::getAt(const wchar_t* key, AcDbObject*& obj, AcDb::OpenMode mode) const
{
    obj = nullptr;
    AcDbObjectId id;
    Acad::ErrorStatus es = getAt(key, id);
    return es == Acad::eOk ? acdbOpenObject(obj, id, mode) : es;
}

bool AcDbDictionary::has(const wchar_t* key) const
{
    assertReadEnabled();
    return key && findKey(key) >= 0;
}

bool AcDbDictionary::has(AcDbObjectId id) const
{
    assertReadEnabled();
    hostLoadEntries();
    return std::any_of(entries_.begin(), entries_.end(), [&](const RawEntry& e) { return e.handle == id.handle(); });
}

Acad::ErrorStatus AcDbDictionary::nameAt(AcDbObjectId id, std::wstring& key) const
{
    assertReadEnabled();
    hostLoadEntries();
    for (const RawEntry& e : entries_)
        if (e.handle == id.handle()) {
            key = database()->decode(e.key);
            return Acad::eOk;
        }
    return Acad::eKeyNotFound;
}

int AcDbDictionary::numEntries() const
{
    assertReadEnabled();
    hostLoadEntries();
    return int(entries_.size());
}

AcDbObjectId AcDbDictionary::firstEntryId() const
{
    assertReadEnabled();
    hostLoadEntries();
    AcDbDatabase* db = database();
    if (!db) return {};
    for (const RawEntry& e : entries_)
        if (AcDbObjectId id = db->idOf(e.handle); !id.isNull()) return id;
    return {};
}

bool AcDbDictionary::isHardOwner() const
{
    std::string_view v;
    long long n = 0;
    return acdbHostBodyValue(record_, 280, v) && dxf::parseInt(v, n) && n == 1;
}

Acad::ErrorStatus AcDbDictionary::setAt(const wchar_t* key, AcDbObject* obj, AcDbObjectId& id)
{
    assertWriteEnabled();
    AcDbDatabase* db = database();
    if (!db) return Acad::eNoDatabase;
    if (!obj) return Acad::eNullObjectId;
    if (obj->isDatabaseResident() && obj->database() != db) return Acad::eWrongDatabase;
    hostLoadEntries();
    std::wstring k;
    if (key) {
        k = key;
        if (k.empty()) return Acad::eInvalidKey;
    } else {
        for (int n = int(entries_.size()) + 1;; ++n) {
            k = L"*A" + std::to_wstring(n);
            if (findKey(k) < 0) break;
        }
    }
    if (!obj->isDatabaseResident()) {
        Acad::ErrorStatus es = db->addAcDbObject(id, obj);
        if (es != Acad::eOk) return es;
    }
    id = obj->objectId();
    int i = findKey(k);
    if (i >= 0) {
        RawEntry& e = entries_[std::size_t(i)];
        if (e.handle != id.handle()) {
            // The entry names the new object before the old one is erased:
            // erasing drops the entry that still names the erased object.
            AcDbObjectId old = db->idOf(e.handle);
            e.handle = id.handle();
            if (AcDbObject* o = old.object()) {
                o->hostSetErased(true);
                db->hostObjectErased(o);
            }
        }
    } else {
        entries_.push_back({db->encode(k), id.handle(), isHardOwner() ? 360 : 350});
        if (byKeyValid_) byKey_.emplace(acdbToUpper(k), entries_.size() - 1);
    }
    writeEntries();
    obj->setOwnerId(objectId());
    obj->addPersistentReactor(objectId());
    return Acad::eOk;
}

bool AcDbDictionary::setName(const wchar_t* oldKey, const wchar_t* newKey)
{
    assertWriteEnabled();
    if (!oldKey || !newKey || !*newKey) return false;
    int i = findKey(oldKey);
    if (i < 0) return false;
    int j = findKey(newKey);
    if (j >= 0 && j != i) return false;
    entries_[std::size_t(i)].key = database()->encode(newKey);
    byKeyValid_ = false;
    writeEntries();
    return true;
}

Acad::ErrorStatus AcDbDictionary::remove(const wchar_t* key)
{
    AcDbObjectId id;
    return remove(key, id);
}

Acad::ErrorStatus AcDbDictionary::remove(const wchar_t* key, AcDbObjectId& id)
{
    assertWriteEnabled();
    id = AcDbObjectId();
    if (!key) return Acad::eInvalidKey;
    int i = findKey(key);
    if (i < 0) return Acad::eKeyNotFound;
    id = database()->idOf(entries_[std::size_t(i)].handle);
    entries_.erase(entries_.begin() + i);
    byKeyValid_ = false;
    writeEntries();
    if (AcDbObject* o = id.object()) {
        o->removePersistentReactor(objectId());
        o->setOwnerId(AcDbObjectId());
        database()->hostObjectDetached(o);
    }
    return Acad::eOk;
}

Acad::ErrorStatus AcDbDictionary::remove(AcDbObjectId id)
{
    std::wstring key;
    Acad::ErrorStatus es = nameAt(id, key);
    return es == Acad::eOk ? remove(key.c_str()) : es;
}

void AcDbDictionary::hostRemoveEntryFor(AcDbObjectId id)
{
    hostLoadEntries();
    auto it = std::find_if(entries_.begin(), entries_.end(), [&](const RawEntry& e) { return e.handle == id.handle(); });
    if (it == entries_.end()) return;
    entries_.erase(it);
    byKeyValid_ = false;
    writeEntries();
}

std::vector<AcDbDictionary::Entry> AcDbDictionary::entries() const
{
    assertReadEnabled();
    hostLoadEntries();
    std::vector<Entry> out;
    for (const RawEntry& e : entries_) {
        AcDbObjectId id = database() ? database()->idOf(e.handle) : AcDbObjectId();
        if (id.isNull()) continue;
        out.push_back({database()->decode(e.key), id});
    }
    return out;
}

AcDbDictionaryIterator::AcDbDictionaryIterator(const AcDbDictionary* dict)
{
    if (dict) entries_ = dict->entries();
}
