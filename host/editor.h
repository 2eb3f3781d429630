// Commands and the editor: the command stack with its groups, editor
// reactors, and the command runner that fires their events.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/database.h"

typedef void (*AcRxFunctionPtr)();

// Command flags.
enum : int {
    ACRX_CMD_MODAL = 0x00000000,
    ACRX_CMD_TRANSPARENT = 0x00000001,
    ACRX_CMD_USEPICKSET = 0x00000002,
    ACRX_CMD_REDRAW = 0x00000004,
    ACRX_CMD_NOMULTIPLE = 0x00000008,
    ACRX_CMD_SESSION = 0x00200000,
};

struct AcEdCommand {
    std::wstring group, globalName, localName;
    int flags = 0;
    AcRxFunctionPtr function = nullptr;
};

class AcEdCommandStack : public AcRxObject {
public:
    // Adds a command to a group (made when missing). Names are unique across
    // groups, compared without regard to case: eDuplicateKey otherwise.
    Acad::ErrorStatus addCommand(const wchar_t* group, const wchar_t* globalName, const wchar_t* localName, int flags,
                                 AcRxFunctionPtr function, void* uiContext = nullptr, int fcode = -1,
                                 void* resourceHandle = nullptr, AcEdCommand** cmd = nullptr);
    Acad::ErrorStatus removeCmd(const wchar_t* group, const wchar_t* globalName);
    Acad::ErrorStatus removeGroup(const wchar_t* group);
    // By global or local name, any case; null when unknown.
    const AcEdCommand* lookupCmd(const wchar_t* name) const;
    std::vector<std::wstring> groups() const;
    std::vector<AcEdCommand> commands(const wchar_t* group) const;

private:
    std::vector<AcEdCommand> commands_;
};

// The command stack, also found in the system registry under "ACAD_REGISTERED_COMMANDS".
AcEdCommandStack* acedRegCmdsPtr();
#define acedRegCmds acedRegCmdsPtr()

class AcEditorReactor : public AcRxObject {
public:
    virtual void commandWillStart(const wchar_t* cmdStr) {}
    virtual void commandEnded(const wchar_t* cmdStr) {}
    virtual void commandCancelled(const wchar_t* cmdStr) {}
    virtual void commandFailed(const wchar_t* cmdStr) {}
    virtual void endDeepClone(AcDbIdMapping& idMap) {}
    virtual void databaseToBeDestroyed(AcDbDatabase* db) {}
};
using AcEditorReactor2 = AcEditorReactor;

// Thrown by a command body to cancel the command (the user's Escape).
struct AcEdCommandCancelled {};

class AcEditor {
public:
    void addReactor(AcEditorReactor* r);
    void removeReactor(AcEditorReactor* r);
    const std::vector<AcEditorReactor*>& reactors() const { return reactors_; }

    // Runs a command by name with its answers to prompts: fires
    // commandWillStart, runs it, then commandEnded, or commandCancelled when
    // it threw AcEdCommandCancelled, or commandFailed for any other error.
    enum class Result { Ended, Cancelled, Failed, Unknown };
    Result runCommand(const std::wstring& name, std::vector<std::wstring> answers = {});
    // The same for a script line: tails[i] is the line's raw text from answer
    // i on, so that a command can take its text to the end of the line.
    Result runCommand(const std::wstring& name, std::vector<std::wstring> answers, std::vector<std::wstring> tails);
    // A command's next answer to a prompt; false when none is left.
    bool nextAnswer(std::wstring& answer);
    // Every answer left, as one text: the rest of the script line as written
    // (blanks kept; a lone quoted answer loses its quotes), or the answers
    // joined by one blank. False when none is left.
    bool restOfAnswers(std::wstring& text);
    // Answers not read yet.
    std::size_t answersLeft() const { return answers_.size() - nextAnswer_; }
    // The command that runs, or empty.
    const std::wstring& activeCommand() const { return active_; }
    // The text of the last command that failed.
    const std::string& lastError() const { return lastError_; }

    // Events the host raises.
    void fireEndDeepClone(AcDbIdMapping& idMap);
    void fireDatabaseToBeDestroyed(AcDbDatabase* db);
    void fireCommandWillStart(const wchar_t* name);
    void fireCommandEnded(const wchar_t* name);
    void fireCommandCancelled(const wchar_t* name);
    void fireCommandFailed(const wchar_t* name);

private:
    std::vector<AcEditorReactor*> reactors_;
    std::vector<std::wstring> answers_, tails_;
    std::size_t nextAnswer_ = 0;
    std::wstring active_;
    std::string lastError_;
};

AcEditor* acedEditorPtr();
#define acedEditor acedEditorPtr()

// The desktop host's main window (a QWidget in zeftcad), or null when the
// host runs without a window (zeftlayer, tests): dialogs that a command opens
// are parented to it and shown modally, and headless runs print instead.
void* acedGetAcadFrame();
void acedSetAcadFrame(void* window);

// Prints to the command line (standard output unless a sink is set).
void acutPrintf(const wchar_t* format, ...);
void acutSetPrintSink(std::function<void(const std::wstring&)> sink);

// Runs a script: one command and its answers per line, separated by blanks
// (quoted answers may hold blanks); empty lines and lines starting with ';'
// are skipped. A line fails when its command is unknown or fails; a
// cancelled command is not a failure.
struct AcedScriptResult {
    int commands = 0;                 // lines that named a command, failed ones included
    int failed = 0;
    std::vector<std::string> errors;  // one per failure: "SCRIPT:LINE: NAME: reason"
};
AcedScriptResult acedRunScript(const std::wstring& text, const std::string& scriptName, bool stopAtFirstFailure = false);
