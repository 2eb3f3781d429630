// The editor's grid as a person uses it: growing while fields and rows are
// typed, the spreadsheet keys, title tips, the function picker and the
// in-place editors.
#include <QHelpEvent>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QToolTip>

#include "guitestenv.h"
#include "zeftlayermanager/grid/zeftdlgselectstring.h"
#include "zeftlayermanager/grid/zeftinplaceeditors.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/zeftruleenum.h"

using guitest::typeInto;

namespace {

// A rule as the standard page shows it: a name row over a value row, the
// last column's value locked.
void ruleGrid(ZEFTGridCtrl& grid, const QStringList& names = {})
{
    grid.SetEditable(true);
    grid.SetGrowByColumns(true);
    grid.SetRowCount(2);
    grid.SetColumnCount(int(names.size()) + 1);
    grid.SetItemState(1, int(names.size()), ZEFTGridCtrl::GVIS_READONLY);
    for (int i = 0; i < names.size(); ++i) grid.SetItemText(0, i, names[i]);
    grid.SetRowEditor(0, ZEFTGridCtrl::Editor::EnumNames);
    grid.SetRowEditor(1, ZEFTGridCtrl::Editor::EnumValues);
}

// A list under a header row, with the empty row that grows it.
void listGrid(ZEFTGridCtrl& grid, int columns)
{
    grid.SetEditable(true);
    grid.SetGrowByRows(true);
    grid.SetRowCount(3);
    grid.SetColumnCount(columns);
    grid.SetFixedRowCount(1);
    grid.SetItemText(0, 0, QStringLiteral("Objet"));
    grid.SetItemText(1, 0, QStringLiteral("a"));
}

QPoint current(const ZEFTGridCtrl& grid)
{
    return {grid.currentRow() + grid.GetFixedRowCount(), grid.currentColumn()};
}

}  // namespace

class GridTest : public QObject {
    Q_OBJECT

private slots:
    void ruleGrowsByOneColumnPerNamedField()
    {
        ZEFTGridCtrl grid;
        ruleGrid(grid);
        QVERIFY(guitest::showActive(grid));
        // The locked value cell of the empty field does not open.
        grid.setCurrentCell(1, 0);
        QTest::keyClick(&grid, Qt::Key_F2);
        QVERIFY(!grid.IsEditing());
        // An empty name never grows it.
        typeInto(grid, 0, 0, QString());
        QCOMPARE(grid.GetColumnCount(), 1);

        typeInto(grid, 0, 0, QStringLiteral("B\u00E2timent"));
        QCOMPARE(grid.GetColumnCount(), 2);
        QCOMPARE(grid.GetItemState(1, 0), 0u);
        QCOMPARE(grid.GetItemState(1, 1), unsigned(ZEFTGridCtrl::GVIS_READONLY));
        QCOMPARE(current(grid), QPoint(1, 0));  // Enter moved down to the value
        typeInto(grid, 1, 0, QStringLiteral("=BUILDING()"));
        QCOMPARE(guitest::rowTexts(grid, 1), QStringList({"=BUILDING()", ""}));
        QCOMPARE(grid.GetColumnCount(), 2);
        QVERIFY(grid.GetModified());
    }

    void spreadsheetKeys()
    {
        struct Case {
            const char* name;
            std::function<void(ZEFTGridCtrl&)> keys;
            QString text;  // of cell (1, 0) afterwards
            QPoint current;
        };
        const auto key = [](Qt::Key k) { return [k](ZEFTGridCtrl& g) { QTest::keyClick(&g, k); }; };
        const auto editAnd = [](Qt::Key first, const QString& typed, Qt::Key last) {
            return [=](ZEFTGridCtrl& g) {
                QTest::keyClick(&g, first);
                QTest::keyClicks(QApplication::focusWidget(), typed);
                QTest::keyClick(QApplication::focusWidget(), last);
            };
        };
        const std::vector<Case> cases = {
            {"F2 edits at the end, Escape cancels", editAnd(Qt::Key_F2, "zz", Qt::Key_Escape), "a", {1, 0}},
            {"F2 edits at the end, Enter commits and moves down", editAnd(Qt::Key_F2, "b", Qt::Key_Return), "ab",
             {2, 0}},
            {"Enter edits, Tab commits and moves right", editAnd(Qt::Key_Return, "c", Qt::Key_Tab), "ac", {1, 1}},
            {"typing replaces the text", editAnd(Qt::Key_N, "ew", Qt::Key_Return), "new", {2, 0}},
            {"Delete clears", key(Qt::Key_Delete), "", {1, 0}},
            {"Tab moves right", key(Qt::Key_Tab), "a", {1, 1}},
            {"arrows move", [](ZEFTGridCtrl& g) { QTest::keyClick(&g, Qt::Key_Right); QTest::keyClick(&g, Qt::Key_Down); }, "a", {2, 1}},
        };
        for (const Case& c : cases) {
            ZEFTGridCtrl grid;
            listGrid(grid, 2);
            QVERIFY(guitest::showActive(grid));
            grid.setFocus();
            grid.setCurrentCell(0, 0);
            c.keys(grid);
            QTRY_VERIFY(!grid.IsEditing());
            QVERIFY2(grid.GetItemText(1, 0) == c.text, c.name);
            QVERIFY2(current(grid) == c.current, c.name);
        }
    }

