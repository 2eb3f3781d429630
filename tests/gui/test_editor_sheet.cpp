// The layer standard editor as its keeper uses it: the sheet opened on a
// drawing's standard, rules typed and picked, functions and enumerations
// added, renamed and deleted, exceptions chosen in the class tree, and the
// result saved as a file that installs back into a drawing.
#include <QFileDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTreeView>

#include "guitestenv.h"
#include "host/database.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "suite/zeftregistrytools.h"
#include "zeftlayermanager/grid/zeftdlgselectstring.h"
#include "zeftlayermanager/grid/zeftinplaceeditors.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/zeftlayerenumspage.h"
#include "zeftlayermanager/zeftlayerexceptionspage.h"
#include "zeftlayermanager/zeftlayerfunctionspage.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandardpage.h"
#include "zeftlayermanager/zeftlayerstandardsheet.h"
#include "zeftlayermanager/zeftrulefunction.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrxclassinfo.h"

using guitest::columnTexts;
using guitest::typeInto;

namespace {

QString dataPath(const char* name) { return QStringLiteral(ZEFT_SOURCE_DIR "/tests/data/") + QLatin1String(name); }

// The prepared sample (a project, level "Niveau 0" active) with the standard of that file instead of its own.
AcApDocument* openDrawing(const QString& standard)
{
    AcApDocument* doc = acDocManager->open(AcDbDatabase::readDxf(dataPath("sample-project.dxf").toStdString()));
    ZEFTLayerManagerUtil::removeLayerStandard(doc->database());
    ZEFTLayerManagerUtil::installStandardFromPath(doc->database(), standard.toStdWString(), L"standard.std");
    return doc;
}

// The layers the drawing's entities go on when a command made them.
QStringList layerNames(AcDbDatabase* db)
{
    ApplicationContext ctx;
    ZEFTLayerManagerUtil::getApplicationContext(ctx, db, L"LINE", AcDbObjectId());
    QStringList names;
    AcDbObjectPointer<AcDbBlockTableRecord> space(db->modelSpaceId(), AcDb::kForRead);
    for (const AcDbObjectId& id : space->entityIds()) {
        ZEFTLayerManagerUtil::processEntityLayerRules(id, ctx);
        AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
        names << QString::fromStdWString(entity->layer());
    }
    return names;
}

QList<RuleField> modelRuleOf(AcDbDatabase* db)
{
    std::vector<RuleField> fields;
    AcDbObjectPointer<ZEFTLayerRule> rule(ZEFTLayerManagerUtil::getModelRuleFromDictionary(db), AcDb::kForRead);
    if (rule) rule->getFields(fields);
    return QList<RuleField>(fields.begin(), fields.end());
}

// Presses the sheet's "Save as..." and, in the file dialog, chooses `file`
// (an empty name cancels the dialog).
void saveAs(ZEFTLayerStandardSheet& sheet, const QString& file)
{
    guitest::onNextModal([file](QWidget* modal) {
        auto* dialog = qobject_cast<QFileDialog*>(modal);
        QVERIFY(dialog);
        if (file.isEmpty()) return dialog->reject();
        auto* name = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
        QVERIFY(name);
        name->setText(file);
        QTest::keyClick(name, Qt::Key_Return);
    }, &sheet);
    QTest::mouseClick(sheet.findChild<QPushButton*>(zeftControlName(IDC_BUTTON_OK)), Qt::LeftButton);
}

void chooseInClassTree(ZEFTGridCtrl& grid, int row, const QString& display)
{
    grid.setFocus();
    grid.setCurrentCell(row - grid.GetFixedRowCount(), 0);
    QTest::keyClick(&grid, Qt::Key_F2);
    auto* tree = qobject_cast<ZEFTTreeCombo*>(grid.GetEditor());
    QVERIFY(tree);
    tree->showPopup();
    QTreeView* view = tree->treeView();
    const QModelIndexList found = view->model()->match(view->model()->index(0, 0), Qt::DisplayRole, display, 1,
                                                       Qt::MatchExactly | Qt::MatchRecursive);
    QCOMPARE(found.size(), 1);
    for (QModelIndex parent = found[0].parent(); parent.isValid(); parent = parent.parent()) view->expand(parent);
    view->scrollTo(found[0]);
    QTRY_VERIFY(view->isVisible());
    // A click on a group closes or opens it and keeps the list open; a click on a class chooses it.
    const QModelIndex group = found[0].parent();
    for (const bool expanded : {false, true}) {
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(group).center());
        QVERIFY(view->isVisible());
        QCOMPARE(view->isExpanded(group), expanded);
    }
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(found[0]).center());
    QTRY_VERIFY(!grid.IsEditing());
}

