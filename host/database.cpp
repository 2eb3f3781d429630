#include "host/database.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "host/dbclasses.h"
#include "host/editor.h"
#include "host/filer.h"

namespace {
// Stubs by handle. Open addressing over (low half of the handle, place in
// the stub list): eight bytes an object, no allocation per object, and a
// probe compares without touching the stub unless the low halves match.
class HandleIndex {
public:
    void reserve(const std::deque<AcDbStub>& stubs, std::size_t n)
    {
        std::size_t want = 16;
        while (want / 4 * 3 < n) want *= 2;
        if (want > slots_.size()) rehash(want, stubs);
    }
    // Inserts `s` at `place` in `stubs` unless its handle is there already.
    void insert(const std::deque<AcDbStub>& stubs, std::size_t place)
    {
        if ((size_ + 1) * 4 > slots_.size() * 3) rehash(std::max<std::size_t>(16, slots_.size() * 2), stubs);
        const std::uint64_t h = stubs[place].handle.value();
        std::size_t i = slotOf(h);
        for (; slots_[i].place; i = (i + 1) & mask_)
            if (slots_[i].low == std::uint32_t(h) && stubs[slots_[i].place - 1].handle.value() == h) return;
        slots_[i] = {std::uint32_t(h), std::uint32_t(place + 1)};
        ++size_;
        max_ = std::max(max_, h);
    }
    const AcDbStub* find(const std::deque<AcDbStub>& stubs, std::uint64_t h) const
    {
        if (slots_.empty()) return nullptr;
        for (std::size_t i = slotOf(h); slots_[i].place; i = (i + 1) & mask_)
            if (slots_[i].low == std::uint32_t(h) && stubs[slots_[i].place - 1].handle.value() == h)
                return &stubs[slots_[i].place - 1];
        return nullptr;
    }
    // The largest handle indexed, 0 when none.
    std::uint64_t maxHandle() const { return max_; }

private:
    struct Slot {
        std::uint32_t low = 0;
        std::uint32_t place = 0;  // 1 + place in the stub list; 0: empty
    };
    std::vector<Slot> slots_;
    std::size_t mask_ = 0;
    std::size_t size_ = 0;
    std::uint64_t max_ = 0;

    std::size_t slotOf(std::uint64_t h) const { return std::size_t((h * 0x9E3779B97F4A7C15ull) >> 32) & mask_; }
    // n is a power of two.
    void rehash(std::size_t n, const std::deque<AcDbStub>& stubs)
    {
        std::vector<Slot> old(n);
        old.swap(slots_);
        mask_ = n - 1;
        for (const Slot& s : old) {
            if (!s.place) continue;
            std::size_t i = slotOf(stubs[s.place - 1].handle.value());
            while (slots_[i].place) i = (i + 1) & mask_;
            slots_[i] = s;
        }
    }
};

std::vector<AcDbDatabase*>& allDatabases()
{
    // Never destroyed: drawings held by other statics are destroyed at exit, in any order.
    static auto* v = new std::vector<AcDbDatabase*>;
    return *v;
}
}  // namespace

struct AcDbDatabase::Impl {
    std::unique_ptr<dxf::DrawingText> text;
    std::deque<AcDbStub> stubs;
    HandleIndex byHandle;
    std::uint64_t nextHandle = 1;
    std::uint64_t seedInFile = 0;

    enum Kind { Header, Classes, Tables, Blocks, Entities, Objects, Raw };
    struct Section {
        std::string name;
        Kind kind;
        std::string_view raw;  // Raw sections: their tags
    };
    std::string prefix;  // comments before the first section
    std::vector<Section> sections;
    TagRecord header;
    struct ClassEntry {
        TagRecord rec;
        std::wstring dxfName, cppName, appName;
    };
    std::vector<ClassEntry> classes;
    std::vector<AcDbObjectId> tables;
    // Table ids by upper-case name, found once: callers ask for the layer
    // table for every entity they place.
    std::map<std::wstring, AcDbObjectId> tableByName;
    std::vector<AcDbObjectId> blocks;
    std::vector<AcDbObjectId> entities;
    std::vector<AcDbObjectId> objects;
    std::vector<AcDbBlockTableRecord*> virtualBlocks;  // owned by their stubs
    std::unordered_set<const AcDbStub*> detached;
    bool adoptedSinceLoad = false;
    int classListener = 0;

    AcDbStub* find(std::uint64_t h) const { return const_cast<AcDbStub*>(byHandle.find(stubs, h)); }
    // `place` in `stubs`.
    void index(std::size_t place) { byHandle.insert(stubs, place); }
};

const std::vector<AcDbDatabase*>& AcDbDatabase::hostAllDatabases() { return allDatabases(); }

static std::map<int, std::function<void(AcDbDatabase*)>>& creationListeners()
{
    static std::map<int, std::function<void(AcDbDatabase*)>> l;
    return l;
}

int AcDbDatabase::hostAddCreationListener(std::function<void(AcDbDatabase*)> fn)
{
    static int next = 1;
    creationListeners()[next] = std::move(fn);
    return next++;
}

void AcDbDatabase::hostRemoveCreationListener(int token) { creationListeners().erase(token); }

void AcDbDatabase::hostAnnounce()
{
    auto copy = creationListeners();
    for (auto& [token, fn] : copy) fn(this);
}

bool AcDbIdMapping::compute(Pair& p) const
{
    for (const Pair& q : pairs_)
        if (q.key == p.key) {
            p.value = q.value;
            return true;
        }
    return false;
}

static void loadText(AcDbDatabase& db, dxf::DrawingText text);

// Puts a proxy of the object's class, holding `record`, in the object's place
// behind its id; the object is deleted.
static AcDbObject* replaceByProxy(AcDbStub* s, AcDbObject* o, TagRecord record)
{
    AcRxClass* cls = o->isA();
    AcDbObject* proxy = AcDbEntity::cast(o) ? new AcDbEntity : new AcDbObject;
    proxy->record() = std::move(record);
    proxy->hostSetClass(acrxProxyClass(cls->name(), cls->myParent(), cls->dxfName(), cls->appName()));
    proxy->hostSetProxy(true);
    proxy->hostSetOwnerHandle(o->hostOwnerHandle());
    proxy->hostSetErased(o->isErased());
    proxy->hostAttach(s);
    delete o;
    s->object = proxy;
    return proxy;
}

// The whole record of an object that files itself: its type, what
// dxfOutFields gives (head and body), and its extended data.
static DxfTags selfFiledTags(AcDbDatabase* db, AcDbObject* o)
{
    AcDbDxfFiler out(db);
    o->hostForceOpen(AcDb::kForNotify);  // leaves the caller's own opening as it is
    o->dxfOutFields(&out);
    o->close();
    DxfTags tags = out.takeTags();
    DxfTags own = o->record().tags();
    tags.insert(tags.begin(), {0, dxf::toUtf8(o->dxfRecordName())});
    tags.insert(tags.end(), own.begin() + long(layoutOf(own).xdataBegin), own.end());
    return tags;
}

// Objects of a class that goes away become proxies that keep their tags.
static void demoteClass(AcDbDatabase* db, AcRxClass* cls)
{
    auto& impl = db->impl();
    for (AcDbStub& s : impl.stubs) {
        AcDbObject* o = s.object;
        if (!o || o->isA() != cls || !o->filesItself()) continue;
        replaceByProxy(&s, o, TagRecord(selfFiledTags(db, o)));
    }
}

AcDbDatabase::AcDbDatabase(bool buildDefaultDrawing, bool noDocument) : impl_(std::make_unique<Impl>())
{
    acdbRegisterHostClasses();
    allDatabases().push_back(this);
    impl_->classListener = acrxAddClassDeletionListener([this](AcRxClass* cls) { demoteClass(this, cls); });
    if (buildDefaultDrawing) {
        extern const char* const kNewDrawingTemplate;
        loadText(*this, dxf::drawingTextFromBytes(kNewDrawingTemplate, "new drawing"));
        fileName_.clear();
        hostAnnounce();
    }
}

