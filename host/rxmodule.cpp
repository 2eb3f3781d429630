#include "host/rxmodule.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

AcRxDynamicLinker* acrxDynamicLinkerPtr()
{
    static AcRxDynamicLinker linker;
    return &linker;
}

static std::string moduleName(const std::string& pathOrName)
{
    std::string n = fs::path(pathOrName).filename().string();
    if (n.size() > 3 && n.compare(n.size() - 3, 3, ".so") == 0) n.resize(n.size() - 3);
    return n;
}

std::vector<std::string> AcRxDynamicLinker::searchPath() const
{
    if (!searchPath_.empty()) return searchPath_;
    std::vector<std::string> dirs;
    if (const char* env = std::getenv("ZEFT_MODULE_PATH")) {
        std::string s(env);
        std::size_t start = 0;
        while (start <= s.size()) {
            std::size_t colon = s.find(':', start);
            std::string d = s.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
            if (!d.empty()) dirs.push_back(d);
            if (colon == std::string::npos) break;
            start = colon + 1;
        }
    }
    std::error_code ec;
    fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        dirs.push_back((exe.parent_path() / ".." / "lib").lexically_normal().string());
        dirs.push_back(exe.parent_path().string());
    }
    return dirs;
}

AcRxDynamicLinker::Module* AcRxDynamicLinker::find(const std::string& name)
{
    for (Module* m : modules_)
        if (m->name == name) return m;
    return nullptr;
}
const AcRxDynamicLinker::Module* AcRxDynamicLinker::find(const std::string& name) const
{
    for (const Module* m : modules_)
        if (m->name == name) return m;
    return nullptr;
}

bool AcRxDynamicLinker::loadModule(const std::string& pathOrName, std::string* error)
{
    auto fail = [&](const std::string& msg) {
        if (error) *error = msg;
        return false;
    };
    std::string name = moduleName(pathOrName);
    if (find(name)) return true;  // loaded already
    std::string path = pathOrName;
    if (pathOrName.find('/') == std::string::npos) {
        path.clear();
        std::string file = pathOrName.size() > 3 && pathOrName.compare(pathOrName.size() - 3, 3, ".so") == 0
                               ? pathOrName
                               : pathOrName + ".so";
        for (const std::string& d : searchPath()) {
            std::error_code ec;
            if (fs::is_regular_file(fs::path(d) / file, ec)) {
                path = (fs::path(d) / file).string();
                break;
            }
        }
        if (path.empty()) return fail("module '" + pathOrName + "' not found in the module search path");
    } else if (!fs::exists(path)) {
        return fail(path + ": no such module file");
    }
    dlerror();
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* e = dlerror();
        return fail(path + ": cannot load: " + (e ? e : "unknown error"));
    }
    auto version = reinterpret_cast<AcRxApiVersionFn>(::dlsym(handle, "acrxGetApiVersion"));
    auto entry = reinterpret_cast<AcRxEntryPointFn>(::dlsym(handle, "acrxEntryPoint"));
    if (!version || !entry) {
        ::dlclose(handle);
        return fail(path + ": not a module (acrxEntryPoint or acrxGetApiVersion missing)");
    }
    const char* stamp = version();
    if (!stamp || std::strcmp(stamp, ZEFT_HOST_API_VERSION) != 0) {
        ::dlclose(handle);
        return fail(path + ": built for host API '" + std::string(stamp ? stamp : "?") + "', this host is '" +
                    ZEFT_HOST_API_VERSION + "'");
    }
    auto* m = new Module{name, path, handle, entry};
    modules_.push_back(m);
    if (entry(AcRx::kInitAppMsg, m) != AcRx::kRetOK) {
        modules_.pop_back();
        entry(AcRx::kUnloadAppMsg, m);
        ::dlclose(handle);
        delete m;
        return fail(path + ": the module refused to initialise");
    }
    return true;
}

bool AcRxDynamicLinker::unloadModule(const std::string& nameOrPath, std::string* error)
{
    std::string name = moduleName(nameOrPath);
    Module* m = find(name);
    if (!m) {
        if (error) *error = "module '" + name + "' is not loaded";
        return false;
    }
    if (m->locked) {
        if (error) *error = "module '" + name + "' is locked and cannot be unloaded";
        return false;
    }
    m->entry(AcRx::kUnloadAppMsg, m);
    modules_.erase(std::find(modules_.begin(), modules_.end(), m));
    ::dlclose(m->handle);
    delete m;
    return true;
}

bool AcRxDynamicLinker::isLoaded(const std::string& name) const { return find(moduleName(name)) != nullptr; }

std::vector<std::string> AcRxDynamicLinker::loadedModules() const
{
    std::vector<std::string> out;
    for (const Module* m : modules_) out.push_back(m->name);
    return out;
}

std::string AcRxDynamicLinker::modulePath(const std::string& name) const
{
    const Module* m = find(moduleName(name));
    return m ? m->path : std::string();
}

bool AcRxDynamicLinker::lockApplication(void* appId)
{
    for (Module* m : modules_)
        if (m == appId) return m->locked = true;
    return false;
}

bool AcRxDynamicLinker::unlockApplication(void* appId)
{
    for (Module* m : modules_)
        if (m == appId) {
            m->locked = false;
            return true;
        }
    return false;
}

bool AcRxDynamicLinker::registerAppMDIAware(void* appId)
{
    for (Module* m : modules_)
        if (m == appId) return m->mdiAware = true;
    return false;
}

bool AcRxDynamicLinker::isAppLocked(const std::string& name) const
{
    const Module* m = find(moduleName(name));
    return m && m->locked;
}

void AcRxDynamicLinker::unloadAll()
{
    while (!modules_.empty()) {
        Module* m = modules_.back();
        m->locked = false;
        unloadModule(m->name);
    }
}
