#include "apps/zeftcad/app.h"

#include <QApplication>
#include <QDialog>
#include <QPixmap>
#include <QTimer>
#include <cstdio>
#include <optional>

#include "apps/zeftcad/commandline.h"
#include "apps/zeftcad/mainwindow.h"
#include "apps/zeftcad/session.h"
#include "apps/zeftlayer/commands.h"
#include "host/dxf/codec.h"
#include "suite/wybase.h"
#include "suite/zeftregistrytools.h"

namespace zeftcad {
namespace {

constexpr const char* kHelp =
    "Usage: zeftcad [DRAWING] [--run SCRIPT] [--screenshot FILE.png] [--data-dir DIR]\n\n"
    "The desktop window of the layer manager. It opens DRAWING (a DXF drawing; an\n"
    "empty drawing without one) and shows its layers and entities beside a command\n"
    "line where drawing commands and the layer manager's commands run as in\n"
    "'zeftlayer run', each followed by the re-layering of what it appended.\n"
    "\"Layer standard > Edit...\" (the command zeftlayerstandard) opens the editor\n"
    "of the drawing's layer standard.\n\n"
    "  --run SCRIPT           run the lines of SCRIPT in the window, one after the\n"
    "                         other, as typed at its command line (docs/scripts.md);\n"
    "                         a failing line is shown there and on standard error\n"
    "                         and makes the exit code 1\n"
    "  --screenshot FILE.png  after the script, write a picture of the window, or of\n"
    "                         the dialog the script's last line opened, and quit\n"
    "  --data-dir DIR         the suite's data folder (standards in\n"
    "                         DIR/Support/Layer Standards)\n"
    "  -h, --help             show this help\n"
    "  -V, --version          show the version\n\n"
    "Exit codes: 0 success, 1 failure (a drawing or script that cannot be read, a\n"
    "failing script line, a picture that cannot be written), 2 usage error.\n";

struct Options {
    std::string drawing, script, screenshot;
    bool help = false, version = false;
};

int usage(const std::string& msg)
{
    std::fprintf(stderr, "zeftcad: %s\nTry 'zeftcad --help'.\n", msg.c_str());
    return kUsage;
}

int failure(const std::string& msg)
{
    std::fprintf(stderr, "zeftcad: %s\n", msg.c_str());
    return kFailure;
}

// Fills the options; returns kSuccess or the usage error's code.
int parse(const std::vector<std::string>& args, Options& o)
{
    std::vector<std::string> positional;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        std::string* target = nullptr;
        std::string name = a, value;
        if (const auto eq = a.find('='); a.starts_with("--") && eq != std::string::npos) {
            name = a.substr(0, eq);
            value = a.substr(eq + 1);
        }
        if (name == "--run") target = &o.script;
        else if (name == "--screenshot") target = &o.screenshot;
        else if (name == "--data-dir") target = &value;
        if (target) {
            if (name == a) {
                if (i + 1 >= args.size()) return usage(a + " needs a value");
                value = args[++i];
            }
            if (value.empty()) return usage(name + " needs a value");
            if (name == "--data-dir") ZEFTRegistryTools::SetBeltrixDataPath(dxf::fromUtf8(value));
            else *target = value;
        } else if (a == "-h" || a == "--help") {
            o.help = true;
        } else if (a == "-V" || a == "--version") {
            o.version = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return usage("unknown option '" + a + "'");
        } else {
            positional.push_back(a);
        }
    }
    if (positional.size() > 1) return usage("expected at most one DRAWING");
    if (!positional.empty()) o.drawing = positional.front();
    return kSuccess;
}

// Catches the first modal dialog a script line opens (a dialog's exec() runs
// its own event loop, where this timer fires), keeps its picture and closes
// it, so that the script goes on; later ones are closed too.
class ModalCatcher {
public:
    explicit ModalCatcher(const MainWindow& window) : window_(window)
    {
        timer_.setInterval(50);
        QObject::connect(&timer_, &QTimer::timeout, [this] { OnTimer(); });
        timer_.start();
    }
    // The picture of the dialog the last line started opened, if it opened one.
    std::optional<QPixmap> lastLineDialog() const
    {
        if (picture_.isNull() || line_ != window_.linesStarted()) return std::nullopt;
        return picture_;
    }

private:
    void OnTimer()
    {
        ZEFT_GUARD_VOID("ModalCatcher::OnTimer", {
            QWidget* modal = QApplication::activeModalWidget();
            if (!modal || !modal->isVisible()) return;
            picture_ = modal->grab();
            line_ = window_.linesStarted();
            if (auto* dialog = qobject_cast<QDialog*>(modal)) dialog->reject();
            else modal->close();
        });
    }

