#include "host/dbobject.h"

#include <algorithm>
#include <cstring>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dbsymtb.h"
#include "host/filer.h"

const AcDbObjectId AcDbObjectId::kNull;

namespace dxf {
// Tags of a record that came from the drawing (already checked by the reader).
bool scanTags(std::string_view text, void* ctx, bool (*fn)(void*, int, std::string_view))
{
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end) {
        const char* nl = static_cast<const char*>(std::memchr(p, '\n', std::size_t(end - p)));
        if (!nl) return true;
        const char* q = p;
        while (q < nl && (*q == ' ' || *q == '\t')) ++q;
        bool neg = false;
        if (q < nl && (*q == '-' || *q == '+')) neg = (*q++ == '-');
        int code = 0;
        while (q < nl && *q >= '0' && *q <= '9') code = code * 10 + (*q++ - '0');
        if (neg) code = -code;
        const char* v = nl + 1;
        if (v > end) return true;
        const char* vnl = static_cast<const char*>(std::memchr(v, '\n', std::size_t(end - v)));
        const char* vend = vnl ? vnl : end;
        std::size_t len = std::size_t(vend - v);
        if (len && v[len - 1] == '\r') --len;
        if (!fn(ctx, code, std::string_view(v, len))) return false;
        if (!vnl) return true;
        p = vnl + 1;
    }
    return true;
}
}  // namespace dxf

bool AcDbObjectId::isErased() const { return stub_ && stub_->object && stub_->object->isErased(); }

int AcDbObjectIdArray::find(const AcDbObjectId& id, int start) const
{
    for (std::size_t i = std::size_t(std::max(start, 0)); i < size(); ++i)
        if ((*this)[i] == id) return int(i);
    return -1;
}

bool AcDbObjectIdArray::remove(const AcDbObjectId& id)
{
    int i = find(id);
    if (i < 0) return false;
    removeAt(i);
    return true;
}

bool ResBuf::operator==(const ResBuf& o) const
{
    return restype == o.restype && str == o.str && real == o.real && point == o.point && integer == o.integer &&
           binary == o.binary && handle == o.handle;
}

// --- TagRecord ---

DxfTags TagRecord::tags() const
{
    if (owned_) return *owned_;
    DxfTags out;
    scan([&](int code, std::string_view v) {
        out.push_back({code, std::string(v)});
        return true;
    });
    return out;
}

DxfTags& TagRecord::mutableTags()
{
    if (!owned_) {
        owned_ = std::make_unique<DxfTags>(tags());
        raw_ = {};
        patch_.reset();
    }
    return *owned_;
}

bool TagRecord::replaceValue(std::string_view current, std::string value)
{
    if (owned_) {
        for (DxfTag& tag : *owned_)
            if (tag.value.data() == current.data() && tag.value.size() == current.size()) {
                tag.value = std::move(value);
                return true;
            }
        return false;
    }
    if (patch_) {
        if (current.data() != patch_->value.data()) return false;
        patch_->value = std::move(value);
        return true;
    }
    if (current.data() < raw_.data() || current.data() + current.size() > raw_.data() + raw_.size()) return false;
    patch_ = std::make_unique<Patch>(Patch{current.data(), std::move(value)});
    return true;
}

bool TagRecord::splitAtPatch(std::string_view& before, std::string_view& value, std::string_view& after) const
{
    if (owned_ || !patch_) return false;
    const std::size_t at = std::size_t(patch_->at - raw_.data());
    std::size_t end = raw_.find('\n', at);
    if (end == std::string_view::npos) end = raw_.size();
    // The line end stays the file's own, CR LF or LF.
    if (end > at && raw_[end - 1] == '\r') --end;
    before = raw_.substr(0, at);
    value = patch_->value;
    after = raw_.substr(end);
    return true;
}

