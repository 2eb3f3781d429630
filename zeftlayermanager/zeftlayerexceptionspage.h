// The "Exceptions" page of the layer standard editor: entity classes put
// on a fixed layer whatever the rules say.
#pragma once

#include "zeftlayermanager/zeftpropertypage.h"

class ZEFTGridCtrl;
struct LayerStandardData;

class ZEFTLayerExceptionsPage : public ZEFTPropertyPage {
    Q_OBJECT

public:
    // Names the viewport class as the exception list shows it.
    explicit ZEFTLayerExceptionsPage(LayerStandardData* data);

    bool OnInitDialog() override;
    bool OnKillActive() override;
    void InitExceptionsGrid();
    void UpdateExceptionsFromGrid();
    ZEFTGridCtrl* GetGrid() const { return m_grid; }

private:
    LayerStandardData* m_pData;
    ZEFTGridCtrl* m_grid = nullptr;
};
