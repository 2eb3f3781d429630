#include "apps/zeftcad/mainwindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDockWidget>
#include <QFileDialog>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QTextBrowser>
#include <QTreeView>
#include <QVBoxLayout>

#include "apps/zeftcad/commandline.h"
#include "apps/zeftcad/panels.h"
#include "host/editor.h"
#include "suite/wybase.h"
#include "suite/zefttools.h"

namespace zeftcad {

namespace {

bool isBlankOrComment(const QString& line)
{
    const QString t = line.trimmed();
    return t.isEmpty() || t.startsWith(QLatin1Char(';'));
}

QTreeView* newList(const char* name, QAbstractItemModel* model, QWidget* parent)
{
    auto* view = new QTreeView(parent);
    view->setObjectName(QLatin1String(name));
    view->setModel(model);
    view->setRootIsDecorated(false);
    view->setUniformRowHeights(true);
    view->setAlternatingRowColors(true);
    view->setAllColumnsShowFocus(true);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    return view;
}

QDockWidget* newDock(const QString& title, const char* name, QWidget* content, QWidget* parent)
{
    auto* dock = new QDockWidget(title, parent);
    dock->setObjectName(QLatin1String(name));
    // Not closable: there is no menu to bring a closed panel back yet.
    dock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    dock->setWidget(content);
    return dock;
}

}  // namespace

int showMessageBox(const std::wstring& caption, const std::wstring& text, unsigned flags)
{
    ZEFT_GUARD("zeftcad::showMessageBox", IDCANCEL, {
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        switch (flags & 0xF0) {
            case MB_ICONERROR: icon = QMessageBox::Critical; break;
            case MB_ICONQUESTION: icon = QMessageBox::Question; break;
            case MB_ICONEXCLAMATION: icon = QMessageBox::Warning; break;
            case MB_ICONINFORMATION: icon = QMessageBox::Information; break;
            default: break;
        }
        QMessageBox::StandardButtons buttons = QMessageBox::Ok;
        QMessageBox::StandardButton escape = QMessageBox::Ok;
        switch (flags & 0xF) {
            case MB_OKCANCEL: buttons = QMessageBox::Ok | QMessageBox::Cancel; escape = QMessageBox::Cancel; break;
            case MB_YESNOCANCEL:
                buttons = QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
                escape = QMessageBox::Cancel;
                break;
            case MB_YESNO: buttons = QMessageBox::Yes | QMessageBox::No; escape = QMessageBox::No; break;
            default: break;
        }
        QWidget* parent = QApplication::activeModalWidget();
        if (!parent) parent = QApplication::activeWindow();
        if (!parent) parent = static_cast<QWidget*>(acedGetAcadFrame());
        QMessageBox box(icon, QString::fromStdWString(caption), QString::fromStdWString(text), buttons, parent);
        box.setEscapeButton(escape);
        int answer = box.exec();
        if (box.clickedButton() == nullptr || box.clickedButton() == box.button(escape)) answer = escape;
        switch (answer) {
            case QMessageBox::Yes: return IDYES;
            case QMessageBox::No: return IDNO;
            case QMessageBox::Cancel: return IDCANCEL;
            default: return IDOK;
        }
    });
}

MainWindow::MainWindow(Session& session, QWidget* parent) : QMainWindow(parent), session_(session)
{
    setObjectName(QStringLiteral("zeftcadMainWindow"));
    drawingView_ = new QLabel(this);
    drawingView_->setObjectName(QStringLiteral("drawingView"));
    drawingView_->setAlignment(Qt::AlignCenter);
    drawingView_->setAutoFillBackground(true);
    QPalette dark = drawingView_->palette();
    dark.setColor(QPalette::Window, QColor(33, 40, 48));
    dark.setColor(QPalette::WindowText, QColor(150, 160, 170));
    drawingView_->setPalette(dark);
    drawingView_->setMinimumSize(320, 200);
    setCentralWidget(drawingView_);
    createMenus();
    createPanels();
    resize(1200, 760);
    resizeDocks({findChild<QDockWidget*>(QStringLiteral("layersDock"))}, {440}, Qt::Horizontal);
    resizeDocks({findChild<QDockWidget*>(QStringLiteral("commandDock"))}, {180}, Qt::Vertical);

    acedSetAcadFrame(this);
    acutSetPrintSink([this](const std::wstring& text) { commandLine_->print(QString::fromStdWString(text)); });
    ZEFTUITools::setMessageBoxHandler(&showMessageBox);
    ZEFTHelpTools::setHelpHandler(&showHelp);
    refresh();
    fitColumns();
    commandLine_->setFocus();
}

MainWindow::~MainWindow()
{
    ZEFTUITools::setMessageBoxHandler(nullptr);
    ZEFTHelpTools::setHelpHandler(nullptr);
    acutSetPrintSink(nullptr);
    if (acedGetAcadFrame() == this) acedSetAcadFrame(nullptr);
}

void showHelp(int book, int topic)
{
    ZEFT_GUARD_VOID("zeftcad::showHelp", {
        // The layer standard editor's pages share one topic.
        const QString page = topic >= 17500 && topic < 17800 ? QStringLiteral("editor.md") : QStringLiteral("zeftcad.md");
        const QString folder = qEnvironmentVariableIsSet("ZEFT_DOCS_DIR") ? qEnvironmentVariable("ZEFT_DOCS_DIR")
                                                                          : QStringLiteral(ZEFT_DOCS_DIR);
        const QFileInfo file(QDir(folder).filePath(page));
        if (!file.isReadable()) {
            acutPrintf(L"\nHelp (book %d, topic %d): %ls is not installed.\n", book, topic,
                       file.filePath().toStdWString().c_str());
            return;
        }
        QWidget* parent = QApplication::activeModalWidget();
        if (!parent) parent = QApplication::activeWindow();
        auto* window = new QDialog(parent, Qt::Window);
        window->setObjectName(QStringLiteral("helpWindow"));
        window->setAttribute(Qt::WA_DeleteOnClose);
        window->setWindowTitle(QObject::tr("Help - %1").arg(page));
        auto* browser = new QTextBrowser(window);
        browser->setOpenExternalLinks(true);
        browser->document()->setDocumentMargin(12);
        browser->setSource(QUrl::fromLocalFile(file.absoluteFilePath()), QTextDocument::MarkdownResource);
        auto* layout = new QVBoxLayout(window);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(browser);
        window->resize(760, 640);
        window->show();
    });
}

void MainWindow::createMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* open = file->addAction(tr("&Open…"), this, &MainWindow::OnFileOpen);
    open->setObjectName(QStringLiteral("actionOpen"));
    open->setShortcut(QKeySequence::Open);
    QAction* save = file->addAction(tr("&Save"), this, &MainWindow::OnFileSave);
    save->setObjectName(QStringLiteral("actionSave"));
    save->setShortcut(QKeySequence::Save);
    QAction* saveAs = file->addAction(tr("Save &As…"), this, &MainWindow::OnFileSaveAs);
    saveAs->setObjectName(QStringLiteral("actionSaveAs"));
    saveAs->setShortcut(QKeySequence::SaveAs);
    file->addSeparator();
    QAction* quit = file->addAction(tr("&Quit"), this, &QWidget::close);
    quit->setObjectName(QStringLiteral("actionQuit"));
    quit->setShortcut(QKeySequence::Quit);

