#pragma once

#include <string>
#include <vector>

class AcApDocument;
class AcDbDatabase;
class AcDbObjectId;

namespace zeftlayer {

// Exit codes scripts can rely on.
constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;

int run(const std::vector<std::string>& args);
// The program's own file, for commands that start copies of it (apply's
// workers). Set by the program's main only: inside tests and fuzzers it is
// empty and such commands do their work in-process.
void setProgramFile(const std::string& path);
const std::string& programFile();

// Prints "zeftlayer: msg" and a pointer to the command's help; returns kUsage.
int usageError(const std::string& msg, const char* command);
// Prints "zeftlayer: msg"; returns kFailure.
int failure(const std::string& msg);

// A drawing read from disk and opened as the current document, closed at
// scope exit.
struct OpenDrawing {
    AcApDocument* doc = nullptr;
    AcDbDatabase* db = nullptr;
    OpenDrawing() = default;
    OpenDrawing(const OpenDrawing&) = delete;
    OpenDrawing& operator=(const OpenDrawing&) = delete;
    ~OpenDrawing();
};
// Prints read warnings; on failure prints the reason and returns false.
bool openDrawing(const std::string& path, OpenDrawing& out);
// The same for front ends that show messages their own way: read warnings
// go to `warnings`; returns why it failed (naming the file), or empty.
std::string tryOpenDrawing(const std::string& path, OpenDrawing& out, std::vector<std::string>& warnings);
// Writes through a temporary file beside the target, so that a failed write
// leaves nothing half-written; on failure prints the reason.
bool writeDrawing(AcDbDatabase* db, const std::string& path);
// The same, returning why it failed, or empty.
std::string tryWriteDrawing(AcDbDatabase* db, const std::string& path);
// The text in UTF-8, padded to a width in characters, not bytes, so that
// accents keep columns straight.
std::string padded(const std::wstring& s, std::size_t width);
// A JSON string literal of the text (UTF-8).
std::string jsonString(const std::wstring& s);

// Loads the layer manager, so that drawings holding a standard read it as
// its own objects; on failure prints the reason.
bool startModule();
// The same, returning why it failed, or empty.
std::string tryStartModule();
// A standard of the standards folder by file name, by file name without
// ".std", or by standard name; `why` tells what failed.
bool findInFolder(const std::string& wanted, std::string& fileName, std::string& why);

// The layer standard commands (standards.cpp).
int cmdStandards(const std::vector<std::string>& args);
int cmdInstall(const std::vector<std::string>& args);
int cmdShow(const std::vector<std::string>& args);
int cmdExport(const std::vector<std::string>& args);
// The standard a command line names: a path (anything with a '/'), or a file
// or standard of the folder. Gives its path and the file name to record;
// returns why it cannot be used, or empty.
std::string locateStandard(const std::string& standard, std::string& path, std::string& recorded);
// Puts that standard in place of the one the drawing holds (in memory);
// returns why it failed, or empty.
std::string installStandard(AcDbDatabase* db, const std::string& drawing, const std::string& path,
                            const std::string& recorded);

// The project object and mould lists of a drawing (project.cpp).
int cmdProject(const std::vector<std::string>& args);

// A script of host commands on a drawing (run.cpp).
int cmdRun(const std::vector<std::string>& args);
// Reads a script file (UTF-8, a byte-order mark allowed); returns why it
// cannot be used ("PATH: reason"), or empty.
std::string readScript(const std::string& path, std::wstring& text);

// The layer each entity would get (names.cpp).
int cmdNames(const std::vector<std::string>& args);
// What the layering does with one entity: the layer it puts it on, or why it
// leaves it alone. Evaluates the entity's rule (and may give a suite entity
// its rule, in memory).
struct EntityLayer {
    std::string handle, space;
    std::wstring className, layer;  // the entity's class and current layer
    bool layered = false;
    std::wstring target;  // when layered; "0" when no name comes out
    std::string note;     // how the target came, or why there is none
};
EntityLayer entityLayer(AcDbDatabase* db, const AcDbObjectId& id);
// Only why the layering leaves an entity alone, without evaluating its
// rule; empty when the layering places it.
std::string whyLeftAlone(AcDbDatabase* db, const AcDbObjectId& id);
// The entities the layering looks at: model space, then the current paper space.
std::vector<AcDbObjectId> layeredEntityIds(AcDbDatabase* db);

// Re-layering through the module's editor reactor (apply.cpp).
int cmdApply(const std::vector<std::string>& args);
int cmdCheck(const std::vector<std::string>& args);

}  // namespace zeftlayer
