#include "zeftlayermanager/zeftlayerrule.h"

#include "host/filer.h"
#include "suite/wybase.h"

ACRX_DXF_DEFINE_MEMBERS(ZEFTLayerRule, AcDbObject, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0, ZEFTLAYERRULE,
                        ZEFTLayerManager)

namespace zeft_filing {
bool readItemOfCode(AcDbDxfFiler* filer, short code, ResBuf& item)
{
    filer->readItem(item);
    if (item.restype == code) return true;
    filer->pushBackItem();
    filer->setError(Acad::eInvalidDxfCode, L"\nError: expected group code %d", int(code));
    return false;
}
}  // namespace zeft_filing

ZEFTLayerRule::ZEFTLayerRule() = default;
ZEFTLayerRule::~ZEFTLayerRule() = default;

void ZEFTLayerRule::getFields(std::vector<RuleField>& fields) const
{
    ZEFT_GUARD_VOID("ZEFTLayerRule::getFields", {
        assertReadEnabled();
        fields = m_fields;
    });
}

void ZEFTLayerRule::addRule(const RuleField& field)
{
    ZEFT_GUARD_VOID("ZEFTLayerRule::addRule", {
        assertWriteEnabled();
        m_fields.push_back(field);
    });
}

Acad::ErrorStatus ZEFTLayerRule::dwgInFields(AcDbDwgFiler* filer)
{
    ZEFT_GUARD("ZEFTLayerRule::dwgInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        Acad::ErrorStatus es = AcDbObject::dwgInFields(filer);
        if (es != Acad::eOk) return es;
        std::uint16_t version = 0;
        filer->readUInt16(&version);
        // A newer module wrote it: keep the object as a proxy.
        if (version > kCurrentVersion) return Acad::eMakeMeProxy;
        std::uint32_t count = 0;
        filer->readUInt32(&count);
        m_fields.clear();
        // A damaged stream stops the loop instead of appending empty fields.
        for (std::uint32_t i = 0; i < count && filer->filerStatus() == Acad::eOk; ++i) {
            RuleField field;
            filer->readString(field.value);
            filer->readBool(&field.isFunction);
            if (version >= 2) filer->readString(field.name);
            m_fields.push_back(std::move(field));
        }
        return Acad::eOk;
    });
}

Acad::ErrorStatus ZEFTLayerRule::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTLayerRule::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dwgOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeUInt16(kCurrentVersion);
        filer->writeUInt32(std::uint32_t(m_fields.size()));
        for (const RuleField& field : m_fields) {
            filer->writeString(field.value);
            filer->writeBool(field.isFunction);
            filer->writeString(field.name);
        }
        return Acad::eOk;
    });
}

Acad::ErrorStatus ZEFTLayerRule::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTLayerRule::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfInFields(filer);
        if (es != Acad::eOk) return es;
        if (!filer->atSubClassData(L"ZEFTLayerRule")) return filer->filerStatus();
        ResBuf item;
        if (!zeft_filing::readItemOfCode(filer, 70, item)) return filer->filerStatus();
        const std::uint16_t version = std::uint16_t(item.rint());
        if (version > kCurrentVersion) return Acad::eMakeMeProxy;
        if (!zeft_filing::readItemOfCode(filer, 90, item)) return filer->filerStatus();
        // The count is read through the 16-bit view, as drawings of every
        // version were read; counts stay far below 32768.
        const int count = item.rint();
        m_fields.clear();
        for (int i = 0; i < count; ++i) {
            RuleField field;
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            field.value = item.str;
            if (!zeft_filing::readItemOfCode(filer, 70, item)) return filer->filerStatus();
            field.isFunction = item.rint() != 0;
            if (version >= 2) {
                if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
                field.name = item.str;
            }
            m_fields.push_back(std::move(field));
        }
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTLayerRule::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTLayerRule::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        Acad::ErrorStatus es = AcDbObject::dxfOutFields(filer);
        if (es != Acad::eOk) return es;
        filer->writeString(100, L"ZEFTLayerRule");
        filer->writeUInt16(70, kCurrentVersion);
        filer->writeUInt32(90, std::uint32_t(m_fields.size()));
        for (const RuleField& field : m_fields) {
            filer->writeString(1, field.value);
            filer->writeInt16(70, field.isFunction ? 1 : 0);
            filer->writeString(1, field.name);
        }
        return filer->filerStatus();
    });
}
