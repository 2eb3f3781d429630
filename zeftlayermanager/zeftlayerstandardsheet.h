// The layer standard editor: a modal sheet over the drawing's standard with
// the pages Standard, Champs, Fonctions and Exceptions. It edits a copy and
// saves it as a ".std" file; the drawing is never changed.
#pragma once

#include <QDialog>
#include <QString>
#include <vector>

#include "zeftlayermanager/layerstandarddata.h"

class QPushButton;
class QTabWidget;
class ZEFTLayerEnumsPage;
class ZEFTLayerExceptionsPage;
class ZEFTLayerFunctionsPage;
class ZEFTLayerStandardPage;
class ZEFTPropertyPage;

class ZEFTLayerStandardSheet : public QDialog {
    Q_OBJECT

public:
    ZEFTLayerStandardSheet(const QString& caption, QWidget* parent = nullptr, int selectPage = 0);
    // The caption from the module's prompt of that number.
    ZEFTLayerStandardSheet(unsigned captionId, QWidget* parent = nullptr, int selectPage = 0);
    ~ZEFTLayerStandardSheet() override;

    // The copy being edited, from the working drawing.
    void InitData();
    void AddControlPages();
    bool OnInitDialog();
    void OnHelpButton();
    // F1: the sheet offers no help of its own there.
    bool OnHelpInfo() { return true; }
    // OK ("Save as..."): the shown page hands over its edits and the
    // standard page saves; the sheet closes only when a file was written.
    void OnOK();

    LayerStandardData& GetData() { return m_data; }
    QTabWidget* GetTabs() const { return m_tabs; }
    ZEFTLayerStandardPage* GetStandardPage() const { return m_pStandardPage; }
    ZEFTLayerEnumsPage* GetEnumsPage() const { return m_pEnumsPage; }
    ZEFTLayerFunctionsPage* GetFunctionsPage() const { return m_pFunctionsPage; }
    ZEFTLayerExceptionsPage* GetExceptionsPage() const { return m_pExceptionsPage; }

protected:
    // OnPaint: the module's picture at the bottom left.
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void construct(const QString& caption, int selectPage);
    void AddPage(ZEFTPropertyPage* page);

    LayerStandardData m_data;
    QTabWidget* m_tabs = nullptr;
    QPushButton* m_ok = nullptr;
    QPushButton* m_cancel = nullptr;
    QPushButton* m_help = nullptr;
    ZEFTLayerStandardPage* m_pStandardPage = nullptr;
    ZEFTLayerEnumsPage* m_pEnumsPage = nullptr;
    ZEFTLayerFunctionsPage* m_pFunctionsPage = nullptr;
    ZEFTLayerExceptionsPage* m_pExceptionsPage = nullptr;
    std::vector<ZEFTPropertyPage*> m_pages;
    int m_activePage = -1;
};
