// Database objects: ids, the object base class, entities, extended data.
//
// A database-resident object keeps the tags of its DXF record. Records that
// nobody changed stay a view of the drawing's text and are written back byte
// for byte; the first change turns the view into owned tags. Classes that
// file themselves (registered by modules) keep only their head and extended
// data as tags and produce their body through dxfOutFields.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/acad.h"
#include "host/rxobject.h"

class AcDbDatabase;
class AcDbObject;
class AcDbDwgFiler;
class AcDbDxfFiler;

// What an id points at: stable for the life of the database, even when the
// object behind it is replaced (a module's object turned into a proxy).
struct AcDbStub {
    AcDbObject* object = nullptr;
    AcDbDatabase* database = nullptr;
    AcDbHandle handle;
};

class AcDbObjectId {
public:
    AcDbObjectId() = default;
    explicit AcDbObjectId(AcDbStub* stub) : stub_(stub) {}
    static const AcDbObjectId kNull;

    bool isNull() const { return stub_ == nullptr; }
    bool isValid() const { return stub_ && stub_->object; }
    bool isErased() const;
    AcDbDatabase* database() const { return stub_ ? stub_->database : nullptr; }
    AcDbHandle handle() const { return stub_ ? stub_->handle : AcDbHandle(); }
    AcDbStub* stub() const { return stub_; }
    AcDbObject* object() const { return stub_ ? stub_->object : nullptr; }
    void setNull() { stub_ = nullptr; }

    bool operator==(const AcDbObjectId&) const = default;
    bool operator<(const AcDbObjectId& o) const { return stub_ < o.stub_; }
    explicit operator bool() const { return !isNull(); }

private:
    AcDbStub* stub_ = nullptr;
};

// The host's id array: a vector with the operations callers use.
class AcDbObjectIdArray : public std::vector<AcDbObjectId> {
public:
    AcDbObjectIdArray() = default;
    AcDbObjectIdArray(int /*initPhysicalLength*/, int /*growLength*/) {}
    AcDbObjectIdArray(std::initializer_list<AcDbObjectId> ids) : std::vector<AcDbObjectId>(ids) {}
    int length() const { return int(size()); }
    int logicalLength() const { return int(size()); }
    bool isEmpty() const { return empty(); }
    AcDbObjectIdArray& append(const AcDbObjectId& id) { push_back(id); return *this; }
    AcDbObjectIdArray& append(const AcDbObjectIdArray& ids) { insert(end(), ids.begin(), ids.end()); return *this; }
    AcDbObjectIdArray& setLogicalLength(int n) { resize(std::size_t(n < 0 ? 0 : n)); return *this; }
    bool contains(const AcDbObjectId& id) const { return find(id) >= 0; }
    // Index of the first occurrence from `start`, or -1.
    int find(const AcDbObjectId& id, int start = 0) const;
    AcDbObjectIdArray& removeAt(int index) { erase(begin() + index); return *this; }
    // Removes the first occurrence; false when absent.
    bool remove(const AcDbObjectId& id);
    const AcDbObjectId& at(int i) const { return (*this)[std::size_t(i)]; }
    const AcDbObjectId& first() const { return front(); }
    const AcDbObjectId& last() const { return back(); }
};

// One item of extended data or of a DXF filer: a group code and a typed
// value, as the host's result buffers carry them.
struct ResBuf {
    short restype = 0;
    std::wstring str;             // texts, application names, control strings "{" "}"
    double real = 0;
    AcGePoint3d point;
    std::int64_t integer = 0;     // 16/32/64-bit integers and bools
    std::vector<std::uint8_t> binary;
    AcDbHandle handle;            // 1005 and pointer codes
    AcDbObjectId id;              // pointer codes when the handle is known in the database