RecordLayout layoutOf(const DxfTags& tags)
{
    RecordLayout l;
    l.bodyBegin = l.xdataBegin = tags.size();
    bool inGroup = false;
    for (std::size_t i = 0; i < tags.size(); ++i) {
        int c = tags[i].code;
        if (c == 1001) {
            l.xdataBegin = i;
            if (l.bodyBegin > i) l.bodyBegin = i;
            break;
        }
        if (c == 102) inGroup = !tags[i].value.empty() && tags[i].value[0] == '{';
        if (c == 100 && !inGroup && l.bodyBegin == tags.size()) l.bodyBegin = i;
    }
    return l;
}

// --- AcDbObject ---

AcRxClass* AcDbObject::gpDesc = nullptr;
AcRxClass* AcDbObject::desc()
{
    acdbRegisterHostClasses();
    return gpDesc ? gpDesc : acrxFindClass(L"AcDbObject");
}
AcRxClass* AcDbObject::isA() const { return class_ ? class_ : desc(); }
void AcDbObject::rxInit() { gpDesc = newAcRxClass(L"AcDbObject", L"AcRxObject", 0, 0, 0, nullptr, L"", L""); }

AcDbObject::AcDbObject() = default;
AcDbObject::~AcDbObject() = default;

AcDbObjectId AcDbObject::ownerId() const
{
    AcDbDatabase* db = database();
    return db && !ownerHandle_.isNull() ? db->idOf(ownerHandle_) : AcDbObjectId();
}

Acad::ErrorStatus AcDbObject::setOwnerId(AcDbObjectId owner)
{
    ownerHandle_ = owner.handle();
    if (isDatabaseResident()) hostSyncHead();
    return Acad::eOk;
}

bool AcDbObject::isReadEnabled() const { return !isDatabaseResident() || readers_ > 0 || writer_ || notify_ > 0; }
bool AcDbObject::isWriteEnabled() const { return !isDatabaseResident() || writer_; }

static std::string className(const AcDbObject* o)
{
    return dxf::toUtf8(o->isA() ? o->isA()->name() : L"AcDbObject");
}

void AcDbObject::assertReadEnabled() const
{
    if (!isReadEnabled())
        throw AcDbStatusError(Acad::eNotOpenForRead, className(this) + " " + getAcDbHandle().str() + " is not open for read");
}

void AcDbObject::assertWriteEnabled() const
{
    if (!isWriteEnabled())
        throw AcDbStatusError(Acad::eNotOpenForWrite, className(this) + " " + getAcDbHandle().str() + " is not open for write");
    const_cast<AcDbObject*>(this)->modified_ = true;
}

void AcDbObject::assertNotifyEnabled() const
{
    if (!isNotifyEnabled() && !isWriteEnabled())
        throw AcDbStatusError(Acad::eNotOpenForNotify, className(this) + " is not open for notify");
}

Acad::ErrorStatus AcDbObject::upgradeOpen()
{
    if (!isDatabaseResident() || writer_) return Acad::eWasOpenForWrite;
    if (readers_ != 1) return readers_ == 0 ? Acad::eNotOpenForRead : Acad::eWasOpenForRead;
    readers_ = 0;
    writer_ = true;
    return Acad::eOk;
}

Acad::ErrorStatus AcDbObject::downgradeOpen()
{
    if (!isDatabaseResident() || !writer_) return Acad::eNotOpenForWrite;
    writer_ = false;
    readers_ = 1;
    return Acad::eOk;
}

Acad::ErrorStatus AcDbObject::close()
{
    if (!isDatabaseResident()) return Acad::eOk;
    if (notify_ > 0) {
        --notify_;
    } else if (writer_) {
        writer_ = false;
        if (modified_) {
            modified_ = false;
            database()->hostObjectModified(this);
        }
    } else if (readers_ > 0) {
        --readers_;
    } else {
        return Acad::eNotOpenForRead;
    }
    return Acad::eOk;
}

