#include "zeftlayermanager/grid/zeftgridctrl.h"

#include <QContextMenuEvent>
#include <QHeaderView>
#include <QHelpEvent>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QToolTip>
#include <algorithm>
#include <cmath>

#include "suite/wybase.h"
#include "zeftlayermanager/grid/zeftdlgselectstring.h"
#include "zeftlayermanager/grid/zeftinplaceeditors.h"

namespace {
constexpr int kStateRole = Qt::UserRole + 1;
}

ZEFTGridCtrl::ZEFTGridCtrl(QWidget* parent) : QTableWidget(parent)
{
    setItemDelegate(new ZEFTGridDelegate(this));
    setSelectionMode(QAbstractItemView::SingleSelection);
    setSelectionBehavior(QAbstractItemView::SelectItems);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setTabKeyNavigation(true);
    setWordWrap(false);
    setTextElideMode(Qt::ElideNone);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    const QFontMetrics metrics(font());
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(metrics.height() + 8);
    verticalHeader()->setMinimumSectionSize(metrics.height() + 4);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSectionsClickable(false);
    horizontalHeader()->setMinimumSectionSize(metrics.horizontalAdvance(QLatin1Char('x')) * 3);
    horizontalHeader()->setDefaultSectionSize(metrics.horizontalAdvance(QLatin1Char('x')) * 14);
    verticalHeader()->setHighlightSections(false);
    verticalHeader()->setSectionsClickable(false);
    applyCounts();
}

QTableWidgetItem* ZEFTGridCtrl::cell(int row, int column) const
{
    if (row < 0 || column < 0 || row >= rows_ || column >= columns_) return nullptr;
    if (row < fixedRows_ && column < fixedColumns_) return nullptr;  // the corner has no text
    if (row < fixedRows_) return horizontalHeaderItem(column - fixedColumns_);
    if (column < fixedColumns_) return verticalHeaderItem(row - fixedRows_);
    return item(row - fixedRows_, column - fixedColumns_);
}

QTableWidgetItem* ZEFTGridCtrl::ensureCell(int row, int column)
{
    if (QTableWidgetItem* existing = cell(row, column)) return existing;
    if (row < 0 || column < 0 || row >= rows_ || column >= columns_) return nullptr;
    if (row < fixedRows_ && column < fixedColumns_) return nullptr;
    auto* created = new QTableWidgetItem;
    if (row < fixedRows_) {
        setHorizontalHeaderItem(column - fixedColumns_, created);
    } else if (column < fixedColumns_) {
        setVerticalHeaderItem(row - fixedRows_, created);
    } else {
        refreshFlags(created);
        setItem(row - fixedRows_, column - fixedColumns_, created);
    }
    return created;
}

void ZEFTGridCtrl::refreshFlags(QTableWidgetItem* item) const
{
    const bool readOnly = item->data(kStateRole).toUInt() & GVIS_READONLY;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (editable_ && !readOnly) flags |= Qt::ItemIsEditable;
    item->setFlags(flags);
}

void ZEFTGridCtrl::applyCounts()
{
    QTableWidget::setRowCount(std::max(0, rows_ - fixedRows_));
    QTableWidget::setColumnCount(std::max(0, columns_ - fixedColumns_));
    horizontalHeader()->setVisible(fixedRows_ > 0);
    verticalHeader()->setVisible(fixedColumns_ > 0);
    // Every body cell has its item, so that its state and flags hold.
    for (int r = fixedRows_; r < rows_; ++r)
        for (int c = fixedColumns_; c < columns_; ++c) ensureCell(r, c);
    applyWidthShares();
}

bool ZEFTGridCtrl::SetRowCount(int rows)
{
    ZEFT_GUARD("ZEFTGridCtrl::SetRowCount", false, {
        if (rows < 0) return false;
        rows_ = rows;
        fixedRows_ = std::min(fixedRows_, rows_);
        applyCounts();
        return true;
    });
}

bool ZEFTGridCtrl::SetColumnCount(int columns)
{
    ZEFT_GUARD("ZEFTGridCtrl::SetColumnCount", false, {
        if (columns < 0) return false;
        columns_ = columns;
        fixedColumns_ = std::min(fixedColumns_, columns_);
        applyCounts();
        return true;
    });
}

int ZEFTGridCtrl::GetRowCount() const { return rows_; }
int ZEFTGridCtrl::GetColumnCount() const { return columns_; }

bool ZEFTGridCtrl::SetFixedRowCount(int rows)
{
    ZEFT_GUARD("ZEFTGridCtrl::SetFixedRowCount", false, {
        if (rows < 0 || rows > 1 || rows > rows_) return false;
        fixedRows_ = rows;
        applyCounts();
        return true;
    });
}

