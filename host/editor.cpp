#include "host/editor.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <cwctype>

#include "host/dxf/codec.h"

namespace {
template <class F>
void each(const std::vector<AcEditorReactor*>& reactors, F&& fn)
{
    // A reactor may remove itself while being told.
    std::vector<AcEditorReactor*> copy(reactors);
    for (AcEditorReactor* r : copy)
        if (std::find(reactors.begin(), reactors.end(), r) != reactors.end()) fn(r);
}
}  // namespace

AcEdCommandStack* acedRegCmdsPtr()
{
    static AcEdCommandStack* stack = [] {
        auto* s = new AcEdCommandStack;  // lives as long as the process: modules unload after statics
        acrxSysRegistry()->atPut(L"ACAD_REGISTERED_COMMANDS", s);
        return s;
    }();
    return stack;
}

Acad::ErrorStatus AcEdCommandStack::addCommand(const wchar_t* group, const wchar_t* globalName, const wchar_t* localName,
                                               int flags, AcRxFunctionPtr function, void*, int, void*, AcEdCommand** cmd)
{
    if (!group || !*group || !globalName || !*globalName || !function) return Acad::eInvalidInput;
    std::wstring local = localName && *localName ? localName : globalName;
    if (lookupCmd(globalName) || lookupCmd(local.c_str())) return Acad::eDuplicateKey;
    commands_.push_back({group, globalName, local, flags, function});
    if (cmd) *cmd = &commands_.back();
    return Acad::eOk;
}

Acad::ErrorStatus AcEdCommandStack::removeCmd(const wchar_t* group, const wchar_t* globalName)
{
    std::wstring g = acdbToUpper(group ? group : L""), n = acdbToUpper(globalName ? globalName : L"");
    auto it = std::find_if(commands_.begin(), commands_.end(),
                           [&](const AcEdCommand& c) { return acdbToUpper(c.group) == g && acdbToUpper(c.globalName) == n; });
    if (it == commands_.end()) return Acad::eKeyNotFound;
    commands_.erase(it);
    return Acad::eOk;
}

Acad::ErrorStatus AcEdCommandStack::removeGroup(const wchar_t* group)
{
    std::wstring g = acdbToUpper(group ? group : L"");
    auto n = std::erase_if(commands_, [&](const AcEdCommand& c) { return acdbToUpper(c.group) == g; });
    return n ? Acad::eOk : Acad::eKeyNotFound;
}

const AcEdCommand* AcEdCommandStack::lookupCmd(const wchar_t* name) const
{
    std::wstring n = acdbToUpper(name ? name : L"");
    // A leading '.' or '_' asks for the global name, as at the host's prompt.
    while (!n.empty() && (n[0] == L'.' || n[0] == L'_')) n.erase(0, 1);
    for (const AcEdCommand& c : commands_)
        if (acdbToUpper(c.globalName) == n || acdbToUpper(c.localName) == n) return &c;
    return nullptr;
}

std::vector<std::wstring> AcEdCommandStack::groups() const
{
    std::vector<std::wstring> out;
    for (const AcEdCommand& c : commands_)
        if (std::find(out.begin(), out.end(), c.group) == out.end()) out.push_back(c.group);
    return out;
}

std::vector<AcEdCommand> AcEdCommandStack::commands(const wchar_t* group) const
{
    std::vector<AcEdCommand> out;
    std::wstring g = acdbToUpper(group ? group : L"");
    for (const AcEdCommand& c : commands_)
        if (acdbToUpper(c.group) == g) out.push_back(c);
    return out;
}

AcEditor* acedEditorPtr()
{
    static AcEditor* editor = new AcEditor;  // never destroyed: drawings destroyed at exit still tell it
    return editor;
}

void AcEditor::addReactor(AcEditorReactor* r)
{
    if (r && std::find(reactors_.begin(), reactors_.end(), r) == reactors_.end()) reactors_.push_back(r);
}

void AcEditor::removeReactor(AcEditorReactor* r) { std::erase(reactors_, r); }

void AcEditor::fireCommandWillStart(const wchar_t* n) { each(reactors_, [&](AcEditorReactor* r) { r->commandWillStart(n); }); }
void AcEditor::fireCommandEnded(const wchar_t* n) { each(reactors_, [&](AcEditorReactor* r) { r->commandEnded(n); }); }
void AcEditor::fireCommandCancelled(const wchar_t* n) { each(reactors_, [&](AcEditorReactor* r) { r->commandCancelled(n); }); }
void AcEditor::fireCommandFailed(const wchar_t* n) { each(reactors_, [&](AcEditorReactor* r) { r->commandFailed(n); }); }
void AcEditor::fireEndDeepClone(AcDbIdMapping& m) { each(reactors_, [&](AcEditorReactor* r) { r->endDeepClone(m); }); }
void AcEditor::fireDatabaseToBeDestroyed(AcDbDatabase* db)
{
    each(reactors_, [&](AcEditorReactor* r) { r->databaseToBeDestroyed(db); });
}

bool AcEditor::nextAnswer(std::wstring& answer)
{
    if (nextAnswer_ >= answers_.size()) return false;
    answer = answers_[nextAnswer_++];
    return true;
}

