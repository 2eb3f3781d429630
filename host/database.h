// A drawing database: the objects of one drawing, read from and written to DXF.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/dbdict.h"
#include "host/dbsymtb.h"
#include "host/dxf/codec.h"
#include "host/dxf/dxftext.h"

class AcDbDatabase;

class AcDbDatabaseReactor : public AcRxObject {
public:
    virtual void objectAppended(const AcDbDatabase* db, const AcDbObject* obj) {}
    virtual void objectModified(const AcDbDatabase* db, const AcDbObject* obj) {}
    virtual void objectErased(const AcDbDatabase* db, const AcDbObject* obj, bool erased) {}
    virtual void goodbye(const AcDbDatabase* db) {}
};

// Pairs of (source, clone) made by a deep clone.
class AcDbIdMapping {
public:
    struct Pair {
        AcDbObjectId key, value;
    };
    void assign(const Pair& p) { pairs_.push_back(p); }
    bool compute(Pair& p) const;
    const std::vector<Pair>& pairs() const { return pairs_; }
    AcDbDatabase* destDb = nullptr;

private:
    std::vector<Pair> pairs_;
};

class AcDbIdMappingIter {
public:
    explicit AcDbIdMappingIter(const AcDbIdMapping& m) : m_(m) {}
    void start() { i_ = 0; }
    bool done() const { return i_ >= m_.pairs().size(); }
    void next() { ++i_; }
    bool getMap(AcDbIdMapping::Pair& p) const
    {
        if (done()) return false;
        p = m_.pairs()[i_];
        return true;
    }

private:
    const AcDbIdMapping& m_;
    std::size_t i_ = 0;
};

// A copy of an entity and of its sub-entities (attributes, vertices and
// their end), in no database yet, without the source's handle, owner and
// reactor groups.
struct AcDbHostEntityCopy {
    std::unique_ptr<AcDbEntity> entity;
    std::vector<std::unique_ptr<AcDbEntity>> subs;
    std::vector<AcDbObjectId> subSources;
};

class AcDbDatabase : public AcRxObject {
public:
    // An empty drawing (AC1027, UTF-8) with the standard tables, model space
    // and one paper-space layout, or, with buildDefaultDrawing false, nothing.
    explicit AcDbDatabase(bool buildDefaultDrawing = true, bool noDocument = false);
    ~AcDbDatabase() override;
    AcDbDatabase(const AcDbDatabase&) = delete;
    AcDbDatabase& operator=(const AcDbDatabase&) = delete;

    // Reads an ASCII or binary DXF drawing. Throws dxf::ParseError with a
    // message that names the file and the line or byte.
    static std::unique_ptr<AcDbDatabase> readDxf(const std::string& path);
    static std::unique_ptr<AcDbDatabase> readDxfBytes(std::string bytes, const std::string& name);
    // Writes ASCII DXF through a temporary file and a rename. Throws
    // std::runtime_error naming the file when it cannot be written.
    void writeDxf(const std::string& path) const;
    // The ASCII DXF text the drawing writes.
    std::string dxfText() const;
    // Warnings of the last read (objects kept as read because their class refused them).
    const std::vector<std::string>& readWarnings() const { return warnings_; }
    const std::string& fileName() const { return fileName_; }

    // Named containers.
    AcDbObjectId namedObjectsDictionaryId() const { return nod_; }
    AcDbObjectId layerTableId() const { return tableId(L"LAYER"); }
    AcDbObjectId blockTableId() const { return tableId(L"BLOCK_RECORD"); }
    AcDbObjectId regAppTableId() const { return tableId(L"APPID"); }
    AcDbObjectId linetypeTableId() const { return tableId(L"LTYPE"); }
    AcDbObjectId tableId(const std::wstring& name) const;
    AcDbObjectId layerZero() const;
    // The linetype "Continuous", made when the drawing lacks it.
    AcDbObjectId continuousLinetype();
    AcDbObjectId modelSpaceId() const { return modelSpace_; }
    // The current paper-space layout's block record (written in ENTITIES).
    AcDbObjectId paperSpaceId() const { return paperSpace_; }
    std::vector<AcDbObjectId> blockRecordIds() const;
    // A new layer (on, thawed, unlocked, plotted, colour 7, continuous,
    // default lineweight) in the groups of layer "0", not yet in the table.
    AcDbLayerTableRecord* newLayerRecord() const;

