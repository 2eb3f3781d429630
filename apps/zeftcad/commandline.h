// The command line: what commands print above, the line typed below, with
// the lines typed before a key press away (Up, Down).
#pragma once

#include <QStringList>
#include <QWidget>

class QLineEdit;
class QPlainTextEdit;

namespace zeftcad {

class CommandLine : public QWidget {
    Q_OBJECT
public:
    explicit CommandLine(QWidget* parent = nullptr);
    // Appends printed text as it comes (it carries its own line ends).
    void print(const QString& text);
    // Appends a line of its own.
    void printLine(const QString& line);
    QLineEdit* input() const { return input_; }
    QPlainTextEdit* output() const { return output_; }
    const QStringList& history() const { return history_; }

signals:
    void lineEntered(const QString& line);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void OnReturnPressed();
    void recall(int step);

    QPlainTextEdit* output_;
    QLineEdit* input_;
    QStringList history_;
    int recalled_ = 0;  // position in the history while recalling; history_.size() when not
    QString draft_;     // what was typed before recalling
};

}  // namespace zeftcad
