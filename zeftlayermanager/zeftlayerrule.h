// The layer rule object: the ordered fields that compose a layer name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/dbobject.h"
#include "zeftlayermanager/rulefield.h"

class ZEFT_LM_EXPORT ZEFTLayerRule : public AcDbObject {
public:
    ACRX_DECLARE_MEMBERS(ZEFTLayerRule);

    static constexpr std::uint16_t kCurrentVersion = 2;

    ZEFTLayerRule();
    ~ZEFTLayerRule() override;

    // Clears `fields` and fills it with copies of the rule's fields in order.
    void getFields(std::vector<RuleField>& fields) const;
    // Appends one field; a rule is otherwise rebuilt as a new object.
    void addRule(const RuleField& field);

    Acad::ErrorStatus dwgInFields(AcDbDwgFiler* filer) override;
    Acad::ErrorStatus dwgOutFields(AcDbDwgFiler* filer) const override;
    Acad::ErrorStatus dxfInFields(AcDbDxfFiler* filer) override;
    Acad::ErrorStatus dxfOutFields(AcDbDxfFiler* filer) const override;
    bool filesItself() const override { return true; }

private:
    std::vector<RuleField> m_fields;
};
