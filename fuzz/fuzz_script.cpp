// Feeds arbitrary text to the script runner, with a few harmless commands
// registered: a script may name anything, quote anything, and fail anywhere.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/dxf/codec.h"
#include "host/editor.h"

namespace {
void echoCommand()
{
    std::wstring answer;
    while (acedEditor->nextAnswer(answer)) {
    }
}
void cancelCommand() { throw AcEdCommandCancelled{}; }
void failCommand() { throw std::runtime_error("failed on purpose"); }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool ready = [] {
        acedRegCmds->addCommand(L"FUZZ", L"ECHO", L"ECHO", ACRX_CMD_MODAL, &echoCommand);
        acedRegCmds->addCommand(L"FUZZ", L"CANCEL", L"ANNULER", ACRX_CMD_MODAL, &cancelCommand);
        acedRegCmds->addCommand(L"FUZZ", L"FAIL", L"ECHEC", ACRX_CMD_MODAL, &failCommand);
        acutSetPrintSink([](const std::wstring&) {});
        return true;
    }();
    (void)ready;
    std::wstring text = dxf::fromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
    std::vector<std::string> errors;
    int failed = acedRunScript(text, "fuzz.scr", &errors);
    if (failed < 0 || std::size_t(failed) != errors.size()) __builtin_trap();
    return 0;
}