void AcDbObject::hostForceOpen(AcDb::OpenMode mode)
{
    if (mode == AcDb::kForWrite) writer_ = true;
    else if (mode == AcDb::kForRead) ++readers_;
    else ++notify_;
}

Acad::ErrorStatus AcDbObject::erase(bool erasing)
{
    assertWriteEnabled();
    if (erased_ == erasing) return erasing ? Acad::eWasErased : Acad::eOk;
    erased_ = erasing;
    if (AcDbDatabase* db = database()) db->hostObjectErased(this);
    return Acad::eOk;
}

bool AcDbObject::filesItself() const { return false; }

std::wstring AcDbObject::dxfRecordName() const
{
    std::wstring name;
    bool found = false;
    record_.scan([&](int code, std::string_view v) {
        if (code == 0) {
            name.assign(v.begin(), v.end());
            found = true;
        }
        return false;
    });
    if (found) return name;
    return isA() ? isA()->dxfName() : L"";
}

// The head index where new head groups go: after "0 TYPE" and the handle.
static std::size_t afterHandle(const DxfTags& tags)
{
    std::size_t i = tags.empty() || tags[0].code != 0 ? 0 : 1;
    if (i < tags.size() && (tags[i].code == 5 || tags[i].code == 105)) ++i;
    return i;
}

void AcDbObject::hostSyncHead()
{
    AcDbDatabase* db = database();
    if (!db) return;
    DxfTags& tags = record_.mutableTags();
    if (tags.empty() || tags[0].code != 0) {
        std::wstring n = isA() && *isA()->dxfName() ? isA()->dxfName() : L"OBJECT";
        tags.insert(tags.begin(), {0, dxf::toUtf8(n)});
    }
    if (db->hostWritesHandles()) {
        int handleCode = tags[0].value == "DIMSTYLE" ? 105 : 5;
        if (tags.size() > 1 && (tags[1].code == 5 || tags[1].code == 105))
            tags[1].value = getAcDbHandle().str();
        else
            tags.insert(tags.begin() + 1, {handleCode, getAcDbHandle().str()});
    }
    if (db->isR12OrOlder()) return;
    // The owner: the first 330 of the head outside the 102 groups.
    RecordLayout l = layoutOf(tags);
    bool inGroup = false;
    std::size_t insertAt = afterHandle(tags);
    for (std::size_t i = insertAt; i < l.bodyBegin; ++i) {
        if (tags[i].code == 102) {
            inGroup = !tags[i].value.empty() && tags[i].value[0] == '{';
            insertAt = i + 1;
            continue;
        }
        if (!inGroup && tags[i].code == 330) {
            tags[i].value = ownerHandle_.isNull() ? "0" : ownerHandle_.str();
            return;
        }
        if (!inGroup) break;
        insertAt = i + 1;
    }
    tags.insert(tags.begin() + long(insertAt), {330, ownerHandle_.isNull() ? "0" : ownerHandle_.str()});
}

// --- reactors and the extension dictionary ---

template <class F>
static void forEachHeadGroupItem(const TagRecord& rec, const char* groupName, F&& fn)
{
    bool in = false;
    rec.scan([&](int code, std::string_view v) {
        if (code == 100 || code >= 1000) return false;
        if (code == 102) {
            if (in) return false;
            in = v == groupName;
            return true;
        }
        if (in) fn(code, v);
        return true;
    });
}

AcDbObjectIdArray AcDbObject::getPersistentReactors() const
{
    AcDbObjectIdArray ids;
    AcDbDatabase* db = database();
    forEachHeadGroupItem(record_, "{ACAD_REACTORS", [&](int code, std::string_view v) {
        AcDbHandle h;
        if (code == 330 && db && AcDbHandle::parse(v, h)) ids.append(db->idOf(h));
    });
    return ids;
}

