#include "zeftlayermanager/zeftruleexception.h"

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftfiling.h"

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
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        zeft_filing::readPairs(filer, m_pairs);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleException::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleException::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, kCurrentVersion);
        if (es != Acad::eOk) return es;
        zeft_filing::writePairs(filer, m_pairs);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleException::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleException::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, L"ZEFTRuleException", kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        zeft_filing::readPairs(filer, m_pairs);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleException::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleException::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, L"ZEFTRuleException", kCurrentVersion);
        if (es != Acad::eOk) return es;
        zeft_filing::writePairs(filer, m_pairs);
        return filer->filerStatus();
    });
}