AcDbDatabase::~AcDbDatabase()
{
    acedEditor->fireDatabaseToBeDestroyed(this);
    for (auto* r : std::vector<AcDbDatabaseReactor*>(reactors_)) r->goodbye(this);
    acrxRemoveClassDeletionListener(impl_->classListener);
    for (AcDbStub& s : impl_->stubs) {
        delete s.object;
        s.object = nullptr;
    }
    auto& all = allDatabases();
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
}

AcDbStub* AcDbDatabase::hostNewStub(AcDbHandle h)
{
    impl_->stubs.push_back(AcDbStub{nullptr, this, h});
    AcDbStub* s = &impl_->stubs.back();
    if (!h.isNull()) impl_->index(impl_->stubs.size() - 1);
    return s;
}

AcDbObjectId AcDbDatabase::hostAdopt(AcDbObject* obj, AcDbHandle h)
{
    if (h.isNull()) h = AcDbHandle(impl_->nextHandle++);
    else impl_->nextHandle = std::max(impl_->nextHandle, h.value() + 1);
    AcDbStub* s = hostNewStub(h);
    s->object = obj;
    obj->hostAttach(s);
    if (obj->hostTagsUtf8() && !codec_.isUtf8()) {
        DxfTags& tags = obj->record().mutableTags();
        for (DxfTag& t : tags)
            if (dxf::valueType(t.code) == dxf::ValueType::String) t.value = codec_.encode(dxf::fromUtf8(t.value));
    }
    obj->hostSetTagsUtf8(codec_.isUtf8());
    obj->hostSyncHead();
    ++dbmod_;
    impl_->adoptedSinceLoad = true;
    return AcDbObjectId(s);
}

AcDbObjectId AcDbDatabase::idOf(const AcDbHandle& h) const
{
    if (h.isNull()) return {};
    return AcDbObjectId(impl_->find(h.value()));
}

Acad::ErrorStatus AcDbDatabase::getAcDbObjectId(AcDbObjectId& id, bool createIfNotFound, const AcDbHandle& h)
{
    id = idOf(h);
    if (!id.isNull()) return Acad::eOk;
    if (!createIfNotFound || h.isNull()) return Acad::eKeyNotFound;
    id = AcDbObjectId(hostNewStub(h));
    impl_->nextHandle = std::max(impl_->nextHandle, h.value() + 1);
    return Acad::eOk;
}

Acad::ErrorStatus AcDbDatabase::addAcDbObject(AcDbObjectId& id, AcDbObject* obj)
{
    if (!obj) return Acad::eNullObjectId;
    if (obj->isDatabaseResident()) return Acad::eAlreadyInDb;
    if (isR12OrOlder()) return Acad::eNotApplicable;  // no OBJECTS section before R13
    id = hostAdopt(obj);
    obj->hostForceOpen(AcDb::kForWrite);
    impl_->objects.push_back(id);
    if (std::none_of(impl_->sections.begin(), impl_->sections.end(), [](auto& s) { return s.kind == Impl::Objects; }))
        impl_->sections.push_back({"OBJECTS", Impl::Objects, {}});
    hostObjectAppended(obj);
    return Acad::eOk;
}

void AcDbDatabase::hostAppendToBlock(AcDbBlockTableRecord* btr, AcDbEntity* ent)
{
    AcDbObjectId id = hostAdopt(ent);
    ent->hostForceOpen(AcDb::kForWrite);
    ent->setOwnerId(btr->objectId());
    DxfTags& tags = ent->record().mutableTags();
    std::string_view layer;
    if (!acdbHostBodyValue(ent->record(), 8, layer)) acdbHostSetBodyValue(tags, 8, "0", "AcDbEntity");
    if (isR12OrOlder()) std::erase_if(tags, [](const DxfTag& t) { return t.code == 100 || t.code == 330; });
    bool paper = btr->objectId() == paperSpace_;
    if (paper) acdbHostSetBodyValue(tags, 67, "1", "AcDbEntity");
    else if (btr->objectId() == modelSpace_) acdbHostRemoveBodyValue(tags, 67);  // a copy of a paper-space entity
    btr->hostEntities().push_back(id);
    if (paper || btr->objectId() == modelSpace_) impl_->entities.push_back(id);
    hostObjectAppended(ent);
}

void AcDbDatabase::hostObjectAppended(AcDbObject* obj)
{
    ++dbmod_;
    for (auto* r : std::vector<AcDbDatabaseReactor*>(reactors_)) r->objectAppended(this, obj);
}

void AcDbDatabase::hostObjectModified(AcDbObject* obj)
{
    ++dbmod_;
    for (auto* r : std::vector<AcDbDatabaseReactor*>(reactors_)) r->objectModified(this, obj);
}

void AcDbDatabase::hostObjectErased(AcDbObject* obj)
{
    ++dbmod_;
    AcDbObject* owner = obj->ownerId().object();
    if (auto* dict = AcDbDictionary::cast(owner)) dict->hostRemoveEntryFor(obj->objectId());
    if (auto* table = AcDbSymbolTable::cast(owner)) table->hostForgetName(L"");
    for (auto* r : std::vector<AcDbDatabaseReactor*>(reactors_)) r->objectErased(this, obj, obj->isErased());
}

void AcDbDatabase::hostObjectDetached(AcDbObject* obj) { impl_->detached.insert(obj->objectId().stub()); }

void AcDbDatabase::addReactor(AcDbDatabaseReactor* r)
{
    if (std::find(reactors_.begin(), reactors_.end(), r) == reactors_.end()) reactors_.push_back(r);
}
void AcDbDatabase::removeReactor(AcDbDatabaseReactor* r)
{
    reactors_.erase(std::remove(reactors_.begin(), reactors_.end(), r), reactors_.end());
}

AcDbObjectId AcDbDatabase::tableId(const std::wstring& name) const
{
    auto& known = impl_->tableByName;
    if (auto it = known.find(name); it != known.end() && it->second.object()) return it->second;
    for (AcDbObjectId id : impl_->tables)
        if (auto* t = AcDbSymbolTable::cast(id.object()); t && acdbToUpper(t->tableName()) == name) {
            known[name] = id;
            return id;
        }
    return {};
}

std::vector<AcDbObjectId> AcDbDatabase::blockRecordIds() const
{
    if (auto* bt = AcDbSymbolTable::cast(blockTableId().object())) return bt->recordIds();
    std::vector<AcDbObjectId> out;
    for (auto& v : impl_->virtualBlocks) out.push_back(v->objectId());
    return out;
}

AcDbObjectId AcDbDatabase::layerZero() const
{
    // Layer "0" cannot be renamed or erased: found once.
    if (layerZero_.isValid()) return layerZero_;
    auto* t = AcDbSymbolTable::cast(layerTableId().object());
    layerZero_ = t ? t->hostLookup(L"0") : AcDbObjectId();
    return layerZero_;
}

AcDbLayerTableRecord* AcDbDatabase::newLayerRecord() const
{
    auto* rec = new AcDbLayerTableRecord;
    AcDbObject* zero = layerZero().object();
    if (!zero) return rec;
    // Layer "0" carries what this version of the drawing expects of a layer.
    DxfTags tags = zero->record().tags();
    RecordLayout l = layoutOf(tags);
    DxfTags out{{0, "LAYER"}};
    for (std::size_t i = l.bodyBegin; i < l.xdataBegin; ++i) out.push_back(tags[i]);
    if (l.bodyBegin == l.xdataBegin)  // no subclass markers: an old drawing
        for (std::size_t i = 1; i < l.xdataBegin; ++i)
            if (tags[i].code != 5 && tags[i].code != 330) out.push_back(tags[i]);
    // Layer "0" gives the groups this version expects; the states are a new
    // layer's own: on, thawed, unlocked, plotted, colour 7, continuous
    // linetype, default lineweight, no true colour.
    std::erase_if(out, [](const DxfTag& t) { return t.code == 420 || t.code == 430; });
    for (auto& t : out) {
        if (t.code == 70) t.value = "0";
        else if (t.code == 62) t.value = "7";
        else if (t.code == 6) t.value = "Continuous";
        else if (t.code == 370) t.value = "-3";
        else if (t.code == 290) t.value = "1";
        // A new object holds UTF-8 until it joins the drawing.
        else if (dxf::valueType(t.code) == dxf::ValueType::String) t.value = dxf::toUtf8(codec_.decode(t.value));
    }
    rec->record().assign(std::move(out));
    rec->setName(L"0");
    return rec;
}

