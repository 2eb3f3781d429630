#include "host/filer.h"

#include <cstdarg>
#include <cstring>
#include <cwchar>

#include "host/database.h"

// --- binary filer ---

Acad::ErrorStatus AcDbMemoryFiler::readRaw(void* dst, std::size_t n)
{
    if (status_ != Acad::eOk) {
        std::memset(dst, 0, n);
        return status_;
    }
    if (buf_.size() - pos_ < n) {
        std::memset(dst, 0, n);
        pos_ = buf_.size();
        return status_ = Acad::eEndOfFile;
    }
    std::memcpy(dst, buf_.data() + pos_, n);
    pos_ += n;
    return Acad::eOk;
}

Acad::ErrorStatus AcDbMemoryFiler::writeRaw(const void* src, std::size_t n)
{
    const auto* p = static_cast<const std::uint8_t*>(src);
    buf_.insert(buf_.end(), p, p + n);
    return status_;
}

Acad::ErrorStatus AcDbMemoryFiler::readBool(bool* v)
{
    std::uint8_t b = 0;
    readRaw(&b, 1);
    *v = b != 0;
    return status_;
}

Acad::ErrorStatus AcDbMemoryFiler::writeBool(bool v)
{
    std::uint8_t b = v ? 1 : 0;
    return writeRaw(&b, 1);
}

Acad::ErrorStatus AcDbMemoryFiler::readString(std::wstring& v)
{
    v.clear();
    std::uint32_t n = 0;
    if (readRaw(&n, 4) != Acad::eOk) return status_;
    if (n > (buf_.size() - pos_) / 4) {
        pos_ = buf_.size();
        return status_ = Acad::eEndOfFile;
    }
    v.resize(n);
    for (std::uint32_t i = 0; i < n; ++i) {
        std::uint32_t c = 0;
        readRaw(&c, 4);
        v[i] = wchar_t(c > 0x10FFFF ? 0xFFFD : c);
    }
    return status_;
}

Acad::ErrorStatus AcDbMemoryFiler::writeString(const std::wstring& v)
{
    writeUInt32(std::uint32_t(v.size()));
    for (wchar_t c : v) {
        std::uint32_t u = std::uint32_t(c);
        writeRaw(&u, 4);
    }
    return status_;
}

Acad::ErrorStatus AcDbMemoryFiler::readBytes(std::vector<std::uint8_t>& v)
{
    v.clear();
    std::uint32_t n = 0;
    if (readRaw(&n, 4) != Acad::eOk) return status_;
    if (n > buf_.size() - pos_) {
        pos_ = buf_.size();
        return status_ = Acad::eEndOfFile;
    }
    v.assign(buf_.begin() + long(pos_), buf_.begin() + long(pos_ + n));
    pos_ += n;
    return status_;
}

Acad::ErrorStatus AcDbMemoryFiler::writeBytes(const std::vector<std::uint8_t>& v)
{
    writeUInt32(std::uint32_t(v.size()));
    return writeRaw(v.data(), v.size());
}

Acad::ErrorStatus AcDbMemoryFiler::readId(AcDbObjectId* id, std::uint8_t kind)
{
    *id = AcDbObjectId();
    std::uint8_t k = 0;
    std::uint64_t h = 0;
    readRaw(&k, 1);
    readRaw(&h, 8);
    if (status_ != Acad::eOk) return status_;
    if (k != kind) return status_ = Acad::eFilerError;
    if (h && db_) *id = db_->idOf(AcDbHandle(h));
    return status_;
}

Acad::ErrorStatus AcDbMemoryFiler::writeId(const AcDbObjectId& id, std::uint8_t kind)
{
    std::uint64_t h = id.handle().value();
    writeRaw(&kind, 1);
    return writeRaw(&h, 8);
}

// --- DXF filer ---

AcDbDxfFiler::AcDbDxfFiler(AcDbDatabase* db, DxfTags tags) : db_(db), tags_(std::move(tags)) {}
AcDbDxfFiler::AcDbDxfFiler(AcDbDatabase* db) : db_(db) {}

static std::wstring vformat(const wchar_t* format, va_list ap)
{
    wchar_t buf[2048];
    int n = std::vswprintf(buf, sizeof buf / sizeof buf[0], format, ap);
    return n < 0 ? std::wstring(format) : std::wstring(buf, std::size_t(n));
}

Acad::ErrorStatus AcDbDxfFiler::setError(Acad::ErrorStatus es, const wchar_t* format, ...)
{
    va_list ap;
    va_start(ap, format);
    error_ = vformat(format, ap);
    va_end(ap);
    status_ = es;
    return status_;
}

Acad::ErrorStatus AcDbDxfFiler::setError(const wchar_t* format, ...)
{
    va_list ap;
    va_start(ap, format);
    error_ = vformat(format, ap);
    va_end(ap);
    if (status_ == Acad::eOk) status_ = Acad::eFilerError;
    return status_;
}

bool acdbHostIsPointCode(int code)
{
    return (code >= 10 && code <= 18) || (code >= 110 && code <= 112) || code == 210 || (code >= 1010 && code <= 1013);
}

