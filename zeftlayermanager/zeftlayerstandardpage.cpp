#include "zeftlayermanager/zeftlayerstandardpage.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QScrollBar>
#include <QVBoxLayout>

#include "host/document.h"
#include "suite/wybase.h"
#include "suite/zeftregistrytools.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/grid/zeftgridctrl.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"
#include "zeftlayermanager/zeftfilerw.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftruleevaluator.h"

namespace {

// Tells the user why the file could not be saved.
void saveFailed(QWidget* page, const std::wstring& path, const std::string& reason)
{
    const QString text = QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17740))
                             .arg(QString::fromStdWString(path), QString::fromLocal8Bit(reason.c_str()));
    ZEFTUITools::MessageBoxW(text.toStdWString(), MB_ICONERROR, page);
}

}  // namespace

ZEFTLayerStandardPage::ZEFTLayerStandardPage(LayerStandardData* data) : m_pData(data)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardPage::ZEFTLayerStandardPage", {
        setObjectName(zeftControlName(IDD_LAYER_STANDARD_PAGE));
        const ZEFTDialogUnits du(this);
        auto control = [&](QWidget* w, int id) {
            w->setObjectName(zeftControlName(id));
            return w;
        };
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(du.x(5), du.y(13), du.x(5), du.y(5));
        layout->setSpacing(du.y(2));

        auto* nameRow = new QHBoxLayout;
        nameRow->addSpacing(du.x(14));
        auto* nameLabel = static_cast<QLabel*>(control(new QLabel(this), IDC_STATIC_STANDARD_NAME));
        nameLabel->setMinimumWidth(du.x(71));
        nameRow->addWidget(nameLabel);
        nameRow->addSpacing(du.x(10));
        m_editName = static_cast<QLineEdit*>(control(new QLineEdit(this), IDC_EDIT_STANDARD_NAME));
        m_editName->setMinimumWidth(du.x(138));
        nameLabel->setBuddy(m_editName);
        nameRow->addWidget(m_editName, 138);
        nameRow->addStretch(131);
        layout->addLayout(nameRow);

        const struct {
            int label, grid;
            ZEFTGridCtrl** member;
        } rules[] = {{IDC_STATIC_MODEL_RULE, IDC_GRID_MODEL_RULE, &m_gridModel},
                     {IDC_STATIC_DRAFT_RULE, IDC_GRID_DRAFT_RULE, &m_gridDraft},
                     {IDC_STATIC_DOC_RULE, IDC_GRID_DOC_RULE, &m_gridDoc}};
        for (const auto& rule : rules) {
            layout->addSpacing(du.y(11));
            auto* label = static_cast<QLabel*>(control(new QLabel(this), rule.label));
            label->setIndent(du.x(8));
            layout->addWidget(label);
            auto* grid = new ZEFTGridCtrl(this);
            control(grid, rule.grid);
            grid->setMinimumWidth(du.x(365));
            grid->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
            // Both rows, and the scroll bar that many fields bring.
            const int rows = 2 * grid->verticalHeader()->defaultSectionSize() +
                             grid->horizontalScrollBar()->sizeHint().height() + 2 * grid->frameWidth();
            grid->setFixedHeight(std::max(du.y(26), rows));
            label->setBuddy(grid);
            layout->addWidget(grid);
            *rule.member = grid;
        }
        layout->addStretch(1);
        setMinimumSize(du.templateSize(IDD_LAYER_STANDARD_PAGE));
        InitDataMembers();
    });
}

void ZEFTLayerStandardPage::InitDataMembers()
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardPage::InitDataMembers", {
        ZEFTLayerManagerUtil::getAllFunctionNames(acdbWorkingDatabase(), m_functionNames);
        ZEFTLayerManagerUtil::getFunctionHelpStrings(m_functionNames, m_functionHelps);
    });
}

bool ZEFTLayerStandardPage::OnInitDialog()
{
    ZEFT_GUARD("ZEFTLayerStandardPage::OnInitDialog", true, {
        WyPrompts::setDialogAndControlText(this, IDD_LAYER_STANDARD_PAGE, L"ZEFTLAYERMANAGER");
        for (ZEFTGridCtrl* grid : {m_gridModel, m_gridDraft, m_gridDoc}) grid->SetBkColor(palette().color(QPalette::Button));
        InitControls();
        return true;
    });
}