    ResBuf() = default;
    ResBuf(short code, std::wstring s) : restype(code), str(std::move(s)) {}
    static ResBuf text(short code, std::wstring s) { return ResBuf(code, std::move(s)); }
    static ResBuf int16(short code, std::int16_t v) { ResBuf r; r.restype = code; r.integer = v; return r; }
    static ResBuf int32(short code, std::int32_t v) { ResBuf r; r.restype = code; r.integer = v; return r; }
    static ResBuf real64(short code, double v) { ResBuf r; r.restype = code; r.real = v; return r; }
    static ResBuf pt(short code, AcGePoint3d p) { ResBuf r; r.restype = code; r.point = p; return r; }
    static ResBuf objectId(short code, AcDbObjectId v) { ResBuf r; r.restype = code; r.id = v; r.handle = v.handle(); return r; }

    // The 16-bit view of an integer (sign-extended), as the host's result
    // buffer's short slot shows a 32-bit value.
    short rint() const { return short(std::int16_t(std::uint16_t(std::uint64_t(integer) & 0xFFFF))); }
    std::int32_t rlong() const { return std::int32_t(std::uint32_t(std::uint64_t(integer) & 0xFFFFFFFF)); }
    bool operator==(const ResBuf& o) const;
};
using ResBufList = std::vector<ResBuf>;

// One tag of a record: group code and value text in the file's encoding.
struct DxfTag {
    int code = 0;
    std::string value;
    bool operator==(const DxfTag&) const = default;
};
using DxfTags = std::vector<DxfTag>;

// The tags of one record: a view of the drawing's text until changed.
class TagRecord {
public:
    TagRecord() = default;
    explicit TagRecord(std::string_view raw) : raw_(raw) {}
    explicit TagRecord(DxfTags tags) : owned_(std::make_unique<DxfTags>(std::move(tags))) {}
    TagRecord(const TagRecord& o) { *this = o; }
    TagRecord& operator=(const TagRecord& o)
    {
        raw_ = o.raw_;
        owned_ = o.owned_ ? std::make_unique<DxfTags>(*o.owned_) : nullptr;
        patch_ = o.patch_ ? std::make_unique<Patch>(*o.patch_) : nullptr;
        return *this;
    }
    TagRecord(TagRecord&&) = default;
    TagRecord& operator=(TagRecord&&) = default;

    // Nobody changed it: raw() is what the file holds.
    bool isRaw() const { return !owned_ && !patch_; }
    std::string_view raw() const { return raw_; }
    DxfTags tags() const;        // a copy, for reading
    DxfTags& mutableTags();      // owned tags; the raw view is dropped
    void assign(DxfTags tags)
    {
        owned_ = std::make_unique<DxfTags>(std::move(tags));
        raw_ = {};
        patch_.reset();
    }
    // Gives one tag a new value while the record stays a view of the file:
    // `current` is that tag's value as scan() gave it. Moving an entity to
    // another layer thus costs its new layer name, not a copy of all its
    // tags. An owned record has the tag's value replaced in place. False when
    // `current` is not a value of the record, or the record already holds
    // another replaced value.
    bool replaceValue(std::string_view current, std::string value);
    // A view of the file with one replaced value: the text is `before`, then
    // `value`, then `after`, so that it is written without reading its tags.
    // False for any other record.
    bool splitAtPatch(std::string_view& before, std::string_view& value, std::string_view& after) const;
    bool empty() const { return owned_ ? owned_->empty() : raw_.empty(); }

    // Calls fn(code, value) for every tag until fn returns false.
    template <class F>
    void scan(F&& fn) const;

private:
    struct Patch {
        const char* at;  // where the replaced value starts in raw_
        std::string value;
    };
    std::string_view raw_;
    std::unique_ptr<DxfTags> owned_;
    std::unique_ptr<Patch> patch_;
};

// Where the tags of a record split: head (before the first subclass
// marker), body, and extended data (from the first 1001 on).
struct RecordLayout {
    std::size_t bodyBegin = 0;   // index of the first 100 tag, or of xdata, or end
    std::size_t xdataBegin = 0;  // index of the first 1001 tag, or end
};
RecordLayout layoutOf(const DxfTags& tags);

class AcDbObject : public AcRxObject {
    ACRX_DECLARE_MEMBERS(AcDbObject);

public:
    AcDbObject();
    ~AcDbObject() override;
    AcDbObject(const AcDbObject&) = delete;
    AcDbObject& operator=(const AcDbObject&) = delete;

