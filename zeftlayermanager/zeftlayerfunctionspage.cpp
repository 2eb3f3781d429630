#include "zeftlayermanager/zeftlayerfunctionspage.h"

#include <QListWidget>
#include <QPalette>
#include <algorithm>

#include "suite/wybase.h"
#include "zeftlayermanager/grid/zeftgridctrl.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {
QString prompt(int number) { return QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", number)); }
}  // namespace

ZEFTLayerFunctionsPage::ZEFTLayerFunctionsPage(LayerStandardData* data)
    : ZEFTLayerListPage(data, IDD_LAYER_FUNCTIONS_PAGE, IDC_LIST_FUNC_NAMES, IDC_GRID_FUNC_VALUES,
                        IDC_BUT_LAYER_ADD_FUNC, IDC_BUT_LAYER_DEL_FUNC)
{
}

bool ZEFTLayerFunctionsPage::OnInitDialog()
{
    ZEFT_GUARD("ZEFTLayerFunctionsPage::OnInitDialog", true, {
        WyPrompts::setDialogAndControlText(this, IDD_LAYER_FUNCTIONS_PAGE, L"ZEFTLAYERMANAGER");
        m_grid->SetBkColor(palette().color(QPalette::Button));
        InitControls();
        return true;
    });
}

void ZEFTLayerFunctionsPage::InitControls()
{
    ZEFT_GUARD_VOID("ZEFTLayerFunctionsPage::InitControls", {
        InitFuncNamesList();
        InitFuncValuesGrid(0);
    });
}

void ZEFTLayerFunctionsPage::InitFuncNamesList()
{
    ZEFT_GUARD_VOID("ZEFTLayerFunctionsPage::InitFuncNamesList", {
        std::vector<std::wstring> names;
        ZEFTLayerManagerUtil::getNamesFromFunctions(m_pData->functions, names);
        fillList(17706, names);
    });
}

void ZEFTLayerFunctionsPage::InitFuncValuesGrid(int index)
{
    ZEFT_GUARD_VOID("ZEFTLayerFunctionsPage::InitFuncValuesGrid", {
        const auto& functions = m_pData->functions;
        if (functions.empty()) return;
        if (index < 0 || std::size_t(index) >= functions.size()) index = 0;
        m_nCurrentIndex = index;
        const ZEFTRuleFunction* function = functions[std::size_t(index)];

        const int pairs = function->getPairsNumber();
        m_grid->SetUpList(m_pData, {prompt(17708), prompt(17709)}, {2.0 / 3.0, 1.0 / 3.0}, pairs + 3);
        m_grid->SetColumnEditor(0, ZEFTGridCtrl::Editor::ClassTree);

        m_grid->SetItemText(1, 0, prompt(17712));
        m_grid->SetItemState(1, 0, ZEFTGridCtrl::GVIS_READONLY);
        m_grid->SetItemText(1, 1, QString::fromStdWString(function->getDefaultValue()));

        // Several classes can share a display name: its row shows once, with
        // the first value met.
        std::vector<std::wstring> shown;
        int row = 2;
        for (int i = 0; i < pairs; ++i) {
            std::wstring key, value;
            function->getPair(unsigned(i), key, value);
            const std::wstring display = ZEFTRxClassInfo::GetEntityDisplayName(m_pData->entityClasses, key);
            if (display.empty() || std::find(shown.begin(), shown.end(), display) != shown.end()) continue;
            shown.push_back(display);
            m_grid->SetItemText(row, 0, QString::fromStdWString(display));
            m_grid->SetItemText(row, 1, QString::fromStdWString(value));
            ++row;
        }
        m_grid->SetRowCount(row + 1);  // the empty row that takes a new entry
        m_grid->SetModified(false);
        enableDelete(int(functions.size()));
        m_list->setFocus();
    });
}

void ZEFTLayerFunctionsPage::UpdateFuncValuedFromGrid(int index)
{
    ZEFT_GUARD_VOID("ZEFTLayerFunctionsPage::UpdateFuncValuedFromGrid", {
        if (index < 0 || std::size_t(index) >= m_pData->functions.size()) return;
        ZEFTRuleFunction* function = m_pData->functions[std::size_t(index)];
        function->removeAllPairs();
        function->setName(labelOf(index).toStdWString());
        function->setDefaultValue(m_grid->GetItemText(1, 1).toStdWString());
        // The last row is the empty one that grows the list: never read.
        for (int row = 2; row <= m_grid->GetRowCount() - 2; ++row) {
            const std::wstring value = m_grid->GetItemText(row, 1).toStdWString();
            for (const std::wstring& className : m_pData->classNamesOf(m_grid->GetItemText(row, 0).toStdWString()))
                if (!className.empty() && !value.empty()) function->addPair(className, value);
        }
    });
}

bool ZEFTLayerFunctionsPage::OnKillActive()
{
    ZEFT_GUARD("ZEFTLayerFunctionsPage::OnKillActive", true, {
        UpdateFuncValuedFromGrid(m_nCurrentIndex);
        return true;
    });
}

void ZEFTLayerFunctionsPage::OnItemChangedList()
{
    ZEFT_GUARD_VOID("ZEFTLayerFunctionsPage::OnItemChangedList", { selectionChanged(); });
}

bool ZEFTLayerFunctionsPage::OnEndEditFuncName(int item, const QString& label)
{
    ZEFT_GUARD("ZEFTLayerFunctionsPage::OnEndEditFuncName", false, { return acceptLabel(item, label); });
}

void ZEFTLayerFunctionsPage::OnBnClickedButLayerAddFunc()
{
    ZEFT_GUARD_VOID("ZEFTLayerFunctionsPage::OnBnClickedButLayerAddFunc", {
        auto* function = new ZEFTRuleFunction;
        UpdateFuncValuedFromGrid(m_nCurrentIndex);
        const std::wstring name = freeName(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17706));
        function->setName(name);
        m_pData->functions.push_back(function);
        showAppended(name);
    });
}

void ZEFTLayerFunctionsPage::OnBnClickedButLayerDelFunc()
{
    ZEFT_GUARD_VOID("ZEFTLayerFunctionsPage::OnBnClickedButLayerDelFunc", { deleteCurrent(); });
}

int ZEFTLayerFunctionsPage::entryCount() const { return int(m_pData->functions.size()); }

void ZEFTLayerFunctionsPage::eraseEntry(int index)
{
    delete m_pData->functions[std::size_t(index)];
    m_pData->functions.erase(m_pData->functions.begin() + index);
}
