#include "zeftlayermanager/zeftlayerrule.h"

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftfiling.h"

ACRX_DXF_DEFINE_MEMBERS(ZEFTLayerRule, AcDbObject, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0, ZEFTLAYERRULE,
                        ZEFTLayerManager)

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
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        zeft_filing::readList(filer, m_fields, [&](RuleField& field) {
            filer->readString(field.value);
            filer->readBool(&field.isFunction);
            if (version >= 2) filer->readString(field.name);
        });
        return Acad::eOk;
    });
}

Acad::ErrorStatus ZEFTLayerRule::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTLayerRule::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, kCurrentVersion);
        if (es != Acad::eOk) return es;
        zeft_filing::writeList(filer, m_fields, [&](const RuleField& field) {
            filer->writeString(field.value);
            filer->writeBool(field.isFunction);
            filer->writeString(field.name);
        });
        return Acad::eOk;
    });
}

Acad::ErrorStatus ZEFTLayerRule::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTLayerRule::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, L"ZEFTLayerRule", kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        ResBuf item;
        zeft_filing::readList(filer, m_fields, [&](RuleField& field) {
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return false;
            field.value = item.str;
            if (!zeft_filing::readItemOfCode(filer, 70, item)) return false;
            field.isFunction = item.rint() != 0;
            if (version >= 2) {
                if (!zeft_filing::readItemOfCode(filer, 1, item)) return false;
                field.name = item.str;
            }
            return true;
        });
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTLayerRule::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTLayerRule::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, L"ZEFTLayerRule", kCurrentVersion);
        if (es != Acad::eOk) return es;
        zeft_filing::writeList(filer, m_fields, [&](const RuleField& field) {
            filer->writeString(1, field.value);
            filer->writeInt16(70, field.isFunction ? 1 : 0);
            filer->writeString(1, field.name);
        });
        return filer->filerStatus();
    });
}
