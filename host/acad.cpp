#include "host/acad.h"

#include <charconv>
#include <cwctype>

#include "host/dxf/dxftext.h"

namespace Acad {
const char* errorName(ErrorStatus es)
{
    switch (es) {
    case eOk: return "eOk";
    case eNotImplementedYet: return "eNotImplementedYet";
    case eNotApplicable: return "eNotApplicable";
    case eInvalidInput: return "eInvalidInput";
    case eInvalidOpenState: return "eInvalidOpenState";
    case eNullObjectId: return "eNullObjectId";
    case eWrongDatabase: return "eWrongDatabase";
    case eDuplicateKey: return "eDuplicateKey";
    case eKeyNotFound: return "eKeyNotFound";
    case eWasErased: return "eWasErased";
    case eInvalidDxfCode: return "eInvalidDxfCode";
    case eWasOpenForRead: return "eWasOpenForRead";
    case eWasOpenForWrite: return "eWasOpenForWrite";
    case eNotOpenForRead: return "eNotOpenForRead";
    case eNotOpenForWrite: return "eNotOpenForWrite";
    case eNotThatKindOfClass: return "eNotThatKindOfClass";
    case eInvalidKey: return "eInvalidKey";
    case eDuplicateRecordName: return "eDuplicateRecordName";
    case eAlreadyInDb: return "eAlreadyInDb";
    case eNotInDatabase: return "eNotInDatabase";
    case eFilerError: return "eFilerError";
    case eEndOfObject: return "eEndOfObject";
    case eEndOfFile: return "eEndOfFile";
    case eInvalidSymbolTableName: return "eInvalidSymbolTableName";
    case eNoDatabase: return "eNoDatabase";
    case eMakeMeProxy: return "eMakeMeProxy";
    case eNotFound: return "eNotFound";
    default: return "error";
    }
}
}  // namespace Acad

std::string AcDbHandle::str() const
{
    // Every pointer written goes through here.
    char buf[16];
    char* p = buf + sizeof buf;
    std::uint64_t v = v_;
    do {
        *--p = "0123456789ABCDEF"[v & 15];
        v >>= 4;
    } while (v);
    return std::string(p, buf + sizeof buf);
}

bool AcDbHandle::parse(std::string_view s, AcDbHandle& out)
{
    s = dxf::trim(s);
    if (s.empty() || s.size() > 16) return false;
    std::uint64_t v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v, 16);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return false;
    out = AcDbHandle(v);
    return true;
}

std::wstring acdbToUpper(std::wstring_view s)
{
    std::wstring u(s);
    for (auto& c : u) c = wchar_t(std::towupper(c));
    return u;
}

std::wstring acdbToLower(std::wstring_view s)
{
    std::wstring l(s);
    for (auto& c : l) c = wchar_t(std::towlower(c));
    return l;
}
