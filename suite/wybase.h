// The suite's base library: scope log, crash handler and guard, prompt
// tables, the table of registered command groups.
#pragma once

#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <utility>

// Logs "Class::method" on entry and exit at trace level. Tracing is off
// unless the environment variable ZEFT_TRACE is set (to 1 or a file path).
// Every guarded call makes one, so the check is inline and nothing else
// happens while tracing is off.
class CWyLogEntry {
public:
    explicit CWyLogEntry(const char* scope) : scope_(scope)
    {
        if (tracing_) enter();
    }
    ~CWyLogEntry()
    {
        if (tracing_) leave();
    }
    CWyLogEntry(const CWyLogEntry&) = delete;
    CWyLogEntry& operator=(const CWyLogEntry&) = delete;
    static bool enabled();

private:
    void enter() const;
    void leave() const;
    static const bool tracing_;
    const char* scope_;
};

// A message for whoever debugs: written to the trace log when tracing is on.
void wyOutputDebugString(const wchar_t* text);

// The crash handler: reports an exception that escaped a guarded body with
// the source file's name (without folders and extension) and line.
struct WyCrashReport {
    std::string file;
    int line = 0;
    std::string what;
};
void wyReportCrash(const char* file, int line, const char* what);
// The last report and how many there were, for tests and front ends.
const WyCrashReport& wyLastCrashReport();
int wyCrashCount();
// Where reports go; by default standard error.
void wySetCrashSink(std::function<void(const WyCrashReport&)> sink);

// Runs body inside the catch-all: an escaping exception is reported and the
// neutral value returned. No exception crosses a host callback.
template <class R, class F>
R wyGuarded(const char* file, int line, R neutral, F&& body)
{
    try {
        return body();
    } catch (const std::exception& e) {
        wyReportCrash(file, line, e.what());
    } catch (...) {
        wyReportCrash(file, line, "unknown exception");
    }
    return neutral;
}
template <class F>
void wyGuardedVoid(const char* file, int line, F&& body)
{
    try {
        body();
    } catch (const std::exception& e) {
        wyReportCrash(file, line, e.what());
    } catch (...) {
        wyReportCrash(file, line, "unknown exception");
    }
}

// The usual opening of an operation: its scope log and its guard.
#define ZEFT_GUARD(SCOPE, NEUTRAL, ...)                                                      \
    CWyLogEntry zeftLogEntry_(SCOPE);                                                        \
    return wyGuarded(__FILE__, __LINE__, NEUTRAL, [&]() -> decltype(NEUTRAL) __VA_ARGS__)
#define ZEFT_GUARD_VOID(SCOPE, ...)            \
    CWyLogEntry zeftLogEntry_(SCOPE);          \
    wyGuardedVoid(__FILE__, __LINE__, [&]() __VA_ARGS__)

// Prompt tables: texts by number, per project ("ZEFTLAYERMANAGER", "ZEFTTOOLS").
namespace WyPrompts {
std::wstring getPrompt(const wchar_t* project, int number);
void registerTable(const wchar_t* project, const std::map<int, std::wstring>* table);
void unregisterTable(const wchar_t* project);
}  // namespace WyPrompts

// Makes a module's resources current for the life of the object; the
// prompt tables are always reachable here, so it only marks the scope.
class CWyToolsResOverride {
public:
    explicit CWyToolsResOverride(void* moduleHandle = nullptr) { (void)moduleHandle; }
};

// The command groups that are live, upper-cased, with their value (1).
std::map<std::wstring, int>& wyRegisteredCommandGroups();
#define g_mapRegisteredCommandGroups wyRegisteredCommandGroups()