    QMenu* standard = menuBar()->addMenu(tr("&Layer standard"));
    QAction* edit = standard->addAction(tr("&Edit…"), this, &MainWindow::OnLayerStandardEdit);
    edit->setObjectName(QStringLiteral("actionEditStandard"));
}

void MainWindow::createPanels()
{
    layers_ = new LayerModel(this);
    layerList_ = newList("layerList", layers_, this);
    addDockWidget(Qt::RightDockWidgetArea, newDock(tr("Layers"), "layersDock", layerList_, this));
    entities_ = new EntityModel(this);
    entityList_ = newList("entityList", entities_, this);
    addDockWidget(Qt::RightDockWidgetArea, newDock(tr("Entities"), "entitiesDock", entityList_, this));
    commandLine_ = new CommandLine(this);
    addDockWidget(Qt::BottomDockWidgetArea, newDock(tr("Command line"), "commandDock", commandLine_, this));
    connect(commandLine_, &CommandLine::lineEntered, this, [this](const QString& line) { runCommandLine(line); });
}

void MainWindow::fitColumns()
{
    for (QTreeView* view : {layerList_, entityList_})
        for (int c = 0; c < view->model()->columnCount() - 1; ++c) view->resizeColumnToContents(c);
}

void MainWindow::refresh()
{
    ZEFT_GUARD_VOID("MainWindow::refresh", {
        std::vector<EntityRow> rows = session_.entities();
        const auto paper = std::count_if(rows.begin(), rows.end(), [](const EntityRow& r) { return r.paperSpace; });
        const auto model = qsizetype(rows.size()) - paper;
        entities_->setRows(std::move(rows));
        layers_->setRows(session_.layers());
        const QString path = QString::fromStdString(session_.path());
        const QString name = path.isEmpty() ? tr("Untitled") : QFileInfo(path).fileName();
        setWindowTitle(tr("%1[*] - zeftcad").arg(name));
        setWindowModified(session_.modified());
        drawingView_->setText(
            tr("%1\n\nEntities: %2 in model space, %3 in the current paper space").arg(name).arg(model).arg(paper));
    });
}

