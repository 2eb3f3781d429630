// Filers: the binary filer that clone() and deep cloning go through, and
// the DXF filer over a record's tags.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/dbobject.h"

class AcDbDwgFiler : public AcRxObject {
public:
    virtual Acad::ErrorStatus filerStatus() const = 0;
    virtual AcDb::FilerType filerType() const = 0;
    virtual void setFilerStatus(Acad::ErrorStatus es) = 0;
    virtual void resetFilerStatus() = 0;
    virtual AcDbDatabase* database() const = 0;

    virtual Acad::ErrorStatus readInt16(std::int16_t* v) = 0;
    virtual Acad::ErrorStatus writeInt16(std::int16_t v) = 0;
    virtual Acad::ErrorStatus readUInt16(std::uint16_t* v) = 0;
    virtual Acad::ErrorStatus writeUInt16(std::uint16_t v) = 0;
    virtual Acad::ErrorStatus readInt32(std::int32_t* v) = 0;
    virtual Acad::ErrorStatus writeInt32(std::int32_t v) = 0;
    virtual Acad::ErrorStatus readUInt32(std::uint32_t* v) = 0;
    virtual Acad::ErrorStatus writeUInt32(std::uint32_t v) = 0;
    virtual Acad::ErrorStatus readBool(bool* v) = 0;
    virtual Acad::ErrorStatus writeBool(bool v) = 0;
    virtual Acad::ErrorStatus readDouble(double* v) = 0;
    virtual Acad::ErrorStatus writeDouble(double v) = 0;
    virtual Acad::ErrorStatus readString(std::wstring& v) = 0;
    virtual Acad::ErrorStatus writeString(const std::wstring& v) = 0;
    virtual Acad::ErrorStatus readBytes(std::vector<std::uint8_t>& v) = 0;
    virtual Acad::ErrorStatus writeBytes(const std::vector<std::uint8_t>& v) = 0;
    virtual Acad::ErrorStatus readHardPointerId(AcDbObjectId* id) = 0;
    virtual Acad::ErrorStatus writeHardPointerId(const AcDbObjectId& id) = 0;
    virtual Acad::ErrorStatus readSoftPointerId(AcDbObjectId* id) = 0;
    virtual Acad::ErrorStatus writeSoftPointerId(const AcDbObjectId& id) = 0;
    virtual Acad::ErrorStatus readHardOwnershipId(AcDbObjectId* id) = 0;
    virtual Acad::ErrorStatus writeHardOwnershipId(const AcDbObjectId& id) = 0;
    virtual Acad::ErrorStatus readSoftOwnershipId(AcDbObjectId* id) = 0;
    virtual Acad::ErrorStatus writeSoftOwnershipId(const AcDbObjectId& id) = 0;
    Acad::ErrorStatus readItem(std::wstring* v) { return readString(*v); }
};

// An in-memory binary filer. Ids are filed as (database, handle) and read
// back as the id of that handle in that database, or null: bytes from
// anywhere can be read without harm.
class AcDbMemoryFiler : public AcDbDwgFiler {
public:
    explicit AcDbMemoryFiler(AcDbDatabase* db = nullptr, AcDb::FilerType type = AcDb::kCopyFiler)
        : db_(db), type_(type) {}
    Acad::ErrorStatus filerStatus() const override { return status_; }
    AcDb::FilerType filerType() const override { return type_; }
    void setFilerStatus(Acad::ErrorStatus es) override { status_ = es; }
    void resetFilerStatus() override { status_ = Acad::eOk; }
    AcDbDatabase* database() const override { return db_; }

    Acad::ErrorStatus readInt16(std::int16_t* v) override { return readRaw(v, 2); }
    Acad::ErrorStatus writeInt16(std::int16_t v) override { return writeRaw(&v, 2); }
    Acad::ErrorStatus readUInt16(std::uint16_t* v) override { return readRaw(v, 2); }
    Acad::ErrorStatus writeUInt16(std::uint16_t v) override { return writeRaw(&v, 2); }
    Acad::ErrorStatus readInt32(std::int32_t* v) override { return readRaw(v, 4); }
    Acad::ErrorStatus writeInt32(std::int32_t v) override { return writeRaw(&v, 4); }
    Acad::ErrorStatus readUInt32(std::uint32_t* v) override { return readRaw(v, 4); }
    Acad::ErrorStatus writeUInt32(std::uint32_t v) override { return writeRaw(&v, 4); }
    Acad::ErrorStatus readBool(bool* v) override;
    Acad::ErrorStatus writeBool(bool v) override;
    Acad::ErrorStatus readDouble(double* v) override { return readRaw(v, 8); }
    Acad::ErrorStatus writeDouble(double v) override { return writeRaw(&v, 8); }
    Acad::ErrorStatus readString(std::wstring& v) override;
    Acad::ErrorStatus writeString(const std::wstring& v) override;
    Acad::ErrorStatus readBytes(std::vector<std::uint8_t>& v) override;
    Acad::ErrorStatus writeBytes(const std::vector<std::uint8_t>& v) override;
    Acad::ErrorStatus readHardPointerId(AcDbObjectId* id) override { return readId(id, 1); }
    Acad::ErrorStatus writeHardPointerId(const AcDbObjectId& id) override { return writeId(id, 1); }
    Acad::ErrorStatus readSoftPointerId(AcDbObjectId* id) override { return readId(id, 2); }
    Acad::ErrorStatus writeSoftPointerId(const AcDbObjectId& id) override { return writeId(id, 2); }
    Acad::ErrorStatus readHardOwnershipId(AcDbObjectId* id) override { return readId(id, 3); }
    Acad::ErrorStatus writeHardOwnershipId(const AcDbObjectId& id) override { return writeId(id, 3); }
    Acad::ErrorStatus readSoftOwnershipId(AcDbObjectId* id) override { return readId(id, 4); }
    Acad::ErrorStatus writeSoftOwnershipId(const AcDbObjectId& id) override { return writeId(id, 4); }

