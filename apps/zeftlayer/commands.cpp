#include "apps/zeftlayer/commands.h"

#include <cstdio>
#include <filesystem>
#include <algorithm>
#include <map>
#include <new>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/document.h"
#include "host/editor.h"
#include "host/rxmodule.h"
#include "suite/zeftregistrytools.h"
#include "host/dxf/dxftext.h"

namespace zeftlayer {
namespace {

constexpr const char* kVersion = "0.1.0";

struct Command {
    const char* summary;
    const char* usage;
    const char* help;
    int (*fn)(const std::vector<std::string>& args);
};

}  // namespace

namespace {
std::string& programFileRef()
{
    static std::string path;
    return path;
}
}  // namespace

void setProgramFile(const std::string& path) { programFileRef() = path; }
const std::string& programFile() { return programFileRef(); }

int failure(const std::string& msg)
{
    std::fprintf(stderr, "zeftlayer: %s\n", msg.c_str());
    return kFailure;
}

int usageError(const std::string& msg, const char* command)
{
    std::fprintf(stderr, "zeftlayer: %s\n", msg.c_str());
    if (command) std::fprintf(stderr, "Try 'zeftlayer help %s'.\n", command);
    else std::fprintf(stderr, "Try 'zeftlayer --help'.\n");
    return kUsage;
}

OpenDrawing::~OpenDrawing()
{
    if (doc) acDocManager->close(doc);
}

std::string tryOpenDrawing(const std::string& path, OpenDrawing& out, std::vector<std::string>& warnings)
{
    try {
        auto db = AcDbDatabase::readDxf(path);
        warnings = db->readWarnings();
        out.doc = acDocManager->open(std::move(db));
        out.db = out.doc->database();
        return {};
    } catch (const std::bad_alloc&) {
        return path + ": out of memory";
    } catch (const std::exception& e) {
        return e.what();
    }
}

bool openDrawing(const std::string& path, OpenDrawing& out)
{
    std::vector<std::string> warnings;
    const std::string why = tryOpenDrawing(path, out, warnings);
    for (const auto& w : warnings) std::fprintf(stderr, "zeftlayer: warning: %s\n", w.c_str());
    if (why.empty()) return true;
    failure(why);
    return false;
}

std::string tryWriteDrawing(AcDbDatabase* db, const std::string& path)
{
    try {
        db->writeDxf(path);
        return {};
    } catch (const std::bad_alloc&) {
        return path + ": out of memory";
    } catch (const std::exception& e) {
        return e.what();
    }
}

bool writeDrawing(AcDbDatabase* db, const std::string& path)
{
    const std::string why = tryWriteDrawing(db, path);
    if (why.empty()) return true;
    failure(why);
    return false;
}

namespace {

int cmdConvert(const std::vector<std::string>& args)
{
    std::vector<std::string> files;
    bool quiet = false;
    for (const auto& a : args) {
        if (a == "-q" || a == "--quiet") quiet = true;
        else if (a.size() > 1 && a[0] == '-') return usageError("convert: unknown option '" + a + "'", "convert");
        else files.push_back(a);
    }
    if (files.size() != 2) return usageError("convert: expected IN and OUT", "convert");
    namespace fs = std::filesystem;
    std::error_code ec;
    if (fs::exists(files[1], ec) && fs::equivalent(files[0], files[1], ec))
        return usageError("convert: OUT must not be the input drawing", "convert");
    try {
        auto db = AcDbDatabase::readDxf(files[0]);
        for (const auto& w : db->readWarnings()) std::fprintf(stderr, "zeftlayer: warning: %s\n", w.c_str());
        db->writeDxf(files[1]);
        if (!quiet) {
            std::string version = db->versionName();
            if (version.empty()) version = "version '" + dxf::excerpt(db->version(), 16) + "'";
            std::printf("%s -> %s (%s)\n", files[0].c_str(), files[1].c_str(), version.c_str());
        }
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "zeftlayer: %s: out of memory\n", files[0].c_str());
        return kFailure;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zeftlayer: %s\n", e.what());
        return kFailure;
    }
    return kSuccess;
}

// Loads a module, lists what it registered, and unloads it again.
int cmdModules(const std::vector<std::string>& args)
{
    std::string module = "zeftlayermanager";
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--module" && i + 1 < args.size()) module = args[++i];
        else if (args[i].rfind("--module=", 0) == 0) module = args[i].substr(9);
        else return usageError("modules: unexpected argument '" + args[i] + "'", "modules");
    }
    // The host's own classes join the dictionary on first use; they are not the module's.
    acdbRegisterHostClasses();
    std::vector<std::wstring> classesBefore;
    for (auto& [name, obj] : acrxClassDictionary()->entries()) classesBefore.push_back(name);
    std::vector<std::wstring> groupsBefore = acedRegCmds->groups();
    std::string error;
    if (!acrxDynamicLinker->loadModule(module, &error)) {
        std::fprintf(stderr, "zeftlayer: %s\n", error.c_str());
        return kFailure;
    }
    std::string name = acrxDynamicLinker->loadedModules().back();
    std::printf("module %s\n  file: %s\n  classes:\n", name.c_str(), acrxDynamicLinker->modulePath(name).c_str());
    for (auto& [cname, obj] : acrxClassDictionary()->entries()) {
        if (std::find(classesBefore.begin(), classesBefore.end(), cname) != classesBefore.end()) continue;
        auto* cls = static_cast<AcRxClass*>(obj);
        std::printf("    %-20s parent %s, DXF %s, application %s, version %d.%d, proxy flags %d\n",
                    dxf::toUtf8(cls->name()).c_str(), dxf::toUtf8(cls->myParent() ? cls->myParent()->name() : L"").c_str(),
                    dxf::toUtf8(cls->dxfName()).c_str(), dxf::toUtf8(cls->appName()).c_str(), cls->dwgVersion(),
                    cls->maintVersion(), cls->proxyFlags());
    }
    std::printf("  command groups:\n");
    for (const std::wstring& g : acedRegCmds->groups()) {
        if (std::find(groupsBefore.begin(), groupsBefore.end(), g) != groupsBefore.end()) continue;
        std::printf("    %s\n", dxf::toUtf8(g).c_str());
        for (const AcEdCommand& c : acedRegCmds->commands(g.c_str()))
            std::printf("      %s (local name %s, flags %d)\n", dxf::toUtf8(c.globalName).c_str(),
                        dxf::toUtf8(c.localName).c_str(), c.flags);
    }
    if (!acrxDynamicLinker->unloadModule(name, &error)) {
        std::fprintf(stderr, "zeftlayer: %s\n", error.c_str());
        return kFailure;
    }
    std::printf("  unloaded\n");
    return kSuccess;
}