AcDbObjectId AcDbObject::extensionDictionary() const
{
    AcDbObjectId id;
    AcDbDatabase* db = database();
    forEachHeadGroupItem(record_, "{ACAD_XDICTIONARY", [&](int code, std::string_view v) {
        AcDbHandle h;
        if (code == 360 && db && AcDbHandle::parse(v, h)) id = db->idOf(h);
    });
    return id;
}

void AcDbObject::addPersistentReactor(AcDbObjectId id)
{
    if (id.isNull() || getPersistentReactors().contains(id)) return;
    AcDbDatabase* db = database();
    if (db && db->isR12OrOlder()) return;
    DxfTags& tags = record_.mutableTags();
    std::string h = id.handle().str();
    for (std::size_t i = 0; i < tags.size(); ++i) {
        if (tags[i].code == 100 || tags[i].code >= 1000) break;
        if (tags[i].code == 102 && tags[i].value == "{ACAD_REACTORS") {
            std::size_t j = i + 1;
            while (j < tags.size() && tags[j].code != 102) ++j;
            tags.insert(tags.begin() + long(j), {330, h});
            return;
        }
    }
    std::size_t at = afterHandle(tags);
    tags.insert(tags.begin() + long(at), {{102, "{ACAD_REACTORS"}, {330, h}, {102, "}"}});
}

Acad::ErrorStatus AcDbObject::removePersistentReactor(AcDbObjectId id)
{
    if (!getPersistentReactors().contains(id)) return Acad::eKeyNotFound;
    DxfTags& tags = record_.mutableTags();
    std::string h = id.handle().str();
    for (std::size_t i = 0; i < tags.size(); ++i) {
        if (tags[i].code == 102 && tags[i].value == "{ACAD_REACTORS") {
            std::size_t j = i + 1;
            for (; j < tags.size() && tags[j].code != 102; ++j)
                if (tags[j].code == 330 && tags[j].value == h) {
                    tags.erase(tags.begin() + long(j));
                    break;
                }
            // An empty group goes with its last reactor.
            if (i + 1 < tags.size() && tags[i + 1].code == 102) tags.erase(tags.begin() + long(i), tags.begin() + long(i) + 2);
            break;
        }
    }
    return Acad::eOk;
}

// --- extended data ---

ResBufList acdbHostTagsToItems(AcDbDatabase* db, const DxfTags& tags, std::size_t from, std::size_t to)
{
    AcDbDxfFiler conv(db);
    ResBufList out;
    to = std::min(to, tags.size());
    for (std::size_t i = from; i < to; ++i) {
        const DxfTag& t = tags[i];
        if (dxf::valueType(t.code) == dxf::ValueType::Handle) {
            // Resolved, never made: reading a dangling pointer must not add to the drawing.
            ResBuf item;
            item.restype = short(t.code);
            AcDbHandle::parse(t.value, item.handle);
            item.str = dxf::fromUtf8(dxf::trim(t.value));
            if (db && !item.handle.isNull()) item.id = db->idOf(item.handle);
            out.push_back(std::move(item));
            continue;
        }
        ResBuf item = conv.toItem(t);
        // A point comes as three tags (10, 20, 30).
        if (acdbHostIsPointCode(t.code)) {
            double y = 0, z = 0;
            if (i + 1 < to && tags[i + 1].code == t.code + 10 && dxf::parseDouble(tags[i + 1].value, y)) {
                ++i;
                if (i + 1 < to && tags[i + 1].code == t.code + 20 && dxf::parseDouble(tags[i + 1].value, z)) ++i;
            }
            item.point.y = y;
            item.point.z = z;
        }
        out.push_back(std::move(item));
    }
    return out;
}

void acdbHostItemsToTags(AcDbDatabase* db, const ResBufList& items, DxfTags& out)
{
    AcDbDxfFiler conv(db);
    for (const ResBuf& item : items) {
        out.push_back(conv.toTag(item));
        if (acdbHostIsPointCode(item.restype)) {
            out.push_back({item.restype + 10, dxf::formatDouble(item.point.y)});
            out.push_back({item.restype + 20, dxf::formatDouble(item.point.z)});
        }
    }
}