    AcDbObjectId objectId() const { return AcDbObjectId(stub_); }
    AcDbObjectId ownerId() const;
    virtual Acad::ErrorStatus setOwnerId(AcDbObjectId owner);
    AcDbHandle getAcDbHandle() const { return stub_ ? stub_->handle : AcDbHandle(); }
    AcDbDatabase* database() const { return stub_ ? stub_->database : nullptr; }
    bool isDatabaseResident() const { return stub_ != nullptr; }

    // Open state. A new object not yet in a database counts as open for write.
    bool isReadEnabled() const;
    bool isWriteEnabled() const;
    bool isNotifyEnabled() const { return notify_ > 0; }
    void assertReadEnabled() const;
    void assertWriteEnabled() const;
    void assertNotifyEnabled() const;
    Acad::ErrorStatus upgradeOpen();
    Acad::ErrorStatus downgradeOpen();
    Acad::ErrorStatus close();
    Acad::ErrorStatus cancel() { return close(); }

    Acad::ErrorStatus erase(bool erasing = true);
    bool isErased() const { return erased_; }
    // An object of a class that no loaded code knows; it keeps its data.
    bool isAProxy() const { return proxy_; }

    // Extended data: of one application (its group, starting with its 1001
    // item), or of all when appName is null. Empty when there is none.
    ResBufList xData(const wchar_t* appName = nullptr) const;
    // Replaces the group of each application the list holds (the last group
    // of an application wins); a group with only its 1001 item removes it.
    Acad::ErrorStatus setXData(const ResBufList& items);

    // Persistent reactors (the "{ACAD_REACTORS" group) and the extension dictionary.
    AcDbObjectIdArray getPersistentReactors() const;
    void addPersistentReactor(AcDbObjectId id);
    Acad::ErrorStatus removePersistentReactor(AcDbObjectId id);
    AcDbObjectId extensionDictionary() const;

    // Filing. The base class files what every object has: owner, reactor
    // and application groups and extended data (binary), or the record head
    // (DXF). Host classes file all their tags.
    virtual Acad::ErrorStatus dwgInFields(AcDbDwgFiler* filer);
    virtual Acad::ErrorStatus dwgOutFields(AcDbDwgFiler* filer) const;
    virtual Acad::ErrorStatus dxfInFields(AcDbDxfFiler* filer);
    virtual Acad::ErrorStatus dxfOutFields(AcDbDxfFiler* filer) const;

    // A copy through the binary filer, not in any database; the caller owns it.
    virtual AcRxObject* clone() const;

    // --- host internals ---
    // The record's tags, for classes that keep their data as tags.
    const TagRecord& record() const { return record_; }
    TagRecord& record() { return record_; }
    // True for classes that produce their body through dxfOutFields.
    virtual bool filesItself() const;
    // Brings the record's tags up to date with state kept apart (a
    // dictionary's entries), before the record is written or copied.
    virtual void hostPrepareRecord() const {}
    // The DXF record name written for this object ("LINE", "DICTIONARY").
    std::wstring dxfRecordName() const;
    void hostAttach(AcDbStub* stub) { stub_ = stub; }
    void hostSetClass(AcRxClass* cls) { class_ = cls; }
    void hostSetProxy(bool p) { proxy_ = p; }
    void hostSetErased(bool e) { erased_ = e; }
    void hostSetOwnerHandle(AcDbHandle h) { ownerHandle_ = h; }
    AcDbHandle hostOwnerHandle() const { return ownerHandle_; }
    void hostForceOpen(AcDb::OpenMode mode);
    void hostForceClosed() { readers_ = 0; writer_ = false; notify_ = 0; }
    void hostSetModified() { modified_ = true; }
    bool hostModified() const { return modified_; }
    // Writes the handle and owner into the record head (new or moved objects).
    void hostSyncHead();
    AcRxClass* hostClass() const { return class_; }
    // Texts in the tags are UTF-8 until the object joins a drawing, whose
    // encoding they then take.
    bool hostTagsUtf8() const { return tagsUtf8_; }
    void hostSetTagsUtf8(bool v) { tagsUtf8_ = v; }

protected:
    TagRecord record_;
    AcRxClass* class_ = nullptr;  // set for host and proxy classes

private:
    AcDbStub* stub_ = nullptr;
    AcDbHandle ownerHandle_;
    std::uint8_t readers_ = 0;
    std::uint8_t notify_ = 0;
    bool writer_ = false;
    bool erased_ = false;
    bool proxy_ = false;
    bool modified_ = false;
    bool tagsUtf8_ = true;
};