AcDbObjectId AcDbDatabase::continuousLinetype()
{
    auto* table = AcDbSymbolTable::cast(linetypeTableId().object());
    if (!table) return {};
    AcDbObjectId id = table->hostLookup(L"Continuous");
    if (!id.isNull()) return id;
    auto* rec = new AcDbLinetypeTableRecord;
    rec->record().assign({{0, "LTYPE"}, {100, "AcDbSymbolTableRecord"}, {100, "AcDbLinetypeTableRecord"},
                          {2, "Continuous"}, {70, "0"}, {3, "Solid line"}, {72, "65"}, {73, "0"}, {40, "0"}});
    if (table->hostAdd(id, rec) != Acad::eOk) {
        delete rec;
        return {};
    }
    rec->hostForceClosed();
    return id;
}

bool AcDbDatabase::regApp(const std::wstring& name)
{
    auto* table = AcDbSymbolTable::cast(regAppTableId().object());
    if (!table) return false;
    if (!table->hostLookup(name).isNull()) return true;
    if (!acdbIsValidSymbolName(name)) return false;
    auto* rec = new AcDbRegAppTableRecord;
    rec->record().assign({{0, "APPID"}, {100, "AcDbSymbolTableRecord"}, {100, "AcDbRegAppTableRecord"}, {2, ""}, {70, "0"}});
    rec->setName(name.c_str());
    AcDbObjectId id;
    if (table->hostAdd(id, rec) != Acad::eOk) {
        delete rec;
        return false;
    }
    rec->hostForceClosed();
    return true;
}

std::string AcDbDatabase::versionName() const
{
    static const std::map<std::string, std::string> kNames = {
        {"AC1006", "R10"},   {"AC1009", "R12"},   {"AC1012", "R13"},   {"AC1014", "R14"},   {"AC1015", "R2000"},
        {"AC1018", "R2004"}, {"AC1021", "R2007"}, {"AC1024", "R2010"}, {"AC1027", "R2013"}, {"AC1032", "R2018"},
    };
    auto it = kNames.find(version_);
    return it != kNames.end() ? it->second : "";
}

// --- header ---

bool AcDbDatabase::getHeaderVar(const std::string& name, std::string& value) const
{
    bool found = false, next = false;
    impl_->header.scan([&](int code, std::string_view v) {
        if (code == 9) {
            next = v == name;
            return true;
        }
        if (next) {
            value.assign(v);
            found = true;
            return false;
        }
        return true;
    });
    return found;
}

void AcDbDatabase::setHeaderVar(const std::string& name, int code, const std::string& value)
{
    DxfTags& tags = impl_->header.mutableTags();
    for (std::size_t i = 0; i + 1 < tags.size(); ++i)
        if (tags[i].code == 9 && tags[i].value == name) {
            tags[i + 1] = {code, value};
            return;
        }
    tags.push_back({9, name});
    tags.push_back({code, value});
    if (std::none_of(impl_->sections.begin(), impl_->sections.end(), [](auto& s) { return s.kind == Impl::Header; }))
        impl_->sections.insert(impl_->sections.begin(), {"HEADER", Impl::Header, {}});
}

int AcDbDatabase::tilemode() const
{
    std::string v;
    long long n = 1;
    if (getHeaderVar("$TILEMODE", v)) dxf::parseInt(v, n);
    return int(n);
}

void AcDbDatabase::setTilemode(int v) { setHeaderVar("$TILEMODE", 70, std::to_string(v)); }

// --- deep clone ---

namespace {
// A copy of one object through the binary filer, without its handle's place
// in the head taken and without the reactor and extension-dictionary groups.
AcDbEntity* copyOf(AcDbEntity* ent)
{
    // Sources the caller holds open stay open as they were.
    const bool wasReadable = ent->isReadEnabled();
    if (!wasReadable) ent->hostForceOpen(AcDb::kForRead);
    auto* copy = AcDbEntity::cast(static_cast<AcDbObject*>(ent->clone()));
    if (!wasReadable) ent->hostForceClosed();
    if (!copy) return nullptr;
    DxfTags& tags = copy->record().mutableTags();
    RecordLayout l = layoutOf(tags);
    DxfTags kept;
    bool inGroup = false;
    for (std::size_t i = 0; i < tags.size(); ++i) {
        if (i < l.bodyBegin && tags[i].code == 102) {
            inGroup = !inGroup;
            continue;
        }
        if (inGroup) continue;
        kept.push_back(tags[i]);
    }
    tags = std::move(kept);
    return copy;
}
}  // namespace

bool AcDbDatabase::hostCopyEntity(AcDbObjectId source, AcDbHostEntityCopy& copy) const
{
    auto* ent = AcDbEntity::cast(source.object());
    if (!ent || source.database() != this) return false;
    copy.entity.reset(copyOf(ent));
    if (!copy.entity) return false;
    for (AcDbObjectId subId : ent->subEntities()) {
        auto* sub = AcDbEntity::cast(subId.object());
        std::unique_ptr<AcDbEntity> subCopy(sub ? copyOf(sub) : nullptr);
        // Attributes without their end, or vertices without theirs, would not load.
        if (!subCopy) return false;
        copy.subs.push_back(std::move(subCopy));
        copy.subSources.push_back(subId);
    }
    return true;
}

AcDbObjectId AcDbDatabase::hostAppendCopy(AcDbBlockTableRecord* btr, AcDbHostEntityCopy&& copy, AcDbObjectId source,
                                          AcDbIdMapping* idMap)
{
    const bool wasWritable = btr->isWriteEnabled();
    if (!wasWritable) btr->hostForceOpen(AcDb::kForWrite);
    AcDbEntity* parent = copy.entity.release();
    AcDbObjectId id;
    btr->appendAcDbEntity(id, parent);
    if (!wasWritable) btr->close();
    if (idMap) idMap->assign({source, id});
    const bool paper = btr->objectId() == paperSpace_;
    for (std::size_t i = 0; i < copy.subs.size(); ++i) {
        AcDbEntity* sub = copy.subs[i].release();
        DxfTags& tags = sub->record().mutableTags();
        if (isR12OrOlder()) std::erase_if(tags, [](const DxfTag& t) { return t.code == 100 || t.code == 330; });
        if (paper) acdbHostSetBodyValue(tags, 67, "1", "AcDbEntity");
        else if (btr->objectId() == modelSpace_) acdbHostRemoveBodyValue(tags, 67);
        AcDbObjectId subId = hostAdopt(sub);
        sub->setOwnerId(id);
        parent->hostAddSubEntity(subId);
        if (idMap) idMap->assign({copy.subSources[i], subId});
    }
    parent->hostForceClosed();
    return id;
}

Acad::ErrorStatus AcDbDatabase::deepCloneObjects(const AcDbObjectIdArray& ids, AcDbObjectId owner, AcDbIdMapping& idMap)
{
    auto* btr = AcDbBlockTableRecord::cast(owner.object());
    if (!btr || owner.database() != this) return Acad::eInvalidOwnerObject;
    idMap.destDb = this;
    for (AcDbObjectId src : ids) {
        AcDbHostEntityCopy copy;
        if (!hostCopyEntity(src, copy)) continue;
        hostAppendCopy(btr, std::move(copy), src, &idMap);
    }
    acedEditor->fireEndDeepClone(idMap);
    return Acad::eOk;
}

// --- reading ---

struct DxfLoader {
    AcDbDatabase& db;
    AcDbDatabase::Impl& impl;
    const dxf::DrawingText& text;
    dxf::Tokenizer tk;
    dxf::TagView pending;
    bool havePending = false;
    bool atEnd = false;
    std::vector<std::size_t> needHandle;  // places in the stub list of records without a handle
    std::unordered_map<std::wstring, std::size_t> classByDxf;
    std::vector<bool> entityInPaper;  // for each entity of section ENTITIES
    struct LayoutRef {
        long long tabOrder;
        AcDbHandle block;
    };
    std::vector<LayoutRef> layouts;
    std::unordered_map<AcDbBlockTableRecord*, std::size_t> blockAt;  // where each BLOCK was read

