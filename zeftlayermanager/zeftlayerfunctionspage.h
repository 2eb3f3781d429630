// The "Fonctions" page of the layer standard editor: the user functions,
// each a default value and a value per entity class.
#pragma once

#include "zeftlayermanager/zeftlayerlistpage.h"

class ZEFTLayerFunctionsPage : public ZEFTLayerListPage {
    Q_OBJECT

public:
    explicit ZEFTLayerFunctionsPage(LayerStandardData* data);

    bool OnInitDialog() override;
    bool OnKillActive() override;
    void InitControls();
    void InitFuncNamesList();
    void InitFuncValuesGrid(int index);
    void UpdateFuncValuedFromGrid(int index);
    bool OnEndEditFuncName(int item, const QString& label);
    void OnBnClickedButLayerAddFunc();
    void OnBnClickedButLayerDelFunc();

protected:
    void OnItemChangedList() override;
    int entryCount() const override;
    void storeEntry(int index) override { UpdateFuncValuedFromGrid(index); }
    void showEntry(int index) override { InitFuncValuesGrid(index); }
    void eraseEntry(int index) override;
    bool OnEndEditName(int item, const QString& label) override { return OnEndEditFuncName(item, label); }
    void OnBnClickedAdd() override { OnBnClickedButLayerAddFunc(); }
    void OnBnClickedDelete() override { OnBnClickedButLayerDelFunc(); }
};
