#include "zeftlayermanager/zeftruleexception.h"

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftlayerrule.h"

ACRX_DXF_DEFINE_MEMBERS(ZEFTRuleException, AcDbObject, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0,
                        ZEFTRULEEXCEPTION, ZEFTLayerManager)

ZEFTRuleException::ZEFTRuleException() = default;
ZEFTRuleException::~ZEFTRuleException() = default;

int ZEFTRuleException::getPairsNumber() const
{
    ZEFT_GUARD("ZEFTRuleException::getPairsNumber", 0, {
        assertReadEnabled();
        return int(m_pairs.size());
    });
}

void ZEFTRuleException::getPair(unsigned int index, std::wstring& key, std::wstring& value) const
{
    ZEFT_GUARD_VOID("ZEFTRuleException::getPair", {
        assertReadEnabled();
        if (index >= m_pairs.size()) return;
        key = m_pairs[index].first;
        value = m_pairs[index].second;
    });
}

void ZEFTRuleException::addPair(const std::wstring& key, const std::wstring& value)
{
    ZEFT_GUARD_VOID("ZEFTRuleException::addPair", {
        assertWriteEnabled();
        m_pairs.emplace_back(key, value);
    });
}

void ZEFTRuleException::removeAllPairs()
{
    ZEFT_GUARD_VOID("ZEFTRuleException::removeAllPairs", {
        assertWriteEnabled();
        m_pairs.clear();
    });
}

bool ZEFTRuleException::layerRulesApplicable(AcDbObject* entity, std::wstring& layerName) const
{
    ZEFT_GUARD("ZEFTRuleException::layerRulesApplicable", false, {
        assertReadEnabled();
        if (!entity || !entity->isA()) return false;
        // Exact, case-sensitive: keys are class names as the runtime reports them.
        const std::wstring className = entity->isA()->name();
        for (const auto& [key, value] : m_pairs) {
            if (key != className) continue;
            if (value == L"Auto...") return false;
            layerName = value;
            return true;
        }
        return true;
    });
}

Acad::ErrorStatus ZEFTRuleException::dwgInFields(AcDbDwgFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleException::dwgInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        Acad::ErrorStatus es = AcDbObject::dwgInFields(filer);
        if (es != Acad::eOk) return es;
        std::uint16_t version = 0;
        filer->readUInt16(&version);
        if (version > kCurrentVersion) return Acad::eMakeMeProxy;
        std::uint32_t count = 0;
        filer->readUInt32(&count);
        m_pairs.clear();
        for (std::uint32_t i = 0; i < count && filer->filerStatus() == Acad::eOk; ++i) {
            std::wstring key, value;
            filer->readString(key);
            filer->readString(value);
            m_pairs.emplace_back(std::move(key), std::move(value));
        }
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleException::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleException::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dwgOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeUInt16(kCurrentVersion);
        filer->writeUInt32(std::uint32_t(m_pairs.size()));
        for (const auto& [key, value] : m_pairs) {
            filer->writeString(key);
            filer->writeString(value);
        }
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleException::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleException::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfInFields(filer);
        if (es != Acad::eOk) return es;
        if (!filer->atSubClassData(L"ZEFTRuleException")) return filer->filerStatus();
        ResBuf item;
        if (!zeft_filing::readItemOfCode(filer, 70, item)) return filer->filerStatus();
        if (std::uint16_t(item.rint()) > kCurrentVersion) return Acad::eMakeMeProxy;
        if (!zeft_filing::readItemOfCode(filer, 90, item)) return filer->filerStatus();
        const int count = item.rint();
        m_pairs.clear();
        for (int i = 0; i < count; ++i) {
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            std::wstring key = item.str;
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            m_pairs.emplace_back(std::move(key), item.str);
        }
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleException::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleException::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeString(100, L"ZEFTRuleException");
        filer->writeUInt16(70, kCurrentVersion);
        filer->writeUInt32(90, std::uint32_t(m_pairs.size()));
        for (const auto& [key, value] : m_pairs) {
            filer->writeString(1, key);
            filer->writeString(1, value);
        }
        return filer->filerStatus();
    });
}
