#include "suite/zefttools.h"

#include <cstdlib>
#include <cwchar>

#include "host/database.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "host/editor.h"
#include "suite/wybase.h"

void ZEFTLayerTools::getLokedLayers(AcDbObjectIdArray& layers)
{
    AcDbDatabase* db = acdbWorkingDatabase();
    if (!db) return;
    AcDbObjectPointer<AcDbLayerTable> table(db->layerTableId(), AcDb::kForRead);
    if (!table) return;
    for (const AcDbObjectId& id : table->recordIds()) {
        AcDbObjectPointer<AcDbLayerTableRecord> layer(id, AcDb::kForRead);
        if (layer && layer->isLocked()) layers.append(id);
    }
}

void ZEFTLayerTools::lockLayers(const AcDbObjectIdArray& layers, bool lock)
{
    for (const AcDbObjectId& id : layers) {
        AcDbObjectPointer<AcDbLayerTableRecord> layer(id, AcDb::kForRead);
        if (layer && layer->isLocked() != lock && layer->upgradeOpen() == Acad::eOk) layer->setIsLocked(lock);
    }
}

bool ZEFTAcadSystemTools::getSysVar(const wchar_t* name, ResBuf& value) { return name && acedGetVar(name, value); }

bool ZEFTAcadSystemTools::isCommand(const wchar_t* commandName, const wchar_t* command)
{
    if (!commandName || !command) return false;
    while (*commandName == L'.' || *commandName == L'_') ++commandName;
    return acdbToUpper(commandName) == acdbToUpper(command);
}

namespace {
ZEFTUITools::Handler& messageBoxHandler()
{
    static ZEFTUITools::Handler handler;
    return handler;
}
}  // namespace

void ZEFTUITools::setMessageBoxHandler(Handler handler) { messageBoxHandler() = std::move(handler); }

int ZEFTUITools::MessageBoxW(const std::wstring& text, unsigned flags, void*)
{
    const std::wstring caption = WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17717);
    if (messageBoxHandler()) return messageBoxHandler()(caption, text, flags);
    acutPrintf(L"\n%ls: %ls\n", caption.c_str(), text.c_str());
    const unsigned buttons = flags & 0xF;
    return buttons == MB_YESNO || buttons == MB_YESNOCANCEL ? IDYES : IDOK;
}

namespace {
ZEFTHelpTools::Handler& helpHandler()
{
    static ZEFTHelpTools::Handler handler;
    return handler;
}
}  // namespace

void ZEFTHelpTools::setHelpHandler(Handler handler) { helpHandler() = std::move(handler); }

void ZEFTHelpTools::Help(int book, int topic)
{
    if (helpHandler()) return helpHandler()(book, topic);
    acutPrintf(L"\nHelp: book %d, topic %d\n", book, topic);
}

namespace {
bool& atExport()
{
    static bool on = [] {
        const char* env = std::getenv("ZEFT_AT_EXPORT");
        return env && *env == '1';
    }();
    return on;
}
}  // namespace

bool WyAutoTestUtils::IsATExport() { return atExport(); }
void WyAutoTestUtils::SetATExport(bool on) { atExport() = on; }