bool ZEFTGridCtrl::SetFixedColumnCount(int columns)
{
    ZEFT_GUARD("ZEFTGridCtrl::SetFixedColumnCount", false, {
        if (columns < 0 || columns > 1 || columns > columns_) return false;
        fixedColumns_ = columns;
        applyCounts();
        return true;
    });
}

bool ZEFTGridCtrl::SetItemText(int row, int column, const QString& text)
{
    ZEFT_GUARD("ZEFTGridCtrl::SetItemText", false, {
        QTableWidgetItem* item = ensureCell(row, column);
        if (!item) return false;
        item->setText(text);
        return true;
    });
}

QString ZEFTGridCtrl::GetItemText(int row, int column) const
{
    const QTableWidgetItem* item = cell(row, column);
    return item ? item->text() : QString();
}

bool ZEFTGridCtrl::SetItemState(int row, int column, unsigned state)
{
    ZEFT_GUARD("ZEFTGridCtrl::SetItemState", false, {
        QTableWidgetItem* item = ensureCell(row, column);
        if (!item) return false;
        item->setData(kStateRole, state);
        if (!isFixed(row, column)) refreshFlags(item);
        return true;
    });
}

unsigned ZEFTGridCtrl::GetItemState(int row, int column) const
{
    const QTableWidgetItem* item = cell(row, column);
    return item ? item->data(kStateRole).toUInt() : 0;
}

bool ZEFTGridCtrl::SetItemBkColour(int row, int column, const QColor& colour)
{
    QTableWidgetItem* item = ensureCell(row, column);
    if (!item) return false;
    item->setBackground(colour);
    return true;
}

QColor ZEFTGridCtrl::GetItemBkColour(int row, int column) const
{
    const QTableWidgetItem* item = cell(row, column);
    return item && item->background().style() != Qt::NoBrush ? item->background().color() : QColor();
}

bool ZEFTGridCtrl::SetItemFont(int row, int column, const QFont& font)
{
    QTableWidgetItem* item = ensureCell(row, column);
    if (!item) return false;
    item->setFont(font);
    return true;
}

QFont ZEFTGridCtrl::GetItemFont(int row, int column) const
{
    const QTableWidgetItem* item = cell(row, column);
    return item ? item->font() : font();
}

void ZEFTGridCtrl::SetBkColor(const QColor& colour)
{
    // Around the cells only: cells keep the colour of an edit field.
    auto* delegate = static_cast<ZEFTGridDelegate*>(itemDelegate());
    delegate->setCellColour(palette().color(QPalette::Base));
    QPalette around = viewport()->palette();
    around.setColor(QPalette::Base, colour);
    viewport()->setPalette(around);
    viewport()->setBackgroundRole(QPalette::Base);
}

bool ZEFTGridCtrl::SetColumnWidth(int column, int width)
{
    ZEFT_GUARD("ZEFTGridCtrl::SetColumnWidth", false, {
        if (column < 0 || column >= columns_ || width < 0) return false;
        widthShares_.erase(column);
        if (column < fixedColumns_)
            verticalHeader()->setFixedWidth(width);
        else
            setColumnWidth(column - fixedColumns_, width);
        return true;
    });
}

int ZEFTGridCtrl::GetColumnWidth(int column) const
{
    if (column < 0 || column >= columns_) return 0;
    return column < fixedColumns_ ? verticalHeader()->width() : columnWidth(column - fixedColumns_);
}

bool ZEFTGridCtrl::AutoSizeColumn(int column)
{
    ZEFT_GUARD("ZEFTGridCtrl::AutoSizeColumn", false, {
        if (column < fixedColumns_ || column >= columns_) return false;
        widthShares_.erase(column);
        resizeColumnToContents(column - fixedColumns_);
        return true;
    });
}

void ZEFTGridCtrl::SetColumnWidthShare(int column, double share)
{
    widthShares_[column] = share;
    applyWidthShares();
}

int ZEFTGridCtrl::GetClientWidth() const { return viewport()->width(); }

void ZEFTGridCtrl::SetUpList(LayerStandardData* data, const QStringList& headers, const std::vector<double>& shares,
                             int rows)
{
    SetLayerStandardData(data);
    SetEditable(true);
    SetGrowByRows(true);
    SetRowCount(0);
    SetRowCount(rows);
    SetColumnCount(int(headers.size()));
    SetFixedRowCount(1);
    SetFixedColumnCount(0);
    for (int c = 0; c < int(headers.size()); ++c) {
        SetColumnWidthShare(c, shares[std::size_t(c)]);
        SetItemText(0, c, headers[c]);
    }
    QFont bold = GetItemFont(0, 0);
    bold.setWeight(QFont::Bold);
    SetItemFont(0, 0, bold);
}

