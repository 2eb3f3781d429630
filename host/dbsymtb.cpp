#include "host/dbsymtb.h"

#include <cwctype>

#include "host/database.h"

ACDB_HOST_DEFINE_MEMBERS(AcDbSymbolTable, AcDbObject, "TABLE")
ACDB_HOST_DEFINE_MEMBERS(AcDbSymbolTableRecord, AcDbObject, "")
ACDB_HOST_DEFINE_MEMBERS(AcDbLayerTable, AcDbSymbolTable, "TABLE")
ACDB_HOST_DEFINE_MEMBERS(AcDbLayerTableRecord, AcDbSymbolTableRecord, "LAYER")
ACDB_HOST_DEFINE_MEMBERS(AcDbBlockTable, AcDbSymbolTable, "TABLE")
ACDB_HOST_DEFINE_MEMBERS(AcDbBlockTableRecord, AcDbSymbolTableRecord, "BLOCK_RECORD")
ACDB_HOST_DEFINE_MEMBERS(AcDbRegAppTable, AcDbSymbolTable, "TABLE")
ACDB_HOST_DEFINE_MEMBERS(AcDbRegAppTableRecord, AcDbSymbolTableRecord, "APPID")
ACDB_HOST_DEFINE_MEMBERS(AcDbLinetypeTable, AcDbSymbolTable, "TABLE")
ACDB_HOST_DEFINE_MEMBERS(AcDbLinetypeTableRecord, AcDbSymbolTableRecord, "LTYPE")

bool acdbIsValidSymbolName(const std::wstring& name)
{
    if (name.empty() || name.size() > 255) return false;
    if (name.front() == L' ' || name.back() == L' ') return false;
    for (wchar_t c : name)
        if (c < 32 || std::wstring_view(L"<>/\\\":;?*|,=`").find(c) != std::wstring_view::npos) return false;
    return true;
}

// --- tables ---

AcDbSymbolTable::AcDbSymbolTable() = default;

std::wstring AcDbSymbolTable::tableName() const
{
    std::string_view v;
    if (acdbHostBodyValue(record_, 2, v)) return dxf::fromUtf8(v);
    return L"";
}

static std::wstring recordName(const AcDbDatabase* db, AcDbObjectId id)
{
    auto* rec = AcDbSymbolTableRecord::cast(id.object());
    if (!rec) return L"";
    if (auto* btr = AcDbBlockTableRecord::cast(rec); btr && btr->hostVirtual) return btr->hostName;
    std::string_view v;
    if (!acdbHostBodyValue(rec->record(), 2, v)) return L"";
    return db ? db->decode(v) : dxf::fromUtf8(v);
}

void AcDbSymbolTable::index() const
{
    if (indexed_ == records_.size() + 1) return;
    byName_.clear();
    for (AcDbObjectId id : records_)
        if (!id.isErased()) byName_.emplace(acdbToUpper(recordName(database(), id)), id);  // the first of two records of one name wins
    indexed_ = records_.size() + 1;
}

void AcDbSymbolTable::hostAppendRecord(AcDbObjectId id)
{
    bool current = indexed_ == records_.size() + 1;
    records_.push_back(id);
    if (current) {
        byName_.emplace(acdbToUpper(recordName(database(), id)), id);
        indexed_ = records_.size() + 1;
    }
}

void AcDbSymbolTable::hostForgetName(const std::wstring&) { indexed_ = 0; }