    struct Rec {
        std::size_t begin = 0, end = 0;
        std::string_view type;
        AcDbHandle handle;
        std::size_t handleOffset = 0;
        bool hasHandle = false;
        AcDbHandle owner;
        std::string_view name;  // group 2
        bool paper = false;
        std::string_view markers[6];
        int nMarkers = 0;
    };

    DxfLoader(AcDbDatabase& d, const dxf::DrawingText& t) : db(d), impl(d.impl()), text(t), tk(t) {}

    bool nextTag(dxf::TagView& t)
    {
        if (havePending) {
            t = pending;
            havePending = false;
            return true;
        }
        return tk.next(t);
    }

    // The record that starts at the next 0 tag; false at the end of the text.
    bool nextRecord(Rec& r)
    {
        dxf::TagView t;
        if (!nextTag(t)) return false;
        while (t.code == 999)  // a comment between records
            if (!nextTag(t)) return false;
        if (t.code != 0) text.fail(t.offset, "expected group code 0, found " + std::to_string(t.code));
        r = Rec();
        r.begin = t.offset;
        r.type = t.value;
        if (dxf::trim(r.type) == "EOF") {
            // What follows the end (a DOS end-of-file character, blank lines,
            // padding) is not part of the drawing and is not looked at.
            r.type = "EOF";
            r.end = tk.position();
            return true;
        }
        bool inGroup = false, body = false;
        while (tk.next(t)) {
            if (t.code == 0) {
                pending = t;
                havePending = true;
                r.end = t.offset;
                return true;
            }
            switch (t.code) {
            case 5:
            case 105:
                if (!r.hasHandle && !body) {
                    // An empty handle is as good as none; writers of old drawings leave them.
                    if (dxf::trim(t.value).empty()) break;
                    if (!AcDbHandle::parse(t.value, r.handle))
                        text.fail(t.offset, "invalid handle '" + dxf::excerpt(t.value) + "'");
                    r.hasHandle = !r.handle.isNull();
                    r.handleOffset = t.offset;
                }
                break;
            case 102:
                inGroup = !t.value.empty() && t.value[0] == '{';
                break;
            case 330:
                if (!inGroup && !body && r.owner.isNull()) AcDbHandle::parse(t.value, r.owner);
                break;
            case 100:
                if (!inGroup) {
                    body = true;
                    if (r.nMarkers < 6) r.markers[r.nMarkers++] = t.value;
                }
                break;
            case 2:
                if (r.name.empty()) r.name = t.value;
                break;
            case 67:
                r.paper = dxf::trim(t.value) == "1";
                break;
            default:
                break;
            }
        }
        r.end = tk.position();
        return true;
    }

    std::string_view raw(const Rec& r) const { return std::string_view(text.text).substr(r.begin, r.end - r.begin); }

    [[noreturn]] void fail(const Rec& r, const std::string& msg) const { text.fail(r.begin, msg); }

    AcRxClass* classFromMarkers(const Rec& r, AcRxClass* base, const std::wstring& lastName, const std::wstring& dxfName,
                                const std::wstring& app)
    {
        AcRxClass* parent = base;
        for (int i = 0; i < r.nMarkers; ++i) {
            std::wstring m = dxf::fromUtf8(r.markers[i]);
            if (m == lastName) break;
            AcRxClass* c = acrxFindClass(m);
            if (c && (!parent || c->isDerivedFrom(parent))) parent = c;
            else if (!c) parent = acrxProxyClass(m, parent, L"", L"");
        }
        return acrxProxyClass(lastName, parent, dxfName, app);
    }

    struct Choice {
        AcRxClass* cls;
        bool proxy;
    };
    std::unordered_map<std::string, Choice> choices;

    // The class of a record depends on its type, the CLASSES section and its
    // last subclass marker only: decided once per kind of record.
    AcDbObject* makeObject(const Rec& r, bool entity)
    {
        std::string key(r.type);
        key += entity ? '\x1e' : '\x1f';
        if (r.nMarkers > 0) key += r.markers[r.nMarkers - 1];
        auto it = choices.find(key);
        if (it == choices.end()) it = choices.emplace(key, chooseClass(r, entity)).first;
        AcRxClass* cls = it->second.cls;
        bool proxy = it->second.proxy;
        AcDbObject* obj = nullptr;
        if (!proxy) {
            AcRxObject* made = cls->create();
            obj = AcDbObject::cast(made);
            if (!obj || (entity && !AcDbEntity::cast(obj))) {
                delete made;
                obj = nullptr;
            }
        }
        if (!obj) obj = entity ? new AcDbEntity : new AcDbObject;
        if (obj->isA() != cls) obj->hostSetClass(cls);
        obj->hostSetProxy(proxy);
        return obj;
    }

    Choice chooseClass(const Rec& r, bool entity)
    {
        std::wstring type = dxf::fromUtf8(r.type);
        AcRxClass* cls = nullptr;
        bool proxy = false;
        AcRxClass* base = entity ? AcDbEntity::desc() : AcDbObject::desc();
        auto ci = classByDxf.find(type);
        if (ci != classByDxf.end()) {
            const auto& ce = impl.classes[ci->second];
            AcRxClass* c = acrxFindClass(ce.cppName);
            if (c && !c->isProxyClass() && c->isDerivedFrom(base)) cls = c;
            else {
                cls = classFromMarkers(r, base, ce.cppName, type, ce.appName);
                proxy = true;
            }
        } else if ((cls = acdbHostClassForDxfName(type, entity))) {
            // A more specific class from the last marker (DIMENSION, POLYLINE, VERTEX).
            if (r.nMarkers > 0) {
                AcRxClass* m = acrxFindClass(dxf::fromUtf8(r.markers[r.nMarkers - 1]));
                if (m && m != cls && m->isDerivedFrom(cls)) cls = m;
            }
        } else {
            std::wstring last = r.nMarkers ? dxf::fromUtf8(r.markers[r.nMarkers - 1]) : type;
            AcRxClass* c = acrxFindClass(last);
            if (c && !c->isProxyClass() && c->isDerivedFrom(base)) cls = c;
            else {
                cls = classFromMarkers(r, base, last, type, L"");
                proxy = true;
            }
        }
        return {cls, proxy};
    }

    AcDbObjectId adopt(AcDbObject* obj, const Rec& r, AcDbHandle defaultOwner)
    {
        AcDbStub* s;
        if (r.hasHandle) {
            // An id made earlier for a pointer to this record is taken over.
            AcDbStub* known = impl.find(r.handle.value());
            if (known && known->object) {
                delete obj;  // not attached yet: nobody else owns it
                duplicateHandle(r);
            }
            s = known ? known : db.hostNewStub(r.handle);
        } else {
            s = db.hostNewStub();
            needHandle.push_back(impl.stubs.size() - 1);
        }
        s->object = obj;
        obj->hostAttach(s);
        obj->hostSetTagsUtf8(db.codec().isUtf8());
        obj->hostSetOwnerHandle(r.owner.isNull() ? defaultOwner : r.owner);
        if (!obj->filesItself()) {
            obj->record() = TagRecord(raw(r));
        } else {
            // A class that files itself reads its record; when it refuses, the
            // record is kept as it is, as a proxy.
            AcDbDxfFiler in(&db, TagRecord(raw(r)).tags());
            in.setPosition(1);
            obj->record() = TagRecord(std::string_view(raw(r)).substr(0, 0));
            obj->hostForceOpen(AcDb::kForWrite);
            Acad::ErrorStatus es = Acad::eOk;
            try {
                es = obj->dxfInFields(&in);
            } catch (const std::exception&) {
                es = Acad::eFilerError;
            }
            obj->hostForceClosed();
            if (es == Acad::eOk) {
                DxfTags head = obj->record().tags();
                const DxfTags& all = in.tags();
                for (std::size_t i = in.position(); i < all.size(); ++i)
                    if (all[i].code >= 1000) {
                        head.insert(head.end(), all.begin() + long(i), all.end());
                        break;
                    }
                obj->record().assign(std::move(head));
            } else {
                std::string why = dxf::toUtf8(in.errorMessage());
                while (!why.empty() && (why.front() == '\n' || why.front() == ' ')) why.erase(why.begin());
                db.warnings_.push_back(text.fileName + ": " + text.where(r.begin) + ": " + dxf::excerpt(r.type) + " " +
                                       r.handle.str() + " kept as read (" + Acad::errorName(es) +
                                       (why.empty() ? "" : ": " + dxf::excerpt(why, 200)) + ")");
                obj = replaceByProxy(s, obj, TagRecord(raw(r)));
            }
        }
        return AcDbObjectId(s);
    }

