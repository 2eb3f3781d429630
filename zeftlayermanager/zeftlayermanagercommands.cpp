#include "zeftlayermanager/zeftlayermanagercommands.h"

#include "host/document.h"
#include "host/editor.h"
#include "suite/wybase.h"
#include "suite/zeftdatabasetools.h"
#include "suite/zefttools.h"

void ZEFTLayerManagerCommands::ZEFTLayerStandards()
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerCommands::ZEFTLayerStandards", {
        // The standard of a drawing set belongs to the set, not to one drawing.
        if (ZEFTDatabaseTools::GetIsDrawingSet(acdbWorkingDatabase())) {
            ZEFTUITools::MessageBoxW(WyPrompts::getPrompt(L"ZEFTTOOLS", 14111), MB_ICONEXCLAMATION, nullptr);
            return;
        }
        acutPrintf(L"\n%ls: the layer standard editor is not available in this build.\n",
                   WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17704).c_str());
    });
}