MainWindow::Outcome MainWindow::execute(const QString& line)
{
    Outcome out;
    ZEFT_GUARD_VOID("MainWindow::execute", {
        if (isBlankOrComment(line)) return;
        ++linesStarted_;
        commandLine_->printLine(tr("Command: %1").arg(line.trimmed()));
        const LineOutcome r = session_.runLine(line.toStdWString());
        out.ran = r.command;
        out.failed = r.failed;
        out.error = QString::fromStdString(r.error);
        refresh();
    });
    return out;
}

bool MainWindow::runCommandLine(const QString& line)
{
    const Outcome r = execute(line);
    if (r.failed) commandLine_->printLine(r.error);
    return !r.failed;
}

QStringList MainWindow::runScript(const std::wstring& text, const QString& name)
{
    QStringList failures;
    const QStringList lines = QString::fromStdWString(text).split(QLatin1Char('\n'));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const Outcome r = execute(lines[i]);
        if (!r.failed) continue;
        failures.append(QStringLiteral("%1:%2: %3").arg(name).arg(i + 1).arg(r.error));
        commandLine_->printLine(failures.back());
    }
    return failures;
}

bool MainWindow::maybeSave()
{
    ZEFT_GUARD("MainWindow::maybeSave", false, {
        if (!session_.modified()) return true;
        const QString path = QString::fromStdString(session_.path());
        const QString name = path.isEmpty() ? tr("Untitled") : QFileInfo(path).fileName();
        const int answer = ZEFTUITools::MessageBoxW(
            tr("%1 has unsaved changes. Save them?").arg(name).toStdWString(), MB_YESNOCANCEL | MB_ICONQUESTION, this);
        if (answer == IDYES) return OnFileSave();
        return answer == IDNO;
    });
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    ZEFT_GUARD_VOID("MainWindow::closeEvent", {
        if (maybeSave()) event->accept();
        else event->ignore();
    });
}

void MainWindow::OnFileOpen()
{
    ZEFT_GUARD_VOID("MainWindow::OnFileOpen", {
        if (!maybeSave()) return;
        QFileDialog dialog(this, tr("Open a drawing"), QFileInfo(QString::fromStdString(session_.path())).path(),
                           tr("Drawings (*.dxf);;All files (*)"));
        dialog.setObjectName(QStringLiteral("openDialog"));
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.setFileMode(QFileDialog::ExistingFile);
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return;
        const QString path = dialog.selectedFiles().front();
        std::vector<std::string> warnings;
        const std::string why = session_.open(path.toStdString(), warnings);
        if (!why.empty()) {
            ZEFTUITools::MessageBoxW(QString::fromStdString(why).toStdWString(), MB_OK | MB_ICONERROR, this);
            return;
        }
        for (const std::string& w : warnings) commandLine_->printLine(tr("Warning: %1").arg(QString::fromStdString(w)));
        commandLine_->printLine(tr("Opened %1").arg(path));
        refresh();
        fitColumns();
    });
}

bool MainWindow::OnFileSave()
{
    ZEFT_GUARD("MainWindow::OnFileSave", false, {
        const std::string path = session_.path();
        return path.empty() ? OnFileSaveAs() : saveTo(QString::fromStdString(path));
    });
}

bool MainWindow::OnFileSaveAs()
{
    ZEFT_GUARD("MainWindow::OnFileSaveAs", false, {
        QFileDialog dialog(this, tr("Save the drawing as"), QString::fromStdString(session_.path()),
                           tr("Drawings (*.dxf)"));
        dialog.setObjectName(QStringLiteral("saveDialog"));
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setDefaultSuffix(QStringLiteral("dxf"));
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return false;
        return saveTo(dialog.selectedFiles().front());
    });
}

bool MainWindow::saveTo(const QString& path)
{
    const std::string why = session_.save(path.toStdString());
    if (!why.empty()) {
        ZEFTUITools::MessageBoxW(tr("The drawing was not saved: %1").arg(QString::fromStdString(why)).toStdWString(),
                                 MB_OK | MB_ICONERROR, this);
        return false;
    }
    commandLine_->printLine(tr("Saved %1").arg(path));
    refresh();
    return true;
}

void MainWindow::OnLayerStandardEdit()
{
    ZEFT_GUARD_VOID("MainWindow::OnLayerStandardEdit", { runCommandLine(QStringLiteral("zeftlayerstandard")); });
}

}  // namespace zeftcad
