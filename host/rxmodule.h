// The dynamic linker: loads modules (shared libraries) at run time, checks
// the version stamp they export, and sends them the init and unload messages.
#pragma once

#include <string>
#include <vector>

#include "host/acad.h"

// The stamp a module must export through acrxGetApiVersion(); a module built
// against another version of the host is refused.
#define ZEFT_HOST_API_VERSION "ZEFTHOST-API-1"

// What a module exports, with C linkage and default visibility.
extern "C" {
typedef AcRx::AppRetCode (*AcRxEntryPointFn)(AcRx::AppMsgCode msg, void* appId);
typedef const char* (*AcRxApiVersionFn)();
}

class AcRxDynamicLinker {
public:
    // Loads a module by path, or by name ("zeftlayermanager") from the search
    // path. Returns false with a message in `error` when it cannot.
    bool loadModule(const std::string& pathOrName, std::string* error = nullptr);
    // Sends the unload message and unloads; false when not loaded or locked.
    bool unloadModule(const std::string& name, std::string* error = nullptr);
    bool isLoaded(const std::string& name) const;
    // Module names ("zeftlayermanager") in load order.
    std::vector<std::string> loadedModules() const;
    std::string modulePath(const std::string& name) const;

    // Folders searched for modules by name: ZEFT_MODULE_PATH (colon
    // separated), then the program's "../lib", then the program's folder.
    std::vector<std::string> searchPath() const;
    void setSearchPath(std::vector<std::string> dirs) { searchPath_ = std::move(dirs); }

    // Called by a module on init: a locked module cannot be unloaded.
    bool lockApplication(void* appId);
    bool unlockApplication(void* appId);
    bool registerAppMDIAware(void* appId);
    bool isAppLocked(const std::string& name) const;

    // Unloads everything, last loaded first.
    void unloadAll();

private:
    struct Module {
        std::string name, path;
        void* handle = nullptr;
        AcRxEntryPointFn entry = nullptr;
        bool locked = true;  // until the module unlocks itself
        bool mdiAware = false;
    };
    Module* find(const std::string& name);
    const Module* find(const std::string& name) const;
    std::vector<Module*> modules_;
    std::vector<std::string> searchPath_;
};

AcRxDynamicLinker* acrxDynamicLinkerPtr();
#define acrxDynamicLinker acrxDynamicLinkerPtr()
