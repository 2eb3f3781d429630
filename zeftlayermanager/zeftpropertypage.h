// A page of the layer standard editor's sheet: created with the sheet,
// initialised once, told when it stops being the shown page and when the
// sheet's OK button is pressed.
#pragma once

#include <QWidget>

class ZEFTPropertyPage : public QWidget {
    Q_OBJECT

public:
    explicit ZEFTPropertyPage(QWidget* parent = nullptr) : QWidget(parent) {}
    virtual bool OnInitDialog() { return true; }
    // Leaving the page (another tab, or OK): what it shows goes into the data.
    virtual bool OnKillActive() { return true; }
    // OK: false keeps the sheet open.
    virtual bool OnApply() { return true; }
};