    Acad::ErrorStatus getAcDbObjectId(AcDbObjectId& id, bool createIfNotFound, const AcDbHandle& h);
    AcDbObjectId idOf(const AcDbHandle& h) const;
    // Makes a new object resident (in the OBJECTS section); it stays open for write.
    Acad::ErrorStatus addAcDbObject(AcDbObjectId& id, AcDbObject* obj);
    Acad::ErrorStatus addAcDbObject(AcDbObject* obj)
    {
        AcDbObjectId id;
        return addAcDbObject(id, obj);
    }
    // Copies objects into the owner (a block record), telling reactors.
    Acad::ErrorStatus deepCloneObjects(const AcDbObjectIdArray& ids, AcDbObjectId owner, AcDbIdMapping& idMap);

    // Version and text encoding.
    std::string version() const { return version_; }  // "AC1027", as read: may be anything
    // "R2013" for the versions the host knows, else "".
    std::string versionName() const;
    bool isR12OrOlder() const { return version_ < "AC1012"; }
    const dxf::Codec& codec() const { return codec_; }
    std::wstring decode(std::string_view raw) const { return codec_.decode(raw); }
    std::string encode(std::wstring_view s) const { return codec_.encode(s); }

    // Header variables ("$TILEMODE"), as raw value texts of their first group.
    bool getHeaderVar(const std::string& name, std::string& value) const;
    void setHeaderVar(const std::string& name, int code, const std::string& value);
    int tilemode() const;
    void setTilemode(int v);

    void addReactor(AcDbDatabaseReactor* r);
    void removeReactor(AcDbDatabaseReactor* r);

    // Registers an application; false when the drawing cannot hold it.
    bool regApp(const std::wstring& name);

    // --- host internals ---
    AcDbStub* hostNewStub(AcDbHandle h = {});
    AcDbObjectId hostAdopt(AcDbObject* obj, AcDbHandle h = {});
    void hostObjectAppended(AcDbObject* obj);
    void hostObjectModified(AcDbObject* obj);
    // DBMOD: a counter of changes, saved and restored around internal work.
    int dbmod() const { return dbmod_; }
    void setDbmod(int v) { dbmod_ = v; }
    void hostObjectErased(AcDbObject* obj);
    // The host took the object out of its owner (a dictionary entry removed):
    // it is not saved unless it gets an owner again.
    void hostObjectDetached(AcDbObject* obj);
    void hostAppendToBlock(AcDbBlockTableRecord* btr, AcDbEntity* ent);
    // Copies an entity of this drawing; false when its class cannot be copied.
    bool hostCopyEntity(AcDbObjectId source, AcDbHostEntityCopy& copy) const;
    // Appends a copy to a block record (opened for the append when the caller
    // has not), its sub-entities after it; the pairs (source, copy) go into
    // idMap when given. The copy's objects are closed.
    AcDbObjectId hostAppendCopy(AcDbBlockTableRecord* btr, AcDbHostEntityCopy&& copy, AcDbObjectId source,
                                AcDbIdMapping* idMap);
    bool hostWritesHandles() const { return writesHandles_; }
    struct Impl;
    Impl& impl() const { return *impl_; }
    static const std::vector<AcDbDatabase*>& hostAllDatabases();
    // Told of every database once it is built or read (reactor bases attach here).
    static int hostAddCreationListener(std::function<void(AcDbDatabase*)> fn);
    static void hostRemoveCreationListener(int token);
    void hostAnnounce();

private:
    friend struct DxfLoader;
    friend struct DxfWriter;
    std::unique_ptr<Impl> impl_;
    std::string fileName_;
    std::string version_ = "AC1027";
    dxf::Codec codec_;
    AcDbObjectId nod_, modelSpace_, paperSpace_;
    mutable AcDbObjectId layerZero_;
    bool writesHandles_ = true;
    int dbmod_ = 0;
    std::vector<std::string> warnings_;
    std::vector<AcDbDatabaseReactor*> reactors_;
};
