// The editable grid of the layer standard editor's pages: rows and columns,
// a fixed (header) row and column, per-cell text, state, colour and font,
// in-place editors, title tips for texts wider than their cell, and the
// two ways of growing that the pages rely on.
//
// Rows and columns are counted with the fixed ones, as the pages address
// them: with one fixed row, row 0 is the header and rows 1... hold the
// cells. The fixed row is the view's column header and the fixed column its
// row header, so that they stay in sight while the rest scrolls; at most
// one of each.
//
// Keyboard as in a spreadsheet: arrows and Tab move, Enter or F2 edits and
// Enter again commits (and moves down), Escape cancels the edit, Delete
// clears the cell, typing starts an edit, F4 opens the function picker on a
// cell that offers it.
#pragma once

#include <QColor>
#include <QFont>
#include <QString>
#include <QTableWidget>
#include <map>
#include <string>
#include <vector>

struct LayerStandardData;

class ZEFTGridCtrl : public QTableWidget {
    Q_OBJECT

public:
    // Cell state bits.
    enum : unsigned { GVIS_READONLY = 0x0008 };
    // What a cell is edited with.
    enum class Editor {
        Edit,        // a plain line edit
        EnumNames,   // a combo of the standard's enumeration names
        EnumValues,  // a combo of the values of the enumeration named in row 0, with the function picker
        ClassTree,   // a tree of the entity classes, by application and group
    };

    explicit ZEFTGridCtrl(QWidget* parent = nullptr);

    bool SetRowCount(int rows);
    int GetRowCount() const;
    bool SetColumnCount(int columns);
    int GetColumnCount() const;
    bool SetFixedRowCount(int rows);
    int GetFixedRowCount() const { return fixedRows_; }
    bool SetFixedColumnCount(int columns);
    int GetFixedColumnCount() const { return fixedColumns_; }

    bool SetItemText(int row, int column, const QString& text);
    QString GetItemText(int row, int column) const;
    bool SetItemState(int row, int column, unsigned state);
    unsigned GetItemState(int row, int column) const;
    bool SetItemBkColour(int row, int column, const QColor& colour);
    QColor GetItemBkColour(int row, int column) const;
    bool SetItemFont(int row, int column, const QFont& font);
    QFont GetItemFont(int row, int column) const;
    // The colour behind the cells.
    void SetBkColor(const QColor& colour);

    bool SetColumnWidth(int column, int width);
    int GetColumnWidth(int column) const;
    // Fits the column to its texts (its header's too).
    bool AutoSizeColumn(int column);
    // Gives the column that share of the client width, kept as the grid
    // is resized; the last column with a share takes what rounding leaves.
    void SetColumnWidthShare(int column, double share);
    int GetClientWidth() const;
    // A list under a bold header row, one column per header with its share
    // of the width, `rows` rows in all (header included), growing by rows
    // and offering the standard's lists; the previous cells are dropped.
    void SetUpList(LayerStandardData* data, const QStringList& headers, const std::vector<double>& shares, int rows);

    void SetEditable(bool editable);
    bool IsEditable() const { return editable_; }
    // Ending an edit of the last column with a name in row 0 appends a
    // column and moves the read-only row-1 cell to it.
    void SetGrowByColumns(bool on) { growByColumns_ = on; }
    // Ending an edit of the last row with a text in column 0 appends a row.
    void SetGrowByRows(bool on) { growByRows_ = on; }
    bool GetModified() const { return modified_; }
    // Whether an in-place editor is open, and which.
    bool IsEditing() const { return state() == QAbstractItemView::EditingState; }
    QWidget* GetEditor() const { return IsEditing() ? indexWidget(currentIndex()) : nullptr; }
    void SetModified(bool modified) { modified_ = modified; }

    // What the in-place editors offer.
    void SetLayerStandardData(LayerStandardData* data) { data_ = data; }
    LayerStandardData* GetLayerStandardData() const { return data_; }
    void SetFunctionNames(const std::vector<std::wstring>& names, const std::vector<std::wstring>& helps);
    void SetColumnEditor(int column, Editor editor) { columnEditors_[column] = editor; }
    void SetRowEditor(int row, Editor editor) { rowEditors_[row] = editor; }
    Editor GetCellEditor(int row, int column) const;

    // Opens the function picker for the cell; on OK the cell holds
    // "=NAME()". False when cancelled or the cell offers no picker.
    bool SelectFunction(int row, int column);
    // The text shown over the cell when the pointer rests on it: its whole
    // text when that does not fit, else empty.
    QString GetTitleTipText(int row, int column) const;
    void RedrawCell(int row, int column);

    // For the delegate: the end of an in-place edit. Stores a changed text,
    // grows the grid as its mode says and notifies.
    void OnEndEditCell(int row, int column, const QString& text);

signals:
    // The current cell changed.
    void itemChanged(int row, int column);
    // An in-place edit ended (committed or not).
    void endEdit(int row, int column);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void closeEditor(QWidget* editor, QAbstractItemDelegate::EndEditHint hint) override;
    bool edit(const QModelIndex& index, QAbstractItemView::EditTrigger trigger, QEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;

private:
    friend class ZEFTGridDelegate;
    // The table item behind a cell; null for a cell outside the grid. Items
    // of header cells are the headers' own.
    QTableWidgetItem* cell(int row, int column) const;
    QTableWidgetItem* ensureCell(int row, int column);
    void applyCounts();
    void refreshFlags(QTableWidgetItem* item) const;
    bool isFixed(int row, int column) const { return row < fixedRows_ || column < fixedColumns_; }
    int gridRow(const QModelIndex& index) const { return index.row() + fixedRows_; }
    int gridColumn(const QModelIndex& index) const { return index.column() + fixedColumns_; }
    void applyWidthShares();
    bool offersPicker(int row, int column) const;
    bool clearCurrentCell();

    LayerStandardData* data_ = nullptr;
    std::vector<std::wstring> functionNames_;
    std::vector<std::wstring> functionHelps_;
    std::map<int, Editor> columnEditors_;
    std::map<int, Editor> rowEditors_;
    std::map<int, double> widthShares_;
    int rows_ = 0;
    int columns_ = 0;
    int fixedRows_ = 0;
    int fixedColumns_ = 0;
    bool editable_ = false;
    bool growByColumns_ = false;
    bool growByRows_ = false;
    bool modified_ = false;
};
