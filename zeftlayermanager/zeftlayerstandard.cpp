#include "zeftlayermanager/zeftlayerstandard.h"

#include "host/filer.h"
#include "suite/wybase.h"
#include "zeftlayermanager/zeftfiling.h"

ACRX_DXF_DEFINE_MEMBERS(ZEFTLayerStandard, AcDbObject, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0,
                        ZEFTLAYERSTANDARD, ZEFTLayerManager)

ZEFTLayerStandard::ZEFTLayerStandard() = default;
ZEFTLayerStandard::~ZEFTLayerStandard() = default;

AcDbObjectId ZEFTLayerStandard::getModelRule() const
{
    ZEFT_GUARD("ZEFTLayerStandard::getModelRule", AcDbObjectId(), {
        assertReadEnabled();
        return m_modelRule;
    });
}

AcDbObjectId ZEFTLayerStandard::getDraftRule() const
{
    ZEFT_GUARD("ZEFTLayerStandard::getDraftRule", AcDbObjectId(), {
        assertReadEnabled();
        return m_draftRule;
    });
}

AcDbObjectId ZEFTLayerStandard::getDocRule() const
{
    ZEFT_GUARD("ZEFTLayerStandard::getDocRule", AcDbObjectId(), {
        assertReadEnabled();
        return m_docRule;
    });
}

void ZEFTLayerStandard::setModelRule(AcDbObjectId id)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandard::setModelRule", {
        assertWriteEnabled();
        if (!id.isValid()) return;
        m_modelRule = id;
    });
}

void ZEFTLayerStandard::setDraftRule(AcDbObjectId id)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandard::setDraftRule", {
        assertWriteEnabled();
        if (!id.isValid()) return;
        m_draftRule = id;
    });
}

void ZEFTLayerStandard::setDocRule(AcDbObjectId id)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandard::setDocRule", {
        assertWriteEnabled();
        // Deliberately looser than Model and Draft: only null is refused.
        if (id.isNull()) return;
        m_docRule = id;
    });
}

std::wstring ZEFTLayerStandard::getName() const
{
    ZEFT_GUARD("ZEFTLayerStandard::getName", std::wstring(), {
        assertReadEnabled();
        return m_name;
    });
}

std::wstring ZEFTLayerStandard::getFileName() const
{
    ZEFT_GUARD("ZEFTLayerStandard::getFileName", std::wstring(), {
        assertReadEnabled();
        return m_fileName;
    });
}

std::wstring ZEFTLayerStandard::getSeparator() const
{
    ZEFT_GUARD("ZEFTLayerStandard::getSeparator", std::wstring(), {
        assertReadEnabled();
        return m_separator;
    });
}

void ZEFTLayerStandard::setName(const std::wstring& name)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandard::setName", {
        assertWriteEnabled();
        m_name = name;
    });
}

void ZEFTLayerStandard::setFileName(const std::wstring& fileName)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandard::setFileName", {
        assertWriteEnabled();
        m_fileName = fileName;
    });
}

void ZEFTLayerStandard::setSeparator(const std::wstring& separator)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandard::setSeparator", {
        assertWriteEnabled();
        m_separator = separator;
    });
}

Acad::ErrorStatus ZEFTLayerStandard::dwgInFields(AcDbDwgFiler* filer)
{
    ZEFT_GUARD("ZEFTLayerStandard::dwgInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        filer->readHardPointerId(&m_modelRule);
        filer->readHardPointerId(&m_draftRule);
        filer->readHardPointerId(&m_docRule);
        // Version 2 added the names, version 3 the separator; older objects
        // keep the constructor's values.
        if (version >= 2) {
            filer->readString(m_name);
            filer->readString(m_fileName);
        }
        if (version >= 3) filer->readString(m_separator);
        return Acad::eOk;
    });
}

Acad::ErrorStatus ZEFTLayerStandard::dwgOutFields(AcDbDwgFiler* filer) const
{
    ZEFT_GUARD("ZEFTLayerStandard::dwgOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, kCurrentVersion);
        if (es != Acad::eOk) return es;
        filer->writeHardPointerId(m_modelRule);
        filer->writeHardPointerId(m_draftRule);
        filer->writeHardPointerId(m_docRule);
        filer->writeString(m_name);
        filer->writeString(m_fileName);
        filer->writeString(m_separator);
        return Acad::eOk;
    });
}

Acad::ErrorStatus ZEFTLayerStandard::dxfInFields(AcDbDxfFiler* filer)
{
    ZEFT_GUARD("ZEFTLayerStandard::dxfInFields", Acad::eNotOpenForWrite, {
        assertWriteEnabled();
        std::uint16_t version = 0;
        const Acad::ErrorStatus es = zeft_filing::readHead(*this, filer, L"ZEFTLayerStandard", kCurrentVersion, version);
        if (es != Acad::eOk) return es;
        ResBuf item;
        for (AcDbObjectId* id : {&m_modelRule, &m_draftRule, &m_docRule}) {
            if (!zeft_filing::readItemOfCode(filer, 340, item)) return filer->filerStatus();
            *id = item.id;
        }
        if (version >= 2) {
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            m_name = item.str;
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            m_fileName = item.str;
        }
        if (version >= 3) {
            if (!zeft_filing::readItemOfCode(filer, 1, item)) return filer->filerStatus();
            m_separator = item.str;
        }
        return filer->filerStatus();
    });
}

Acad::ErrorStatus ZEFTLayerStandard::dxfOutFields(AcDbDxfFiler* filer) const
{
    ZEFT_GUARD("ZEFTLayerStandard::dxfOutFields", Acad::eNotOpenForRead, {
        assertReadEnabled();
        const Acad::ErrorStatus es = zeft_filing::writeHead(*this, filer, L"ZEFTLayerStandard", kCurrentVersion);
        if (es != Acad::eOk) return es;
        filer->writeObjectId(340, m_modelRule);
        filer->writeObjectId(340, m_draftRule);
        filer->writeObjectId(340, m_docRule);
        filer->writeString(1, m_name);
        filer->writeString(1, m_fileName);
        filer->writeString(1, m_separator);
        return filer->filerStatus();
    });
}