    // Finds where the handle was first used, for the message.
    [[noreturn]] void duplicateHandle(const Rec& r)
    {
        std::string first = "an earlier record";
        dxf::Tokenizer again(text, 0, r.begin);
        dxf::TagView t;
        bool head = false;
        while (again.next(t)) {
            if (t.code == 0) head = true;
            else if (t.code == 100) head = false;
            AcDbHandle h;
            if (head && (t.code == 5 || t.code == 105) && AcDbHandle::parse(t.value, h) && h == r.handle) {
                first = text.where(t.offset);
                break;
            }
        }
        text.fail(r.handleOffset, "duplicate handle " + r.handle.str() + " (first used at " + first + ")");
    }

    void expectEndsec(const std::string& section)
    {
        Rec r;
        if (!nextRecord(r)) text.fail(text.text.size(), "section " + section + " has no ENDSEC");
        if (r.type != "ENDSEC") fail(r, "unexpected " + dxf::excerpt(r.type) + " in section " + section);
    }

    void load()
    {
        Rec r;
        bool sawEof = false;
        // A drawing without a header is an old one.
        db.version_ = "AC1009";
        db.codec_ = dxf::Codec::forDrawing(db.version_, "");
        db.writesHandles_ = false;
        // Comments before the first section are kept.
        {
            dxf::TagView t;
            std::size_t start = 0;
            while (nextTag(t)) {
                if (t.code == 0) {
                    pending = t;
                    havePending = true;
                    break;
                }
                if (t.code != 999) text.fail(t.offset, "expected a SECTION, found group code " + std::to_string(t.code));
                start = t.offset;
            }
            if (havePending) impl.prefix.assign(text.text, 0, pending.offset);
            else if (start == 0) text.fail(0, "no sections (empty drawing)");
        }
        while (nextRecord(r)) {
            if (r.type == "EOF") {
                sawEof = true;
                break;
            }
            if (r.type != "SECTION") fail(r, "expected SECTION or EOF, found " + dxf::excerpt(r.type));
            if (r.name.empty()) fail(r, "SECTION without a name");
            std::string name(dxf::trim(r.name));
            // A second copy of a section the host models would be written twice.
            static const std::set<std::string> kModelled = {"HEADER", "CLASSES", "TABLES", "BLOCKS", "ENTITIES", "OBJECTS"};
            if (kModelled.count(name) &&
                std::any_of(impl.sections.begin(), impl.sections.end(), [&](const auto& s) { return s.name == name; }))
                fail(r, "section " + dxf::excerpt(name) + " appears a second time");
            if (name == "HEADER") {
                // The section record holds the variables: drop "0 SECTION" and "2 HEADER".
                dxf::TagView t2;
                dxf::Tokenizer sub(text, r.begin, r.end);
                sub.next(t2);  // "0 SECTION"
                sub.next(t2);  // "2 HEADER"
                impl.header = TagRecord(std::string_view(text.text).substr(sub.position(), r.end - sub.position()));
                impl.sections.push_back({name, AcDbDatabase::Impl::Header, {}});
                expectEndsec(name);
                readHeaderVars();
            } else if (name == "CLASSES") {
                impl.sections.push_back({name, AcDbDatabase::Impl::Classes, {}});
                readClasses();
            } else if (name == "TABLES") {
                impl.sections.push_back({name, AcDbDatabase::Impl::Tables, {}});
                readTables();
            } else if (name == "BLOCKS") {
                impl.sections.push_back({name, AcDbDatabase::Impl::Blocks, {}});
                readBlocks();
            } else if (name == "ENTITIES") {
                impl.sections.push_back({name, AcDbDatabase::Impl::Entities, {}});
                readEntities();
            } else if (name == "OBJECTS") {
                impl.sections.push_back({name, AcDbDatabase::Impl::Objects, {}});
                readObjects();
            } else {
                // Kept tag for tag, from after "2 NAME".
                dxf::TagView t2;
                dxf::Tokenizer sub(text, r.begin, r.end);
                sub.next(t2);
                sub.next(t2);
                std::size_t begin = sub.position();
                Rec e;
                while (nextRecord(e) && e.type != "ENDSEC") {
                    if (e.type == "SECTION" || e.type == "EOF") fail(e, "section " + dxf::excerpt(name) + " has no ENDSEC");
                }
                if (e.type != "ENDSEC") text.fail(text.text.size(), "section " + dxf::excerpt(name) + " has no ENDSEC");
                impl.sections.push_back({name, AcDbDatabase::Impl::Raw, std::string_view(text.text).substr(begin, e.begin - begin)});
            }
        }
        if (!sawEof) text.fail(text.text.size(), "missing EOF at the end of the drawing");
        finish();
    }

    void readHeaderVars()
    {
        std::string v;
        if (db.getHeaderVar("$ACADVER", v)) db.version_ = std::string(dxf::trim(v));
        else db.version_ = "AC1009";
        std::string cp;
        db.getHeaderVar("$DWGCODEPAGE", cp);
        try {
            db.codec_ = dxf::Codec::forDrawing(db.version_, dxf::trim(cp));
        } catch (const dxf::UnknownCodePage&) {
            // Point at the variable's value in the header.
            std::size_t at = 0;
            if (std::string_view raw = impl.header.raw(); !raw.empty()) {
                std::size_t begin = std::size_t(raw.data() - text.text.data());
                dxf::Tokenizer tk2(text, begin, begin + raw.size());
                dxf::TagView t;
                for (bool next = false; tk2.next(t); next = t.code == 9 && t.value == "$DWGCODEPAGE")
                    if (next) {
                        at = t.offset;
                        break;
                    }
            }
            text.fail(at, "unknown code page '" + dxf::excerpt(dxf::trim(cp)) + "' ($DWGCODEPAGE)");
        }
        if (db.getHeaderVar("$HANDSEED", v)) {
            AcDbHandle h;
            if (AcDbHandle::parse(v, h)) impl.seedInFile = h.value();
            // Handles are mostly below the seed; a record takes some 32 bytes at least.
            const std::uint64_t expected = std::min<std::uint64_t>(impl.seedInFile, text.text.size() / 32);
            impl.byHandle.reserve(impl.stubs, std::size_t(expected));
        }
        std::string handling;
        db.writesHandles_ = true;
        if (db.isR12OrOlder() && db.getHeaderVar("$HANDLING", handling)) {
            long long n = 0;
            dxf::parseInt(handling, n);
            db.writesHandles_ = n != 0;
        } else if (db.isR12OrOlder()) {
            db.writesHandles_ = false;
        }
    }

    void readClasses()
    {
        Rec r;
        while (nextRecord(r)) {
            if (r.type == "ENDSEC") return;
            if (r.type != "CLASS") fail(r, "expected CLASS in section CLASSES, found " + dxf::excerpt(r.type));
            AcDbDatabase::Impl::ClassEntry ce;
            ce.rec = TagRecord(raw(r));
            ce.rec.scan([&](int code, std::string_view v) {
                if (code == 1) ce.dxfName = dxf::fromUtf8(dxf::trim(v));
                else if (code == 2) ce.cppName = dxf::fromUtf8(dxf::trim(v));
                else if (code == 3) ce.appName = db.decode(v);
                return true;
            });
            classByDxf.emplace(ce.dxfName, impl.classes.size());
            impl.classes.push_back(std::move(ce));
        }
        text.fail(text.text.size(), "section CLASSES has no ENDSEC");
    }