ResBufList AcDbObject::xData(const wchar_t* appName) const
{
    DxfTags tags;
    std::vector<std::size_t> groupStarts;  // index of each 1001 tag
    record_.scan([&](int code, std::string_view v) {
        if (code == 1001) groupStarts.push_back(tags.size());
        if (!groupStarts.empty()) tags.push_back({code, std::string(v)});
        return true;
    });
    if (tags.empty()) return {};
    if (!appName) return acdbHostTagsToItems(database(), tags, 0, tags.size());
    // Only the groups asked for are converted: an entity often carries
    // other applications' data that the caller has no use for.
    std::vector<std::wstring> names;
    for (std::size_t start : groupStarts) names.push_back(acdbHostTagsToItems(database(), tags, start, start + 1)[0].str);
    auto groupsWhere = [&](auto&& matches) {
        ResBufList out;
        for (std::size_t g = 0; g < groupStarts.size(); ++g) {
            if (!matches(names[g])) continue;
            const std::size_t end = g + 1 < groupStarts.size() ? groupStarts[g + 1] : tags.size();
            ResBufList items = acdbHostTagsToItems(database(), tags, groupStarts[g], end);
            out.insert(out.end(), std::make_move_iterator(items.begin()), std::make_move_iterator(items.end()));
        }
        return out;
    };
    // Application names compare exactly as stored first; the APPID table
    // itself is case-insensitive.
    ResBufList out = groupsWhere([&](const std::wstring& name) { return name == appName; });
    if (out.empty()) {
        const std::wstring want = acdbToUpper(appName);
        out = groupsWhere([&](const std::wstring& name) { return acdbToUpper(name) == want; });
    }
    return out;
}

Acad::ErrorStatus AcDbObject::setXData(const ResBufList& items)
{
    assertWriteEnabled();
    if (items.empty()) return Acad::eOk;
    if (items.front().restype != 1001) return Acad::eInvalidInput;
    // Split the new list into application groups; the last group of an application wins.
    std::vector<std::pair<std::wstring, ResBufList>> groups;
    for (const ResBuf& item : items) {
        if (item.restype == 1001) {
            std::wstring key = acdbToUpper(item.str);
            auto it = std::find_if(groups.begin(), groups.end(), [&](auto& g) { return g.first == key; });
            if (it != groups.end()) groups.erase(it);
            groups.push_back({key, {}});
        } else if (item.restype < 1000 || item.restype > 1071) {
            return Acad::eInvalidInput;
        }
        groups.back().second.push_back(item);
    }
    AcDbDatabase* db = database();
    if (db)
        for (auto& g : groups)
            if (!db->regApp(g.second.front().str)) return Acad::eInvalidInput;

    DxfTags& tags = record_.mutableTags();
    RecordLayout l = layoutOf(tags);
    AcDbDxfFiler conv(db);
    // Existing groups, by application, in order.
    std::vector<std::pair<std::wstring, DxfTags>> existing;
    for (std::size_t i = l.xdataBegin; i < tags.size(); ++i) {
        if (tags[i].code == 1001) existing.push_back({acdbToUpper(conv.toItem(tags[i]).str), {}});
        if (!existing.empty()) existing.back().second.push_back(tags[i]);
    }
    for (auto& group : groups) {
        const std::wstring& key = group.first;
        const ResBufList& list = group.second;
        DxfTags t;
        if (list.size() > 1) acdbHostItemsToTags(db, list, t);
        auto it = std::find_if(existing.begin(), existing.end(), [&](auto& e) { return e.first == key; });
        if (it != existing.end()) {
            if (t.empty()) existing.erase(it);
            else it->second = std::move(t);
        } else if (!t.empty()) {
            existing.push_back({key, std::move(t)});
        }
    }
    tags.resize(l.xdataBegin);
    for (auto& e : existing) tags.insert(tags.end(), e.second.begin(), e.second.end());
    return Acad::eOk;
}