ResBuf AcDbDxfFiler::toItem(const DxfTag& tag) const
{
    ResBuf r;
    r.restype = short(tag.code);
    switch (dxf::valueType(tag.code)) {
    case dxf::ValueType::String:
        r.str = db_ ? db_->decode(tag.value) : dxf::fromUtf8(tag.value);
        break;
    case dxf::ValueType::Double:
        dxf::parseDouble(tag.value, r.real);
        r.point.x = r.real;
        break;
    case dxf::ValueType::Int16:
    case dxf::ValueType::Int32:
    case dxf::ValueType::Int64:
    case dxf::ValueType::Bool: {
        long long n = 0;
        dxf::parseInt(tag.value, n);
        r.integer = n;
        break;
    }
    case dxf::ValueType::Binary: {
        std::string_view s = dxf::trim(tag.value);
        auto hex = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
        for (std::size_t i = 0; i + 1 < s.size(); i += 2) r.binary.push_back(std::uint8_t(hex(s[i]) * 16 + hex(s[i + 1])));
        break;
    }
    case dxf::ValueType::Handle:
        AcDbHandle::parse(tag.value, r.handle);
        r.str = dxf::fromUtf8(dxf::trim(tag.value));
        if (db_ && !r.handle.isNull()) {
            r.id = db_->idOf(r.handle);
            // A pointer to a record further on in the drawing: the id is made
            // now and the object takes it when its record is read.
            if (r.id.isNull() && tag.code < 1000) db_->getAcDbObjectId(r.id, true, r.handle);
        }
        break;
    }
    return r;
}

DxfTag AcDbDxfFiler::toTag(const ResBuf& item) const
{
    DxfTag t;
    t.code = item.restype;
    switch (dxf::valueType(item.restype)) {
    case dxf::ValueType::String:
        t.value = db_ ? db_->encode(item.str) : dxf::toUtf8(item.str);
        break;
    case dxf::ValueType::Double:
        t.value = dxf::formatDouble(acdbHostIsPointCode(item.restype) ? item.point.x : item.real);
        break;
    case dxf::ValueType::Int16:
        t.value = std::to_string(item.rint());
        break;
    case dxf::ValueType::Int32:
        t.value = std::to_string(item.rlong());
        break;
    case dxf::ValueType::Int64:
        t.value = std::to_string(item.integer);
        break;
    case dxf::ValueType::Bool:
        t.value = std::string(1, item.integer ? '1' : '0');
        break;
    case dxf::ValueType::Binary: {
        static const char* digits = "0123456789ABCDEF";
        t.value.assign(item.binary.size() * 2, '0');
        for (std::size_t i = 0; i < item.binary.size(); ++i) {
            t.value[2 * i] = digits[item.binary[i] >> 4];
            t.value[2 * i + 1] = digits[item.binary[i] & 15];
        }
        break;
    }
    case dxf::ValueType::Handle: {
        AcDbHandle h = !item.id.isNull() ? item.id.handle() : item.handle;
        if (h.isNull() && !item.str.empty()) AcDbHandle::parse(dxf::toUtf8(item.str), h);  // given as text
        t.value = h.isNull() ? "0" : h.str();
        break;
    }
    }
    return t;
}

Acad::ErrorStatus AcDbDxfFiler::readItem(ResBuf& item)
{
    if (pos_ >= tags_.size()) {
        item = ResBuf();
        last_ = SIZE_MAX;
        return Acad::eEndOfObject;
    }
    last_ = pos_;
    const DxfTag& t = tags_[pos_++];
    item = toItem(t);
    if (acdbHostIsPointCode(t.code)) {
        if (pos_ < tags_.size() && tags_[pos_].code == t.code + 10) {
            dxf::parseDouble(tags_[pos_++].value, item.point.y);
            if (pos_ < tags_.size() && tags_[pos_].code == t.code + 20) dxf::parseDouble(tags_[pos_++].value, item.point.z);
        }
    }
    return Acad::eOk;
}

Acad::ErrorStatus AcDbDxfFiler::pushBackItem()
{
    if (last_ == SIZE_MAX) return Acad::eInvalidInput;
    pos_ = last_;
    last_ = SIZE_MAX;
    return Acad::eOk;
}

bool AcDbDxfFiler::atSubClassData(const wchar_t* name)
{
    if (pos_ < tags_.size() && tags_[pos_].code == 100) {
        std::wstring marker = db_ ? db_->decode(tags_[pos_].value) : dxf::fromUtf8(tags_[pos_].value);
        if (marker == name) {
            last_ = pos_++;
            return true;
        }
    }
    if (status_ == Acad::eOk) setError(Acad::eBadDxfSequence, L"\nError: expected subclass marker %ls", name);
    return false;
}

Acad::ErrorStatus AcDbDxfFiler::writeItem(const ResBuf& item)
{
    tags_.push_back(toTag(item));
    if (acdbHostIsPointCode(item.restype)) {
        tags_.push_back({item.restype + 10, dxf::formatDouble(item.point.y)});
        tags_.push_back({item.restype + 20, dxf::formatDouble(item.point.z)});
    }
    return status_;
}

Acad::ErrorStatus AcDbDxfFiler::writeString(short code, const std::wstring& v) { return writeItem(ResBuf::text(code, v)); }
Acad::ErrorStatus AcDbDxfFiler::writeInt16(short code, std::int16_t v) { return writeItem(ResBuf::int16(code, v)); }
Acad::ErrorStatus AcDbDxfFiler::writeInt32(short code, std::int32_t v) { return writeItem(ResBuf::int32(code, v)); }
Acad::ErrorStatus AcDbDxfFiler::writeBool(short code, bool v) { return writeItem(ResBuf::int16(code, v ? 1 : 0)); }
Acad::ErrorStatus AcDbDxfFiler::writeDouble(short code, double v) { return writeItem(ResBuf::real64(code, v)); }
Acad::ErrorStatus AcDbDxfFiler::writePoint3d(short code, const AcGePoint3d& p) { return writeItem(ResBuf::pt(code, p)); }
Acad::ErrorStatus AcDbDxfFiler::writeObjectId(short code, const AcDbObjectId& id) { return writeItem(ResBuf::objectId(code, id)); }
Acad::ErrorStatus AcDbDxfFiler::writeRawTag(int code, std::string value)
{
    tags_.push_back({code, std::move(value)});
    return status_;
}
