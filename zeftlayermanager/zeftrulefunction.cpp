#include "zeftlayermanager/zeftrulefunction.h"

#include <algorithm>

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftfiling.h"

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

namespace {

const std::wstring* valueOfKey(const std::vector<std::pair<std::wstring, std::wstring>>& pairs,
                               const std::wstring& key)
{
    for (const auto& pair : pairs)
        if (pair.first == key) return &pair.second;
    return nullptr;
}

}  // namespace

std::wstring ZEFTRuleFunction::valueForClass(const AcRxClass* cls, const std::wstring& className) const
{
    if (const std::wstring* exact = valueOfKey(m_pairs, className)) return *exact;
    for (const AcRxClass* c = cls ? cls->myParent() : nullptr; c; c = c->myParent())
        if (const std::wstring* inherited = valueOfKey(m_pairs, c->name())) return *inherited;
    return m_defaultValue;
}

std::wstring ZEFTRuleFunction::getValue(const AcDbObject* obj) const
{
    ZEFT_GUARD("ZEFTRuleFunction::getValue", std::wstring(), {
        assertReadEnabled();
        const AcRxClass* cls = obj ? obj->isA() : nullptr;
        if (!cls) return m_defaultValue;
        return valueForClass(cls, cls->name());
    });
}

std::wstring ZEFTRuleFunction::getValue(const std::wstring& className) const
{
    ZEFT_GUARD("ZEFTRuleFunction::getValue", std::wstring(), {
        assertReadEnabled();
        const AcRxClass* cls = acrxFindClass(className);
        if (!cls) {
            // Classes known from drawings only have their chain too.
            const auto proxies = acrxProxyClasses();
            auto it = std::find_if(proxies.begin(), proxies.end(),
                                   [&](const AcRxClass* p) { return className == p->name(); });
            if (it != proxies.end()) cls = *it;
        }
        return valueForClass(cls, className);
    });
}

Acad::ErrorStatus ZEFTRuleFunction::dwgInFields(AcDbDwgFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleFunction::dwgInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        filer->readString(m_name);
        zeft_filing::readPairs(filer, m_pairs);
        // Version 1 had no default value.
        if (version >= 2) filer->readString(m_defaultValue);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleFunction::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTRuleFunction::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, kCurrentVersion);
        if (es != Acad::eOk) return es;
        filer->writeString(m_name);
        zeft_filing::writePairs(filer, m_pairs);
        filer->writeString(m_defaultValue);
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTRuleFunction::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTRuleFunction::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, L"ZEFTRuleFunction", kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        ResBuf item;
        if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
        m_name = item.str;
        if (!zeft_filing::readPairs(filer, m_pairs)) return filer->filerStatus();
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
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, L"ZEFTRuleFunction", kCurrentVersion);
        if (es != Acad::eOk) return es;
        filer->writeString(1, m_name);
        zeft_filing::writePairs(filer, m_pairs);
        filer->writeString(1, m_defaultValue);
        return filer->filerStatus();
    });
}
