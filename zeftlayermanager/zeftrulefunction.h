// A user-defined rule function: a name, a table of (key, value) pairs and
// a default value.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/dbobject.h"
#include "zeftlayermanager/rulefield.h"

class ZEFT_LM_EXPORT ZEFTRuleFunction : public AcDbObject {
public:
    ACRX_DECLARE_MEMBERS(ZEFTRuleFunction);

    static constexpr std::uint16_t kCurrentVersion = 2;

    ZEFTRuleFunction();
    ~ZEFTRuleFunction() override;

    void setName(const std::wstring& name);
    std::wstring getName() const;
    void setDefaultValue(const std::wstring& value);
    std::wstring getDefaultValue() const;
    int getPairsNumber() const;
    // Leaves key and value unchanged when the index is out of range.
    void getPair(unsigned int index, std::wstring& key, std::wstring& value) const;
    void addPair(const std::wstring& key, const std::wstring& value);
    void removeAllPairs();

    // The function's value for an object: the first pair whose key is the
    // object's class name; failing that, the first pair naming the nearest
    // class it derives from (so a key "AcDbCurve" covers lines and arcs);
    // else the default value. Keys are compared case-sensitively.
    std::wstring getValue(const AcDbObject* obj) const;
    // The same for a class name; a name no code or drawing registered
    // matches its own key only.
    std::wstring getValue(const std::wstring& className) const;

    Acad::ErrorStatus dwgInFields(AcDbDwgFiler* filer) override;
    Acad::ErrorStatus dwgOutFields(AcDbDwgFiler* filer) const override;
    Acad::ErrorStatus dxfInFields(AcDbDxfFiler* filer) override;
    Acad::ErrorStatus dxfOutFields(AcDbDxfFiler* filer) const override;
    bool filesItself() const override { return true; }

private:
    std::wstring valueForClass(const AcRxClass* cls, const std::wstring& className) const;

    std::wstring m_name;
    std::wstring m_defaultValue;
    std::vector<std::pair<std::wstring, std::wstring>> m_pairs;
};
