// The layer standard object: the head of the standard a drawing uses.
#pragma once

#include <cstdint>
#include <string>

#include "host/dbobject.h"
#include "zeftlayermanager/rulefield.h"

class ZEFT_LM_EXPORT ZEFTLayerStandard : public AcDbObject {
public:
    ACRX_DECLARE_MEMBERS(ZEFTLayerStandard);

    static constexpr std::uint16_t kCurrentVersion = 3;

    ZEFTLayerStandard();
    ~ZEFTLayerStandard() override;

    AcDbObjectId getModelRule() const;
    AcDbObjectId getDraftRule() const;
    AcDbObjectId getDocRule() const;
    // Model and Draft take only ids of objects that exist; Doc takes any
    // non-null id.
    void setModelRule(AcDbObjectId id);
    void setDraftRule(AcDbObjectId id);
    void setDocRule(AcDbObjectId id);

    std::wstring getName() const;
    std::wstring getFileName() const;
    std::wstring getSeparator() const;
    void setName(const std::wstring& name);
    void setFileName(const std::wstring& fileName);
    void setSeparator(const std::wstring& separator);

    Acad::ErrorStatus dwgInFields(AcDbDwgFiler* filer) override;
    Acad::ErrorStatus dwgOutFields(AcDbDwgFiler* filer) const override;
    Acad::ErrorStatus dxfInFields(AcDbDxfFiler* filer) override;
    Acad::ErrorStatus dxfOutFields(AcDbDxfFiler* filer) const override;
    bool filesItself() const override { return true; }

private:
    // Hard pointers: they keep the rules from being purged, but the rules
    // belong to the layer manager dictionary.
    AcDbObjectId m_modelRule;
    AcDbObjectId m_draftRule;
    AcDbObjectId m_docRule;
    std::wstring m_name;
    std::wstring m_fileName;
    std::wstring m_separator = L"_";
};