void ZEFTLayerStandardPage::InitControls()
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardPage::InitControls", {
        if (!m_pData) return;
        InitGrid(*m_gridModel, m_pData->modelRule);
        InitGrid(*m_gridDraft, m_pData->draftRule);
        InitGrid(*m_gridDoc, m_pData->docRule);
        m_editName->setText(QString::fromStdWString(m_pData->name));
    });
}

void ZEFTLayerStandardPage::InitGrid(ZEFTGridCtrl& grid, const std::vector<RuleField>& rule)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardPage::InitGrid", {
        grid.SetLayerStandardData(m_pData);
        grid.SetEditable(true);
        grid.SetFunctionNames(m_functionNames, m_functionHelps);
        grid.SetRowEditor(0, ZEFTGridCtrl::Editor::EnumNames);
        grid.SetRowEditor(1, ZEFTGridCtrl::Editor::EnumValues);
        grid.SetGrowByColumns(true);
        grid.SetRowCount(2);
        grid.SetColumnCount(int(rule.size()) + 1);
        grid.SetFixedRowCount(0);
        grid.SetFixedColumnCount(0);
        // The value of the empty last field opens once the field has a name.
        grid.SetItemState(1, int(rule.size()), ZEFTGridCtrl::GVIS_READONLY);
        for (std::size_t i = 0; i < rule.size(); ++i) {
            grid.SetItemText(0, int(i), QString::fromStdWString(rule[i].name));
            grid.SetItemText(1, int(i), QString::fromStdWString(rule[i].value));
            grid.AutoSizeColumn(int(i));
        }
        grid.SetModified(false);
    });
}

void ZEFTLayerStandardPage::UpdateRulesFromGrid(const ZEFTGridCtrl& grid, std::vector<RuleField>& rule)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardPage::UpdateRulesFromGrid", {
        rule.clear();
        for (int c = 0; c < grid.GetColumnCount(); ++c) {
            RuleField field;
            field.name = grid.GetItemText(0, c).toStdWString();
            field.value = grid.GetItemText(1, c).toStdWString();
            field.isFunction = ZEFTRuleEvaluator::isFunction(field.value);
            // A field without a name is no field, whatever its value.
            if (!field.name.empty()) rule.push_back(field);
        }
    });
}

void ZEFTLayerStandardPage::UpdateDataFromGrid()
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardPage::UpdateDataFromGrid", {
        UpdateRulesFromGrid(*m_gridModel, m_pData->modelRule);
        UpdateRulesFromGrid(*m_gridDraft, m_pData->draftRule);
        UpdateRulesFromGrid(*m_gridDoc, m_pData->docRule);
    });
}

bool ZEFTLayerStandardPage::SaveFile(const std::wstring& path)
{
    ZEFT_GUARD("ZEFTLayerStandardPage::SaveFile", false, {
        const std::wstring name = m_editName->text().toStdWString();
        UpdateDataFromGrid();
        ZEFTFileRW file;
        file.setName(name);
        file.setRules(m_pData->modelRule, m_pData->draftRule, m_pData->docRule);
        file.setFunctions(m_pData->functions);
        file.setEnums(m_pData->enums);
        file.setException(m_pData->exception);
        file.setSeparator(m_pData->separator);

        if (const std::string why = file.writeStandardReplacing(path); !why.empty()) {
            saveFailed(this, path, why);
            return false;
        }
        return true;
    });
}

bool ZEFTLayerStandardPage::OnApply()
{
    ZEFT_GUARD("ZEFTLayerStandardPage::OnApply", false, {
        std::wstring folder;
        ZEFTRegistryTools::GetLayerStandardsPath(folder);
        QFileDialog dialog(this);
        dialog.setObjectName(QStringLiteral("saveStandardDialog"));
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setFileMode(QFileDialog::AnyFile);
        dialog.setNameFilter(QStringLiteral("Layer standard (*.std)"));
        dialog.setDefaultSuffix(QStringLiteral("std"));
        dialog.setDirectory(QString::fromStdWString(folder));
        dialog.selectFile(QString::fromStdWString(folder + m_pData->fileName));
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return false;
        if (!SaveFile(dialog.selectedFiles().front().toStdWString())) return false;
        ZEFTUITools::MessageBoxW(zeftDisplayText(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17711)),
                                 MB_ICONINFORMATION, this);
        return true;
    });
}
