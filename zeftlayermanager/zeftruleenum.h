// A rule enumeration: a named list of values offered when a field is edited.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/dbobject.h"
#include "zeftlayermanager/rulefield.h"

class ZEFT_LM_EXPORT ZEFTRuleEnum : public AcDbObject {
public:
    ACRX_DECLARE_MEMBERS(ZEFTRuleEnum);

    static constexpr std::uint16_t kCurrentVersion = 1;

    ZEFTRuleEnum();
    ~ZEFTRuleEnum() override;

    void setName(const std::wstring& name);
    std::wstring getName() const;
    int getValuesNumber() const;
    // Empty when the index is out of range.
    std::wstring getValue(unsigned int index) const;
    void getValues(std::vector<std::wstring>& values) const;
    void addValue(const std::wstring& value);
    void removeAllValues();

    Acad::ErrorStatus dwgInFields(AcDbDwgFiler* filer) override;
    Acad::ErrorStatus dwgOutFields(AcDbDwgFiler* filer) const override;
    Acad::ErrorStatus dxfInFields(AcDbDxfFiler* filer) override;
    Acad::ErrorStatus dxfOutFields(AcDbDxfFiler* filer) const override;
    bool filesItself() const override { return true; }

private:
    std::wstring m_name;
    std::vector<std::wstring> m_values;
};
