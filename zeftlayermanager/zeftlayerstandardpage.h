// The "Standard" page of the layer standard editor: the standard's name and
// its three rules, each shown as a row of field names over a row of values.
// Saving the standard to a ".std" file starts here.
#pragma once

#include <string>
#include <vector>

#include "zeftlayermanager/rulefield.h"
#include "zeftlayermanager/zeftpropertypage.h"

class QLineEdit;
class ZEFTGridCtrl;
struct LayerStandardData;

class ZEFTLayerStandardPage : public ZEFTPropertyPage {
    Q_OBJECT

public:
    explicit ZEFTLayerStandardPage(LayerStandardData* data);

    void InitDataMembers();
    bool OnInitDialog() override;
    void InitControls();
    void InitGrid(ZEFTGridCtrl& grid, const std::vector<RuleField>& rule);
    void UpdateRulesFromGrid(const ZEFTGridCtrl& grid, std::vector<RuleField>& rule);
    void UpdateDataFromGrid();
    // Writes the standard to path; false, after saying why, when it could not.
    bool SaveFile(const std::wstring& path);
    // Asks where to save and saves; false keeps the sheet open.
    bool OnApply() override;

    ZEFTGridCtrl* GetModelGrid() const { return m_gridModel; }
    ZEFTGridCtrl* GetDraftGrid() const { return m_gridDraft; }
    ZEFTGridCtrl* GetDocGrid() const { return m_gridDoc; }
    QLineEdit* GetNameEdit() const { return m_editName; }

private:
    LayerStandardData* m_pData;
    ZEFTGridCtrl* m_gridModel = nullptr;
    ZEFTGridCtrl* m_gridDraft = nullptr;
    ZEFTGridCtrl* m_gridDoc = nullptr;
    QLineEdit* m_editName = nullptr;
    std::vector<std::wstring> m_functionNames;
    std::vector<std::wstring> m_functionHelps;
};
