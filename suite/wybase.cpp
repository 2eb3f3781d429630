#include "suite/wybase.h"

#include <cstdlib>
#include <mutex>

#include "host/dxf/codec.h"

namespace {

std::FILE* traceFile()
{
    static std::FILE* f = [] () -> std::FILE* {
        const char* v = std::getenv("ZEFT_TRACE");
        if (!v || !*v || std::string(v) == "0") return nullptr;
        if (std::string(v) == "1") return stderr;
        std::FILE* out = std::fopen(v, "a");
        return out ? out : stderr;
    }();
    return f;
}

thread_local int gDepth = 0;

WyCrashReport gLast;
int gCount = 0;
std::function<void(const WyCrashReport&)> gSink;

std::string baseName(const char* path)
{
    std::string s(path ? path : "");
    auto slash = s.find_last_of("/\\");
    if (slash != std::string::npos) s.erase(0, slash + 1);
    auto dot = s.rfind('.');
    if (dot != std::string::npos) s.erase(dot);
    return s;
}

std::map<std::wstring, const std::map<int, std::wstring>*>& tables()
{
    // The tools library's own texts are always there.
    static const std::map<int, std::wstring> tools = {
        {14111, L"Le standard de calques n'est pas modifiable dans un jeu de dessins."},
    };
    static std::map<std::wstring, const std::map<int, std::wstring>*> t = {{L"ZEFTTOOLS", &tools}};
    return t;
}

}  // namespace

void wyOutputDebugString(const wchar_t* text)
{
    if (std::FILE* f = traceFile()) std::fprintf(f, "debug: %s\n", dxf::toUtf8(text ? text : L"").c_str());
}

bool CWyLogEntry::enabled() { return traceFile() != nullptr; }

// Read when the library loads: ZEFT_TRACE is set before the program starts.
const bool CWyLogEntry::tracing_ = traceFile() != nullptr;

void CWyLogEntry::enter() const
{
    if (std::FILE* f = traceFile()) std::fprintf(f, "trace: %*s> %s\n", gDepth * 2, "", scope_);
    ++gDepth;
}

void CWyLogEntry::leave() const
{
    --gDepth;
    if (std::FILE* f = traceFile()) std::fprintf(f, "trace: %*s< %s\n", gDepth * 2, "", scope_);
}

void wyReportCrash(const char* file, int line, const char* what)
{
    gLast = {baseName(file), line, what ? what : ""};
    ++gCount;
    if (gSink) gSink(gLast);
    else std::fprintf(stderr, "error: %s(%d): %s\n", gLast.file.c_str(), gLast.line, gLast.what.c_str());
}

const WyCrashReport& wyLastCrashReport() { return gLast; }
int wyCrashCount() { return gCount; }
void wySetCrashSink(std::function<void(const WyCrashReport&)> sink) { gSink = std::move(sink); }

namespace WyPrompts {
std::wstring getPrompt(const wchar_t* project, int number)
{
    auto it = tables().find(project ? project : L"");
    if (it == tables().end()) return L"";
    auto p = it->second->find(number);
    return p == it->second->end() ? L"" : p->second;
}
void registerTable(const wchar_t* project, const std::map<int, std::wstring>* table) { tables()[project] = table; }
void unregisterTable(const wchar_t* project) { tables().erase(project); }
}  // namespace WyPrompts

std::map<std::wstring, int>& wyRegisteredCommandGroups()
{
    static std::map<std::wstring, int> groups;
    return groups;
}
