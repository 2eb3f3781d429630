// The function picker: the names a rule field may call, the help text of the
// one selected, OK and Cancel.
#pragma once

#include <QDialog>
#include <string>
#include <vector>

class QLabel;
class QListWidget;

class ZEFTDlgSelectString : public QDialog {
    Q_OBJECT

public:
    // helps[i] documents names[i]; a name without a help shows none.
    ZEFTDlgSelectString(const std::vector<std::wstring>& names, const std::vector<std::wstring>& helps,
                        QWidget* parent = nullptr);

    // The chosen name, and its index in the names given; -1 and empty
    // when nothing is selected.
    int GetSelectedIndex() const;
    QString GetSelectedString() const;

private:
    void OnInitDialog();
    void OnSelChangeList();

    std::vector<std::wstring> names_;
    std::vector<std::wstring> helps_;
    QListWidget* list_ = nullptr;
    QLabel* help_ = nullptr;
};
