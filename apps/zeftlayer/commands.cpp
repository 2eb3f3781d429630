#include "apps/zeftlayer/commands.h"

#include <cstdio>
#include <filesystem>
#include <map>

#include "host/database.h"
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

int usageError(const std::string& msg, const char* command)
{
    std::fprintf(stderr, "zeftlayer: %s\n", msg.c_str());
    if (command) std::fprintf(stderr, "Try 'zeftlayer help %s'.\n", command);
    else std::fprintf(stderr, "Try 'zeftlayer --help'.\n");
    return kUsage;
}

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
        if (!quiet) std::printf("%s -> %s (%s)\n", files[0].c_str(), files[1].c_str(), db->version().c_str());
    } catch (const dxf::ParseError& e) {
        std::fprintf(stderr, "zeftlayer: %s\n", e.what());
        return kFailure;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zeftlayer: %s\n", e.what());
        return kFailure;
    }
    return kSuccess;
}

const std::map<std::string, Command>& commands()
{
    static const std::map<std::string, Command> c = {
        {"convert",
         {"read a drawing (ASCII or binary DXF) and write it as ASCII DXF",
          "zeftlayer convert [-q] IN OUT",
          "Reads the drawing IN, ASCII or binary DXF from R12 to R2018, and writes\n"
          "it to OUT as ASCII DXF of the same version. Everything the drawing holds\n"
          "is kept. OUT is written through a temporary file: on any error nothing is\n"
          "left behind and an existing OUT is untouched.\n\n"
          "  -q, --quiet   print nothing on success\n",
          &cmdConvert}},
    };
    return c;
}

void printHelp()
{
    std::printf("Usage: zeftlayer COMMAND [ARGS...]\n\n"
                "Layer manager for building and reinforced-concrete drawings (DXF).\n\nCommands:\n");
    for (const auto& [name, c] : commands()) std::printf("  %-10s %s\n", name.c_str(), c.summary);
    std::printf("\nOptions:\n  -h, --help     show this help\n  -V, --version  show the version\n\n"
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

int run(const std::vector<std::string>& args)
{
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
    return it->second.fn(rest);
}

}  // namespace zeftlayer
