// What the functions page and the enumerations page share: a list of
// names whose labels can be edited, Add and Delete buttons under it, and
// the grid of the selected entry's values beside it.
#pragma once

#include <string>
#include <vector>

#include "zeftlayermanager/zeftpropertypage.h"

class QListWidget;
class QPushButton;
class ZEFTGridCtrl;
struct LayerStandardData;

class ZEFTLayerListPage : public ZEFTPropertyPage {
    Q_OBJECT

public:
    ZEFTLayerListPage(LayerStandardData* data, int templateId, int listId, int gridId, int addId, int deleteId);

    QListWidget* GetList() const { return m_list; }
    ZEFTGridCtrl* GetGrid() const { return m_grid; }
    int GetCurrentIndex() const { return m_nCurrentIndex; }

protected:
    // The handlers each page names its own way.
    virtual void OnItemChangedList() = 0;
    virtual bool OnEndEditName(int item, const QString& label) = 0;
    virtual void OnBnClickedAdd() = 0;
    virtual void OnBnClickedDelete() = 0;

    // The entries the list names, for the shared handlers below.
    virtual int entryCount() const = 0;
    virtual void storeEntry(int index) = 0;
    virtual void showEntry(int index) = 0;
    virtual void eraseEntry(int index) = 0;
    // Another item chosen: the shown entry is stored and the chosen one shown.
    void selectionChanged();
    // After confirmation, the current entry goes; the one after it (or the
    // new last) is shown. Never the last entry.
    void deleteCurrent();
    // The entry just appended under that name becomes the shown one.
    void showAppended(const std::wstring& name);

    // A new label is refused when empty or when another item bears it in
    // any letter case; the latter says so.
    bool acceptLabel(int item, const QString& label) const;
    // The first of base, "base 2", "base 3"... that no label equals (case counts).
    std::wstring freeName(const std::wstring& base) const;
    // One list column headed by the prompt, one item per name, item 0 current.
    void fillList(int headerPrompt, const std::vector<std::wstring>& names);
    // Appends the name and makes it the list's current item.
    void appendListItem(const std::wstring& name);
    QString labelOf(int item) const;
    // The delete button works with two entries or more.
    void enableDelete(int entries);
    // Asks whether to delete; true on Yes.
    bool confirmDelete() const;

    LayerStandardData* m_pData;
    ZEFTGridCtrl* m_grid = nullptr;
    QListWidget* m_list = nullptr;
    QPushButton* m_add = nullptr;
    QPushButton* m_delete = nullptr;
    int m_nCurrentIndex = 0;
    bool m_bDeleting = false;
    const int m_templateId;

private:
    friend class ZEFTLabelEditDelegate;
};
