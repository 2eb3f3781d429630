#include "zeftlayermanager/zeftlayerlistpage.h"

#include <QHBoxLayout>
#include <algorithm>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

#include "suite/wybase.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/grid/zeftgridctrl.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"

// Label edits of the names list: the page decides whether the new label stands.
class ZEFTLabelEditDelegate : public QStyledItemDelegate {
public:
    explicit ZEFTLabelEditDelegate(ZEFTLayerListPage* page) : QStyledItemDelegate(page), page_(page) {}
    void setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const override
    {
        ZEFT_GUARD_VOID("ZEFTLabelEditDelegate::setModelData", {
            const auto* edit = qobject_cast<QLineEdit*>(editor);
            if (!edit || edit->text() == index.data().toString()) return;
            if (page_->OnEndEditName(index.row(), edit->text())) model->setData(index, edit->text());
        });
    }

private:
    ZEFTLayerListPage* page_;
};

ZEFTLayerListPage::ZEFTLayerListPage(LayerStandardData* data, int templateId, int listId, int gridId, int addId,
                                     int deleteId)
    : m_pData(data), m_templateId(templateId)
{
    setObjectName(zeftControlName(templateId));
    const ZEFTDialogUnits du(this);
    m_list = new QListWidget(this);
    m_list->setObjectName(zeftControlName(listId));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                            QAbstractItemView::SelectedClicked);
    m_list->setItemDelegate(new ZEFTLabelEditDelegate(this));
    m_list->setMinimumSize(du.controlSize(templateId, listId));
    m_list->setMaximumWidth(du.x(zeftDialogControl(templateId, listId)->w) * 3 / 2);
    m_grid = new ZEFTGridCtrl(this);
    m_grid->setObjectName(zeftControlName(gridId));
    m_grid->setMinimumSize(du.controlSize(templateId, gridId));
    m_add = new QPushButton(this);
    m_add->setObjectName(zeftControlName(addId));
    m_delete = new QPushButton(this);
    m_delete->setObjectName(zeftControlName(deleteId));
    for (QPushButton* b : {m_add, m_delete}) {
        b->setMinimumWidth(du.x(zeftDialogControl(templateId, addId)->w));
        b->setAutoDefault(false);
    }

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_add);
    buttons->addWidget(m_delete);
    buttons->addStretch(1);
    auto* left = new QVBoxLayout;
    left->addWidget(m_list, 1);
    left->addLayout(buttons);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(du.x(7), du.y(7), du.x(7), du.y(3));
    layout->setSpacing(du.x(18));
    layout->addLayout(left, 117);
    layout->addWidget(m_grid, zeftDialogControl(templateId, gridId)->w);

    connect(m_list, &QListWidget::currentRowChanged, this, [this] { OnItemChangedList(); });
    connect(m_add, &QPushButton::clicked, this, [this] { OnBnClickedAdd(); });
    connect(m_delete, &QPushButton::clicked, this, [this] { OnBnClickedDelete(); });
}

bool ZEFTLayerListPage::acceptLabel(int item, const QString& label) const
{
    ZEFT_GUARD("ZEFTLayerListPage::acceptLabel", false, {
        if (label.isEmpty()) return false;
        for (int i = 0; i < m_list->count(); ++i) {
            if (i != item && labelOf(i).compare(label, Qt::CaseInsensitive) == 0) {
                ZEFTUITools::MessageBoxW(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17718), MB_ICONEXCLAMATION,
                                         const_cast<ZEFTLayerListPage*>(this));
                return false;
            }
        }
        return true;
    });
}

std::wstring ZEFTLayerListPage::freeName(const std::wstring& base) const
{
    for (int n = 1;; ++n) {
        const QString candidate = n == 1 ? QString::fromStdWString(base)
                                         : QStringLiteral("%1 %2").arg(QString::fromStdWString(base)).arg(n);
        bool taken = false;
        for (int i = 0; i < m_list->count() && !taken; ++i) taken = labelOf(i) == candidate;
        if (!taken) return candidate.toStdWString();
    }
}

void ZEFTLayerListPage::fillList(int headerPrompt, const std::vector<std::wstring>& names)
{
    const QSignalBlocker quiet(m_list);
    m_list->clear();
    m_list->setAccessibleName(QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", headerPrompt)));
    for (const std::wstring& name : names) {
        auto* item = new QListWidgetItem(QString::fromStdWString(name), m_list);
        item->setFlags(item->flags() | Qt::ItemIsEditable);
    }
    if (m_list->count() > 0) m_list->setCurrentRow(0);
}

void ZEFTLayerListPage::appendListItem(const std::wstring& name)
{
    auto* item = new QListWidgetItem(QString::fromStdWString(name), m_list);
    item->setFlags(item->flags() | Qt::ItemIsEditable);
    m_list->setCurrentItem(item);
    m_list->scrollToItem(item);
}

QString ZEFTLayerListPage::labelOf(int item) const
{
    const QListWidgetItem* it = m_list->item(item);
    return it ? it->text() : QString();
}

void ZEFTLayerListPage::enableDelete(int entries) { m_delete->setEnabled(entries >= 2); }

bool ZEFTLayerListPage::confirmDelete() const
{
    return ZEFTUITools::MessageBoxW(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17716), MB_YESNO | MB_ICONQUESTION,
                                    const_cast<ZEFTLayerListPage*>(this)) == IDYES;
}

void ZEFTLayerListPage::selectionChanged()
{
    const int selected = m_list->currentRow();
    if (selected < 0 || selected == m_nCurrentIndex || m_bDeleting) return;
    storeEntry(m_nCurrentIndex);
    showEntry(selected);
    m_list->setFocus();
}

void ZEFTLayerListPage::deleteCurrent()
{
    m_bDeleting = true;
    const int index = m_nCurrentIndex;
    if (entryCount() >= 2 && index >= 0 && index < entryCount() && confirmDelete()) {
        delete m_list->takeItem(index);
        eraseEntry(index);
        showEntry(std::min(index, entryCount() - 1));
    }
    m_list->setFocus();
    m_list->setCurrentRow(m_nCurrentIndex);
    m_bDeleting = false;
}

void ZEFTLayerListPage::showAppended(const std::wstring& name)
{
    showEntry(entryCount() - 1);
    appendListItem(name);
    m_list->setFocus();
}