    AcRxClass* tableClass(const std::wstring& name, bool record)
    {
        static const std::pair<const wchar_t*, std::pair<const wchar_t*, const wchar_t*>> kTables[] = {
            {L"LAYER", {L"AcDbLayerTable", L"AcDbLayerTableRecord"}},
            {L"BLOCK_RECORD", {L"AcDbBlockTable", L"AcDbBlockTableRecord"}},
            {L"APPID", {L"AcDbRegAppTable", L"AcDbRegAppTableRecord"}},
            {L"LTYPE", {L"AcDbLinetypeTable", L"AcDbLinetypeTableRecord"}},
            {L"STYLE", {L"AcDbTextStyleTable", L"AcDbTextStyleTableRecord"}},
            {L"VIEW", {L"AcDbViewTable", L"AcDbViewTableRecord"}},
            {L"VPORT", {L"AcDbViewportTable", L"AcDbViewportTableRecord"}},
            {L"UCS", {L"AcDbUCSTable", L"AcDbUCSTableRecord"}},
            {L"DIMSTYLE", {L"AcDbDimStyleTable", L"AcDbDimStyleTableRecord"}},
        };
        for (auto& [n, c] : kTables)
            if (name == n) return acrxFindClass(record ? c.second : c.first);
        return record ? AcDbSymbolTableRecord::desc() : AcDbSymbolTable::desc();
    }

    AcDbObject* makeFromClass(AcRxClass* cls)
    {
        AcRxObject* made = cls->create();
        AcDbObject* o = AcDbObject::cast(made);
        if (!o) {
            delete made;
            o = new AcDbObject;
        }
        if (o->isA() != cls) o->hostSetClass(cls);
        return o;
    }

    void readTables()
    {
        Rec r;
        while (nextRecord(r)) {
            if (r.type == "ENDSEC") return;
            if (r.type != "TABLE") fail(r, "expected TABLE in section TABLES, found " + dxf::excerpt(r.type));
            std::wstring name = acdbToUpper(dxf::fromUtf8(dxf::trim(r.name)));
            AcDbObject* tobj = makeFromClass(tableClass(name, false));
            auto* table = AcDbSymbolTable::cast(tobj);
            AcDbObjectId tid = adopt(tobj, r, {});
            impl.tables.push_back(tid);
            AcRxClass* recClass = tableClass(name, true);
            Rec e;
            while (true) {
                if (!nextRecord(e)) text.fail(text.text.size(), "table " + dxf::toUtf8(name) + " has no ENDTAB");
                if (e.type == "ENDTAB") break;
                if (e.type == "ENDSEC" || e.type == "TABLE" || e.type == "EOF")
                    fail(e, "table " + dxf::toUtf8(name) + " has no ENDTAB");
                AcDbObject* rec = makeFromClass(recClass);
                AcDbObjectId rid = adopt(rec, e, tobj->getAcDbHandle());
                if (table) table->hostAppendRecord(rid);
                if (name == L"BLOCK_RECORD") {
                    std::wstring n = acdbToUpper(db.decode(dxf::trim(e.name)));
                    if (n == L"*MODEL_SPACE") db.modelSpace_ = rid;
                    else if (n == L"*PAPER_SPACE") db.paperSpace_ = rid;
                }
            }
        }
        text.fail(text.text.size(), "section TABLES has no ENDSEC");
    }

    AcDbBlockTableRecord* blockRecordFor(const Rec& begin)
    {
        if (!begin.owner.isNull())
            if (auto* btr = AcDbBlockTableRecord::cast(db.idOf(begin.owner).object())) return btr;
        std::wstring name = db.decode(dxf::trim(begin.name));
        if (auto* bt = AcDbSymbolTable::cast(db.blockTableId().object()))
            if (auto* btr = AcDbBlockTableRecord::cast(bt->hostLookup(name).object())) return btr;
        return virtualBlock(name);
    }

    // Drawings without block records (R12) get records that are never written.
    AcDbBlockTableRecord* virtualBlock(const std::wstring& name)
    {
        // Blocks without a name stay apart: each is its own block.
        for (auto* v : impl.virtualBlocks)
            if (!name.empty() && acdbToUpper(v->hostName) == acdbToUpper(name)) return v;
        auto* btr = new AcDbBlockTableRecord;
        btr->hostVirtual = true;
        btr->hostName = name;
        AcDbStub* s = db.hostNewStub();
        s->object = btr;
        btr->hostAttach(s);
        needHandle.push_back(impl.stubs.size() - 1);
        impl.virtualBlocks.push_back(btr);
        return btr;
    }

    // Reads entities until a record that is not one (returned in `stop`).
    void readEntityRun(Rec& stop, AcDbBlockTableRecord* btr, std::vector<AcDbObjectId>* sectionList, const char* section)
    {
        AcDbEntity* parent = nullptr;
        Rec r;
        while (true) {
            if (!nextRecord(r)) text.fail(text.text.size(), std::string("section ") + section + " has no ENDSEC");
            if (r.type == "ENDSEC" || r.type == "ENDBLK" || r.type == "SECTION" || r.type == "EOF" || r.type == "BLOCK") {
                stop = r;
                return;
            }
            bool sub = r.type == "ATTRIB" || r.type == "VERTEX" || r.type == "SEQEND";
            AcDbObject* obj = makeObject(r, true);
            auto* ent = AcDbEntity::cast(obj);
            if (sub && parent) {
                AcDbObjectId id = adopt(obj, r, parent->getAcDbHandle());
                parent->hostAddSubEntity(id);
                if (r.type == "SEQEND") parent = nullptr;
                continue;
            }
            if (btr) {
                btr->hostEntities().push_back(adopt(obj, r, btr->getAcDbHandle()));
            } else {
                // Which block records are model space and the current layout is
                // known at the end only (the LAYOUT objects come last).
                sectionList->push_back(adopt(obj, r, {}));
                entityInPaper.push_back(r.paper);
            }
            parent = (r.type == "INSERT" || r.type == "POLYLINE") ? ent : nullptr;
        }
    }

    AcDbBlockTableRecord* modelBlock()
    {
        if (auto* b = AcDbBlockTableRecord::cast(db.modelSpace_.object())) return b;
        AcDbBlockTableRecord* b = virtualBlock(L"*Model_Space");
        db.modelSpace_ = b->objectId();
        return b;
    }
    AcDbBlockTableRecord* paperBlock()
    {
        if (auto* b = AcDbBlockTableRecord::cast(db.paperSpace_.object())) return b;
        AcDbBlockTableRecord* b = virtualBlock(L"*Paper_Space");
        db.paperSpace_ = b->objectId();
        return b;
    }

    void readBlocks()
    {
        Rec r;
        if (!nextRecord(r)) text.fail(text.text.size(), "section BLOCKS has no ENDSEC");
        while (true) {
            if (r.type == "ENDSEC") return;
            if (r.type != "BLOCK") fail(r, "expected BLOCK in section BLOCKS, found " + dxf::excerpt(r.type));
            AcDbBlockTableRecord* btr = blockRecordFor(r);
            // A block read twice would be written twice, with its handles.
            if (auto [first, isNew] = blockAt.emplace(btr, r.begin); !isNew)
                fail(r, "block '" + dxf::excerpt(dxf::trim(r.name)) + "' appears a second time (first at " +
                            text.where(first->second) + ")");
            AcDbObject* begin = makeObject(r, true);
            btr->hostBlockBegin = adopt(begin, r, btr->getAcDbHandle());
            impl.blocks.push_back(btr->objectId());
            Rec stop;
            readEntityRun(stop, btr, nullptr, "BLOCKS");
            btr->hostEntitiesInBlock = btr->hostEntities().size();
            if (stop.type != "ENDBLK") fail(stop, "block '" + dxf::excerpt(dxf::trim(r.name)) + "' has no ENDBLK");
            AcDbObject* end = makeObject(stop, true);
            btr->hostBlockEnd = adopt(end, stop, btr->getAcDbHandle());
            if (!nextRecord(r)) text.fail(text.text.size(), "section BLOCKS has no ENDSEC");
        }
    }

    void readEntities()
    {
        Rec stop;
        readEntityRun(stop, nullptr, &impl.entities, "ENTITIES");
        if (stop.type != "ENDSEC") fail(stop, "unexpected " + dxf::excerpt(stop.type) + " in section ENTITIES");
    }