bool AcEditor::restOfAnswers(std::wstring& text)
{
    if (nextAnswer_ >= answers_.size()) return false;
    if (nextAnswer_ + 1 == answers_.size() || nextAnswer_ >= tails_.size()) {
        text = answers_[nextAnswer_++];
        while (nextAnswer_ < answers_.size()) text += L' ' + answers_[nextAnswer_++];
        return true;
    }
    text = tails_[nextAnswer_];
    nextAnswer_ = answers_.size();
    return true;
}

AcEditor::Result AcEditor::runCommand(const std::wstring& name, std::vector<std::wstring> answers)
{
    return runCommand(name, std::move(answers), {});
}

AcEditor::Result AcEditor::runCommand(const std::wstring& name, std::vector<std::wstring> answers,
                                      std::vector<std::wstring> tails)
{
    const AcEdCommand* cmd = acedRegCmds->lookupCmd(name.c_str());
    if (!cmd) {
        lastError_ = "unknown command '" + dxf::toUtf8(name) + "'";
        return Result::Unknown;
    }
    // Reactors hear the global name, upper-cased, as the host reports it.
    std::wstring global = acdbToUpper(cmd->globalName);
    AcRxFunctionPtr fn = cmd->function;
    answers_ = std::move(answers);
    tails_ = std::move(tails);
    nextAnswer_ = 0;
    active_ = global;
    lastError_.clear();
    fireCommandWillStart(global.c_str());
    Result result = Result::Ended;
    try {
        fn();
    } catch (const AcEdCommandCancelled&) {
        result = Result::Cancelled;
    } catch (const std::exception& e) {
        lastError_ = e.what();
        result = Result::Failed;
    } catch (...) {
        lastError_ = "unknown error";
        result = Result::Failed;
    }
    active_.clear();
    if (result == Result::Ended) fireCommandEnded(global.c_str());
    else if (result == Result::Cancelled) fireCommandCancelled(global.c_str());
    else fireCommandFailed(global.c_str());
    return result;
}

namespace {
struct ScriptLine {
    std::vector<std::wstring> words;
    std::vector<std::wstring> tails;  // the line from each word on, trailing blanks cut
};

ScriptLine splitLine(const std::wstring& line)
{
    ScriptLine out;
    std::size_t end = line.size();
    while (end > 0 && std::iswspace(line[end - 1])) --end;
    std::size_t i = 0;
    while (i < end) {
        while (i < end && std::iswspace(line[i])) ++i;
        if (i >= end) break;
        out.tails.push_back(line.substr(i, end - i));
        std::wstring word;
        if (line[i] == L'"') {
            ++i;
            while (i < end && line[i] != L'"') word += line[i++];
            ++i;
        } else {
            while (i < end && !std::iswspace(line[i])) word += line[i++];
        }
        out.words.push_back(word);
    }
    return out;
}
}  // namespace

AcedScriptResult acedRunScript(const std::wstring& text, const std::string& scriptName, bool stopAtFirstFailure)
{
    AcedScriptResult result;
    std::size_t start = 0;
    int lineNo = 0;
    while (start <= text.size()) {
        std::size_t nl = text.find(L'\n', start);
        std::wstring line = text.substr(start, nl == std::wstring::npos ? std::wstring::npos : nl - start);
        ++lineNo;
        ScriptLine words = splitLine(line);
        if (!words.words.empty() && (words.words[0].empty() || words.words[0][0] != L';')) {
            std::wstring name = words.words[0];
            words.words.erase(words.words.begin());
            words.tails.erase(words.tails.begin());
            ++result.commands;
            AcEditor::Result r = acedEditor->runCommand(name, std::move(words.words), std::move(words.tails));
            if (r == AcEditor::Result::Unknown || r == AcEditor::Result::Failed) {
                ++result.failed;
                // A failure names the command as the host knows it, whatever the script typed.
                const AcEdCommand* cmd = acedRegCmds->lookupCmd(name.c_str());
                std::string what = r == AcEditor::Result::Unknown || !cmd
                                       ? acedEditor->lastError()
                                       : dxf::toUtf8(acdbToUpper(cmd->globalName)) + ": " + acedEditor->lastError();
                result.errors.push_back(scriptName + ":" + std::to_string(lineNo) + ": " + what);
                if (stopAtFirstFailure) break;
            }
        }
        if (nl == std::wstring::npos) break;
        start = nl + 1;
    }
    return result;
}

namespace {
std::function<void(const std::wstring&)>& printSink()
{
    static std::function<void(const std::wstring&)> sink;
    return sink;
}
}  // namespace

void acutSetPrintSink(std::function<void(const std::wstring&)> sink) { printSink() = std::move(sink); }

namespace {
void*& mainWindow()
{
    static void* window = nullptr;
    return window;
}
}  // namespace

void* acedGetAcadFrame() { return mainWindow(); }
void acedSetAcadFrame(void* window) { mainWindow() = window; }

void acutPrintf(const wchar_t* format, ...)
{
    wchar_t buf[4096];
    va_list ap;
    va_start(ap, format);
    int n = std::vswprintf(buf, sizeof buf / sizeof buf[0], format, ap);
    va_end(ap);
    std::wstring text = n < 0 ? std::wstring(format) : std::wstring(buf, std::size_t(n));
    if (printSink()) {
        printSink()(text);
        return;
    }
    std::string utf8 = dxf::toUtf8(text);
    std::fwrite(utf8.data(), 1, utf8.size(), stdout);
    std::fflush(stdout);
}
