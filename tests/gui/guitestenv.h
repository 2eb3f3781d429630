// What the editor's GUI tests share: an offscreen application with the
// module's classes and prompts, answers to message boxes, actions on the
// modal dialog that opens next, and key strokes into grid cells.
#pragma once

#include <QApplication>
#include <QTest>
#include <QTimer>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "suite/wybase.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/grid/zeftgridctrl.h"
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"
#include "zeftlayermanager/zeftfiling.h"

namespace guitest {

// Message boxes shown, each with its flags; answered from `answers`, then IDOK/IDYES.
struct MessageBoxes {
    struct Shown {
        std::wstring text;
        unsigned flags;
    };
    std::vector<Shown> shown;
    std::deque<int> answers;

    MessageBoxes()
    {
        ZEFTUITools::setMessageBoxHandler([this](const std::wstring&, const std::wstring& text, unsigned flags) {
            shown.push_back({text, flags});
            if (!answers.empty()) {
                const int answer = answers.front();
                answers.pop_front();
                return answer;
            }
            return (flags & 0xF) == MB_YESNO ? int(IDYES) : int(IDOK);
        });
    }
    ~MessageBoxes() { ZEFTUITools::setMessageBoxHandler(nullptr); }
    MessageBoxes(const MessageBoxes&) = delete;
    MessageBoxes& operator=(const MessageBoxes&) = delete;
    std::vector<std::wstring> texts() const
    {
        std::vector<std::wstring> out;
        for (const Shown& s : shown) out.push_back(s.text);
        return out;
    }
};

inline std::wstring prompt(int number) { return WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", number); }
inline QString qprompt(int number) { return QString::fromStdWString(prompt(number)); }

// Runs `act` on the next modal dialog once it is open (the caller then
// blocks in exec()). A dialog that never opens fails the test after 5 s.
inline void onNextModal(std::function<void(QWidget*)> act, QWidget* besides = nullptr)
{
    auto* timer = new QTimer;
    auto started = std::make_shared<int>(0);
    QObject::connect(timer, &QTimer::timeout, [timer, act, besides, started] {
        QWidget* modal = QApplication::activeModalWidget();
        if (modal && modal != besides) {
            timer->stop();
            timer->deleteLater();
            act(modal);
        } else if (++*started > 500) {
            timer->stop();
            timer->deleteLater();
            QFAIL("no modal dialog opened");
        }
    });
    timer->start(10);
}

// Key strokes for any text; QTest's own take ASCII only.
inline void typeText(QWidget* widget, const QString& text)
{
    for (const QChar ch : text) {
        if (ch.unicode() < 0x80)
            QTest::keyClick(widget, char(ch.unicode()));
        else
            QTest::sendKeyEvent(QTest::Click, widget, Qt::Key_unknown, QString(ch), Qt::NoModifier);
    }
}

// Shows the widget as the active window, so that keys reach its focus.
inline bool showActive(QWidget& widget)
{
    widget.show();
    QApplication::setActiveWindow(&widget);
    return QTest::qWaitForWindowActive(&widget);
}

// Makes the cell current and types into it as a person would; Enter commits.
inline void typeInto(ZEFTGridCtrl& grid, int row, int column, const QString& text, bool commit = true)
{
    // A dialog closed before may have left no window active.
    QApplication::setActiveWindow(grid.window());
    grid.setCurrentCell(row - grid.GetFixedRowCount(), column - grid.GetFixedColumnCount());
    grid.setFocus();
    QTest::keyClick(&grid, Qt::Key_F2);
    QWidget* editor = QApplication::focusWidget();
    QTest::keyClick(editor, Qt::Key_A, Qt::ControlModifier);
    if (text.isEmpty())
        QTest::keyClick(editor, Qt::Key_Delete);
    else
        typeText(editor, text);
    if (commit) {
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_VERIFY(!grid.IsEditing());
    }
}

inline QStringList rowTexts(const ZEFTGridCtrl& grid, int row)
{
    QStringList out;
    for (int c = 0; c < grid.GetColumnCount(); ++c) out << grid.GetItemText(row, c);
    return out;
}

inline QStringList columnTexts(const ZEFTGridCtrl& grid, int column)
{
    QStringList out;
    for (int r = 0; r < grid.GetRowCount(); ++r) out << grid.GetItemText(r, column);
    return out;
}

// The module's classes and prompts, and an offscreen platform.
inline void startModule()
{
    zeft_filing::registerClasses();
    WyPrompts::registerTable(L"ZEFTLAYERMANAGER", &zeftLayerManagerPrompts());
}

}  // namespace guitest

// A Qt Test main that runs offscreen with the module started.
#define ZEFT_GUI_TEST_MAIN(TestClass)                  \
    int main(int argc, char** argv)                    \
    {                                                  \
        qputenv("QT_QPA_PLATFORM", "offscreen");       \
        QApplication app(argc, argv);                  \
        guitest::startModule();                        \
        TestClass test;                                \
        return QTest::qExec(&test, argc, argv);        \
    }
