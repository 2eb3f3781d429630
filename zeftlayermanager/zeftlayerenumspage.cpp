#include "zeftlayermanager/zeftlayerenumspage.h"

#include <QListWidget>
#include <QPalette>
#include <algorithm>

#include "suite/wybase.h"
#include "zeftlayermanager/grid/zeftgridctrl.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftruleenum.h"

ZEFTLayerEnumsPage::ZEFTLayerEnumsPage(LayerStandardData* data)
    : ZEFTLayerListPage(data, IDD_LAYER_ENUMS_PAGE, IDC_LIST_ENUM_NAMES, IDC_GRID_ENUM_VALUES, IDC_BUT_LAYER_ADD_ENUM,
                        IDC_BUT_LAYER_DEL_ENUM)
{
}

bool ZEFTLayerEnumsPage::OnInitDialog()
{
    ZEFT_GUARD("ZEFTLayerEnumsPage::OnInitDialog", true, {
        WyPrompts::setDialogAndControlText(this, IDD_LAYER_ENUMS_PAGE, L"ZEFTLAYERMANAGER");
        m_grid->SetBkColor(palette().color(QPalette::Button));
        InitControls();
        return true;
    });
}

void ZEFTLayerEnumsPage::InitControls()
{
    ZEFT_GUARD_VOID("ZEFTLayerEnumsPage::InitControls", {
        InitEnumNamesList();
        InitEnumValuesGrid(0);
    });
}

void ZEFTLayerEnumsPage::InitEnumNamesList()
{
    ZEFT_GUARD_VOID("ZEFTLayerEnumsPage::InitEnumNamesList", {
        std::vector<std::wstring> names;
        ZEFTLayerManagerUtil::getNamesFromEnums(m_pData->enums, names);
        fillList(17705, names);
    });
}

void ZEFTLayerEnumsPage::InitEnumValuesGrid(int index)
{
    ZEFT_GUARD_VOID("ZEFTLayerEnumsPage::InitEnumValuesGrid", {
        const auto& enums = m_pData->enums;
        if (enums.empty()) return;
        if (index < 0 || std::size_t(index) >= enums.size()) index = 0;
        m_nCurrentIndex = index;
        const ZEFTRuleEnum* ruleEnum = enums[std::size_t(index)];

        const int values = ruleEnum->getValuesNumber();
        m_grid->SetUpList(m_pData, {QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17707))}, {1.0},
                          values + 2);
        for (int i = 0; i < values; ++i)
            m_grid->SetItemText(i + 1, 0, QString::fromStdWString(ruleEnum->getValue(unsigned(i))));
        m_grid->SetModified(false);
        enableDelete(int(enums.size()));
        m_list->setFocus();
    });
}

void ZEFTLayerEnumsPage::UpdateEnumValuedFromGrid(int index)
{
    ZEFT_GUARD_VOID("ZEFTLayerEnumsPage::UpdateEnumValuedFromGrid", {
        if (index < 0 || std::size_t(index) >= m_pData->enums.size()) return;
        ZEFTRuleEnum* ruleEnum = m_pData->enums[std::size_t(index)];
        ruleEnum->removeAllValues();
        ruleEnum->setName(labelOf(index).toStdWString());
        // Values emptied in the middle stay, as empty values: their place in
        // the list is what the rules count on. Only an empty last row is no value.
        const int last = m_grid->GetRowCount() - 1;
        for (int row = 1; row <= last - 1; ++row) ruleEnum->addValue(m_grid->GetItemText(row, 0).toStdWString());
        if (last >= 1 && !m_grid->GetItemText(last, 0).isEmpty())
            ruleEnum->addValue(m_grid->GetItemText(last, 0).toStdWString());
    });
}

bool ZEFTLayerEnumsPage::OnKillActive()
{
    ZEFT_GUARD("ZEFTLayerEnumsPage::OnKillActive", true, {
        UpdateEnumValuedFromGrid(m_nCurrentIndex);
        return true;
    });
}

void ZEFTLayerEnumsPage::OnItemChangedList()
{
    ZEFT_GUARD_VOID("ZEFTLayerEnumsPage::OnItemChangedList", { selectionChanged(); });
}

bool ZEFTLayerEnumsPage::OnEndEditEnumName(int item, const QString& label)
{
    ZEFT_GUARD("ZEFTLayerEnumsPage::OnEndEditEnumName", false, { return acceptLabel(item, label); });
}

void ZEFTLayerEnumsPage::OnBnClickedButLayerAddEnum()
{
    ZEFT_GUARD_VOID("ZEFTLayerEnumsPage::OnBnClickedButLayerAddEnum", {
        auto* ruleEnum = new ZEFTRuleEnum;
        UpdateEnumValuedFromGrid(m_nCurrentIndex);
        const std::wstring name = freeName(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17705));
        ruleEnum->setName(name);
        m_pData->enums.push_back(ruleEnum);
        InitEnumValuesGrid(int(m_pData->enums.size()) - 1);
        appendListItem(name);
        m_list->setFocus();
    });
}

void ZEFTLayerEnumsPage::OnBnClickedButLayerDelEnum()
{
    ZEFT_GUARD_VOID("ZEFTLayerEnumsPage::OnBnClickedButLayerDelEnum", { deleteCurrent(); });
}

int ZEFTLayerEnumsPage::entryCount() const { return int(m_pData->enums.size()); }

void ZEFTLayerEnumsPage::eraseEntry(int index)
{
    delete m_pData->enums[std::size_t(index)];
    m_pData->enums.erase(m_pData->enums.begin() + index);
}
