// The desktop window driven as a person would: commands typed at its command
// line on a copy of the prepared sample, the panels following, File > Save,
// and the question asked when the window closes with unsaved changes.
#include <QApplication>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QDialog>
#include <QPushButton>
#include <QTextBrowser>
#include <QTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeView>
#include <cstdlib>

#include "apps/zeftcad/mainwindow.h"
#include "apps/zeftcad/panels.h"
#include "apps/zeftcad/session.h"
#include "host/database.h"
#include "host/dxf/codec.h"
#include "suite/zeftregistrytools.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"

namespace {

// The column's texts of a panel, row by row.
QStringList column(QTreeView* view, int col)
{
    QStringList texts;
    for (int r = 0; r < view->model()->rowCount(); ++r) texts << view->model()->index(r, col).data().toString();
    return texts;
}

// The handle a command added to the entity panel.
QString addedHandle(const QStringList& before, QTreeView* entities)
{
    for (const QString& h : column(entities, zeftcad::EntityModel::Handle))
        if (!before.contains(h)) return h;
    return {};
}

}  // namespace

class ZeftcadTest : public QObject {
    Q_OBJECT
public:
    explicit ZeftcadTest(zeftcad::Session& session) : session_(session) {}

private:
    // A fresh copy of the sample with the default standard and a project.
    QString preparedCopy(const QString& name)
    {
        const QString path = dir_.filePath(name);
        const QString command = QStringLiteral("'%1/examples/prepare_sample.sh' '%2' '%3' '%4' >/dev/null")
                                    .arg(QStringLiteral(ZEFT_SOURCE_DIR), QStringLiteral(ZEFTLAYER_PROGRAM),
                                         dir_.filePath(QStringLiteral("data")), path);
        if (std::system(command.toUtf8().constData()) != 0) return {};
        std::vector<std::string> warnings;
        if (!session_.open(path.toStdString(), warnings).empty()) return {};
        return path;
    }
    static QString layerOf(const std::string& file, const std::string& handle)
    {
        auto db = AcDbDatabase::readDxf(file);
        AcDbHandle h;
        AcDbHandle::parse(handle, h);
        AcDbObjectPointer<AcDbEntity> entity(db->idOf(h), AcDb::kForRead);
        return entity ? QString::fromStdWString(entity->layer()) : QString();
    }

    zeftcad::Session& session_;
    QTemporaryDir dir_;

private slots:
    void initTestCase()
    {
        QVERIFY(dir_.isValid());
        ZEFTRegistryTools::SetBeltrixDataPath(dxf::fromUtf8(dir_.filePath(QStringLiteral("data")).toStdString()));
    }

    void commandLineEditsAndSaves()
    {
        const QString path = preparedCopy(QStringLiteral("plan.dxf"));
        QVERIFY(!path.isEmpty());
        zeftcad::MainWindow window(session_);
        window.show();
        auto* input = window.findChild<QLineEdit*>(QStringLiteral("commandLine"));
        auto* entities = window.findChild<QTreeView*>(QStringLiteral("entityList"));
        auto* layers = window.findChild<QTreeView*>(QStringLiteral("layerList"));
        QVERIFY(input && entities && layers);
        QVERIFY(!window.isWindowModified());
        const QStringList handlesBefore = column(entities, zeftcad::EntityModel::Handle);
        QVERIFY(!handlesBefore.isEmpty());

        for (const char* line : {"LAYER make Test", "LINE 0,0 10,0", "LINE 0,0 oops"}) {
            QTest::keyClicks(input, QLatin1String(line));
            QTest::keyClick(input, Qt::Key_Return);
        }
        // LAYER made the current layer; LINE's entity was moved off it at command end.
        QVERIFY(column(layers, zeftcad::LayerModel::Name).contains(QStringLiteral("Test")));
        QCOMPARE(column(entities, 0).size(), handlesBefore.size() + 1);
        const QString handle = addedHandle(handlesBefore, entities);
        const int row = int(column(entities, zeftcad::EntityModel::Handle).indexOf(handle));
        const QString layer = entities->model()->index(row, zeftcad::EntityModel::Layer).data().toString();
        QCOMPARE(layer, QStringLiteral("Bâtiment A. Niveau 0"));
        QVERIFY(column(layers, zeftcad::LayerModel::Name).contains(layer));
        QCOMPARE(entities->model()->index(row, zeftcad::EntityModel::Class).data().toString(),
                 QStringLiteral("AcDbLine"));
        const QString output = window.findChild<QPlainTextEdit*>(QStringLiteral("commandOutput"))->toPlainText();
        QVERIFY2(output.contains(QStringLiteral("Command: LINE 0,0 10,0")), qPrintable(output));
        QVERIFY2(output.contains(QStringLiteral("LINE: second point")), qPrintable(output));
        QVERIFY(window.isWindowModified());
        QVERIFY(window.windowTitle().startsWith(QStringLiteral("plan.dxf")));
        QTest::keyClick(input, Qt::Key_Up);
        QCOMPARE(input->text(), QStringLiteral("LINE 0,0 oops"));

        window.findChild<QAction*>(QStringLiteral("actionSave"))->trigger();
        QVERIFY(!window.isWindowModified());
        QCOMPARE(layerOf(path.toStdString(), handle.toStdString()), layer);
    }