void ZEFTGridCtrl::applyWidthShares()
{
    const int width = GetClientWidth();
    double cumulative = 0;
    int given = 0;
    for (const auto& [column, share] : widthShares_) {
        if (column < fixedColumns_ || column >= columns_) continue;
        cumulative += share;
        // Widths from the running total, so that shares adding up to one fill
        // the client area exactly.
        const int end = int(std::floor(width * cumulative + 1e-9));
        setColumnWidth(column - fixedColumns_, std::max(0, end - given));
        given = end;
    }
}

void ZEFTGridCtrl::SetEditable(bool editable)
{
    editable_ = editable;
    setEditTriggers(editable ? QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                                   QAbstractItemView::AnyKeyPressed
                             : QAbstractItemView::NoEditTriggers);
    for (int r = fixedRows_; r < rows_; ++r)
        for (int c = fixedColumns_; c < columns_; ++c)
            if (QTableWidgetItem* item = cell(r, c)) refreshFlags(item);
}

void ZEFTGridCtrl::SetFunctionNames(const std::vector<std::wstring>& names, const std::vector<std::wstring>& helps)
{
    functionNames_ = names;
    functionHelps_ = helps;
}

ZEFTGridCtrl::Editor ZEFTGridCtrl::GetCellEditor(int row, int column) const
{
    if (const auto it = rowEditors_.find(row); it != rowEditors_.end()) return it->second;
    if (const auto it = columnEditors_.find(column); it != columnEditors_.end()) return it->second;
    return Editor::Edit;
}

bool ZEFTGridCtrl::offersPicker(int row, int column) const
{
    return !functionNames_.empty() && GetCellEditor(row, column) == Editor::EnumValues;
}

bool ZEFTGridCtrl::SelectFunction(int row, int column)
{
    ZEFT_GUARD("ZEFTGridCtrl::SelectFunction", false, {
        const QTableWidgetItem* item = cell(row, column);
        if (!item || isFixed(row, column) || !(item->flags() & Qt::ItemIsEditable) || !offersPicker(row, column))
            return false;
        ZEFTDlgSelectString dialog(functionNames_, functionHelps_, this);
        if (dialog.exec() != QDialog::Accepted || dialog.GetSelectedIndex() < 0) return false;
        OnEndEditCell(row, column, QStringLiteral("=%1()").arg(dialog.GetSelectedString()));
        RedrawCell(row, column);
        return true;
    });
}

void ZEFTGridCtrl::RedrawCell(int row, int column)
{
    if (!isFixed(row, column)) viewport()->update(visualRect(model()->index(row - fixedRows_, column - fixedColumns_)));
}

QString ZEFTGridCtrl::GetTitleTipText(int row, int column) const
{
    const QTableWidgetItem* item = cell(row, column);
    if (!item || item->text().isEmpty()) return QString();
    int room = 0;
    if (row < fixedRows_)
        room = horizontalHeader()->sectionSize(column - fixedColumns_);
    else if (column < fixedColumns_)
        room = verticalHeader()->width();
    else
        room = columnWidth(column - fixedColumns_);
    const int margin = style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 1;
    const int needed = QFontMetrics(item->font()).horizontalAdvance(item->text()) + 2 * margin;
    return needed > room ? item->text() : QString();
}

void ZEFTGridCtrl::OnEndEditCell(int row, int column, const QString& text)
{
    ZEFT_GUARD_VOID("ZEFTGridCtrl::OnEndEditCell", {
        if (text != GetItemText(row, column)) {
            SetItemText(row, column, text);
            modified_ = true;
            if (growByColumns_ && column == columns_ - 1 && !GetItemText(fixedRows_, column).isEmpty()) {
                // The field has a name now: its value may be typed, and a new
                // empty field follows it.
                const int valueRow = fixedRows_ + 1;
                SetColumnCount(columns_ + 1);
                SetItemState(valueRow, column, GetItemState(valueRow, column) & ~GVIS_READONLY);
                SetItemState(valueRow, column + 1, GetItemState(valueRow, column + 1) | GVIS_READONLY);
            }
            if (growByRows_ && row == rows_ - 1 && !GetItemText(row, fixedColumns_).isEmpty()) SetRowCount(rows_ + 1);
        }
        emit endEdit(row, column);
    });
}

