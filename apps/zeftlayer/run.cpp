// zeftlayer run: a script of host commands on a drawing, with the layer
// manager watching every command as it would in the CAD host.
#include <cstdio>
#include <fstream>
#include <sstream>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "host/editor.h"
#include "host/hostcommands.h"

namespace zeftlayer {
namespace {

constexpr const char* kCmd = "run";

int usage(const std::string& msg) { return usageError("run: " + msg, kCmd); }

// Counts the entities the script appends, for the summary.
struct AppendCounter : AcDbDatabaseReactor {
    int entities = 0;
    void objectAppended(const AcDbDatabase*, const AcDbObject* obj) override
    {
        if (AcDbEntity::cast(obj)) ++entities;
    }
};

}  // namespace

std::string readScript(const std::string& path, std::wstring& text)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) return path + ": cannot read the script";
    std::ostringstream bytes;
    bytes << in.rdbuf();
    std::string s = bytes.str();
    if (s.starts_with("\xEF\xBB\xBF")) s.erase(0, 3);
    text = dxf::fromUtf8(s);
    if (dxf::toUtf8(text) != s) return path + ": the script is not UTF-8 text";
    return {};
}

int cmdRun(const std::vector<std::string>& args)
{
    std::vector<std::string> files;
    std::string out;
    bool inPlace = false, keepGoing = false, haveOut = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-o" || a == "--output") {
            if (i + 1 >= args.size() || args[i + 1].empty()) return usage(a + " needs a file");
            out = args[++i];
            haveOut = true;
        } else if (a.rfind("--output=", 0) == 0) {
            out = a.substr(9);
            if (out.empty()) return usage("--output needs a file");
            haveOut = true;
        } else if (a == "--in-place") {
            inPlace = true;
        } else if (a == "--keep-going") {
            keepGoing = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return usage("unknown option '" + a + "'");
        } else {
            files.push_back(a);
        }
    }
    if (files.size() != 2) return usage("expected DRAWING and SCRIPT");
    if (haveOut == inPlace) return usage("give exactly one of -o OUT and --in-place");
    const std::string& drawing = files[0];
    const std::string& scriptPath = files[1];
    const std::string target = inPlace ? drawing : out;

    std::wstring script;
    if (const std::string why = readScript(scriptPath, script); !why.empty()) return failure(why);
    if (!startModule()) return kFailure;
    OpenDrawing d;
    if (!openDrawing(drawing, d)) return kFailure;
    d.doc->setSavePath(target);  // SAVE and QSAVE write the chosen output
    acedRegisterHostCommands();

    AppendCounter counter;
    d.db->addReactor(&counter);
    AcedScriptResult result = acedRunScript(script, scriptPath, !keepGoing);
    d.db->removeReactor(&counter);
    for (const std::string& e : result.errors) std::fprintf(stderr, "%s\n", e.c_str());
    if (result.failed && !keepGoing) return failure("stopped at the failing line; nothing written");
    if (!writeDrawing(d.db, target)) return kFailure;
    std::printf("%d command%s run, %d failed, %d entit%s appended; written to %s\n", result.commands,
                result.commands == 1 ? "" : "s", result.failed, counter.entities, counter.entities == 1 ? "y" : "ies",
                target.c_str());
    return result.failed ? kFailure : kSuccess;
}

}  // namespace zeftlayer