bool AcDbSymbolTable::has(const wchar_t* name) const
{
    AcDbObjectId id;
    return getAt(name, id) == Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTable::getAt(const wchar_t* name, AcDbObjectId& id, bool getErased) const
{
    assertReadEnabled();
    id = AcDbObjectId();
    if (!name) return Acad::eInvalidInput;
    index();
    auto it = byName_.find(acdbToUpper(name));
    if (it == byName_.end()) return Acad::eKeyNotFound;
    if (it->second.isErased() && !getErased) return Acad::eWasErased;
    id = it->second;
    return Acad::eOk;
}

AcDbObjectId AcDbSymbolTable::hostLookup(const std::wstring& name) const
{
    index();
    auto it = byName_.find(acdbToUpper(name));
    return it == byName_.end() || it->second.isErased() ? AcDbObjectId() : it->second;
}

Acad::ErrorStatus AcDbSymbolTable::add(AcDbObjectId& id, AcDbSymbolTableRecord* rec)
{
    assertWriteEnabled();
    return hostAdd(id, rec);
}

Acad::ErrorStatus AcDbSymbolTable::hostAdd(AcDbObjectId& id, AcDbSymbolTableRecord* rec)
{
    AcDbDatabase* db = database();
    if (!db) return Acad::eNoDatabase;
    if (!rec) return Acad::eNullObjectId;
    if (rec->isDatabaseResident()) return Acad::eAlreadyInDb;
    std::wstring name = rec->getName();
    if (!acdbIsValidSymbolName(name)) return Acad::eInvalidSymbolTableName;
    if (!hostLookup(name).isNull()) return Acad::eDuplicateRecordName;
    id = db->hostAdopt(rec);
    rec->hostForceOpen(AcDb::kForWrite);
    rec->setOwnerId(objectId());
    if (db->isR12OrOlder()) {
        DxfTags& tags = rec->record().mutableTags();
        std::erase_if(tags, [](const DxfTag& t) { return t.code == 100 || t.code == 330; });
    }
    hostAppendRecord(id);
    hostSetModified();
    db->hostObjectAppended(rec);
    return Acad::eOk;
}

std::vector<AcDbObjectId> AcDbSymbolTable::recordIds() const
{
    std::vector<AcDbObjectId> out;
    for (AcDbObjectId id : records_)
        if (!id.isErased()) out.push_back(id);
    return out;
}

// --- records ---

AcDbSymbolTableRecord::AcDbSymbolTableRecord() = default;

std::string AcDbSymbolTableRecord::tagValue(int code) const
{
    std::string_view v;
    return acdbHostBodyValue(record_, code, v) ? std::string(v) : std::string();
}

void AcDbSymbolTableRecord::setTagValue(int code, const std::string& value, const char* insertAfterMarker)
{
    acdbHostSetBodyValue(record_.mutableTags(), code, value, insertAfterMarker);
}

void AcDbSymbolTableRecord::removeTag(int code) { acdbHostRemoveBodyValue(record_.mutableTags(), code); }

std::wstring AcDbSymbolTableRecord::getName() const
{
    assertReadEnabled();
    if (auto* btr = AcDbBlockTableRecord::cast(this); btr && btr->hostVirtual) return btr->hostName;
    std::string v = tagValue(2);
    return database() ? database()->decode(v) : dxf::fromUtf8(v);
}

Acad::ErrorStatus AcDbSymbolTableRecord::setName(const wchar_t* name)
{
    assertWriteEnabled();
    if (!name || !acdbIsValidSymbolName(name)) return Acad::eInvalidSymbolTableName;
    AcDbDatabase* db = database();
    if (db) {
        // The name must stay unique in the table.
        if (auto* table = AcDbSymbolTable::cast(ownerId().object())) {
            AcDbObjectId other = table->hostLookup(name);
            if (!other.isNull() && other != objectId()) return Acad::eDuplicateRecordName;
            table->hostForgetName(name);
        }
    }
    setTagValue(2, db ? db->encode(name) : dxf::toUtf8(name), nullptr);
    return Acad::eOk;
}

std::int16_t AcDbSymbolTableRecord::flags() const
{
    long long n = 0;
    dxf::parseInt(tagValue(70), n);
    return std::int16_t(n);
}

void AcDbSymbolTableRecord::setFlags(std::int16_t f) { setTagValue(70, std::to_string(f), nullptr); }

// --- layers ---

AcDbLayerTableRecord::AcDbLayerTableRecord()
{
    record_.assign({{0, "LAYER"},
                    {100, "AcDbSymbolTableRecord"},
                    {100, "AcDbLayerTableRecord"},
                    {2, ""},
                    {70, "0"},
                    {62, "7"},
                    {6, "Continuous"}});
}

static void setBit(AcDbSymbolTableRecord* r, std::int16_t bit, bool on)
{
    std::int16_t f = r->flags();
    r->setFlags(std::int16_t(on ? (f | bit) : (f & ~bit)));
}

bool AcDbLayerTableRecord::isFrozen() const { assertReadEnabled(); return flags() & 1; }
void AcDbLayerTableRecord::setIsFrozen(bool v) { assertWriteEnabled(); setBit(this, 1, v); }
bool AcDbLayerTableRecord::VPDFLT() const { assertReadEnabled(); return flags() & 2; }
void AcDbLayerTableRecord::setVPDFLT(bool v) { assertWriteEnabled(); setBit(this, 2, v); }
bool AcDbLayerTableRecord::isLocked() const { assertReadEnabled(); return flags() & 4; }
void AcDbLayerTableRecord::setIsLocked(bool v) { assertWriteEnabled(); setBit(this, 4, v); }

static long long rawColor(const AcDbLayerTableRecord* r, const std::string& v)
{
    long long n = 7;
    if (!v.empty()) dxf::parseInt(v, n);
    return n;
}

bool AcDbLayerTableRecord::isOff() const
{
    assertReadEnabled();
    return rawColor(this, tagValue(62)) < 0;
}

void AcDbLayerTableRecord::setIsOff(bool off)
{
    assertWriteEnabled();
    long long c = rawColor(this, tagValue(62));
    long long a = c < 0 ? -c : c;
    if (a == 0) a = 7;
    setTagValue(62, std::to_string(off ? -a : a), "AcDbLayerTableRecord");
}

std::int16_t AcDbLayerTableRecord::colorIndex() const
{
    assertReadEnabled();
    long long c = rawColor(this, tagValue(62));
    return std::int16_t(c < 0 ? -c : c);
}

void AcDbLayerTableRecord::setColorIndex(std::int16_t color)
{
    assertWriteEnabled();
    bool off = isOff();
    long long a = color < 0 ? -color : color;
    setTagValue(62, std::to_string(off ? -a : a), "AcDbLayerTableRecord");
}

std::wstring AcDbLayerTableRecord::linetypeName() const
{
    assertReadEnabled();
    std::string v = tagValue(6);
    return v.empty() ? L"Continuous" : (database() ? database()->decode(v) : dxf::fromUtf8(v));
}

AcDbObjectId AcDbLayerTableRecord::linetypeObjectId() const
{
    AcDbDatabase* db = database();
    auto* table = db ? AcDbSymbolTable::cast(db->linetypeTableId().object()) : nullptr;
    return table ? table->hostLookup(linetypeName()) : AcDbObjectId();
}

void AcDbLayerTableRecord::setLinetypeObjectId(AcDbObjectId id)
{
    assertWriteEnabled();
    AcDbObjectPointer<AcDbSymbolTableRecord> lt(id, AcDb::kForRead);
    if (lt.openStatus() != Acad::eOk) return;
    std::wstring name = lt->getName();
    setTagValue(6, database() ? database()->encode(name) : dxf::toUtf8(name), "AcDbLayerTableRecord");
}

std::int16_t AcDbLayerTableRecord::lineWeight() const
{
    assertReadEnabled();
    long long n = -3;
    std::string v = tagValue(370);
    if (!v.empty()) dxf::parseInt(v, n);
    return std::int16_t(n);
}

void AcDbLayerTableRecord::setLineWeight(std::int16_t lw)
{
    assertWriteEnabled();
    setTagValue(370, std::to_string(lw), "AcDbLayerTableRecord");
}

std::wstring AcDbLayerTableRecord::plotStyleName() const
{
    assertReadEnabled();
    return dxf::fromUtf8(tagValue(390));
}

bool AcDbLayerTableRecord::isPlottable() const
{
    assertReadEnabled();
    std::string v = tagValue(290);
    long long n = 1;
    if (!v.empty()) dxf::parseInt(v, n);
    return n != 0;
}

void AcDbLayerTableRecord::setIsPlottable(bool plot)
{
    assertWriteEnabled();
    setTagValue(290, plot ? "1" : "0", "AcDbLayerTableRecord");
}

// --- block records ---

AcDbBlockTableRecord::AcDbBlockTableRecord()
{
    record_.assign({{0, "BLOCK_RECORD"}, {100, "AcDbSymbolTableRecord"}, {100, "AcDbBlockTableRecord"}, {2, ""}});
}

Acad::ErrorStatus AcDbBlockTableRecord::appendAcDbEntity(AcDbObjectId& id, AcDbEntity* ent)
{
    assertWriteEnabled();
    AcDbDatabase* db = database();
    if (!db) return Acad::eNoDatabase;
    if (!ent) return Acad::eNullObjectId;
    if (ent->isDatabaseResident()) return Acad::eAlreadyInDb;
    db->hostAppendToBlock(this, ent);
    id = ent->objectId();
    return Acad::eOk;
}

std::vector<AcDbObjectId> AcDbBlockTableRecord::entityIds() const
{
    std::vector<AcDbObjectId> out;
    for (AcDbObjectId id : entities_)
        if (!id.isErased()) out.push_back(id);
    return out;
}

static bool startsWithNoCase(const std::wstring& s, const wchar_t* prefix)
{
    std::wstring p(prefix);
    return s.size() >= p.size() && acdbToUpper(s.substr(0, p.size())) == acdbToUpper(p);
}

bool AcDbBlockTableRecord::isModelSpace() const
{
    // The drawing knows its model space by what owns it; some writers give it another name.
    if (const AcDbDatabase* db = database(); db && !db->modelSpaceId().isNull()) return objectId() == db->modelSpaceId();
    std::wstring n = getName();
    return acdbToUpper(n) == L"*MODEL_SPACE" || acdbToUpper(n) == L"$MODEL_SPACE";
}

bool AcDbBlockTableRecord::isPaperSpace() const
{
    if (isModelSpace()) return false;
    if (const AcDbDatabase* db = database(); db && objectId() == db->paperSpaceId()) return true;
    if (AcDbObject* layout = getLayoutId().object(); layout && layout->dxfRecordName() == L"LAYOUT") return true;
    std::wstring n = getName();
    return startsWithNoCase(n, L"*PAPER_SPACE") || startsWithNoCase(n, L"$PAPER_SPACE");
}

bool AcDbBlockTableRecord::isLayout() const { return isModelSpace() || isPaperSpace(); }

AcDbObjectId AcDbBlockTableRecord::getLayoutId() const
{
    AcDbHandle h;
    if (database() && AcDbHandle::parse(tagValue(340), h)) return database()->idOf(h);
    return {};
}