// --- filing ---

Acad::ErrorStatus AcDbObject::dwgOutFields(AcDbDwgFiler* filer) const
{
    assertReadEnabled();
    hostPrepareRecord();
    filer->writeSoftPointerId(ownerId());
    DxfTags tags = record_.tags();
    filer->writeUInt32(std::uint32_t(tags.size()));
    for (const DxfTag& t : tags) {
        filer->writeInt16(std::int16_t(t.code));
        filer->writeBytes(std::vector<std::uint8_t>(t.value.begin(), t.value.end()));
    }
    return filer->filerStatus();
}

Acad::ErrorStatus AcDbObject::dwgInFields(AcDbDwgFiler* filer)
{
    assertWriteEnabled();
    AcDbObjectId owner;
    filer->readSoftPointerId(&owner);
    ownerHandle_ = owner.handle();
    std::uint32_t n = 0;
    if (filer->readUInt32(&n) != Acad::eOk) return filer->filerStatus();
    DxfTags tags;
    for (std::uint32_t i = 0; i < n; ++i) {
        std::int16_t code = 0;
        std::vector<std::uint8_t> bytes;
        if (filer->readInt16(&code) != Acad::eOk || filer->readBytes(bytes) != Acad::eOk) return filer->filerStatus();
        tags.push_back({code, std::string(bytes.begin(), bytes.end())});
    }
    record_.assign(std::move(tags));
    return filer->filerStatus();
}

Acad::ErrorStatus AcDbObject::dxfOutFields(AcDbDxfFiler* filer) const
{
    assertReadEnabled();
    hostPrepareRecord();
    DxfTags tags = record_.tags();
    RecordLayout l = layoutOf(tags);
    std::size_t end = filesItself() ? l.bodyBegin : l.xdataBegin;
    for (std::size_t i = (!tags.empty() && tags[0].code == 0) ? 1 : 0; i < end; ++i)
        filer->writeRawTag(tags[i].code, tags[i].value);
    return filer->filerStatus();
}

Acad::ErrorStatus AcDbObject::dxfInFields(AcDbDxfFiler* filer)
{
    assertWriteEnabled();
    // The head: everything before the first subclass marker (or all, for host classes).
    DxfTags head;
    const DxfTags& all = filer->tags();
    std::size_t p = filer->position();
    bool inGroup = false;
    while (p < all.size()) {
        const DxfTag& t = all[p];
        if (t.code >= 1000) break;
        if (t.code == 102) inGroup = !t.value.empty() && t.value[0] == '{';
        if (t.code == 100 && !inGroup && filesItself()) break;
        if (t.code == 330 && !inGroup) {
            AcDbHandle h;
            if (AcDbHandle::parse(t.value, h)) ownerHandle_ = h;
        }
        head.push_back(t);
        ++p;
    }
    filer->setPosition(p);
    std::wstring name = dxfRecordName();
    head.insert(head.begin(), {0, dxf::toUtf8(name)});
    record_.assign(std::move(head));
    return filer->filerStatus();
}

AcRxObject* AcDbObject::clone() const
{
    assertReadEnabled();
    AcRxClass* cls = isA();
    AcRxObject* made = cls ? cls->create() : nullptr;
    AcDbObject* copy = made ? AcDbObject::cast(made) : nullptr;
    if (!copy) {
        delete made;
        copy = AcDbEntity::cast(this) ? new AcDbEntity : new AcDbObject;
    }
    copy->class_ = class_;
    copy->proxy_ = proxy_;
    copy->tagsUtf8_ = tagsUtf8_;
    AcDbMemoryFiler filer(database(), AcDb::kCopyFiler);
    if (dwgOutFields(&filer) != Acad::eOk) {
        delete copy;
        return nullptr;
    }
    filer.rewind();
    if (copy->dwgInFields(&filer) != Acad::eOk) {
        delete copy;
        return nullptr;
    }
    return copy;
}

