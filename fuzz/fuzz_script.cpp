// Feeds arbitrary text to the script runner on a small drawing, with the
// host's drawing commands registered (saving left out: a script would write
// where it likes) and a few commands that echo, cancel and fail: a script
// may name anything, quote anything, and fail anywhere; the drawing must
// still write.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/database.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "host/editor.h"
#include "host/hostcommands.h"

namespace {
void echoCommand()
{
    std::wstring answer;
    while (acedEditor->nextAnswer(answer)) {
    }
}
void cancelCommand() { throw AcEdCommandCancelled{}; }
void failCommand() { throw std::runtime_error("failed on purpose"); }

// Entities and a block with an attribute for the handles a script may name.
const wchar_t* const kSetUp =
    L"LAYER make Walls\n"
    L"LINE 0,0 10,0 10,10\n"
    L"CIRCLE 5,5 2\n"
    L"TEXT 1,1 2.5 Étage\n"
    L"PLINE 0,0 5,0 5,5 close\n"
    L"TILEMODE 0\n";
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool ready = [] {
        acedRegisterHostCommands();
        acedRegCmds->removeCmd(kHostCommandGroup, L"SAVE");
        acedRegCmds->removeCmd(kHostCommandGroup, L"QSAVE");
        acedRegCmds->addCommand(L"FUZZ", L"ECHO", L"ECHO", ACRX_CMD_MODAL, &echoCommand);
        acedRegCmds->addCommand(L"FUZZ", L"CANCEL", L"ANNULER", ACRX_CMD_MODAL, &cancelCommand);
        acedRegCmds->addCommand(L"FUZZ", L"FAIL", L"ECHEC", ACRX_CMD_MODAL, &failCommand);
        acutSetPrintSink([](const std::wstring&) {});
        return true;
    }();
    (void)ready;
    AcApDocument* doc = acDocManager->open(std::make_unique<AcDbDatabase>());
    acedRunScript(kSetUp, "setup.scr");
    std::wstring text = dxf::fromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
    AcedScriptResult result = acedRunScript(text, "fuzz.scr");
    if (result.failed < 0 || std::size_t(result.failed) != result.errors.size() || result.failed > result.commands)
        __builtin_trap();
    (void)doc->database()->dxfText();
    acDocManager->close(doc);
    return 0;
}
