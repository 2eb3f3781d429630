#include "zeftlayermanager/grid/zeftinplaceeditors.h"

#include <QAction>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStandardItemModel>
#include <QTreeView>
#include <algorithm>
#include <map>

#include "suite/wybase.h"
#include "zeftlayermanager/grid/zeftdlgselectstring.h"
#include "zeftlayermanager/grid/zeftgridctrl.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/zeftruleenum.h"

namespace {

// The picker's button: "f(x)" drawn in the text colour, at the text's height.
QIcon pickerIcon(const QWidget* widget)
{
    const int side = widget->fontMetrics().height();
    const qreal ratio = widget->devicePixelRatioF();
    QPixmap pixmap(QSize(side * 2, side) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    QFont font = widget->font();
    font.setItalic(true);
    painter.setFont(font);
    painter.setPen(widget->palette().color(QPalette::Text));
    painter.drawText(QRect(0, 0, side * 2, side), Qt::AlignCenter, QStringLiteral("f(x)"));
    return QIcon(pixmap);
}

void addPickerButton(QLineEdit* edit, const std::function<void()>& pick)
{
    QAction* action = edit->addAction(pickerIcon(edit), QLineEdit::TrailingPosition);
    action->setObjectName(QStringLiteral("pickFunction"));
    action->setToolTip(QStringLiteral("F4"));
    QObject::connect(action, &QAction::triggered, edit, pick);
}

bool isPickKey(const QKeyEvent* event) { return event->key() == Qt::Key_F4 && event->modifiers() == Qt::NoModifier; }

}  // namespace

ZEFTInPlaceEdit::ZEFTInPlaceEdit(ZEFTPicker picker, QWidget* parent) : QLineEdit(parent), picker_(std::move(picker))
{
    setFrame(false);
    if (picker_) addPickerButton(this, [this] { pick(); });
}

void ZEFTInPlaceEdit::pick()
{
    ZEFT_GUARD_VOID("ZEFTInPlaceEdit::pick", {
        if (!picker_) return;
        const QString text = picker_();
        if (text.isNull()) return;
        setText(text);
        emit picked();
    });
}

void ZEFTInPlaceEdit::keyPressEvent(QKeyEvent* event)
{
    if (picker_ && isPickKey(event)) return pick();
    QLineEdit::keyPressEvent(event);
}

ZEFTInPlaceList::ZEFTInPlaceList(const QStringList& items, ZEFTPicker picker, QWidget* parent)
    : QComboBox(parent), picker_(std::move(picker))
{
    setEditable(true);
    setInsertPolicy(QComboBox::NoInsert);
    setFrame(false);
    addItems(items);
    if (picker_) addPickerButton(lineEdit(), [this] { pick(); });
}

void ZEFTInPlaceList::pick()
{
    ZEFT_GUARD_VOID("ZEFTInPlaceList::pick", {
        if (!picker_) return;
        const QString text = picker_();
        if (text.isNull()) return;
        setEditText(text);
        emit picked();
    });
}

void ZEFTInPlaceList::keyPressEvent(QKeyEvent* event)
{
    if (picker_ && isPickKey(event)) return pick();
    QComboBox::keyPressEvent(event);
}

ZEFTTreeCombo::ZEFTTreeCombo(const std::vector<ZEFTEntityClassInfo>& classes, QWidget* parent) : QComboBox(parent)
{
    model_ = new QStandardItemModel(this);
    std::map<QString, QStandardItem*> branches;  // "app" and "app\x1fgroup"
    auto branch = [&](QStandardItem* parentItem, const QString& key, const QString& text) {
        QStandardItem*& item = branches[key];
        if (!item) {
            item = new QStandardItem(text);
            item->setFlags(Qt::ItemIsEnabled);
            QFont bold = font();
            bold.setBold(true);
            item->setFont(bold);
            parentItem->appendRow(item);
        }
        return item;
    };
    std::map<QStandardItem*, std::vector<QString>> shown;
    for (const ZEFTEntityClassInfo& info : classes) {
        const QString app = QString::fromStdWString(info.appName);
        const QString group = QString::fromStdWString(zeftDisplayText(info.domain));
        const QString name = QString::fromStdWString(info.displayName);
        if (name.isEmpty()) continue;
        QStandardItem* parentItem = branch(model_->invisibleRootItem(), app, app);
        if (!group.isEmpty()) parentItem = branch(parentItem, app + QChar(0x1f) + group, group);
        // Classes sharing a display name are one choice.
        std::vector<QString>& names = shown[parentItem];
        if (std::find(names.begin(), names.end(), name) != names.end()) continue;
        names.push_back(name);
        auto* leaf = new QStandardItem(name);
        leaf->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        parentItem->appendRow(leaf);
    }
    setModel(model_);
    tree_ = new QTreeView(this);
    tree_->setHeaderHidden(true);
    tree_->setRootIsDecorated(true);
    tree_->setUniformRowHeights(true);
    tree_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    setView(tree_);
    setMaxVisibleItems(16);
    tree_->viewport()->installEventFilter(this);
    connect(this, qOverload<int>(&QComboBox::activated), this, [this] { selectIndex(tree_->currentIndex()); });
}

void ZEFTTreeCombo::setText(const QString& text)
{
    chosen_ = text;
    setPlaceholderText(text);
    if (!choose(text)) setCurrentIndex(-1);
}

bool ZEFTTreeCombo::choose(const QString& displayName)
{
    const QModelIndexList found =
        model_->match(model_->index(0, 0), Qt::DisplayRole, displayName, 1, Qt::MatchExactly | Qt::MatchRecursive);
    for (const QModelIndex& index : found) {
        if (model_->hasChildren(index)) continue;
        selectIndex(index);
        return true;
    }
    return false;
}

void ZEFTTreeCombo::selectIndex(const QModelIndex& index)
{
    if (!index.isValid() || model_->hasChildren(index)) return;
    // The combo addresses rows under its root: make the leaf's parent the
    // root for the time of the choice.
    setRootModelIndex(index.parent());
    setCurrentIndex(index.row());
    setRootModelIndex(QModelIndex());
    tree_->setCurrentIndex(index);
    const QString text = index.data().toString();
    if (text == chosen_ && currentIndex() >= 0) return;
    chosen_ = text;
    emit chosen();
}

void ZEFTTreeCombo::showPopup()
{
    tree_->expandAll();
    QComboBox::showPopup();
    const QModelIndexList found =
        model_->match(model_->index(0, 0), Qt::DisplayRole, chosen_, 1, Qt::MatchExactly | Qt::MatchRecursive);
    if (!found.isEmpty()) {
        tree_->setCurrentIndex(found.front());
        tree_->scrollTo(found.front());
    }
}

bool ZEFTTreeCombo::eventFilter(QObject* watched, QEvent* event)
{
    // A click on an application or a group opens or closes it instead of
    // choosing it.
    if (watched == tree_->viewport() && event->type() == QEvent::MouseButtonRelease) {
        const QModelIndex index = tree_->indexAt(static_cast<QMouseEvent*>(event)->position().toPoint());
        if (index.isValid() && model_->hasChildren(index)) {
            tree_->setExpanded(index, !tree_->isExpanded(index));
            return true;
        }
    }
    return QComboBox::eventFilter(watched, event);
}

ZEFTGridDelegate::ZEFTGridDelegate(ZEFTGridCtrl* grid) : QStyledItemDelegate(grid), grid_(grid) {}

QWidget* ZEFTGridDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem&, const QModelIndex& index) const
{
    ZEFT_GUARD("ZEFTGridDelegate::createEditor", static_cast<QWidget*>(nullptr), {
        const int row = grid_->gridRow(index), column = grid_->gridColumn(index);
        const LayerStandardData* data = grid_->GetLayerStandardData();
        auto* self = const_cast<ZEFTGridDelegate*>(this);
        auto done = [self](QWidget* editor) {
            emit self->commitData(editor);
            // A choice ends the edit where it is; only Enter moves down.
            emit self->closeEditor(editor, QAbstractItemDelegate::NoHint);
        };
        const ZEFTGridCtrl::Editor kind = grid_->GetCellEditor(row, column);
        if (kind == ZEFTGridCtrl::Editor::ClassTree && data) {
            auto* tree = new ZEFTTreeCombo(data->entityClasses, parent);
            connect(tree, &ZEFTTreeCombo::chosen, tree, [tree, done] { done(tree); });
            return tree;
        }
        QStringList items;
        if (kind == ZEFTGridCtrl::Editor::EnumNames && data) {
            for (const ZEFTRuleEnum* e : data->enums) items << QString::fromStdWString(e->getName());
        } else if (kind == ZEFTGridCtrl::Editor::EnumValues && data) {
            for (const std::wstring& v : data->enumValues(grid_->GetItemText(0, column).toStdWString()))
                items << QString::fromStdWString(v);
        }
        ZEFTPicker picker;
        if (grid_->offersPicker(row, column)) {
            ZEFTGridCtrl* grid = grid_;
            picker = [grid]() -> QString {
                ZEFTDlgSelectString dialog(grid->functionNames_, grid->functionHelps_, grid);
                if (dialog.exec() != QDialog::Accepted || dialog.GetSelectedIndex() < 0) return QString();
                return QStringLiteral("=%1()").arg(dialog.GetSelectedString());
            };
        }
        if (items.isEmpty()) {
            auto* edit = new ZEFTInPlaceEdit(picker, parent);
            connect(edit, &ZEFTInPlaceEdit::picked, edit, [edit, done] { done(edit); });
            return edit;
        }
        auto* list = new ZEFTInPlaceList(items, picker, parent);
        connect(list, &ZEFTInPlaceList::picked, list, [list, done] { done(list); });
        connect(list, qOverload<int>(&QComboBox::activated), list, [list, done] { done(list); });
        return list;
    });
}

void ZEFTGridDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    if (cellColour_.isValid() && option->backgroundBrush.style() == Qt::NoBrush)
        option->backgroundBrush = cellColour_;
}

void ZEFTGridDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const
{
    ZEFT_GUARD_VOID("ZEFTGridDelegate::setEditorData", {
        const QString text = grid_->GetItemText(grid_->gridRow(index), grid_->gridColumn(index));
        if (auto* tree = qobject_cast<ZEFTTreeCombo*>(editor))
            tree->setText(text);
        else if (auto* list = qobject_cast<ZEFTInPlaceList*>(editor))
            list->setText(text);
        else if (auto* edit = qobject_cast<QLineEdit*>(editor))
            edit->setText(text);
    });
}

void ZEFTGridDelegate::setModelData(QWidget* editor, QAbstractItemModel*, const QModelIndex& index) const
{
    ZEFT_GUARD_VOID("ZEFTGridDelegate::setModelData", {
        QString text;
        if (auto* tree = qobject_cast<ZEFTTreeCombo*>(editor))
            text = tree->text();
        else if (auto* list = qobject_cast<ZEFTInPlaceList*>(editor))
            text = list->text();
        else if (auto* edit = qobject_cast<QLineEdit*>(editor))
            text = edit->text();
        grid_->OnEndEditCell(grid_->gridRow(index), grid_->gridColumn(index), text);
    });
}
