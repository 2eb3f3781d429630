// The grid's in-place editors and the delegate that chooses among them.
#pragma once

#include <QComboBox>
#include <QLineEdit>
#include <QStyledItemDelegate>
#include <functional>
#include <string>
#include <vector>

#include "zeftlayermanager/zeftrxclassinfo.h"

class QStandardItemModel;
class QTreeView;
class ZEFTGridCtrl;

// Answers the text a picker chose, or a null string when it was cancelled.
using ZEFTPicker = std::function<QString()>;

// A plain line edit. A picker, when given, is offered as a button at the
// right end of the text and by F4; what it chooses replaces the text and
// ends the edit (picked).
class ZEFTInPlaceEdit : public QLineEdit {
    Q_OBJECT

public:
    ZEFTInPlaceEdit(ZEFTPicker picker, QWidget* parent);
    void pick();

signals:
    void picked();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    ZEFTPicker picker_;
};

// An editable combo of given texts, with the picker as the line edit has it.
class ZEFTInPlaceList : public QComboBox {
    Q_OBJECT

public:
    ZEFTInPlaceList(const QStringList& items, ZEFTPicker picker, QWidget* parent);
    QString text() const { return currentText(); }
    void setText(const QString& text) { setEditText(text); }
    void pick();

signals:
    void picked();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    ZEFTPicker picker_;
};

// A combo whose popup is a tree of the entity classes: application, then
// group when the class has one, then the display names. Only display names
// can be chosen; a text it does not list is kept until another is chosen.
class ZEFTTreeCombo : public QComboBox {
    Q_OBJECT

public:
    ZEFTTreeCombo(const std::vector<ZEFTEntityClassInfo>& classes, QWidget* parent);
    QString text() const { return chosen_; }
    void setText(const QString& text);
    QTreeView* treeView() const { return tree_; }
    // Chooses the display name (the first row of that text in the tree).
    bool choose(const QString& displayName);
    void showPopup() override;

signals:
    void chosen();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void selectIndex(const QModelIndex& index);

    QStandardItemModel* model_ = nullptr;
    QTreeView* tree_ = nullptr;
    QString chosen_;
};

class ZEFTGridDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    explicit ZEFTGridDelegate(ZEFTGridCtrl* grid);
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const override;
    // The colour of cells that have none of their own.
    void setCellColour(const QColor& colour) { cellColour_ = colour; }

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;

private:
    ZEFTGridCtrl* grid_;
    QColor cellColour_;
};