class AcDbEntity : public AcDbObject {
    ACRX_DECLARE_MEMBERS(AcDbEntity);

public:
    AcDbEntity();
    ~AcDbEntity() override;

    AcDbObjectId blockId() const { return ownerId(); }
    std::wstring layer() const;
    AcDbObjectId layerId() const;
    // By name: the layer must exist in the entity's database.
    Acad::ErrorStatus setLayer(const wchar_t* newVal, bool doSubents = true, bool allowHiddenLayer = false);
    Acad::ErrorStatus setLayer(AcDbObjectId newVal, bool doSubents = true, bool allowHiddenLayer = false);
    // Paper-space flag of the record (group 67).
    bool isInPaperSpace() const;
    std::int16_t colorIndex() const;  // 256 = by layer

    // Attributes or vertices with their closing SEQEND, owned by this entity.
    const std::vector<AcDbObjectId>& subEntities() const;
    void hostAddSubEntity(AcDbObjectId id);

private:
    std::unique_ptr<std::vector<AcDbObjectId>> subents_;
};

// Opening objects by id.
Acad::ErrorStatus acdbOpenObject(AcDbObject*& obj, AcDbObjectId id, AcDb::OpenMode mode, bool openErased = false);
template <class T>
Acad::ErrorStatus acdbOpenObject(T*& obj, AcDbObjectId id, AcDb::OpenMode mode, bool openErased = false)
{
    AcDbObject* o = nullptr;
    obj = nullptr;
    Acad::ErrorStatus es = acdbOpenObject(o, id, mode, openErased);
    if (es != Acad::eOk) return es;
    T* t = T::cast(o);
    if (!t) {
        o->close();
        return Acad::eNotThatKindOfClass;
    }
    obj = t;
    return Acad::eOk;
}
inline Acad::ErrorStatus acdbOpenAcDbObject(AcDbObject*& obj, AcDbObjectId id, AcDb::OpenMode mode,
                                            bool openErased = false)
{
    return acdbOpenObject(obj, id, mode, openErased);
}
inline Acad::ErrorStatus acdbOpenAcDbEntity(AcDbEntity*& obj, AcDbObjectId id, AcDb::OpenMode mode,
                                            bool openErased = false)
{
    return acdbOpenObject(obj, id, mode, openErased);
}

// An object opened for the life of the pointer and closed at scope exit.
template <class T>
class AcDbObjectPointer {
public:
    AcDbObjectPointer() = default;
    AcDbObjectPointer(AcDbObjectId id, AcDb::OpenMode mode, bool openErased = false)
    {
        status_ = acdbOpenObject(obj_, id, mode, openErased);
    }
    // Takes a new (non-resident) object; it is deleted when not added to a database.
    explicit AcDbObjectPointer(T* newObj) : obj_(newObj), status_(newObj ? Acad::eOk : Acad::eNullObjectId) {}
    ~AcDbObjectPointer() { reset(); }
    AcDbObjectPointer(const AcDbObjectPointer&) = delete;
    AcDbObjectPointer& operator=(const AcDbObjectPointer&) = delete;