bool ZEFTGridCtrl::clearCurrentCell()
{
    const QModelIndex index = currentIndex();
    if (!index.isValid() || !(model()->flags(index) & Qt::ItemIsEditable)) return false;
    OnEndEditCell(gridRow(index), gridColumn(index), QString());
    return true;
}

void ZEFTGridCtrl::keyPressEvent(QKeyEvent* event)
{
    ZEFT_GUARD_VOID("ZEFTGridCtrl::keyPressEvent", {
        if (state() != QAbstractItemView::EditingState && event->modifiers() == Qt::NoModifier) {
            const QModelIndex index = currentIndex();
            switch (event->key()) {
            case Qt::Key_Delete:
                if (clearCurrentCell()) return;
                break;
            case Qt::Key_Return:
            case Qt::Key_Enter:
                // Enter belongs to the grid, even on a locked cell: it never
                // reaches the dialog's default button.
                if (index.isValid()) edit(index, QAbstractItemView::EditKeyPressed, event);
                return event->accept();
            case Qt::Key_F4:
                if (index.isValid() && SelectFunction(gridRow(index), gridColumn(index))) return;
                break;
            default:
                break;
            }
        }
        QTableWidget::keyPressEvent(event);
    });
}

void ZEFTGridCtrl::closeEditor(QWidget* editor, QAbstractItemDelegate::EndEditHint hint)
{
    ZEFT_GUARD_VOID("ZEFTGridCtrl::closeEditor", {
        // Tab commits and moves without editing the next cell; Enter commits
        // and moves down.
        QModelIndex next;
        if (hint == QAbstractItemDelegate::EditNextItem)
            next = moveCursor(QAbstractItemView::MoveNext, Qt::NoModifier);
        else if (hint == QAbstractItemDelegate::EditPreviousItem)
            next = moveCursor(QAbstractItemView::MovePrevious, Qt::NoModifier);
        else if (hint == QAbstractItemDelegate::SubmitModelCache)
            next = moveCursor(QAbstractItemView::MoveDown, Qt::NoModifier);
        const bool moves = hint == QAbstractItemDelegate::EditNextItem ||
                           hint == QAbstractItemDelegate::EditPreviousItem;
        QTableWidget::closeEditor(editor, moves ? QAbstractItemDelegate::NoHint : hint);
        if (next.isValid()) setCurrentIndex(next);
    });
}

bool ZEFTGridCtrl::edit(const QModelIndex& index, QAbstractItemView::EditTrigger trigger, QEvent* event)
{
    if (!QTableWidget::edit(index, trigger, event)) return false;
    // A key typed into the cell replaces its text; any other way in leaves
    // the caret at the end of it.
    if (trigger != QAbstractItemView::AnyKeyPressed) {
        QWidget* editor = indexWidget(index);
        auto* line = qobject_cast<QLineEdit*>(editor);
        if (auto* combo = qobject_cast<QComboBox*>(editor)) line = combo->lineEdit();
        if (line) line->end(false);
    }
    return true;
}

void ZEFTGridCtrl::contextMenuEvent(QContextMenuEvent* event)
{
    ZEFT_GUARD_VOID("ZEFTGridCtrl::contextMenuEvent", {
        const QModelIndex index = indexAt(event->pos());
        if (!index.isValid() || !offersPicker(gridRow(index), gridColumn(index))) return;
        setCurrentIndex(index);
        QMenu menu(this);
        QAction* pick = menu.addAction(
            QStringLiteral("%1...\tF4").arg(QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17706))));
        if (menu.exec(event->globalPos()) == pick) SelectFunction(gridRow(index), gridColumn(index));
    });
}

void ZEFTGridCtrl::currentChanged(const QModelIndex& current, const QModelIndex& previous)
{
    QTableWidget::currentChanged(current, previous);
    if (current.isValid()) emit itemChanged(gridRow(current), gridColumn(current));
}

bool ZEFTGridCtrl::viewportEvent(QEvent* event)
{
    if (event->type() == QEvent::Resize) applyWidthShares();
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const QModelIndex index = indexAt(help->pos());
        const QString tip = index.isValid() ? GetTitleTipText(gridRow(index), gridColumn(index)) : QString();
        if (tip.isEmpty())
            QToolTip::hideText();
        else
            QToolTip::showText(help->globalPos(), tip, viewport(), visualRect(index));
        return true;
    }
    return QTableWidget::viewportEvent(event);
}

void ZEFTGridCtrl::resizeEvent(QResizeEvent* event)
{
    QTableWidget::resizeEvent(event);
    applyWidthShares();
}
