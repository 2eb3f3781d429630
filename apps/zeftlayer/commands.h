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
// Writes through a temporary file beside the target, so that a failed write
// leaves nothing half-written; on failure prints the reason.
bool writeDrawing(AcDbDatabase* db, const std::string& path);
// A JSON string literal of the text (UTF-8).
std::string jsonString(const std::wstring& s);

// Loads the layer manager, so that drawings holding a standard read it as
// its own objects; on failure prints the reason.
bool startModule();
// A standard of the standards folder by file name, by file name without
// ".std", or by standard name; `why` tells what failed.
bool findInFolder(const std::string& wanted, std::string& fileName, std::string& why);

// The layer standard commands (standards.cpp).
int cmdStandards(const std::vector<std::string>& args);
int cmdInstall(const std::vector<std::string>& args);
int cmdShow(const std::vector<std::string>& args);
int cmdExport(const std::vector<std::string>& args);

// The project object and mould lists of a drawing (project.cpp).
int cmdProject(const std::vector<std::string>& args);

// A script of host commands on a drawing (run.cpp).
int cmdRun(const std::vector<std::string>& args);

// The layer each entity would get (names.cpp).
int cmdNames(const std::vector<std::string>& args);
// The entities the layering looks at: model space, then the current paper space.
std::vector<AcDbObjectId> layeredEntityIds(AcDbDatabase* db);

}  // namespace zeftlayer