const std::map<std::string, Command>& commands()
{
    static const std::map<std::string, Command> c = {
        {"apply",
         {"re-layer every entity of drawings onto the layer its standard gives",
          "zeftlayer [--data-dir DIR] apply DRAWING... [-o OUT | --in-place | --out-dir DIR]\n"
          "       [--dry-run] [--standard FILE] [--report FILE.json|FILE.csv] [--jobs N]",
          "Puts every entity of model space and of the current paper space on the\n"
          "layer the drawing's layer standard gives it (with the project's building,\n"
          "level or view), as the layer manager does at the end of every command:\n"
          "missing layers are created, locked layers are unlocked for the move and\n"
          "locked again. Entities the standard leaves alone stay where they are; one\n"
          "whose layer cannot be made stays on layer \"0\". Prints what moved, the\n"
          "layers created and what was left where it is, and why.\n\n"
          "Drawings are written through a temporary file: on any error, or when the\n"
          "program is stopped, the target is untouched. A read-only drawing is not\n"
          "rewritten in place; a drawing in which nothing moves is not rewritten.\n"
          "Several drawings are done by separate processes, one per drawing; one that\n"
          "fails does not stop the others, and a table per drawing ends the run.\n\n"
          "  -o, --output OUT   write the result to OUT (one drawing)\n"
          "  --in-place         rewrite each drawing\n"
          "  --out-dir DIR      write each drawing to DIR under its own name\n"
          "  --dry-run          write nothing; print, per target layer, how many\n"
          "                     entities would move there from which layers\n"
          "  --standard FILE    apply this standard (a file or standard of the standards\n"
          "                     folder, or a path) instead of the drawing's; it is\n"
          "                     installed into the output first\n"
          "  --report FILE      write every entity moved or left (handle, class, old\n"
          "                     layer, new layer or reason), per drawing, as JSON or CSV\n"
          "                     by the file's extension\n"
          "  --jobs N           do N drawings at once (default 1)\n\n"
          "Exit code 1 when any drawing fails.\n",
          &cmdApply}},
        {"check",
         {"list the entities that are not on the layer their standard gives",
          "zeftlayer [--data-dir DIR] check DRAWING... [--json] [--standard FILE]",
          "Re-layers each drawing in memory exactly as 'zeftlayer apply' does and lists\n"
          "the entities whose layer that changes: handle, class, current layer and\n"
          "the layer expected. Nothing is written. Exit code 0 when every entity is on\n"
          "its layer, 1 when any is not (or a drawing cannot be checked): usable in\n"
          "scripts and build pipelines.\n\n"
          "  --json           print the same as JSON\n"
          "  --standard FILE  check against this standard (a file or standard of the\n"
          "                   standards folder, or a path) instead of the drawing's\n",
          &cmdCheck}},
        {"convert",
         {"read a drawing (ASCII or binary DXF) and write it as ASCII DXF",
          "zeftlayer convert [-q] IN OUT",
          "Reads the drawing IN, ASCII or binary DXF from R12 to R2018, and writes\n"
          "it to OUT as ASCII DXF of the same version. Everything the drawing holds\n"
          "is kept. OUT is written through a temporary file: on any error nothing is\n"
          "left behind and an existing OUT is untouched.\n\n"
          "  -q, --quiet   print nothing on success\n",
          &cmdConvert}},
        {"modules",
         {"load the layer-manager module, list what it registers, unload it",
          "zeftlayer modules [--module NAME|PATH]",
          "Loads the module (by default \"zeftlayermanager\", searched in ZEFT_MODULE_PATH,\n"
          "then beside the program and in its ../lib), prints the classes, command\n"
          "groups and commands it registered, and unloads it again. Use it to check\n"
          "a build: the exit code is 1 when the module cannot be loaded or unloaded.\n\n"
          "  --module NAME|PATH   another module, by name or by path\n",
          &cmdModules}},
        {"project",
         {"show or edit the project and mould lists of a drawing",
          "zeftlayer project DRAWING SUBCOMMAND [ARGS...] [-o OUT]",
          "Shows and edits what a drawing holds of its project: project and building\n"
          "names, working mode, levels and draft views with the entities each holds,\n"
          "the active view, what image entities show, and the mould lists.\n\n"
          "  show [--json]                 print all of it\n"
          "  set [--project NAME] [--building NAME] [--mode level|view|doc|none]\n"
          "      [--model-rules on|off] [--active LEVEL_OR_VIEW] [--drawing-set yes|no]\n"
          "                                change the project (--active \"\" for none);\n"
          "                                the mode picks the standard's rule: level and\n"
          "                                view the Model rule, doc the Doc rule, none no\n"
          "                                rule; a drawing set cannot have its layer\n"
          "                                standard edited\n"
          "  level add NAME [--plan TEXT]  add a level\n"
          "  view add NAME [--type TEXT] [--plan TEXT]\n"
          "                                add a draft view\n"
          "  level|view rename NAME NEW    rename a level or view\n"
          "  level|view remove NAME        remove it; its entities are released\n"
          "  level|view assign NAME [--handle H]... [--layer LAYER]...\n"
          "      [--window X1,Y1,X2,Y2]... put entities in it: by handle; every entity of\n"
          "                                model space on a layer; or those of model space\n"
          "                                whose points (DXF groups 10 to 13) all lie in\n"
          "                                the window\n"
          "  mould LIST add|remove HANDLE...\n"
          "  mould LIST list               edit or print a mould list: ZEFT_MOULD_ENTITIES,\n"
          "                                MeshMouldEntities, RebarMouldEntities, MouleList\n"
          "  image HANDLE [--shows HANDLE | --clear]\n"
          "                                print, set or clear what an image entity shows\n\n"
          "Level and view names are unique per kind, without regard to case. A change\n"
          "makes the project when the drawing has none; R12 drawings cannot hold one.\n"
          "The drawing is rewritten in place unless -o names another file; on any\n"
          "error nothing is written. The format is described in docs/project.md.\n\n"
          "  -o, --output OUT   write the result to OUT\n",
          &cmdProject}},
        {"run",
         {"run a script of drawing commands, re-layering at each command end",
          "zeftlayer run DRAWING SCRIPT (-o OUT | --in-place) [--keep-going]",
          "Loads the layer manager, opens DRAWING and runs the commands of SCRIPT one\n"
          "after the other, as typed at a CAD command line: what each command appends\n"
          "goes onto the layers the drawing's standard gives when the command ends.\n"
          "SCRIPT is UTF-8 text, one command per line, its name in any case followed\n"
          "by its answers separated by blanks (\"quotes\" for an answer with blanks);\n"
          "blank lines and lines starting with ';' are skipped. For example:\n\n"
          "    LAYER make Walls\n"
          "    LINE 0,0 10,0 10,5\n"
          "    CIRCLE 5,5 2\n"
          "    ARC 20,20 3 0 90\n"
          "    TEXT 1,1 2.5 Étage 1\n\n"
          "The commands and their answers are described in docs/scripts.md; the\n"
          "answer *cancel* cancels its command as Escape would. A line that fails\n"
          "(unknown command, bad answer, missing handle) is reported as\n"
          "SCRIPT:LINE: reason; it stops the run and nothing is written, unless\n"
          "--keep-going is given. The result is written through a temporary file.\n"
          "SAVE and QSAVE in the script write the result at once to the same place.\n"
          "Exit code 1 when a line failed.\n\n"
          "  -o, --output OUT   write the result to OUT\n"
          "  --in-place         rewrite DRAWING\n"
          "  --keep-going       run the lines after a failing one; write the result\n",
          &cmdRun}},
        {"standards",
         {"list the layer standards of the standards folder",
          "zeftlayer [--data-dir DIR] standards",
          "Lists the \".std\" files of the standards folder with the name of the\n"
          "standard each holds. A folder without any standard first receives the\n"
          "default standard \"Beltrix\" in Beltrix.std.\n\n"
          "The standards folder is \"Support/Layer Standards\" under the data folder:\n"
          "--data-dir DIR, else $BELTRIX_DATA, else $XDG_DATA_HOME/beltrix, else\n"
          "~/.local/share/beltrix.\n",
          &cmdStandards}},
        {"install",
         {"install a layer standard into a drawing",
          "zeftlayer [--data-dir DIR] install DRAWING STANDARD [-o OUT]",
          "Copies a layer standard into the drawing, in place of the one it holds.\n"
          "STANDARD is a file of the standards folder (\"Beltrix.std\", or \"Beltrix\"),\n"
          "the name of a standard there, or the path of a \".std\" file (anything\n"
          "with a '/', such as ./mine.std). The drawing is rewritten in place unless\n"
          "-o names another file; on any error nothing is written.\n"
          "R12 drawings cannot hold a layer standard.\n\n"
          "  -o, --output OUT   write the result to OUT\n",
          &cmdInstall}},
        {"show",
         {"print the layer standard a drawing holds",
          "zeftlayer show DRAWING [--json]",
          "Prints the drawing's layer standard: name, file, separator, the Model,\n"
          "Draft and Doc rules, functions, enumerations and exceptions. Exit code 1\n"
          "when the drawing holds none.\n\n"
          "A user function gives an entity the value of the pair whose key is the\n"
          "entity's class (AcDbLine), else of the pair whose key is the nearest class\n"
          "the entity's class derives from (AcDbCurve covers lines, arcs and\n"
          "polylines; AcDbEntity covers everything), else its default. Keys are\n"
          "compared with case. docs/layer-names.md has the details.\n\n"
          "  --json   print it as JSON\n",
          &cmdShow}},
        {"export",
         {"write the layer standard of a drawing as a .std file",
          "zeftlayer export DRAWING OUT.std",
          "Writes the drawing's layer standard to OUT.std (Windows-1252, CR LF), the\n"
          "format of the standards folder.\n",
          &cmdExport}},
        {"names",
         {"print the layer every entity would get, without writing the drawing",
          "zeftlayer names DRAWING [--json] [--standard FILE]",
          "For every entity of model space and of the current paper space, prints its\n"
          "handle, class and layer, and the layer the drawing's standard gives it: a\n"
          "name computed from the rule (with the project's building, level or view),\n"
          "a layer the exception list imposes, or why the entity is not layered\n"
          "(excluded class, \"Auto...\" exception, overall paper-space viewport, model\n"
          "rules inactive). An entity for which no rule or no name comes out (no\n"
          "project, a working mode without a rule) goes to layer \"0\", with the\n"
          "reason. The drawing is not written.\n\n"
          "  --json           print the same as JSON\n"
          "  --standard FILE  the names that standard (a file or standard of the standards\n"
          "                   folder, or a path) gives once installed into the drawing\n",
          &cmdNames}},
    };
    return c;
}

