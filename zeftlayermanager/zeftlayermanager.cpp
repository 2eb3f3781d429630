// The module's entry: registration of its classes, command and reactors on
// load, and their removal on unload.
#include <cwctype>

#include "host/editor.h"
#include "host/rxmodule.h"
#include "suite/wybase.h"
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"
#include "zeftlayermanager/zeftfiling.h"
#include "zeftlayermanager/zeftlayermanagercommands.h"
#include "zeftlayermanager/zeftlayermanagereditorreactor.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

constexpr const wchar_t* kGroup = L"ZEFTLAYERMANAGER";
constexpr const wchar_t* kProject = L"ZEFTLAYERMANAGER";

ZEFTLayerManagerDatabaseReactor* gpDatabaseReactor = nullptr;

void RegisterClasses()
{
    ZEFT_GUARD_VOID("ZEFTLayerManager::RegisterClasses", { zeft_filing::registerClasses(); });
}

void UnregisterClasses()
{
    ZEFT_GUARD_VOID("ZEFTLayerManager::UnregisterClasses", {
        // The same order as registration.
        deleteAcRxClass(ZEFTLayerStandard::desc());
        deleteAcRxClass(ZEFTLayerRule::desc());
        deleteAcRxClass(ZEFTRuleFunction::desc());
        deleteAcRxClass(ZEFTRuleEnum::desc());
        deleteAcRxClass(ZEFTRuleException::desc());
    });
}

void RegisterCommands()
{
    ZEFT_GUARD_VOID("ZEFTLayerManager::RegisterCommands", {
        CWyToolsResOverride resources;
        std::wstring local = WyPrompts::getPrompt(kProject, 17701);
        auto* stack = dynamic_cast<AcEdCommandStack*>(acrxSysRegistry()->at(L"ACAD_REGISTERED_COMMANDS"));
        if (!stack) stack = acedRegCmds;
        if (stack->addCommand(kGroup, L"zeftlayerstandard", local.c_str(), ACRX_CMD_MODAL | ACRX_CMD_USEPICKSET,
                              &ZEFTLayerManagerCommands::ZEFTLayerStandards, nullptr, -1, nullptr) == Acad::eOk) {
            g_mapRegisteredCommandGroups[acdbToUpper(kGroup)] = 1;
        }
    });
}

void UnregisterCommands()
{
    ZEFT_GUARD_VOID("ZEFTLayerManager::UnregisterCommands", {
        if (auto* stack = dynamic_cast<AcEdCommandStack*>(acrxSysRegistry()->at(L"ACAD_REGISTERED_COMMANDS")))
            stack->removeGroup(kGroup);
        g_mapRegisteredCommandGroups.erase(kGroup);
    });
}

void initApp(void* appId)
{
    acrxDynamicLinker->unlockApplication(appId);
    acrxDynamicLinker->registerAppMDIAware(appId);
    WyPrompts::registerTable(kProject, &zeftLayerManagerPrompts());
    RegisterClasses();
    RegisterCommands();
    gpDatabaseReactor = new ZEFTLayerManagerDatabaseReactor;
    gpLayerManagerEditorReactor = new ZEFTLayerManagerEditorReactor(true);
}

void unloadApp()
{
    delete gpDatabaseReactor;
    gpDatabaseReactor = nullptr;
    delete gpLayerManagerEditorReactor;
    gpLayerManagerEditorReactor = nullptr;
    UnregisterClasses();
    UnregisterCommands();
    WyPrompts::unregisterTable(kProject);
}

}  // namespace

extern "C" ZEFT_LM_EXPORT AcRx::AppRetCode acrxEntryPoint(AcRx::AppMsgCode msg, void* appId)
{
    CWyLogEntry log("acrxEntryPoint");
    wyGuardedVoid(__FILE__, __LINE__, [&] {
        if (msg == AcRx::kInitAppMsg) initApp(appId);
        else if (msg == AcRx::kUnloadAppMsg) unloadApp();
    });
    return AcRx::kRetOK;
}

extern "C" ZEFT_LM_EXPORT const char* acrxGetApiVersion() { return ZEFT_HOST_API_VERSION; }

extern "C" ZEFT_LM_EXPORT const wchar_t* getModulePromptsProjectName() { return kProject; }
