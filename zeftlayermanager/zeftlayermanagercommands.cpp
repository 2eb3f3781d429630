#include "zeftlayermanager/zeftlayermanagercommands.h"

#include "host/editor.h"
#include "suite/wybase.h"

void ZEFTLayerManagerCommands::ZEFTLayerStandards()
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerCommands::ZEFTLayerStandards", {
        acutPrintf(L"\n%ls: the layer standard editor is not available in this build.\n",
                   WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17704).c_str());
    });
}
