#include "apps/zeftcad/commandline.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTextBlock>
#include <QVBoxLayout>

#include "suite/wybase.h"

namespace zeftcad {

CommandLine::CommandLine(QWidget* parent) : QWidget(parent)
{
    output_ = new QPlainTextEdit(this);
    output_->setObjectName(QStringLiteral("commandOutput"));
    output_->setReadOnly(true);
    output_->setFocusPolicy(Qt::ClickFocus);
    output_->setMaximumBlockCount(5000);
    output_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    output_->setMinimumHeight(output_->fontMetrics().lineSpacing() * 5);

    input_ = new QLineEdit(this);
    input_->setObjectName(QStringLiteral("commandLine"));
    input_->setFont(output_->font());
    input_->installEventFilter(this);
    auto* prompt = new QLabel(tr("Command:"), this);
    prompt->setBuddy(input_);

    auto* row = new QHBoxLayout;
    row->addWidget(prompt);
    row->addWidget(input_, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 4);
    layout->addWidget(output_, 1);
    layout->addLayout(row);
    setFocusProxy(input_);

    connect(input_, &QLineEdit::returnPressed, this, &CommandLine::OnReturnPressed);
}

void CommandLine::print(const QString& text)
{
    ZEFT_GUARD_VOID("CommandLine::print", {
        QString t = text;
        QTextCursor end(output_->document());
        end.movePosition(QTextCursor::End);
        // Commands start their messages on a new line; one already begun is enough.
        if (end.block().text().isEmpty())
            while (t.startsWith(QLatin1Char('\n'))) t.remove(0, 1);
        end.insertText(t);
        output_->verticalScrollBar()->setValue(output_->verticalScrollBar()->maximum());
    });
}

void CommandLine::printLine(const QString& line)
{
    QTextCursor end(output_->document());
    end.movePosition(QTextCursor::End);
    print((end.block().text().isEmpty() ? QString() : QStringLiteral("\n")) + line + QLatin1Char('\n'));
}

void CommandLine::OnReturnPressed()
{
    ZEFT_GUARD_VOID("CommandLine::OnReturnPressed", {
        const QString line = input_->text();
        input_->clear();
        if (!line.trimmed().isEmpty() && (history_.isEmpty() || history_.back() != line)) history_.append(line);
        recalled_ = int(history_.size());
        draft_.clear();
        emit lineEntered(line);
    });
}

void CommandLine::recall(int step)
{
    const int size = int(history_.size());
    const int next = recalled_ + step;
    if (next < 0 || next > size) return;
    if (recalled_ == size) draft_ = input_->text();
    recalled_ = next;
    input_->setText(next == size ? draft_ : history_.at(next));
}

bool CommandLine::eventFilter(QObject* watched, QEvent* event)
{
    ZEFT_GUARD("CommandLine::eventFilter", false, {
        if (watched == input_ && event->type() == QEvent::KeyPress) {
            const int key = static_cast<QKeyEvent*>(event)->key();
            if (key == Qt::Key_Up || key == Qt::Key_Down) {
                recall(key == Qt::Key_Up ? -1 : 1);
                return true;
            }
        }
        return QWidget::eventFilter(watched, event);
    });
}

}  // namespace zeftcad
