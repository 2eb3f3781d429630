#include "zeftlayermanager/zeftlayermanagercommands.h"

#include <QApplication>

#include "host/document.h"
#include "host/editor.h"
#include "suite/wybase.h"
#include "suite/zeftdatabasetools.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/zeftlayerstandardsheet.h"

void ZEFTLayerManagerCommands::ZEFTLayerStandards()
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerCommands::ZEFTLayerStandards", {
        // The standard of a drawing set belongs to the set, not to one drawing.
        if (ZEFTDatabaseTools::GetIsDrawingSet(acdbWorkingDatabase())) {
            ZEFTUITools::MessageBoxW(WyPrompts::getPrompt(L"ZEFTTOOLS", 14111), MB_ICONEXCLAMATION, nullptr);
            return;
        }
        const std::wstring caption = WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17704);
        // The editor needs a window to open over; a run without one says
        // where to run the command.
        if (acedGetAcadFrame() && qobject_cast<QApplication*>(QCoreApplication::instance())) {
            ZEFTLayerStandardSheet sheet(QString::fromStdWString(caption), static_cast<QWidget*>(acedGetAcadFrame()), 0);
            sheet.exec();
            return;
        }
        acutPrintf(L"\n%ls: the layer standard editor opens in a window: run the command in zeftcad.\n", caption.c_str());
    });
}
