#include "zeftlayermanager/zeftrulefunction.h"

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftlayerrule.h"

ACRX_DXF_DEFINE_MEMBERS(ZEFTRuleFunction, AcDbObject, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0,
                        ZEFTRULEFUNCTION, ZEFTLayerManager)

ZEFTRuleFunction::ZEFTRuleFunction() = default;
ZEFTRuleFunction::~ZEFTRuleFunction() = default;

void ZEFTRuleFunction::setName(const std::wstring& name)
{
    ZEFT_GUARD_VOID("ZEFTRuleFunction::setName", {
        assertWriteEnabled();
        m_name = name;
    });
}

std::wstring ZEFTRuleFunction::getName() const
{
    ZEFT_GUARD("ZEFTRuleFunction::getName", std::wstring(), {
        assertReadEnabled();
        return m_name;
    });
}

void ZEFTRuleFunction::setDefaultValue(const std::wstring& value)
{
    ZEFT_GUARD_VOID("ZEFTRuleFunction::setDefaultValue", {
        assertWriteEnabled();
        m_defaultValue = value;
    });
}

std::wstring ZEFTRuleFunction::getDefaultValue() const
{
    ZEFT_GUARD("ZEFTRuleFunction::getDefaultValue", std::wstring(), {
        assertReadEnabled();
        return m_defaultValue;
    });
}

int ZEFTRuleFunction::getPairsNumber() const
{
    ZEFT_GUARD("ZEFTRuleFunction::getPairsNumber", 0, {
        assertReadEnabled();
        return int(m_pairs.size());
    });
}

void ZEFTRuleFunction::getPair(unsigned int index, std::wstring& key, std::wstring& value) const
{
    ZEFT_GUARD_VOID("ZEFTRuleFunction::getPair", {
        assertReadEnabled();
        if (index >= m_pairs.size()) return;
        key = m_pairs[index].first;
        value = m_pairs[index].second;
    });
}

void ZEFTRuleFunction::addPair(const std::wstring& key, const std::wstring& value)
{
    ZEFT_GUARD_VOID("ZEFTRuleFunction::addPair", {
        assertWriteEnabled();
        m_pairs.emplace_back(key, value);
    });
}

void ZEFTRuleFunction::removeAllPairs()
{
    ZEFT_GUARD_VOID("ZEFTRuleFunction::removeAllPairs", {
        assertWriteEnabled();
        m_pairs.clear();
    });
}

Acad::ErrorStatus ZEFTRuleFunction::dwgInFields(AcDbDwgFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleFunction::dwgInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        Acad::ErrorStatus es = AcDbObject::dwgInFields(filer);
        if (es != Acad::eOk) return es;
        std::uint16_t version = 0;
        filer->readUInt16(&version);
        if (version > kCurrentVersion) return Acad::eMakeMeProxy;
        filer->readString(m_name);
        std::uint32_t count = 0;
        filer->readUInt32(&count);
        m_pairs.clear();
        for (std::uint32_t i = 0; i < count && filer->filerStatus() == Acad::eOk; ++i) {
            std::wstring key, value;
            filer->readString(key);
            filer->readString(value);
            m_pairs.emplace_back(std::move(key), std::move(value));
        }
        // Version 1 had no default value.
        if (version >= 2) filer->readString(m_defaultValue);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleFunction::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleFunction::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dwgOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeUInt16(kCurrentVersion);
        filer->writeString(m_name);
        filer->writeUInt32(std::uint32_t(m_pairs.size()));
        for (const auto& [key, value] : m_pairs) {
            filer->writeString(key);
            filer->writeString(value);
        }
        filer->writeString(m_defaultValue);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleFunction::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleFunction::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfInFields(filer);
        if (es != Acad::eOk) return es;
        if (!filer->atSubClassData(L"ZEFTRuleFunction")) return filer->filerStatus();
        ResBuf item;
        if (!zeft_filing::readItemOfCode(filer, 70, item)) return filer->filerStatus();
        if (std::uint16_t(item.rint()) > kCurrentVersion) return Acad::eMakeMeProxy;
        if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
        m_name = item.str;
        if (!zeft_filing::readItemOfCode(filer, 90, item)) return filer->filerStatus();
        const int count = item.rint();
        m_pairs.clear();
        for (int i = 0; i < count; ++i) {
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            std::wstring key = item.str;
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            m_pairs.emplace_back(std::move(key), item.str);
        }
        // Unlike the binary reading, expected whatever the version: a
        // version 1 text record without it is refused, as it always was.
        if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
        m_defaultValue = item.str;
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleFunction::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleFunction::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeString(100, L"ZEFTRuleFunction");
        filer->writeUInt16(70, kCurrentVersion);
        filer->writeString(1, m_name);
        filer->writeUInt32(90, std::uint32_t(m_pairs.size()));
        for (const auto& [key, value] : m_pairs) {
            filer->writeString(1, key);
            filer->writeString(1, value);
        }
        filer->writeString(1, m_defaultValue);
        return filer->filerStatus();
    });
}
