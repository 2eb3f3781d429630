// The exception list of a layer standard: entity class name -> fixed layer,
// or "Auto..." to leave the class out of automatic layering.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/dbobject.h"
#include "zeftlayermanager/rulefield.h"

class ZEFT_LM_EXPORT ZEFTRuleException : public AcDbObject {
public:
    ACRX_DECLARE_MEMBERS(ZEFTRuleException);

    static constexpr std::uint16_t kCurrentVersion = 1;

    ZEFTRuleException();
    ~ZEFTRuleException() override;

    int getPairsNumber() const;
    // Leaves key and value unchanged when the index is out of range.
    void getPair(unsigned int index, std::wstring& key, std::wstring& value) const;
    void addPair(const std::wstring& key, const std::wstring& value);
    void removeAllPairs();

    // The first pair whose key is the entity's class name decides: "Auto..."
    // answers false; another value is put into layerName and true answered.
    // Without such a pair: true, layerName untouched.
    bool layerRulesApplicable(AcDbObject* entity, std::wstring& layerName) const;

    Acad::ErrorStatus dwgInFields(AcDbDwgFiler* filer) override;
    Acad::ErrorStatus dwgOutFields(AcDbDwgFiler* filer) const override;
    Acad::ErrorStatus dxfInFields(AcDbDxfFiler* filer) override;
    Acad::ErrorStatus dxfOutFields(AcDbDxfFiler* filer) const override;
    bool filesItself() const override { return true; }

private:
    std::vector<std::pair<std::wstring, std::wstring>> m_pairs;
};