QStringList listTexts(const QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i) out << list->item(i)->text();
    return out;
}

}  // namespace

class SheetTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    AcApDocument* doc_ = nullptr;

private slots:
    void initTestCase()
    {
        QVERIFY(dir_.isValid());
        ZEFTRegistryTools::SetBeltrixDataPath(dir_.path().toStdWString());
    }
    void init() { doc_ = openDrawing(dataPath("gui-sheet.std")); }
    void cleanup() { acDocManager->close(doc_); }

    void opensOnTheDrawingsStandardInTabOrder()
    {
        ZEFTLayerStandardSheet sheet(17700);
        QTabWidget* tabs = sheet.GetTabs();
        QCOMPARE(tabs->count(), 4);
        QCOMPARE(tabs->widget(0), sheet.GetStandardPage());
        QCOMPARE(tabs->widget(1), sheet.GetEnumsPage());
        QCOMPARE(tabs->widget(2), sheet.GetFunctionsPage());
        QCOMPARE(tabs->widget(3), sheet.GetExceptionsPage());
        QCOMPARE(sheet.GetStandardPage()->GetNameEdit()->text(), QStringLiteral("Standard d'\u00E9tage"));
        QCOMPARE(guitest::rowTexts(*sheet.GetStandardPage()->GetModelGrid(), 0),
                 QStringList({"B\u00E2timent", "Niveau", "Type", ""}));
        QCOMPARE(listTexts(sheet.GetEnumsPage()->GetList()), QStringList({"Niveaux", "Lots"}));
        QCOMPARE(columnTexts(*sheet.GetEnumsPage()->GetGrid(), 0), QStringList({guitest::qprompt(17707), "RDC", "R+1", "R+2", ""}));
        // The viewport class is named for what it is in a drawing of the suite.
        QCOMPARE(columnTexts(*sheet.GetExceptionsPage()->GetGrid(), 0).mid(1, 1), QStringList({"viewport frames"}));
        // The drawing's standard is edited as a copy.
        QVERIFY(sheet.GetData().functions[0]->objectId().isNull());

        // scripts/screenshots.sh asks for the pictures of the four pages.
        const QString shots = qEnvironmentVariable("ZEFT_SCREENSHOTS");
        if (shots.isEmpty()) return;
        const char* names[] = {"standard", "enums", "functions", "exceptions"};
        QVERIFY(guitest::showActive(sheet));
        for (int i = 0; i < tabs->count(); ++i) {
            tabs->setCurrentIndex(i);
            QVERIFY(sheet.grab().save(QStringLiteral("%1/editor-%2.png").arg(shots, QLatin1String(names[i]))));
        }
    }

    void standardPageSavesWhatWasTyped()
    {
        guitest::MessageBoxes boxes;
        ZEFTLayerStandardSheet sheet(17700);
        sheet.show();
        QVERIFY(guitest::showActive(sheet));
        ZEFTLayerStandardPage* page = sheet.GetStandardPage();
        ZEFTGridCtrl& model = *page->GetModelGrid();

        // A name typed in the empty last field grows the rule by one column;
        // its value comes from the picker as a call.
        typeInto(model, 0, 3, QStringLiteral("Zone"));
        QCOMPARE(model.GetColumnCount(), 5);
        guitest::onNextModal([](QWidget* modal) {
            auto* picker = qobject_cast<ZEFTDlgSelectString*>(modal);
            QVERIFY(picker);
            auto* list = picker->findChild<QListWidget*>(zeftControlName(IDC_LIST_SELECT_STRING));
            const QList<QListWidgetItem*> items = list->findItems(QStringLiteral("GENERAL TYPE"), Qt::MatchExactly);
            QCOMPARE(items.size(), 1);
            list->setCurrentItem(items[0]);
            QTest::mouseClick(picker->findChild<QPushButton*>(zeftControlName(IDC_BUTTON_OK)), Qt::LeftButton);
        });
        model.setCurrentCell(1, 3);
        QTest::keyClick(&model, Qt::Key_F4);
        QCOMPARE(model.GetItemText(1, 3), QStringLiteral("=GENERAL TYPE()"));
        // A field whose name is cleared is no field.
        typeInto(model, 0, 1, QString());
        page->GetNameEdit()->selectAll();
        QTest::keyClicks(page->GetNameEdit(), QStringLiteral("Essai"));

        // Cancelling the file dialog, or a folder that cannot take the file,
        // keeps the sheet open with the edits.
        saveAs(sheet, QString());
        QVERIFY(sheet.isVisible());
        saveAs(sheet, dir_.filePath(QStringLiteral("missing/essai.std")));
        QVERIFY(sheet.isVisible());
        QCOMPARE(boxes.shown.size(), 1u);
        QVERIFY(boxes.shown[0].text.find(L"missing/essai.std") != std::wstring::npos);

        const QString saved = dir_.filePath(QStringLiteral("essai.std"));
        saveAs(sheet, saved);
        QTRY_VERIFY(!sheet.isVisible());
        QCOMPARE(sheet.result(), int(QDialog::Accepted));
        QCOMPARE(boxes.texts().back(), zeftDisplayText(guitest::prompt(17711)));
        QCOMPARE(QDir(dir_.path()).entryList(QDir::Files | QDir::Hidden), QStringList({"essai.std"}));

        // Installed into another drawing, the file gives the edited rule.
        AcApDocument* other = openDrawing(saved);
        const QList<RuleField> rule = modelRuleOf(other->database());
        acDocManager->close(other);
        QCOMPARE(rule.size(), 3);
        QCOMPARE(QString::fromStdWString(rule[1].name), QStringLiteral("Type"));
        QCOMPARE(QString::fromStdWString(rule[2].name), QStringLiteral("Zone"));
        QCOMPARE(QString::fromStdWString(rule[2].value), QStringLiteral("=GENERAL TYPE()"));
        QVERIFY(rule[2].isFunction);
        // The drawing's own standard is untouched.
        QCOMPARE(modelRuleOf(doc_->database()).size(), 3);
    }

    void unchangedSaveGivesTheSameNames()
    {
        guitest::MessageBoxes boxes;
        const QStringList before = layerNames(doc_->database());
        ZEFTLayerStandardSheet sheet(17700);
        QVERIFY(guitest::showActive(sheet));
        // Every page is visited, so that each hands its grid back.
        for (int i = 0; i < 4; ++i) sheet.GetTabs()->setCurrentIndex(i);
        const QString saved = dir_.filePath(QStringLiteral("same.std"));
        saveAs(sheet, saved);
        QTRY_VERIFY(!sheet.isVisible());
        AcApDocument* other = openDrawing(saved);
        QCOMPARE(layerNames(other->database()), before);
        acDocManager->close(other);
        QVERIFY(before.contains(QStringLiteral("B\u00E2timent A-Niveau 0-Lignes")));
        QVERIFY(before.contains(QStringLiteral("Textes")));
    }

    void listPagesNumberRenameAndDelete_data()
    {
        QTest::addColumn<int>("tab");
        QTest::addColumn<QString>("base");
        QTest::addColumn<QStringList>("added");
        QTest::addColumn<int>("addId");
        // The functions' fixture already has one named "Fonction".
        QTest::newRow("functions") << 2 << QStringLiteral("Fonction") << QStringList({"Fonction 2", "Fonction 3"})
                                   << int(IDC_BUT_LAYER_ADD_FUNC);
        QTest::newRow("enumerations") << 1 << QStringLiteral("Champ") << QStringList({"Champ", "Champ 2"})
                                      << int(IDC_BUT_LAYER_ADD_ENUM);
    }
    void listPagesNumberRenameAndDelete()
    {
        QFETCH(int, tab);
        QFETCH(QString, base);
        QFETCH(QStringList, added);
        QFETCH(int, addId);
        guitest::MessageBoxes boxes;
        ZEFTLayerStandardSheet sheet(17700, nullptr, tab);
        QVERIFY(guitest::showActive(sheet));
        auto* page = static_cast<ZEFTLayerListPage*>(sheet.GetTabs()->widget(tab));
        QListWidget* list = page->GetList();
        auto* add = page->findChild<QPushButton*>(zeftControlName(addId));
        auto* del = page->findChild<QPushButton*>(zeftControlName(addId + 1));

        QTest::mouseClick(add, Qt::LeftButton);
        QTest::mouseClick(add, Qt::LeftButton);
        const QStringList names = listTexts(list);
        QCOMPARE(names.mid(names.size() - 2), added);
        QCOMPARE(list->currentRow(), names.size() - 1);

        // A rename to another's name in other letters is refused and said so.
        list->setCurrentRow(0);
        list->editItem(list->item(0));
        auto* edit = qobject_cast<QLineEdit*>(QApplication::focusWidget());
        QVERIFY(edit);
        edit->setText(base.toUpper());
        QTest::keyClick(edit, Qt::Key_Return);
        QTRY_COMPARE(boxes.shown.size(), std::size_t(1));
        QCOMPARE(list->item(0)->text(), names[0]);
        QCOMPARE(QString::fromStdWString(boxes.shown[0].text), QStringLiteral("Ce nom est d\u00E9j\u00E0 utilis\u00E9."));

        // Deleting asks first; No keeps it, Yes deletes; the last one stays.
        boxes.answers = {IDNO};
        QTest::mouseClick(del, Qt::LeftButton);
        QCOMPARE(list->count(), names.size());
        while (list->count() > 1) QTest::mouseClick(del, Qt::LeftButton);
        QVERIFY(!del->isEnabled());
        QCOMPARE(boxes.texts().back(), std::wstring(L"Etes-vous s\u00FBr de vouloir supprimer?"));
        QCOMPARE(boxes.shown.size(), std::size_t(names.size() + 1));
    }

    void emptyRowsDroppedByFunctionsKeptInsideEnumerations()
    {
        ZEFTLayerStandardSheet sheet(17700, nullptr, 2);
        QVERIFY(guitest::showActive(sheet));
        LayerStandardData& data = sheet.GetData();
        ZEFTGridCtrl& functions = *sheet.GetFunctionsPage()->GetGrid();
        // GENERAL TYPE: header, default, Line, Circle, the empty row.
        typeInto(functions, 2, 1, QString());
        sheet.GetTabs()->setCurrentIndex(1);
        QCOMPARE(data.functions[0]->getPairsNumber(), 1);

        ZEFTGridCtrl& values = *sheet.GetEnumsPage()->GetGrid();
        typeInto(values, 2, 0, QString());
        typeInto(values, 4, 0, QStringLiteral("R+3"));
        sheet.GetTabs()->setCurrentIndex(3);
        const ZEFTRuleEnum* levels = data.enums[0];
        QStringList kept;
        for (int i = 0; i < levels->getValuesNumber(); ++i) kept << QString::fromStdWString(levels->getValue(unsigned(i)));
        QCOMPARE(kept, QStringList({"RDC", "", "R+2", "R+3"}));
    }

    void exceptionClassChosenInTheTree()
    {
        ZEFTLayerStandardSheet sheet(17700, nullptr, 3);
        QVERIFY(guitest::showActive(sheet));
        LayerStandardData& data = sheet.GetData();
        ZEFTGridCtrl& grid = *sheet.GetExceptionsPage()->GetGrid();
        const QString arc = QString::fromStdWString(ZEFTRxClassInfo::GetEntityDisplayName(data.entityClasses, L"AcDbArc"));
        QVERIFY(!arc.isEmpty());
        chooseInClassTree(grid, 3, arc);
        QCOMPARE(grid.GetItemText(3, 0), arc);
        typeInto(grid, 3, 1, QStringLiteral("Arcs"));
        QCOMPARE(grid.GetRowCount(), 5);
        sheet.GetTabs()->setCurrentIndex(0);
        std::wstring className, layer;
        QCOMPARE(data.exception->getPairsNumber(), 3);
        data.exception->getPair(2, className, layer);
        QCOMPARE(QString::fromStdWString(className + L"=" + layer), QStringLiteral("AcDbArc=Arcs"));
    }
};

ZEFT_GUI_TEST_MAIN(SheetTest)
#include "test_editor_sheet.moc"
