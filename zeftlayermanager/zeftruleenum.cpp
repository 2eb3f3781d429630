#include "zeftlayermanager/zeftruleenum.h"

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftfiling.h"

ACRX_DXF_DEFINE_MEMBERS(ZEFTRuleEnum, AcDbObject, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0, ZEFTRULEENUM,
                        ZEFTLayerManager)

ZEFTRuleEnum::ZEFTRuleEnum() = default;
ZEFTRuleEnum::~ZEFTRuleEnum() = default;

void ZEFTRuleEnum::setName(const std::wstring& name)
{
    ZEFT_GUARD_VOID("ZEFTRuleEnum::setName", {
        assertWriteEnabled();
        m_name = name;
    });
}

std::wstring ZEFTRuleEnum::getName() const
{
    ZEFT_GUARD("ZEFTRuleEnum::getName", std::wstring(), {
        assertReadEnabled();
        return m_name;
    });
}

int ZEFTRuleEnum::getValuesNumber() const
{
    ZEFT_GUARD("ZEFTRuleEnum::getValuesNumber", 0, {
        assertReadEnabled();
        return int(m_values.size());
    });
}

std::wstring ZEFTRuleEnum::getValue(unsigned int index) const
{
    ZEFT_GUARD("ZEFTRuleEnum::getValue", std::wstring(), {
        assertReadEnabled();
        return index < m_values.size() ? m_values[index] : std::wstring();
    });
}

void ZEFTRuleEnum::getValues(std::vector<std::wstring>& values) const
{
    ZEFT_GUARD_VOID("ZEFTRuleEnum::getValues", {
        assertReadEnabled();
        values = m_values;
    });
}

void ZEFTRuleEnum::addValue(const std::wstring& value)
{
    ZEFT_GUARD_VOID("ZEFTRuleEnum::addValue", {
        assertWriteEnabled();
        m_values.push_back(value);
    });
}

void ZEFTRuleEnum::removeAllValues()
{
    ZEFT_GUARD_VOID("ZEFTRuleEnum::removeAllValues", {
        assertWriteEnabled();
        m_values.clear();
    });
}

Acad::ErrorStatus ZEFTRuleEnum::dwgInFields(AcDbDwgFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleEnum::dwgInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        filer->readString(m_name);
        zeft_filing::readStrings(filer, m_values);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleEnum::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleEnum::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, kCurrentVersion);
        if (es != Acad::eOk) return es;
        filer->writeString(m_name);
        zeft_filing::writeStrings(filer, m_values);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleEnum::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleEnum::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, L"ZEFTRuleEnum", kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        ResBuf item;
        if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
        m_name = item.str;
        zeft_filing::readStrings(filer, m_values);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleEnum::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleEnum::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, L"ZEFTRuleEnum", kCurrentVersion);
        if (es != Acad::eOk) return es;
        filer->writeString(1, m_name);
        zeft_filing::writeStrings(filer, m_values);
        return filer->filerStatus();
    });
}