// --- AcDbEntity ---

AcRxClass* AcDbEntity::gpDesc = nullptr;
AcRxClass* AcDbEntity::desc()
{
    acdbRegisterHostClasses();
    return gpDesc ? gpDesc : acrxFindClass(L"AcDbEntity");
}
AcRxClass* AcDbEntity::isA() const { return class_ ? class_ : desc(); }
void AcDbEntity::rxInit() { gpDesc = newAcRxClass(L"AcDbEntity", L"AcDbObject", 0, 0, 0, nullptr, L"", L""); }

AcDbEntity::AcDbEntity() = default;
AcDbEntity::~AcDbEntity() = default;

// The value of the first `code` tag of the record outside the head groups and before extended data.
bool acdbHostBodyValue(const TagRecord& rec, int code, std::string_view& out)
{
    bool found = false, inGroup = false;
    rec.scan([&](int c, std::string_view v) {
        if (c >= 1000) return false;
        if (c == 102) {
            inGroup = !v.empty() && v[0] == '{';
            return true;
        }
        if (c == code && !inGroup) {
            out = v;
            found = true;
            return false;
        }
        return true;
    });
    return found;
}

std::wstring AcDbEntity::layer() const
{
    assertReadEnabled();
    std::string_view v;
    if (!acdbHostBodyValue(record_, 8, v)) return L"0";
    return database() ? database()->decode(v) : dxf::fromUtf8(v);
}

AcDbObjectId AcDbEntity::layerId() const
{
    AcDbDatabase* db = database();
    auto* table = db ? AcDbSymbolTable::cast(db->layerTableId().object()) : nullptr;
    return table ? table->hostLookup(layer()) : AcDbObjectId();
}

void acdbHostRemoveBodyValue(DxfTags& tags, int code)
{
    RecordLayout l = layoutOf(tags);
    bool inGroup = false;
    for (std::size_t i = 0; i < l.xdataBegin; ++i) {
        if (tags[i].code == 102) inGroup = !tags[i].value.empty() && tags[i].value[0] == '{';
        else if (tags[i].code == code && !inGroup) {
            tags.erase(tags.begin() + long(i));
            return;
        }
    }
}

void acdbHostSetBodyValue(DxfTags& tags, int code, const std::string& value, const char* afterMarker)
{
    RecordLayout l = layoutOf(tags);
    bool inGroup = false;
    for (std::size_t i = 0; i < l.xdataBegin; ++i) {
        if (tags[i].code == 102) inGroup = !tags[i].value.empty() && tags[i].value[0] == '{';
        else if (tags[i].code == code && !inGroup) {
            tags[i].value = value;
            return;
        }
    }
    // After the "AcDbEntity" marker, or after the head for drawings without markers.
    std::size_t at = l.xdataBegin;
    for (std::size_t i = l.bodyBegin; i < l.xdataBegin; ++i)
        if (tags[i].code == 100 && afterMarker && tags[i].value == afterMarker) {
            at = i + 1;
            if (at < l.xdataBegin && tags[at].code == 67) ++at;
            break;
        }
    tags.insert(tags.begin() + long(at), {code, value});
}

Acad::ErrorStatus AcDbEntity::setLayer(const wchar_t* newVal, bool doSubents, bool allowHiddenLayer)
{
    assertWriteEnabled();
    if (!newVal) return Acad::eInvalidInput;
    AcDbDatabase* db = database();
    if (auto* table = db ? AcDbSymbolTable::cast(db->layerTableId().object()) : nullptr) {
        AcDbObjectId id = table->hostLookup(newVal);
        if (id.isNull()) return Acad::eKeyNotFound;
        return setLayer(id, doSubents, allowHiddenLayer);
    }
    std::string raw = db ? db->encode(newVal) : dxf::toUtf8(newVal);
    acdbHostSetBodyValue(record_.mutableTags(), 8, raw, "AcDbEntity");
    return Acad::eOk;
}

