// The layer standard commands: standards, install, show, export.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sys/stat.h>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "host/rxmodule.h"
#include "suite/wyprofile.h"
#include "suite/zeftregistrytools.h"
#include "zeftlayermanager/zeftfilerw.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace fs = std::filesystem;

namespace zeftlayer {

using dxf::fromUtf8;
using dxf::toUtf8;

// The module must be started (its classes registered) before drawings that
// hold a standard are read.
std::string tryStartModule()
{
    std::string error;
    if (acrxDynamicLinker->loadModule("zeftlayermanager", &error)) return {};
    return error.empty() ? "cannot load the module zeftlayermanager" : error;
}

bool startModule()
{
    const std::string why = tryStartModule();
    if (why.empty()) return true;
    failure(why);
    return false;
}

// A folder file by file name, by file name without ".std", or by standard name.
bool findInFolder(const std::string& wanted, std::string& fileName, std::string& why)
{
    std::vector<std::wstring> files, names;
    std::wstring folder;
    ZEFTLayerManagerUtil::getAvailableStandards(files, names, folder);
    std::string dir = toUtf8(folder);
    auto exists = [&](const std::string& f) {
        std::error_code ec;
        return fs::is_regular_file(dir + f, ec);
    };
    for (const std::string& candidate : {wanted, wanted + ".std"})
        if (exists(candidate)) {
            fileName = candidate;
            return true;
        }
    for (std::size_t i = 0; i < names.size(); ++i)
        if (toUtf8(names[i]) == wanted && exists(toUtf8(files[i]))) {
            fileName = toUtf8(files[i]);
            return true;
        }
    why = "no layer standard '" + wanted + "' in " + dir + " (see 'zeftlayer standards')";
    return false;
}

namespace {

std::string standardsFolder()
{
    std::wstring folder;
    if (!ZEFTRegistryTools::GetLayerStandardsPath(folder)) return {};
    return toUtf8(folder);
}

// Why a ".std" file cannot be used, or empty when it can.
std::string checkStandardFile(const std::string& path)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return path + ": " + std::strerror(errno);
    if (S_ISDIR(st.st_mode)) return path + ": is a folder, not a layer standard file";
    if (!S_ISREG(st.st_mode)) return path + ": not a regular file";
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return path + ": cannot read: " + std::strerror(errno);
    unsigned char head[4096];
    std::size_t n = std::fread(head, 1, sizeof head, f);
    std::fclose(f);
    if (st.st_size == 0) return path + ": empty file, not a layer standard";
    if (st.st_size > 16 * 1024 * 1024) return path + ": too large for a layer standard (over 16 MiB)";
    bool utf16 = n >= 2 && ((head[0] == 0xFF && head[1] == 0xFE) || (head[0] == 0xFE && head[1] == 0xFF));
    if (!utf16 && std::find(head, head + n, 0) != head + n) return path + ": binary data, not a layer standard";
    std::wstring name = wyGetProfileString(L"Layer_Standard", L"Name", L"", fromUtf8(path), 100);
    if (name.empty()) return path + ": not a layer standard (no Name in section [Layer_Standard])";
    return {};
}


std::string quoted(const std::wstring& s)
{
    std::string out = "\"";
    for (char c : toUtf8(s)) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

// What a drawing's standard holds, read once.
struct StandardView {
    std::wstring name, fileName, separator;
    std::vector<RuleField> rules[3];
    std::vector<std::unique_ptr<ZEFTRuleFunction>> functions;
    std::vector<std::unique_ptr<ZEFTRuleEnum>> enums;
    std::unique_ptr<ZEFTRuleException> exception;
};

bool readStandard(AcDbDatabase* db, StandardView& v)
{
    AcDbObjectPointer<ZEFTLayerStandard> std(ZEFTLayerManagerUtil::getStandardFromDictionary(db), AcDb::kForRead);
    if (std.openStatus() != Acad::eOk) return false;
    v.name = std->getName();
    v.fileName = std->getFileName();
    v.separator = std->getSeparator();
    AcDbObjectId ids[3] = {std->getModelRule(), std->getDraftRule(), std->getDocRule()};
    std.close();
    for (int i = 0; i < 3; ++i) {
        AcDbObjectPointer<ZEFTLayerRule> rule(ids[i], AcDb::kForRead);
        if (rule.openStatus() == Acad::eOk) rule->getFields(v.rules[i]);
    }
    std::vector<ZEFTRuleFunction*> functions;
    ZEFTLayerManagerUtil::getCloneFunctions(db, functions);
    for (auto* f : functions) v.functions.emplace_back(f);
    std::vector<ZEFTRuleEnum*> enums;
    ZEFTLayerManagerUtil::getCloneEnums(db, enums);
    for (auto* e : enums) v.enums.emplace_back(e);
    ZEFTRuleException* exception = nullptr;
    ZEFTLayerManagerUtil::getCloneException(db, exception);
    v.exception.reset(exception);
    return true;
}

const char* const kRuleKeys[3] = {"model", "draft", "doc"};
const char* const kRuleTitles[3] = {"Model rule (Modèle, ferraillage et cotations)", "Draft rule (Vues calculées)",
                                    "Doc rule (Documents)"};

void printText(const StandardView& v)
{
    std::printf("Standard:   %s\n", toUtf8(v.name).c_str());
    std::printf("File:       %s\n", toUtf8(v.fileName).c_str());
    std::printf("Separator:  %s (%zu character%s)\n", quoted(v.separator).c_str(), v.separator.size(),
                v.separator.size() == 1 ? "" : "s");
    for (int i = 0; i < 3; ++i) {
        std::printf("\n%s:\n", kRuleTitles[i]);
        if (v.rules[i].empty()) std::printf("  (empty)\n");
        int n = 0;
        for (const RuleField& f : v.rules[i])
            std::printf("  %d. %s %s %s\n", ++n, padded(f.name, 24).c_str(), padded(f.value, 24).c_str(),
                        f.isFunction ? "function" : "text");
    }
    std::printf("\nFunctions:\n");
    if (v.functions.empty()) std::printf("  (none)\n");
    else
        std::printf("  (an entity takes the pair of its own class, else of the nearest class it derives\n"
                    "   from, such as AcDbCurve for lines and arcs, else the default; keys compare with case)\n");
    for (const auto& f : v.functions) {
        std::printf("  %s (default %s)\n", toUtf8(f->getName()).c_str(), quoted(f->getDefaultValue()).c_str());
        for (int i = 0; i < f->getPairsNumber(); ++i) {
            std::wstring k, val;
            f->getPair(unsigned(i), k, val);
            std::printf("    %s -> %s\n", padded(k, 24).c_str(), toUtf8(val).c_str());
        }
    }
    std::printf("\nEnumerations:\n");
    if (v.enums.empty()) std::printf("  (none)\n");
    for (const auto& e : v.enums) {
        std::vector<std::wstring> values;
        e->getValues(values);
        std::string list;
        for (const auto& val : values) list += (list.empty() ? "" : ", ") + toUtf8(val);
        std::printf("  %s: %s\n", toUtf8(e->getName()).c_str(), list.c_str());
    }
    std::printf("\nExceptions:\n");
    int pairs = v.exception ? v.exception->getPairsNumber() : 0;
    if (pairs == 0) std::printf("  (none)\n");
    for (int i = 0; i < pairs; ++i) {
        std::wstring k, val;
        v.exception->getPair(unsigned(i), k, val);
        std::printf("  %s -> %s\n", padded(k, 24).c_str(), toUtf8(val).c_str());
    }
}

void printJson(const StandardView& v)
{
    std::printf("{\n  \"name\": %s,\n  \"file\": %s,\n  \"separator\": %s,\n  \"rules\": {", jsonString(v.name).c_str(),
                jsonString(v.fileName).c_str(), jsonString(v.separator).c_str());
    for (int i = 0; i < 3; ++i) {
        std::printf("%s\n    \"%s\": [", i ? "," : "", kRuleKeys[i]);
        for (std::size_t j = 0; j < v.rules[i].size(); ++j) {
            const RuleField& f = v.rules[i][j];
            std::printf("%s\n      {\"name\": %s, \"value\": %s, \"isFunction\": %s}", j ? "," : "",
                        jsonString(f.name).c_str(), jsonString(f.value).c_str(), f.isFunction ? "true" : "false");
        }
        std::printf("%s]", v.rules[i].empty() ? "" : "\n    ");
    }
    std::printf("\n  },\n  \"functions\": [");
    for (std::size_t i = 0; i < v.functions.size(); ++i) {
        const auto& f = v.functions[i];
        std::printf("%s\n    {\"name\": %s, \"default\": %s, \"pairs\": [", i ? "," : "", jsonString(f->getName()).c_str(),
                    jsonString(f->getDefaultValue()).c_str());
        for (int j = 0; j < f->getPairsNumber(); ++j) {
            std::wstring k, val;
            f->getPair(unsigned(j), k, val);
            std::printf("%s[%s, %s]", j ? ", " : "", jsonString(k).c_str(), jsonString(val).c_str());
        }
        std::printf("]}");
    }
    std::printf("%s],\n  \"enums\": [", v.functions.empty() ? "" : "\n  ");
    for (std::size_t i = 0; i < v.enums.size(); ++i) {
        std::vector<std::wstring> values;
        v.enums[i]->getValues(values);
        std::printf("%s\n    {\"name\": %s, \"values\": [", i ? "," : "", jsonString(v.enums[i]->getName()).c_str());
        for (std::size_t j = 0; j < values.size(); ++j) std::printf("%s%s", j ? ", " : "", jsonString(values[j]).c_str());
        std::printf("]}");
    }
    std::printf("%s],\n  \"exceptions\": [", v.enums.empty() ? "" : "\n  ");
    int pairs = v.exception ? v.exception->getPairsNumber() : 0;
    for (int i = 0; i < pairs; ++i) {
        std::wstring k, val;
        v.exception->getPair(unsigned(i), k, val);
        std::printf("%s\n    [%s, %s]", i ? "," : "", jsonString(k).c_str(), jsonString(val).c_str());
    }
    std::printf("%s]\n}\n", pairs ? "\n  " : "");
}

}  // namespace

std::string locateStandard(const std::string& standard, std::string& path, std::string& recorded)
{
    if (standard.find('/') != std::string::npos) {
        path = standard;
        recorded = standard;
    } else {
        if (standardsFolder().empty()) return "no data folder: set BELTRIX_DATA or give --data-dir";
        std::string why;
        if (!findInFolder(standard, recorded, why)) return why;
        path = standardsFolder() + recorded;
    }
    return checkStandardFile(path);
}

std::string installStandard(AcDbDatabase* db, const std::string& drawing, const std::string& path,
                            const std::string& recorded)
{
    if (db->isR12OrOlder())
        return drawing + ": an R12 drawing (" + db->version() + ") cannot hold a layer standard; save it as R2000 or later";
    if (db->namedObjectsDictionaryId().isNull())
        return drawing + ": the drawing has no named-object dictionary to hold a layer standard";
    ZEFTLayerManagerUtil::removeLayerStandard(db);
    if (!ZEFTLayerManagerUtil::installStandardFromPath(db, fromUtf8(path), fromUtf8(recorded)))
        return drawing + ": could not install the standard from " + path;
    return {};
}

int cmdStandards(const std::vector<std::string>& args)
{
    if (!args.empty()) return usageError("standards: unexpected argument '" + args[0] + "'", "standards");
    std::string folder = standardsFolder();
    if (folder.empty()) return failure("no data folder: set BELTRIX_DATA or give --data-dir");
    std::vector<std::wstring> before;
    ZEFTFileRW().getAllFiles(before);
    std::vector<std::wstring> files, names;
    std::wstring dir;
    ZEFTLayerManagerUtil::getAvailableStandards(files, names, dir);
    std::error_code ec;
    if (before.empty()) {
        if (!fs::is_regular_file(folder + "Beltrix.std", ec))
            return failure("cannot write the default standard to " + folder + "Beltrix.std");
        std::printf("No standard was in the folder: wrote the default standard \"Beltrix\" to Beltrix.std.\n");
    }
    std::printf("Standards folder: %s\n\n", folder.c_str());
    std::size_t width = 4;
    std::vector<std::string> shown;
    for (const auto& f : files) {
        // The default just written lives in Beltrix.std, whatever name callers are given.
        std::string name = toUtf8(f);
        if (before.empty() && name == "Beltrix_backup.std" && !fs::exists(folder + name, ec)) name = "Beltrix.std";
        shown.push_back(name);
        width = std::max(width, name.size());
    }
    std::printf("%-*s  %s\n", int(width), "FILE", "NAME");
    for (std::size_t i = 0; i < shown.size(); ++i)
        std::printf("%-*s  %s\n", int(width), shown[i].c_str(), toUtf8(names[i]).c_str());
    if (shown.empty()) std::printf("(no file of the folder names a standard)\n");
    return kSuccess;
}

int cmdInstall(const std::vector<std::string>& args)
{
    std::vector<std::string> pos;
    std::string out;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-o" || a == "--output") {
            if (i + 1 >= args.size()) return usageError("install: " + a + " needs a file", "install");
            out = args[++i];
        } else if (a.rfind("--output=", 0) == 0) {
            out = a.substr(9);
        } else if (a.size() > 1 && a[0] == '-') {
            return usageError("install: unknown option '" + a + "'", "install");
        } else {
            pos.push_back(a);
        }
    }
    if (pos.size() != 2) return usageError("install: expected DRAWING and STANDARD", "install");
    const std::string& drawing = pos[0];
    const std::string& standard = pos[1];
    if (out.empty()) out = drawing;
    if (!startModule()) return kFailure;

    std::string path, recorded;
    if (std::string why = locateStandard(standard, path, recorded); !why.empty()) return failure(why);
    OpenDrawing d;
    if (!openDrawing(drawing, d)) return kFailure;
    if (std::string why = installStandard(d.db, drawing, path, recorded); !why.empty()) return failure(why);
    StandardView v;
    if (!readStandard(d.db, v)) return failure(drawing + ": the installed standard cannot be read back");
    if (!writeDrawing(d.db, out)) return kFailure;
    std::printf("Installed the layer standard \"%s\" (%s) into %s\n", toUtf8(v.name).c_str(), recorded.c_str(),
                out.c_str());
    return kSuccess;
}

