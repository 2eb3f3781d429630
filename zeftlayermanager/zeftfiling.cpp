#include "zeftlayermanager/zeftfiling.h"

#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace zeft_filing {

void registerClasses()
{
    ZEFTLayerStandard::rxInit();
    ZEFTLayerRule::rxInit();
    ZEFTRuleFunction::rxInit();
    ZEFTRuleEnum::rxInit();
    ZEFTRuleException::rxInit();
    acrxBuildClassHierarchy();
}

bool readItemOfCode(AcDbDxfFiler* filer, short code, ResBuf& item)
{
    filer->readItem(item);
    if (item.restype == code) return true;
    filer->pushBackItem();
    filer->setError(Acad::eInvalidDxfCode, L"\nError: expected group code %d", int(code));
    return false;
}

Acad::ErrorStatus readHead(AcDbObject& object, AcDbDwgFiler* filer, std::uint16_t current, std::uint16_t& version)
{
    const Acad::ErrorStatus es = object.AcDbObject::dwgInFields(filer);
    if (es != Acad::eOk) return es;
    version = 0;
    filer->readUInt16(&version);
    if (version > current) return Acad::eMakeMeProxy;
    return Acad::eOk;
}

Acad::ErrorStatus readHead(AcDbObject& object, AcDbDxfFiler* filer, const wchar_t* subclass, std::uint16_t current,
                           std::uint16_t& version)
{
    const Acad::ErrorStatus es = object.AcDbObject::dxfInFields(filer);
    if (es != Acad::eOk) return es;
    // A failed read leaves its error in the filer, so the status returned
    // here is never eOk.
    if (!filer->atSubClassData(subclass)) return filer->filerStatus();
    ResBuf item;
    if (!readItemOfCode(filer, 70, item)) return filer->filerStatus();
    version = std::uint16_t(item.rint());
    if (version > current) return Acad::eMakeMeProxy;
    return Acad::eOk;
}

Acad::ErrorStatus writeHead(const AcDbObject& object, AcDbDwgFiler* filer, std::uint16_t current)
{
    const Acad::ErrorStatus es = object.AcDbObject::dwgOutFields(filer);
    if (es != Acad::eOk) return es;
    filer->writeUInt16(current);
    return Acad::eOk;
}

Acad::ErrorStatus writeHead(const AcDbObject& object, AcDbDxfFiler* filer, const wchar_t* subclass,
                            std::uint16_t current)
{
    const Acad::ErrorStatus es = object.AcDbObject::dxfOutFields(filer);
    if (es != Acad::eOk) return es;
    filer->writeString(100, subclass);
    filer->writeUInt16(70, current);
    return Acad::eOk;
}

void readPairs(AcDbDwgFiler* filer, Pairs& pairs)
{
    readList(filer, pairs, [&](std::pair<std::wstring, std::wstring>& pair) {
        filer->readString(pair.first);
        filer->readString(pair.second);
    });
}

bool readPairs(AcDbDxfFiler* filer, Pairs& pairs)
{
    ResBuf item;
    return readList(filer, pairs, [&](std::pair<std::wstring, std::wstring>& pair) {
        if (!readItemOfCode(filer, 1, item)) return false;
        pair.first = item.str;
        if (!readItemOfCode(filer, 1, item)) return false;
        pair.second = item.str;
        return true;
    });
}

void writePairs(AcDbDwgFiler* filer, const Pairs& pairs)
{
    writeList(filer, pairs, [&](const std::pair<std::wstring, std::wstring>& pair) {
        filer->writeString(pair.first);
        filer->writeString(pair.second);
    });
}

void writePairs(AcDbDxfFiler* filer, const Pairs& pairs)
{
    writeList(filer, pairs, [&](const std::pair<std::wstring, std::wstring>& pair) {
        filer->writeString(1, pair.first);
        filer->writeString(1, pair.second);
    });
}

void readStrings(AcDbDwgFiler* filer, Strings& strings)
{
    readList(filer, strings, [&](std::wstring& string) { filer->readString(string); });
}

bool readStrings(AcDbDxfFiler* filer, Strings& strings)
{
    ResBuf item;
    return readList(filer, strings, [&](std::wstring& string) {
        if (!readItemOfCode(filer, 1, item)) return false;
        string = item.str;
        return true;
    });
}

void writeStrings(AcDbDwgFiler* filer, const Strings& strings)
{
    writeList(filer, strings, [&](const std::wstring& string) { filer->writeString(string); });
}

void writeStrings(AcDbDxfFiler* filer, const Strings& strings)
{
    writeList(filer, strings, [&](const std::wstring& string) { filer->writeString(1, string); });
}

}  // namespace zeft_filing
