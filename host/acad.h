// Basic types of the host: error statuses, open modes, handles, points.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Acad {
enum ErrorStatus : int {
    eOk = 0,
    eNotImplementedYet = 1,
    eNotApplicable = 2,
    eInvalidInput = 3,
    eAmbiguousOutput = 4,
    eOutOfMemory = 5,
    eBufferTooSmall = 6,
    eInvalidOpenState = 7,
    eEntityInFile = 8,
    eNullObjectId = 33,
    eNullHandle = 41,
    eWrongDatabase = 43,
    eObjectToBeDeleted = 44,
    eInvalidDwgVersion = 45,
    eDuplicateKey = 61,
    eKeyNotFound = 68,
    eWasErased = 80,
    eInvalidDxfCode = 82,
    ePermanentlyErased = 83,
    eWasOpenForRead = 84,
    eWasOpenForWrite = 85,
    eWasNotOpenForWrite = 91,
    eNotOpenForRead = 92,
    eNotOpenForWrite = 93,
    eNotThatKindOfClass = 94,
    eInvalidKey = 102,
    eInvalidExtents = 103,
    eWasOpenForNotify = 105,
    eDuplicateRecordName = 111,
    eInvalidOwnerObject = 115,
    eAlreadyInDb = 117,
    eNotInDatabase = 119,
    eFilerError = 122,
    eNotOpenForNotify = 124,
    eBadDxfSequence = 137,
    eEndOfObject = 139,
    eEndOfFile = 140,
    eInvalidSymbolTableName = 173,
    eNoDatabase = 199,
    eMakeMeProxy = 301,
    eInvalidXDataLength = 305,
    eNotFound = 408,
};
const char* errorName(ErrorStatus es);
}  // namespace Acad

namespace AcDb {
enum OpenMode : std::uint8_t { kForRead = 0, kForWrite = 1, kForNotify = 2 };
enum FilerType : std::uint8_t { kFileFiler = 0, kCopyFiler = 1, kUndoFiler = 2, kDeepCloneFiler = 6, kWblockCloneFiler = 7 };
enum AcDbDwgVersion : int { kDHL_CURRENT = 29, kDHL_1015 = 23, kDHL_1800 = 25, kDHL_1021 = 27, kDHL_1024 = 29, kDHL_1027 = 31, kDHL_1032 = 33 };
enum MaintenanceReleaseVersion : int { kMReleaseCurrent = 6 };
}  // namespace AcDb

namespace AcRx {
enum AppMsgCode : int {
    kNullMsg = 0, kInitAppMsg = 1, kUnloadAppMsg = 2, kLoadDwgMsg = 3, kUnloadDwgMsg = 4,
    kInvkSubrMsg = 5, kCfgMsg = 6, kEndMsg = 7, kQuitMsg = 8, kSaveMsg = 9,
};
enum AppRetCode : int { kRetOK = 0, kRetError = 3 };
}  // namespace AcRx

// Raised by assertReadEnabled/assertWriteEnabled and by other misuse of the
// object model. A crash guard at the edge of every callback turns it into an
// error status; it never ends the process.
class AcDbStatusError : public std::runtime_error {
public:
    AcDbStatusError(Acad::ErrorStatus es, const std::string& what) : std::runtime_error(what), status(es) {}
    Acad::ErrorStatus status;
};

// Names compare without regard to case throughout the host (symbol tables,
// dictionary keys, commands, applications): one upper-casing for all, and
// its companion for names shown or sorted in lower case.
std::wstring acdbToUpper(std::wstring_view s);
std::wstring acdbToLower(std::wstring_view s);

struct AcGePoint3d {
    double x = 0, y = 0, z = 0;
    bool operator==(const AcGePoint3d&) const = default;
};

// A database handle: a 64-bit number written as upper-case hexadecimal.
class AcDbHandle {
public:
    AcDbHandle() = default;
    explicit AcDbHandle(std::uint64_t v) : v_(v) {}
    bool isNull() const { return v_ == 0; }
    std::uint64_t value() const { return v_; }
    std::string str() const;                          // "1F"
    static bool parse(std::string_view s, AcDbHandle& out);  // hex text, blanks around allowed
    bool operator==(const AcDbHandle&) const = default;
    auto operator<=>(const AcDbHandle&) const = default;

private:
    std::uint64_t v_ = 0;
};
