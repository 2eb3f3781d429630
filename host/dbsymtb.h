// Symbol tables and their records: layers, block records, registered
// applications, linetypes, and the tables the host keeps as they are.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "host/dbobject.h"

class AcDbSymbolTableRecord;

class AcDbSymbolTable : public AcDbObject {
    ACRX_DECLARE_MEMBERS(AcDbSymbolTable);

public:
    AcDbSymbolTable();
    // Names compare without regard to case.
    bool has(const wchar_t* name) const;
    Acad::ErrorStatus getAt(const wchar_t* name, AcDbObjectId& id, bool getErased = false) const;
    template <class R>
    Acad::ErrorStatus getAt(const wchar_t* name, R*& rec, AcDb::OpenMode mode) const
    {
        AcDbObjectId id;
        Acad::ErrorStatus es = getAt(name, id);
        if (es != Acad::eOk) return es;
        return acdbOpenObject(rec, id, mode);
    }
    // Adds a record (the table must be open for write); the record joins the
    // table's database and stays open for write.
    Acad::ErrorStatus add(AcDbObjectId& id, AcDbSymbolTableRecord* rec);
    Acad::ErrorStatus add(AcDbSymbolTableRecord* rec)
    {
        AcDbObjectId id;
        return add(id, rec);
    }
    // Records in table order (erased ones left out).
    std::vector<AcDbObjectId> recordIds() const;

    // --- host internals ---
    // Lookup and adding for the host itself, whatever the table's open state:
    // the host reads tables while callers hold them open.
    AcDbObjectId hostLookup(const std::wstring& name) const;
    Acad::ErrorStatus hostAdd(AcDbObjectId& id, AcDbSymbolTableRecord* rec);
    std::wstring tableName() const;  // "LAYER", "BLOCK_RECORD", ...
    void hostAppendRecord(AcDbObjectId id);
    void hostForgetName(const std::wstring& upperName);
    std::vector<AcDbObjectId>& hostRecords() { return records_; }

private:
    void index() const;
    std::vector<AcDbObjectId> records_;
    mutable std::unordered_map<std::wstring, AcDbObjectId> byName_;
    mutable std::size_t indexed_ = 0;
};

class AcDbSymbolTableRecord : public AcDbObject {
    ACRX_DECLARE_MEMBERS(AcDbSymbolTableRecord);

public:
    AcDbSymbolTableRecord();
    std::wstring getName() const;
    Acad::ErrorStatus getName(std::wstring& name) const
    {
        name = getName();
        return Acad::eOk;
    }
    // Fails with eInvalidSymbolTableName for names the host refuses.
    Acad::ErrorStatus setName(const wchar_t* name);
    // Flag word of group 70.
    std::int16_t flags() const;
    void setFlags(std::int16_t f);
    // --- host internals ---
    // The name as the record's drawing encodes it (UTF-8 before it joins one).
    std::string hostRawName() const { return tagValue(2); }

protected:
    // A group of the record's body: the first tag of `code`, after the subclass marker `after` if given.
    std::string tagValue(int code) const;
    void setTagValue(int code, const std::string& value, const char* insertAfterMarker = nullptr);
    void removeTag(int code);
};

// Valid symbol-table names: not empty, at most 255 characters, none of <>/\":;?*|,=`
bool acdbIsValidSymbolName(const std::wstring& name);

class AcDbLayerTable : public AcDbSymbolTable {
    ACRX_DECLARE_MEMBERS(AcDbLayerTable);
};

class AcDbLayerTableRecord : public AcDbSymbolTableRecord {
    ACRX_DECLARE_MEMBERS(AcDbLayerTableRecord);

public:
    AcDbLayerTableRecord();
    bool isOff() const;
    void setIsOff(bool off);
    bool isFrozen() const;
    void setIsFrozen(bool frozen);
    bool VPDFLT() const;  // frozen in new viewports
    void setVPDFLT(bool frozen);
    bool isLocked() const;
    void setIsLocked(bool locked);
    std::int16_t colorIndex() const;  // always positive
    void setColorIndex(std::int16_t color);
    AcDbObjectId linetypeObjectId() const;
    void setLinetypeObjectId(AcDbObjectId id);
    std::wstring linetypeName() const;
    std::int16_t lineWeight() const;  // -3 default
    void setLineWeight(std::int16_t lw);
    std::wstring plotStyleName() const;
    bool isPlottable() const;
    void setIsPlottable(bool plot);
};

class AcDbBlockTable : public AcDbSymbolTable {
    ACRX_DECLARE_MEMBERS(AcDbBlockTable);
};

class AcDbBlockTableRecord : public AcDbSymbolTableRecord {
    ACRX_DECLARE_MEMBERS(AcDbBlockTableRecord);

public:
    AcDbBlockTableRecord();
    // The record must be open for write; the entity joins the database,
    // takes layer "0" when it has none, and stays open for write.
    Acad::ErrorStatus appendAcDbEntity(AcDbObjectId& id, AcDbEntity* ent);
    Acad::ErrorStatus appendAcDbEntity(AcDbEntity* ent)
    {
        AcDbObjectId id;
        return appendAcDbEntity(id, ent);
    }
    // Entities in drawing order (erased ones left out).
    std::vector<AcDbObjectId> entityIds() const;
    bool isLayout() const;
    bool isModelSpace() const;
    bool isPaperSpace() const;  // any paper-space layout
    AcDbObjectId getLayoutId() const;

    // --- host internals ---
    std::vector<AcDbObjectId>& hostEntities() { return entities_; }
    AcDbObjectId hostBlockBegin, hostBlockEnd;  // BLOCK and ENDBLK records
    // How many of the entities were read inside the BLOCK: for model space and
    // the current layout, the rest belong to the ENTITIES section.
    std::size_t hostEntitiesInBlock = 0;
    bool hostVirtual = false;                   // made for a drawing without block records
    std::wstring hostName;                      // name for virtual records

private:
    std::vector<AcDbObjectId> entities_;
};

class AcDbRegAppTable : public AcDbSymbolTable {
    ACRX_DECLARE_MEMBERS(AcDbRegAppTable);
};
class AcDbRegAppTableRecord : public AcDbSymbolTableRecord {
    ACRX_DECLARE_MEMBERS(AcDbRegAppTableRecord);
};
class AcDbLinetypeTable : public AcDbSymbolTable {
    ACRX_DECLARE_MEMBERS(AcDbLinetypeTable);
};
class AcDbLinetypeTableRecord : public AcDbSymbolTableRecord {
    ACRX_DECLARE_MEMBERS(AcDbLinetypeTableRecord);
};
