#include "zeftlayermanager/zeftlayerexceptionspage.h"

#include <QPalette>
#include <QVBoxLayout>

#include "host/dbclasses.h"
#include "suite/wybase.h"
#include "zeftlayermanager/grid/zeftgridctrl.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"
#include "zeftlayermanager/zeftruleexception.h"

namespace {
QString prompt(int number) { return QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", number)); }
}  // namespace

ZEFTLayerExceptionsPage::ZEFTLayerExceptionsPage(LayerStandardData* data) : m_pData(data)
{
    ZEFT_GUARD_VOID("ZEFTLayerExceptionsPage::ZEFTLayerExceptionsPage", {
        setObjectName(zeftControlName(IDD_LAYER_EXCEPTIONS_PAGE));
        const ZEFTDialogUnits du(this);
        m_grid = new ZEFTGridCtrl(this);
        m_grid->setObjectName(zeftControlName(IDC_GRID_EXCEPTIONS));
        m_grid->setMinimumSize(du.controlSize(IDD_LAYER_EXCEPTIONS_PAGE, IDC_GRID_EXCEPTIONS));
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(du.x(7), du.y(7), du.x(7), du.y(3));
        layout->addWidget(m_grid);

        CWyToolsResOverride resources;
        const std::wstring viewport = AcDbViewport::desc()->name();
        for (ZEFTEntityClassInfo& info : m_pData->entityClasses) {
            if (QString::fromStdWString(info.className).compare(QString::fromStdWString(viewport),
                                                                Qt::CaseInsensitive) != 0)
                continue;
            info.displayName = zeftDisplayText(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17720));
            info.domain = WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17719);
            info.appName = L"Beltrix";
        }
    });
}

bool ZEFTLayerExceptionsPage::OnInitDialog()
{
    ZEFT_GUARD("ZEFTLayerExceptionsPage::OnInitDialog", true, {
        WyPrompts::setDialogAndControlText(this, IDD_LAYER_EXCEPTIONS_PAGE, L"ZEFTLAYERMANAGER");
        m_grid->SetBkColor(palette().color(QPalette::Button));
        InitExceptionsGrid();
        return true;
    });
}

void ZEFTLayerExceptionsPage::InitExceptionsGrid()
{
    ZEFT_GUARD_VOID("ZEFTLayerExceptionsPage::InitExceptionsGrid", {
        const ZEFTRuleException* exception = m_pData->exception;
        const int pairs = exception ? exception->getPairsNumber() : 0;
        m_grid->SetUpList(m_pData, {prompt(17708), prompt(17710)}, {2.0 / 3.0, 1.0 / 3.0}, pairs + 2);
        m_grid->SetColumnEditor(0, ZEFTGridCtrl::Editor::ClassTree);
        for (int i = 0; i < pairs; ++i) {
            std::wstring className, layer;
            exception->getPair(unsigned(i), className, layer);
            std::wstring display = ZEFTRxClassInfo::GetEntityDisplayName(m_pData->entityClasses, className);
            if (display.empty()) display = className;
            m_grid->SetItemText(i + 1, 0, QString::fromStdWString(display));
            m_grid->SetItemText(i + 1, 1, QString::fromStdWString(layer));
        }
        m_grid->SetModified(false);
    });
}

void ZEFTLayerExceptionsPage::UpdateExceptionsFromGrid()
{
    ZEFT_GUARD_VOID("ZEFTLayerExceptionsPage::UpdateExceptionsFromGrid", {
        // A drawing without an exception list gets one when a pair is typed.
        if (!m_pData->exception && m_grid->GetRowCount() <= 2) return;
        if (!m_pData->exception) m_pData->exception = new ZEFTRuleException;
        ZEFTRuleException* exception = m_pData->exception;
        exception->removeAllPairs();
        for (int row = 1; row <= m_grid->GetRowCount() - 2; ++row) {
            const std::wstring shown = m_grid->GetItemText(row, 0).toStdWString();
            const std::wstring layer = m_grid->GetItemText(row, 1).toStdWString();
            std::vector<std::wstring> classNames = m_pData->classNamesOf(shown);
            // A class the list does not know is shown, and kept, under its own name.
            if (classNames.empty()) classNames.push_back(shown);
            for (const std::wstring& className : classNames)
                if (!className.empty() && !layer.empty()) exception->addPair(className, layer);
        }
    });
}

bool ZEFTLayerExceptionsPage::OnKillActive()
{
    ZEFT_GUARD("ZEFTLayerExceptionsPage::OnKillActive", true, {
        UpdateExceptionsFromGrid();
        return true;
    });
}