    Acad::ErrorStatus open(AcDbObjectId id, AcDb::OpenMode mode, bool openErased = false)
    {
        reset();
        status_ = acdbOpenObject(obj_, id, mode, openErased);
        return status_;
    }
    Acad::ErrorStatus openStatus() const { return status_; }
    T* operator->() const { return obj_; }
    T* object() const { return obj_; }
    explicit operator bool() const { return obj_ != nullptr; }
    // Gives up the object without closing it.
    T* release()
    {
        T* o = obj_;
        obj_ = nullptr;
        return o;
    }
    Acad::ErrorStatus close()
    {
        reset();
        return Acad::eOk;
    }

private:
    void reset()
    {
        if (!obj_) return;
        if (obj_->isDatabaseResident())
            obj_->close();
        else
            delete obj_;
        obj_ = nullptr;
    }
    T* obj_ = nullptr;
    Acad::ErrorStatus status_ = Acad::eNullObjectId;
};
using AcDbEntityPointer = AcDbObjectPointer<AcDbEntity>;

// Host helpers over a record's tags: the first tag of `code` outside the
// head's 102 groups and before extended data, and setting it (inserted after
// the subclass marker `afterMarker` when missing).
bool acdbHostBodyValue(const TagRecord& rec, int code, std::string_view& out);
void acdbHostSetBodyValue(DxfTags& tags, int code, const std::string& value, const char* afterMarker);
void acdbHostRemoveBodyValue(DxfTags& tags, int code);

// Host helpers: tags [from, to) as items in the database's encoding (a point
// as one item, pointers resolved to ids the drawing has), and back.
ResBufList acdbHostTagsToItems(AcDbDatabase* db, const DxfTags& tags, std::size_t from, std::size_t to);
void acdbHostItemsToTags(AcDbDatabase* db, const ResBufList& items, DxfTags& out);
// Codes whose value is the x of a point, followed by y (code + 10) and z (code + 20).
bool acdbHostIsPointCode(int code);

// Registers the application name in the database (the APPID table).
bool acdbRegApp(AcDbDatabase* db, const wchar_t* appName);

// --- implementation of TagRecord::scan ---
namespace dxf {
bool scanTags(std::string_view text, void* ctx, bool (*fn)(void*, int, std::string_view));
}
template <class F>
void TagRecord::scan(F&& fn) const
{
    if (owned_) {
        for (const auto& t : *owned_)
            if (!fn(t.code, std::string_view(t.value))) return;
        return;
    }
    if (patch_) {
        auto patched = [&](int code, std::string_view v) {
            return fn(code, v.data() == patch_->at ? std::string_view(patch_->value) : v);
        };
        dxf::scanTags(raw_, &patched, [](void* ctx, int code, std::string_view v) {
            return (*static_cast<decltype(patched)*>(ctx))(code, v);
        });
        return;
    }
    dxf::scanTags(raw_, &fn, [](void* ctx, int code, std::string_view v) { return (*static_cast<F*>(ctx))(code, v); });
}

// Host classes: their isA() is the class the drawing gave the record when
// it named a more specific one (a DIMENSION's subclass, a dictionary with default).
#define ACDB_HOST_DEFINE_MEMBERS(CLASS_NAME, PARENT_CLASS, DXF_NAME)                                         \
    AcRxClass* CLASS_NAME::gpDesc = nullptr;                                                                \
    AcRxClass* CLASS_NAME::desc()                                                                           \
    {                                                                                                       \
        acdbRegisterHostClasses();                                                                          \
        return gpDesc ? gpDesc : acrxFindClass(ZEFT_WIDEN(#CLASS_NAME));                                    \
    }                                                                                                       \
    AcRxClass* CLASS_NAME::isA() const { return class_ ? class_ : desc(); }                                 \
    static AcRxObject* make##CLASS_NAME() { return new CLASS_NAME(); }                                      \
    void CLASS_NAME::rxInit()                                                                               \
    {                                                                                                       \
        gpDesc = newAcRxClass(ZEFT_WIDEN(#CLASS_NAME), ZEFT_WIDEN(#PARENT_CLASS), AcDb::kDHL_CURRENT,       \
                              AcDb::kMReleaseCurrent, 0, &make##CLASS_NAME, ZEFT_WIDEN(DXF_NAME), L"ObjectDBX Classes"); \
    }
void acdbRegisterHostClasses();