int cmdShow(const std::vector<std::string>& args)
{
    std::vector<std::string> pos;
    bool asJson = false;
    for (const auto& a : args) {
        if (a == "--json") asJson = true;
        else if (a.size() > 1 && a[0] == '-') return usageError("show: unknown option '" + a + "'", "show");
        else pos.push_back(a);
    }
    if (pos.size() != 1) return usageError("show: expected one DRAWING", "show");
    if (!startModule()) return kFailure;
    OpenDrawing d;
    if (!openDrawing(pos[0], d)) return kFailure;
    StandardView v;
    if (!readStandard(d.db, v)) return failure(pos[0] + ": the drawing holds no layer standard");
    if (asJson) printJson(v);
    else printText(v);
    return kSuccess;
}

int cmdExport(const std::vector<std::string>& args)
{
    for (const auto& a : args)
        if (a.size() > 1 && a[0] == '-') return usageError("export: unknown option '" + a + "'", "export");
    if (args.size() != 2) return usageError("export: expected DRAWING and OUT.std", "export");
    if (!startModule()) return kFailure;
    OpenDrawing d;
    if (!openDrawing(args[0], d)) return kFailure;
    StandardView v;
    if (!readStandard(d.db, v)) return failure(args[0] + ": the drawing holds no layer standard");

    ZEFTFileRW rw;
    rw.setName(v.name);
    rw.setRules(v.rules[0], v.rules[1], v.rules[2]);
    std::vector<ZEFTRuleFunction*> functions;
    for (auto& f : v.functions) functions.push_back(f.get());
    rw.setFunctions(functions);
    std::vector<ZEFTRuleEnum*> enums;
    for (auto& e : v.enums) enums.push_back(e.get());
    rw.setEnums(enums);
    rw.setException(v.exception.get());
    rw.setSeparator(v.separator);

    const fs::path target(args[1]);
    std::error_code ec;
    if (!fs::is_directory(target.has_parent_path() ? target.parent_path() : fs::path("."), ec))
        return failure(args[1] + ": cannot write: no such folder");
    if (const std::string why = rw.writeStandardReplacing(fromUtf8(args[1])); !why.empty())
        return failure(args[1] + ": cannot write: " + why);
    std::printf("Wrote the layer standard \"%s\" to %s\n", toUtf8(v.name).c_str(), args[1].c_str());
    return kSuccess;
}

}  // namespace zeftlayer