    const MainWindow& window_;
    QTimer timer_;
    QPixmap picture_;
    int line_ = -1;
};

// Qt's notes about its platform ("XDG_RUNTIME_DIR not set", what the
// offscreen platform cannot do) mean nothing to a user and would mix with
// the program's own messages; ZEFTCAD_QT_MESSAGES=1 shows them again.
void quietQtMessages()
{
    if (qEnvironmentVariableIsSet("ZEFTCAD_QT_MESSAGES")) return;
    static const QtMessageHandler standard = qInstallMessageHandler(nullptr);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& text) {
        if (type == QtCriticalMsg || type == QtFatalMsg) standard(type, context, text);
    });
}

int runWindow(Session& session, const Options& o, const std::wstring& script,
              const std::vector<std::string>& warnings)
{
    quietQtMessages();
    // Qt keeps a reference to argc: both outlive the application. Qt's own
    // options are not taken from the command line (QT_QPA_PLATFORM and the
    // like still apply).
    static int qtArgc = 1;
    static char qtName[] = "zeftcad";
    static char* qtArgv[] = {qtName, nullptr};
    QApplication app(qtArgc, qtArgv);
    QApplication::setApplicationName(QStringLiteral("zeftcad"));
    QApplication::setApplicationVersion(QStringLiteral(ZEFT_VERSION));

    MainWindow window(session);
    for (const std::string& w : warnings)
        window.commandLine()->printLine(QObject::tr("Warning: %1").arg(QString::fromStdString(w)));
    window.show();
    QApplication::processEvents();

    std::optional<ModalCatcher> catcher;
    if (!o.screenshot.empty()) catcher.emplace(window);
    QStringList failures;
    if (!o.script.empty()) failures = window.runScript(script, QString::fromStdString(o.script));
    for (const QString& f : failures) std::fprintf(stderr, "%s\n", f.toUtf8().constData());
    const int scriptCode = failures.isEmpty() ? kSuccess : kFailure;
    if (o.screenshot.empty()) return std::max(app.exec(), scriptCode);

    QApplication::processEvents();
    const std::optional<QPixmap> dialog = catcher->lastLineDialog();
    catcher.reset();
    const QPixmap picture = dialog ? *dialog : window.grab();
    if (!picture.save(QString::fromStdString(o.screenshot), "PNG"))
        return failure(o.screenshot + ": cannot write the picture");
    return scriptCode;
}

}  // namespace

int run(const std::vector<std::string>& args)
{
    Options o;
    if (int code = parse(args, o); code != kSuccess) return code;
    if (o.help) {
        std::fputs(kHelp, stdout);
        return kSuccess;
    }
    if (o.version) {
        std::printf("zeftcad %s\n", ZEFT_VERSION);
        return kSuccess;
    }
    std::wstring script;
    if (!o.script.empty())
        if (std::string why = zeftlayer::readScript(o.script, script); !why.empty()) return failure(why);

    // The module is loaded before the drawing is read, so that a standard the
    // drawing holds is read as its own objects, and unloaded after Qt is gone.
    Session session;
    if (std::string why = session.start(); !why.empty()) return failure(why);
    std::vector<std::string> warnings;
    if (o.drawing.empty()) session.openNew();
    else if (std::string why = session.open(o.drawing, warnings); !why.empty()) return failure(why);
    for (const std::string& w : warnings) std::fprintf(stderr, "zeftcad: warning: %s\n", w.c_str());
    return runWindow(session, o, script, warnings);
}

}  // namespace zeftcad