    void readObjects()
    {
        Rec r;
        while (nextRecord(r)) {
            if (r.type == "ENDSEC") return;
            if (r.type == "SECTION" || r.type == "EOF") fail(r, "section OBJECTS has no ENDSEC");
            if (r.type == "LAYOUT") noteLayout(r);
            AcDbObject* obj = makeObject(r, false);
            AcDbObjectId id = adopt(obj, r, {});
            if (impl.objects.empty() && AcDbDictionary::cast(obj)) db.nod_ = id;
            impl.objects.push_back(id);
        }
        text.fail(text.text.size(), "section OBJECTS has no ENDSEC");
    }

    // A layout's tab order (0: model space) and the block record it points at.
    void noteLayout(const Rec& r)
    {
        LayoutRef ref{-1, {}};
        bool inLayout = false;
        for (const dxf::TagView& t : dxf::splitTags(raw(r))) {
            if (t.code == 100) inLayout = dxf::trim(t.value) == "AcDbLayout";
            else if (inLayout && t.code == 71) dxf::parseInt(t.value, ref.tabOrder);
            else if (inLayout && t.code == 330) AcDbHandle::parse(t.value, ref.block);
        }
        if (ref.tabOrder >= 0 && !ref.block.isNull()) layouts.push_back(ref);
    }

    // Model space and the current layout are the block records that own the
    // entities of section ENTITIES, else those the layouts point at, else the
    // ones named so: some writers give them anonymous names.
    void findSpaces()
    {
        auto recordOf = [&](AcDbHandle h) -> AcDbBlockTableRecord* {
            auto* b = AcDbBlockTableRecord::cast(db.idOf(h).object());
            return b && !b->hostVirtual ? b : nullptr;
        };
        AcDbBlockTableRecord *model = nullptr, *paper = nullptr;
        for (std::size_t i = 0; i < impl.entities.size() && !(model && paper); ++i) {
            AcDbBlockTableRecord*& space = entityInPaper[i] ? paper : model;
            if (!space) space = recordOf(impl.entities[i].object()->hostOwnerHandle());
        }
        if (!model)
            for (const LayoutRef& l : layouts)
                if (l.tabOrder == 0 && (model = recordOf(l.block))) break;
        if (model) db.modelSpace_ = model->objectId();
        if (paper && paper != model) db.paperSpace_ = paper->objectId();
        if (db.paperSpace_.isNull() || db.paperSpace_ == db.modelSpace_) {
            db.paperSpace_ = {};
            // The first layout after model space.
            const LayoutRef* first = nullptr;
            for (const LayoutRef& l : layouts)
                if (l.tabOrder > 0 && recordOf(l.block) && recordOf(l.block) != model && (!first || l.tabOrder < first->tabOrder))
                    first = &l;
            if (first) db.paperSpace_ = recordOf(first->block)->objectId();
        }
        if (db.modelSpace_.isNull()) modelBlock();
        if (db.paperSpace_.isNull() &&
            (db.isR12OrOlder() || std::find(entityInPaper.begin(), entityInPaper.end(), true) != entityInPaper.end()))
            paperBlock();
    }

    void finish()
    {
        findSpaces();
        impl.nextHandle = std::max(impl.byHandle.maxHandle() + 1, impl.seedInFile);
        for (std::size_t place : needHandle) {
            impl.stubs[place].handle = AcDbHandle(impl.nextHandle++);
            impl.index(place);
        }
        // Objects of a drawing without owners (R12) belong to their table.
        for (AcDbObjectId tid : impl.tables)
            if (auto* t = AcDbSymbolTable::cast(tid.object()))
                for (AcDbObjectId rid : t->hostRecords())
                    if (rid.object()->hostOwnerHandle().isNull()) rid.object()->hostSetOwnerHandle(t->getAcDbHandle());
        for (std::size_t i = 0; i < impl.entities.size(); ++i) {
            auto* space = AcDbBlockTableRecord::cast((entityInPaper[i] ? db.paperSpace_ : db.modelSpace_).object());
            AcDbObject* e = impl.entities[i].object();
            if (e->hostOwnerHandle().isNull()) e->hostSetOwnerHandle(space->getAcDbHandle());
            space->hostEntities().push_back(impl.entities[i]);
        }
        for (auto& v : impl.virtualBlocks)
            for (AcDbObjectId e : v->hostEntities())
                if (e.object()->hostOwnerHandle().isNull()) e.object()->hostSetOwnerHandle(v->getAcDbHandle());
    }
};

static void loadText(AcDbDatabase& db, dxf::DrawingText text)
{
    db.impl().text = std::make_unique<dxf::DrawingText>(std::move(text));
    DxfLoader(db, *db.impl().text).load();
}

std::unique_ptr<AcDbDatabase> AcDbDatabase::readDxf(const std::string& path)
{
    auto db = std::make_unique<AcDbDatabase>(false);
    db->fileName_ = path;
    loadText(*db, dxf::loadDrawingText(path));
    db->hostAnnounce();
    return db;
}

std::unique_ptr<AcDbDatabase> AcDbDatabase::readDxfBytes(std::string bytes, const std::string& name)
{
    auto db = std::make_unique<AcDbDatabase>(false);
    db->fileName_ = name;
    loadText(*db, dxf::drawingTextFromBytes(std::move(bytes), name));
    db->hostAnnounce();
    return db;
}

// --- writing ---

struct DxfWriter {
    const AcDbDatabase& db;
    AcDbDatabase::Impl& impl;
    std::string eol;
    std::string out;
    // Where full chunks go; when empty, the whole text stays in `out`.
    std::function<void(std::string_view)> sink;

    explicit DxfWriter(const AcDbDatabase& d) : db(d), impl(d.impl()), eol(d.impl().text ? d.impl().text->eol : "\n") {}

    void flushIfFull()
    {
        if (sink && out.size() >= (1u << 20)) {
            sink(out);
            out.clear();
        }
    }

    void tag(int code, std::string_view v) { dxf::appendTag(out, code, v, eol); }

    // The tags of a record the host made or changed. A pointer it holds to an
    // object the host erased or detached is written null, or left out of a
    // reactor or extension dictionary group; a pointer the file already had
    // to nothing stays as it was.
    struct Changed {
        DxfWriter& w;
        bool inGroup = false;
        bool operator()(int code, std::string_view v)
        {
            if (code == 102) inGroup = !v.empty() && v[0] == '{';
            if (w.deadPointer(code, v)) {
                if (!inGroup) w.tag(code, "0");
            } else {
                w.tag(code, v);
            }
            return true;
        }
    };
    bool deadPointer(int code, std::string_view v) const
    {
        if (!((code >= 330 && code <= 369) || (code >= 390 && code <= 399))) return false;
        AcDbHandle h;
        if (!AcDbHandle::parse(v, h) || h.isNull()) return false;
        const AcDbObject* o = db.idOf(h).object();
        return o && (o->isErased() || gone(o));
    }
    void tags(const DxfTags& t)
    {
        Changed changed{*this};
        for (const DxfTag& each : t) changed(each.code, each.value);
    }
    void record(const TagRecord& r)
    {
        if (r.isRaw()) {
            out.append(r.raw());
            return;
        }
        if (std::string_view before, value, after; r.splitAtPatch(before, value, after)) {
            out.append(before).append(value).append(after);
            return;
        }
        r.scan(Changed{*this});
    }

    void object(AcDbObjectId id)
    {
        flushIfFull();
        AcDbObject* o = id.object();
        if (!o || o->isErased()) return;
        if (auto* btr = AcDbBlockTableRecord::cast(o); btr && btr->hostVirtual) return;
        o->hostPrepareRecord();
        if (o->filesItself()) tags(selfFiledTags(const_cast<AcDbDatabase*>(&db), o));
        else record(o->record());
        if (auto* ent = AcDbEntity::cast(o))
            for (AcDbObjectId sub : ent->subEntities()) object(sub);
    }

