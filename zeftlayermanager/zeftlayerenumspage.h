// The "Champs" page of the layer standard editor: the enumerations, each a
// named list of values.
#pragma once

#include "zeftlayermanager/zeftlayerlistpage.h"

class ZEFTLayerEnumsPage : public ZEFTLayerListPage {
    Q_OBJECT

public:
    explicit ZEFTLayerEnumsPage(LayerStandardData* data);

    bool OnInitDialog() override;
    bool OnKillActive() override;
    void InitControls();
    void InitEnumNamesList();
    void InitEnumValuesGrid(int index);
    void UpdateEnumValuedFromGrid(int index);
    bool OnEndEditEnumName(int item, const QString& label);
    void OnBnClickedButLayerAddEnum();
    void OnBnClickedButLayerDelEnum();

protected:
    void OnItemChangedList() override;
    int entryCount() const override;
    void storeEntry(int index) override { UpdateEnumValuedFromGrid(index); }
    void showEntry(int index) override { InitEnumValuesGrid(index); }
    void eraseEntry(int index) override;
    bool OnEndEditName(int item, const QString& label) override { return OnEndEditEnumName(item, label); }
    void OnBnClickedAdd() override { OnBnClickedButLayerAddEnum(); }
    void OnBnClickedDelete() override { OnBnClickedButLayerDelEnum(); }
};
