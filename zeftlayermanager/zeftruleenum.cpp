#include "zeftlayermanager/zeftruleenum.h"

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftlayerrule.h"

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
        Acad::ErrorStatus es = AcDbObject::dwgInFields(filer);
        if (es != Acad::eOk) return es;
        std::uint16_t version = 0;
        filer->readUInt16(&version);
        if (version > kCurrentVersion) return Acad::eMakeMeProxy;
        filer->readString(m_name);
        std::uint32_t count = 0;
        filer->readUInt32(&count);
        m_values.clear();
        for (std::uint32_t i = 0; i < count && filer->filerStatus() == Acad::eOk; ++i) {
            std::wstring value;
            filer->readString(value);
            m_values.push_back(std::move(value));
        }
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleEnum::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleEnum::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dwgOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeUInt16(kCurrentVersion);
        filer->writeString(m_name);
        filer->writeUInt32(std::uint32_t(m_values.size()));
        for (const std::wstring& value : m_values) filer->writeString(value);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleEnum::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleEnum::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfInFields(filer);
        if (es != Acad::eOk) return es;
        if (!filer->atSubClassData(L"ZEFTRuleEnum")) return filer->filerStatus();
        ResBuf item;
        if (!zeft_filing::readItemOfCode(filer, 70, item)) return filer->filerStatus();
        if (std::uint16_t(item.rint()) > kCurrentVersion) return Acad::eMakeMeProxy;
        if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
        m_name = item.str;
        if (!zeft_filing::readItemOfCode(filer, 90, item)) return filer->filerStatus();
        // Through the 16-bit view, like the rule's field count.
        const int count = item.rint();
        m_values.clear();
        for (int i = 0; i < count; ++i) {
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            m_values.push_back(item.str);
        }
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleEnum::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleEnum::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeString(100, L"ZEFTRuleEnum");
        filer->writeUInt16(70, kCurrentVersion);
        filer->writeString(1, m_name);
        filer->writeUInt32(90, std::uint32_t(m_values.size()));
        for (const std::wstring& value : m_values) filer->writeString(1, value);
        return filer->filerStatus();
    });
}