    // The command opens the editor over the window; its help button shows the editor's page.
    void editorOpensWithItsHelp()
    {
        QVERIFY(!preparedCopy(QStringLiteral("editor.dxf")).isEmpty());
        zeftcad::MainWindow window(session_);
        window.show();
        QString title, help;
        QTimer::singleShot(0, [&] {
            QWidget* sheet = QApplication::activeModalWidget();
            QVERIFY(sheet);
            title = sheet->windowTitle();
            QTest::mouseClick(sheet->findChild<QPushButton*>(zeftControlName(IDC_BUTTON_HELP)), Qt::LeftButton);
            auto* browser = sheet->findChild<QTextBrowser*>();
            QVERIFY(browser);
            help = browser->toPlainText();
            qobject_cast<QDialog*>(sheet)->reject();
        });
        QVERIFY(window.runCommandLine(QStringLiteral("zeftlayerstandard")));
        QCOMPARE(title, QStringLiteral("Standard de noms de calques"));
        QVERIFY2(help.contains(QStringLiteral("The layer standard editor")), qPrintable(help.left(200)));
    }

    void closeAsksAboutUnsavedChanges_data()
    {
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("closes");
        QTest::addColumn<bool>("saved");
        QTest::newRow("cancel") << int(IDCANCEL) << false << false;
        QTest::newRow("no") << int(IDNO) << true << false;
        QTest::newRow("yes") << int(IDYES) << true << true;
    }
    void closeAsksAboutUnsavedChanges()
    {
        QFETCH(int, answer);
        QFETCH(bool, closes);
        QFETCH(bool, saved);
        const QString path = preparedCopy(QStringLiteral("close-%1.dxf").arg(QTest::currentDataTag()));
        QVERIFY(!path.isEmpty());
        zeftcad::MainWindow window(session_);
        window.show();
        auto* entities = window.findChild<QTreeView*>(QStringLiteral("entityList"));
        const QStringList before = column(entities, zeftcad::EntityModel::Handle);
        QVERIFY(window.runCommandLine(QStringLiteral("CIRCLE 5,5 2")));
        const std::string handle = addedHandle(before, entities).toStdString();
        QString asked;
        ZEFTUITools::setMessageBoxHandler([&](const std::wstring&, const std::wstring& text, unsigned flags) {
            asked = QString::fromStdWString(text);
            return (flags & 0xF) == MB_YESNOCANCEL ? answer : IDOK;
        });
        QCOMPARE(window.close(), closes);
        QVERIFY2(asked.contains(QStringLiteral("close-")), qPrintable(asked));
        QCOMPARE(layerOf(path.toStdString(), handle).isEmpty(), !saved);
    }
};

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // The session outlives the application: the module unloads after Qt is gone.
    zeftcad::Session session;
    if (const std::string why = session.start(); !why.empty()) {
        std::fprintf(stderr, "%s\n", why.c_str());
        return 1;
    }
    QApplication app(argc, argv);
    ZeftcadTest test(session);
    return QTest::qExec(&test, argc, argv);
}

#include "test_zeftcad.moc"
