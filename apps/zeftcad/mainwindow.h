// The desktop window: menus, the drawing area (a placeholder until the
// drawing view), the layer and entity panels, the command line. Everything
// it does to the drawing goes through the session's command lines and files.
#pragma once

#include <QMainWindow>
#include <QStringList>
#include <string>

#include "apps/zeftcad/session.h"

class QLabel;
class QTreeView;

namespace zeftcad {

class CommandLine;
class EntityModel;
class LayerModel;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    // Becomes the host's main window: commands parent their dialogs to it,
    // print to its command line and ask through its message boxes.
    explicit MainWindow(Session& session, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Runs a line as if typed at the command line; false when it failed.
    bool runCommandLine(const QString& line);
    // Runs a script's lines one after the other, as typed; returns the
    // failures, "SCRIPT:LINE: reason", also shown at the command line.
    QStringList runScript(const std::wstring& text, const QString& name);
    // Lines started so far, from the command line, a script or a menu.
    int linesStarted() const { return linesStarted_; }
    // Refills the panels and the title from the drawing.
    void refresh();
    // Asks whether to save unsaved changes; false when the user cancels or
    // the save fails.
    bool maybeSave();

    CommandLine* commandLine() const { return commandLine_; }

public slots:
    void OnFileOpen();
    bool OnFileSave();
    bool OnFileSaveAs();
    void OnLayerStandardEdit();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    struct Outcome {
        bool ran = false, failed = false;
        QString error;
    };
    Outcome execute(const QString& line);
    bool saveTo(const QString& path);
    void createMenus();
    void createPanels();
    void fitColumns();

    Session& session_;
    CommandLine* commandLine_ = nullptr;
    QLabel* drawingView_ = nullptr;
    QTreeView* entityList_ = nullptr;
    QTreeView* layerList_ = nullptr;
    EntityModel* entities_ = nullptr;
    LayerModel* layers_ = nullptr;
    int linesStarted_ = 0;
};

// Shows a message box for ZEFTUITools::MessageBoxW: the icon and buttons of
// the MB_ flags, over the window in front; answers the button's id.
int showMessageBox(const std::wstring& caption, const std::wstring& text, unsigned flags);

// Shows the page of the documentation a help topic names, beside the
// window in front (ZEFTHelpTools::Help); says so at the command line when
// the documentation is not found.
void showHelp(int book, int topic);

}  // namespace zeftcad