    // An object the host erased or detached, or one owned by such an object,
    // is not saved; owners the input left dangling are kept as they were.
    bool gone(const AcDbObject* o, int depth = 0) const
    {
        if (!o || depth > 64) return false;
        if (o->isErased() && depth > 0) return true;
        if (!impl.detached.empty() && impl.detached.count(o->objectId().stub()) && o->hostOwnerHandle().isNull()) return true;
        AcDbHandle owner = o->hostOwnerHandle();
        return !owner.isNull() && gone(db.idOf(owner).object(), depth + 1);
    }

    void classes()
    {
        for (auto& c : impl.classes) record(c.rec);
        // Classes that file themselves and that the drawing does not list yet,
        // and classes of proxies that a module's class became when it went away.
        std::vector<AcRxClass*> added;
        for (AcDbStub& s : impl.stubs) {
            AcDbObject* o = s.object;
            if (!o || o->isErased()) continue;
            AcRxClass* c = o->isA();
            if (!o->filesItself() && !(o->isAProxy() && c && *c->dxfName() && *c->appName())) continue;
            if (std::any_of(added.begin(), added.end(), [&](AcRxClass* a) { return std::wcscmp(a->dxfName(), c->dxfName()) == 0; }))
                continue;
            if (std::any_of(impl.classes.begin(), impl.classes.end(), [&](auto& e) { return e.dxfName == c->dxfName(); }))
                continue;
            added.push_back(c);
            tag(0, "CLASS");
            tag(1, dxf::toUtf8(c->dxfName()));
            tag(2, dxf::toUtf8(c->name()));
            tag(3, db.encode(c->appName()));
            tag(90, std::to_string(c->proxyFlags()));
            if (db.version() >= "AC1018") tag(91, "0");
            tag(280, c->isProxyClass() ? "1" : "0");  // was-a-proxy: no code for it when written
            tag(281, c->isDerivedFrom(AcDbEntity::desc()) ? "1" : "0");
        }
    }

    std::string run()
    {
        out.reserve(sink ? (2u << 20) : impl.text ? impl.text->text.size() + 4096 : 1 << 16);
        out += impl.prefix;
        bool needClasses = !db.isR12OrOlder() &&
                           std::none_of(impl.sections.begin(), impl.sections.end(),
                                        [](auto& s) { return s.kind == AcDbDatabase::Impl::Classes; });
        for (const auto& s : impl.sections) {
            tag(0, "SECTION");
            tag(2, s.name);
            switch (s.kind) {
            case AcDbDatabase::Impl::Header: {
                std::string seed;
                if (impl.adoptedSinceLoad && impl.nextHandle > impl.seedInFile && db.getHeaderVar("$HANDSEED", seed)) {
                    DxfTags h = impl.header.tags();
                    for (std::size_t i = 0; i + 1 < h.size(); ++i)
                        if (h[i].code == 9 && h[i].value == "$HANDSEED") h[i + 1].value = AcDbHandle(impl.nextHandle).str();
                    tags(h);
                } else {
                    record(impl.header);
                }
                break;
            }
            case AcDbDatabase::Impl::Classes:
                classes();
                break;
            case AcDbDatabase::Impl::Tables:
                for (AcDbObjectId tid : impl.tables) {
                    object(tid);
                    if (auto* t = AcDbSymbolTable::cast(tid.object()))
                        for (AcDbObjectId rid : t->hostRecords()) object(rid);
                    tag(0, "ENDTAB");
                }
                break;
            case AcDbDatabase::Impl::Blocks:
                for (AcDbObjectId bid : impl.blocks) {
                    auto* btr = AcDbBlockTableRecord::cast(bid.object());
                    if (!btr || (btr->isErased() && !btr->hostVirtual)) continue;
                    object(btr->hostBlockBegin);
                    // Entities of model space and the current layout that were
                    // not read inside the block go to section ENTITIES.
                    const auto& ents = btr->hostEntities();
                    const bool space = bid == db.modelSpaceId() || bid == db.paperSpaceId();
                    const std::size_t n = space ? std::min(btr->hostEntitiesInBlock, ents.size()) : ents.size();
                    for (std::size_t i = 0; i < n; ++i) object(ents[i]);
                    object(btr->hostBlockEnd);
                }
                break;
            case AcDbDatabase::Impl::Entities:
                for (AcDbObjectId e : impl.entities) object(e);
                break;
            case AcDbDatabase::Impl::Objects:
                for (AcDbObjectId o : impl.objects)
                    if (!gone(o.object())) object(o);
                break;
            case AcDbDatabase::Impl::Raw:
                out.append(s.raw);
                flushIfFull();
                break;
            }
            tag(0, "ENDSEC");
            if (s.kind == AcDbDatabase::Impl::Header && needClasses) {
                std::size_t before = out.size();
                tag(0, "SECTION");
                tag(2, "CLASSES");
                std::size_t mark = out.size();
                classes();
                if (out.size() == mark) out.resize(before);
                else tag(0, "ENDSEC");
            }
        }
        tag(0, "EOF");
        if (sink) {
            sink(out);
            out.clear();
        }
        return std::move(out);
    }
};

std::string AcDbDatabase::dxfText() const { return DxfWriter(*this).run(); }

namespace {
// Temporary files of a save are named ".NAME.XXXXXX" beside the target. One
// left by a save that was killed holds no lock: it is removed by the next save.
void removeStaleTemporaries(const std::filesystem::path& dir, const std::string& target)
{
    const std::string prefix = "." + target + ".";
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
        const std::string name = entry.path().filename().string();
        if (name.size() != prefix.size() + 6 || name.compare(0, prefix.size(), prefix) != 0) continue;
        if (!entry.is_regular_file(ec)) continue;
        const int fd = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0) continue;
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) ::unlink(entry.path().c_str());
        ::close(fd);
    }
}
}  // namespace

void AcDbDatabase::writeDxf(const std::string& path) const
{
    namespace fs = std::filesystem;
    fs::path target(path);
    fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
    removeStaleTemporaries(dir, target.filename().string());
    std::string tmpl = (dir / ("." + target.filename().string() + ".XXXXXX")).string();
    std::vector<char> name(tmpl.begin(), tmpl.end());
    name.push_back('\0');
    auto cannot = [&](int err) { return std::runtime_error(path + ": cannot write: " + std::strerror(err)); };
    // An unnamed file vanishes with the process when a save is killed; where
    // the file system has none, a named one locked while it is written.
    int fd = ::open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644);
    const bool unnamed = fd >= 0;
    if (!unnamed) {
        fd = ::mkstemp(name.data());
        if (fd < 0) throw cannot(errno);
    }
    ::flock(fd, LOCK_EX | LOCK_NB);
    auto discard = [&] {
        ::close(fd);
        if (!unnamed) ::unlink(name.data());
    };
    auto failed = [&](int err) {
        discard();
        throw cannot(err);
    };
    DxfWriter w(*this);
    // Written in chunks: the drawing is not held twice in memory.
    w.sink = [&](std::string_view chunk) {
        while (!chunk.empty()) {
            ssize_t n = ::write(fd, chunk.data(), chunk.size());
            if (n < 0) {
                if (errno == EINTR) continue;
                failed(errno);
            }
            chunk.remove_prefix(std::size_t(n));
        }
    };
    try {
        w.run();
    } catch (...) {
        discard();
        throw;
    }
    if (!unnamed) ::fchmod(fd, 0644);
    if (unnamed) {
        // linkat cannot replace the target: the file gets a temporary name
        // for the moment of the rename.
        const std::string self = "/proc/self/fd/" + std::to_string(fd);
        int made = -1;
        for (int attempt = 0; attempt < 100 && made != 0; ++attempt) {
            std::copy(tmpl.begin(), tmpl.end(), name.begin());
            const int probe = ::mkstemp(name.data());
            if (probe < 0) failed(errno);
            ::close(probe);
            ::unlink(name.data());
            made = ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.data(), AT_SYMLINK_FOLLOW);
            if (made != 0 && errno != EEXIST) failed(errno);
        }
        if (made != 0) failed(EEXIST);
    }
    if (::close(fd) != 0) {
        int err = errno;
        ::unlink(name.data());
        throw cannot(err);
    }
    if (::rename(name.data(), path.c_str()) != 0) {
        int err = errno;
        ::unlink(name.data());
        throw cannot(err);
    }
}