    // Moves the read position back to the start.
    void rewind() { pos_ = 0; status_ = Acad::eOk; }
    const std::vector<std::uint8_t>& bytes() const { return buf_; }
    void setBytes(std::vector<std::uint8_t> b) { buf_ = std::move(b); pos_ = 0; status_ = Acad::eOk; }

private:
    Acad::ErrorStatus readRaw(void* dst, std::size_t n);
    Acad::ErrorStatus writeRaw(const void* src, std::size_t n);
    Acad::ErrorStatus readId(AcDbObjectId* id, std::uint8_t kind);
    Acad::ErrorStatus writeId(const AcDbObjectId& id, std::uint8_t kind);
    AcDbDatabase* db_;
    AcDb::FilerType type_;
    std::vector<std::uint8_t> buf_;
    std::size_t pos_ = 0;
    Acad::ErrorStatus status_ = Acad::eOk;
};

// The DXF filer: reads and writes the typed items of one record.
class AcDbDxfFiler : public AcRxObject {
public:
    // In: over tags (of a record, from its first tag after "0 TYPE").
    AcDbDxfFiler(AcDbDatabase* db, DxfTags tags);
    // Out: collects tags.
    explicit AcDbDxfFiler(AcDbDatabase* db);

    AcDbDatabase* database() const { return db_; }
    Acad::ErrorStatus filerStatus() const { return status_; }
    void resetFilerStatus() { status_ = Acad::eOk; error_.clear(); }
    // Records an error with a printf-style message (wide format).
    Acad::ErrorStatus setError(Acad::ErrorStatus es, const wchar_t* format, ...);
    Acad::ErrorStatus setError(const wchar_t* format, ...);
    const std::wstring& errorMessage() const { return error_; }

    // Reading. readItem returns eEndOfObject past the last tag.
    Acad::ErrorStatus readItem(ResBuf& item);
    Acad::ErrorStatus readResBuf(ResBuf* item) { return readItem(*item); }
    // The next readItem returns the last item again.
    Acad::ErrorStatus pushBackItem();
    // True, consuming the marker, when the next item is the subclass marker
    // "100 name"; otherwise sets an error and returns false.
    bool atSubClassData(const wchar_t* name);
    bool atEOF() const { return pos_ >= tags_.size(); }
    bool atEmbeddedObjectStart() const { return false; }
    bool atExtendedData() const { return pos_ < tags_.size() && tags_[pos_].code >= 1000; }

    // Writing.
    Acad::ErrorStatus writeItem(const ResBuf& item);
    Acad::ErrorStatus writeString(short code, const std::wstring& v);
    Acad::ErrorStatus writeInt16(short code, std::int16_t v);
    Acad::ErrorStatus writeUInt16(short code, std::uint16_t v) { return writeInt16(code, std::int16_t(v)); }
    Acad::ErrorStatus writeInt32(short code, std::int32_t v);
    Acad::ErrorStatus writeUInt32(short code, std::uint32_t v) { return writeInt32(code, std::int32_t(v)); }
    Acad::ErrorStatus writeBool(short code, bool v);
    Acad::ErrorStatus writeDouble(short code, double v);
    Acad::ErrorStatus writePoint3d(short code, const AcGePoint3d& p);
    Acad::ErrorStatus writeObjectId(short code, const AcDbObjectId& id);
    Acad::ErrorStatus writeRawTag(int code, std::string value);

    // The tags, for the host: written tags, or what remains unread.
    const DxfTags& tags() const { return tags_; }
    DxfTags takeTags() { return std::move(tags_); }
    std::size_t position() const { return pos_; }
    void setPosition(std::size_t p) { pos_ = p; }

    // A tag <-> item with the database's code page.
    ResBuf toItem(const DxfTag& tag) const;
    DxfTag toTag(const ResBuf& item) const;

private:
    AcDbDatabase* db_;
    DxfTags tags_;
    std::size_t pos_ = 0;
    std::size_t last_ = SIZE_MAX;
    Acad::ErrorStatus status_ = Acad::eOk;
    std::wstring error_;
};