Acad::ErrorStatus AcDbEntity::setLayer(AcDbObjectId newVal, bool doSubents, bool allowHiddenLayer)
{
    assertWriteEnabled();
    // Opened for notify: a layer just added is still open for write.
    AcDbLayerTableRecord* layer = nullptr;
    if (acdbOpenObject(layer, newVal, AcDb::kForNotify) != Acad::eOk) return Acad::eInvalidInput;
    AcDbDatabase* db = database();
    if (db && newVal.database() != db) {
        layer->close();
        return Acad::eWrongDatabase;
    }
    // A resident layer's name is already in the drawing's encoding: taken as
    // it is, since every moved entity asks for it.
    std::string converted;
    std::string_view raw;
    if (!db || !acdbHostBodyValue(layer->record(), 2, raw)) raw = converted = dxf::toUtf8(layer->getName());
    // True when the layer changed. A record that is a view of the file keeps
    // being one, with only its layer replaced.
    auto setLayerTag = [raw](TagRecord& rec) {
        std::string_view cur;
        const bool found = acdbHostBodyValue(rec, 8, cur);
        if (found && cur == raw) return false;
        if (!(found && rec.replaceValue(cur, std::string(raw))))
            acdbHostSetBodyValue(rec.mutableTags(), 8, std::string(raw), "AcDbEntity");
        return true;
    };
    setLayerTag(record_);
    if (doSubents && subents_)
        for (AcDbObjectId sub : *subents_)
            if (AcDbObject* o = sub.object(); o && setLayerTag(o->record())) o->hostSetModified();
    // Closed last: `raw` is a view of the layer's record.
    layer->close();
    return Acad::eOk;
}

bool AcDbEntity::isInPaperSpace() const
{
    std::string_view v;
    long long n = 0;
    return acdbHostBodyValue(record_, 67, v) && dxf::parseInt(v, n) && n == 1;
}

std::int16_t AcDbEntity::colorIndex() const
{
    std::string_view v;
    long long n = 256;
    if (acdbHostBodyValue(record_, 62, v)) dxf::parseInt(v, n);
    return std::int16_t(n);
}

const std::vector<AcDbObjectId>& AcDbEntity::subEntities() const
{
    static const std::vector<AcDbObjectId> none;
    return subents_ ? *subents_ : none;
}

void AcDbEntity::hostAddSubEntity(AcDbObjectId id)
{
    if (!subents_) subents_ = std::make_unique<std::vector<AcDbObjectId>>();
    subents_->push_back(id);
}

// --- opening ---

Acad::ErrorStatus acdbOpenObject(AcDbObject*& obj, AcDbObjectId id, AcDb::OpenMode mode, bool openErased)
{
    obj = nullptr;
    if (id.isNull()) return Acad::eNullObjectId;
    AcDbObject* o = id.object();
    if (!o) return Acad::ePermanentlyErased;
    if (o->isErased() && !openErased) return Acad::eWasErased;
    switch (mode) {
    case AcDb::kForRead:
        if (o->isWriteEnabled() && o->isDatabaseResident() && !o->isNotifyEnabled()) {
            // Reading an object open for write is refused, as the host does.
            return Acad::eWasOpenForWrite;
        }
        break;
    case AcDb::kForWrite:
        if (o->isWriteEnabled()) return Acad::eWasOpenForWrite;
        if (o->isReadEnabled()) return Acad::eWasOpenForRead;
        break;
    case AcDb::kForNotify:
        break;
    }
    o->hostForceOpen(mode);
    obj = o;
    return Acad::eOk;
}

bool acdbRegApp(AcDbDatabase* db, const wchar_t* appName)
{
    return db && appName && db->regApp(appName);
}