void printHelp()
{
    std::printf("Usage: zeftlayer COMMAND [ARGS...]\n\n"
                "Layer manager for building and reinforced-concrete drawings (DXF).\n\nCommands:\n");
    for (const auto& [name, c] : commands()) std::printf("  %-10s %s\n", name.c_str(), c.summary);
    std::printf("\nOptions:\n  -h, --help        show this help\n  -V, --version     show the version\n"
                "  --data-dir DIR    the suite's data folder (standards in DIR/Support/Layer Standards)\n\n"
                "'zeftlayer help COMMAND' describes a command.\n"
                "Exit codes: 0 success, 1 failure, 2 usage error.\n");
}

int printCommandHelp(const std::string& name)
{
    auto it = commands().find(name);
    if (it == commands().end()) return usageError("unknown command '" + name + "'", nullptr);
    std::printf("Usage: %s\n\n%s", it->second.usage, it->second.help);
    return kSuccess;
}

}  // namespace

int run(const std::vector<std::string>& argsIn)
{
    // The data folder, for every command that needs the standards folder.
    std::vector<std::string> args;
    for (std::size_t i = 0; i < argsIn.size(); ++i) {
        const std::string& a = argsIn[i];
        if (a == "--data-dir" || a.rfind("--data-dir=", 0) == 0) {
            std::string dir;
            if (a == "--data-dir") {
                if (i + 1 >= argsIn.size()) return usageError("--data-dir needs a folder", nullptr);
                dir = argsIn[++i];
            } else {
                dir = a.substr(11);
            }
            if (dir.empty()) return usageError("--data-dir needs a folder", nullptr);
            ZEFTRegistryTools::SetBeltrixDataPath(dxf::fromUtf8(dir));
            continue;
        }
        args.push_back(a);
    }
    if (args.empty()) {
        printHelp();
        return kUsage;
    }
    const std::string& first = args[0];
    if (first == "-h" || first == "--help") {
        printHelp();
        return kSuccess;
    }
    if (first == "-V" || first == "--version") {
        std::printf("zeftlayer %s\n", kVersion);
        return kSuccess;
    }
    if (first == "help") {
        if (args.size() < 2) {
            printHelp();
            return kSuccess;
        }
        return printCommandHelp(args[1]);
    }
    auto it = commands().find(first);
    if (it == commands().end()) return usageError("unknown command '" + first + "'", nullptr);
    std::vector<std::string> rest(args.begin() + 1, args.end());
    for (const auto& a : rest)
        if (a == "-h" || a == "--help") return printCommandHelp(first);
    // Modules a command started are stopped before the program ends.
    struct UnloadModules {
        ~UnloadModules() { acrxDynamicLinker->unloadAll(); }
    } unload;
    return it->second.fn(rest);
}

}  // namespace zeftlayer