    void listGrowsWhenItsLastFirstCellIsFilled()
    {
        ZEFTGridCtrl grid;
        listGrid(grid, 2);
        QVERIFY(guitest::showActive(grid));
        typeInto(grid, 2, 1, QStringLiteral("value only"));
        QCOMPARE(grid.GetRowCount(), 3);
        typeInto(grid, 2, 0, QStringLiteral("Line"));
        QCOMPARE(grid.GetRowCount(), 4);
        QCOMPARE(guitest::rowTexts(grid, 3), QStringList({"", ""}));
        // The header row is not a cell: Up from the first row stays there.
        grid.setCurrentCell(0, 0);
        QTest::keyClick(&grid, Qt::Key_Up);
        QCOMPARE(current(grid), QPoint(1, 0));
    }

    void titleTipsShowTextsWiderThanTheirCell()
    {
        ZEFTGridCtrl grid;
        listGrid(grid, 2);
        const QString longText(255, QLatin1Char('w'));
        grid.SetItemText(1, 1, longText);
        grid.SetColumnWidth(1, 60);
        QVERIFY(guitest::showActive(grid));
        QVERIFY(QTest::qWaitForWindowExposed(&grid));
        QCOMPARE(grid.GetTitleTipText(1, 1), longText);
        QCOMPARE(grid.GetTitleTipText(1, 0), QString());  // "a" fits

        const QRect cell = grid.visualItemRect(grid.item(0, 1));
        QHelpEvent tip(QEvent::ToolTip, cell.center(), grid.viewport()->mapToGlobal(cell.center()));
        QApplication::sendEvent(grid.viewport(), &tip);
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), longText);
    }

    void pickerWritesTheChosenCall()
    {
        ZEFTGridCtrl grid;
        ruleGrid(grid, {QStringLiteral("Building")});
        grid.SetFunctionNames({L"PROJECT", L"BUILDING"}, {L"project help", L"building help"});
        QVERIFY(guitest::showActive(grid));
        for (const bool ok : {false, true}) {
            QStringList helps;
            guitest::onNextModal([&](QWidget* modal) {
                auto* dialog = qobject_cast<ZEFTDlgSelectString*>(modal);
                QVERIFY(dialog);
                auto* list = dialog->findChild<QListWidget*>(zeftControlName(IDC_LIST_SELECT_STRING));
                auto* help = dialog->findChild<QLabel*>(zeftControlName(IDC_STATIC_SELECT_HELP));
                helps << help->text();
                QTest::keyClick(list, Qt::Key_Down);
                helps << help->text();
                QTest::mouseClick(dialog->findChild<QPushButton*>(zeftControlName(ok ? IDC_BUTTON_OK : IDC_BUTTON_CANCEL)),
                                  Qt::LeftButton);
            });
            grid.setCurrentCell(1, 0);
            QTest::keyClick(&grid, Qt::Key_F4);
            QCOMPARE(helps, QStringList({"project help", "building help"}));
            QCOMPARE(grid.GetItemText(1, 0), ok ? QStringLiteral("=BUILDING()") : QString());
        }
    }

    void inPlaceEditorsOfferTheStandardsLists()
    {
        LayerStandardData data;
        auto* levels = new ZEFTRuleEnum;
        levels->setName(L"Level");
        levels->addValue(L"RDC");
        levels->addValue(L"R+1");
        data.enums.push_back(levels);

        ZEFTGridCtrl rule;
        ruleGrid(rule, {QStringLiteral("Level")});
        rule.SetLayerStandardData(&data);
        QVERIFY(guitest::showActive(rule));
        const auto comboItems = [](ZEFTGridCtrl& grid, int row) {
            grid.setCurrentCell(row, 0);
            QTest::keyClick(&grid, Qt::Key_F2);
            auto* list = qobject_cast<ZEFTInPlaceList*>(grid.GetEditor());
            QStringList items;
            for (int i = 0; list && i < list->count(); ++i) items << list->itemText(i);
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
            return items;
        };
        QCOMPARE(comboItems(rule, 0), QStringList({"Level"}));
        QCOMPARE(comboItems(rule, 1), QStringList({"RDC", "R+1"}));
    }
};

ZEFT_GUI_TEST_MAIN(GridTest)
#include "test_editor_grid.moc"
