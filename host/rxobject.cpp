#include "host/rxobject.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <cwctype>

#include "host/dxf/codec.h"

namespace {

struct Registry {
    AcRxDictionary sys;
    AcRxDictionary classes;
    // Classes removed from the dictionary stay alive: objects of a drawing
    // may still point at them until they are turned into proxies.
    std::vector<std::unique_ptr<AcRxClass>> owned;
    std::map<std::wstring, AcRxClass*> proxies;
    std::vector<AcRxClass*> proxyOrder;
    std::map<int, std::function<void(AcRxClass*)>> listeners;
    int nextToken = 1;
    Registry() { sys.atPut(L"ClassDictionary", &classes); }
};

Registry& reg()
{
    static Registry* r = [] {
        auto* p = new Registry;  // never destroyed: classes outlive static objects of modules
        auto add = [p](const wchar_t* name, AcRxClass* parent) {
            p->owned.push_back(std::make_unique<AcRxClass>(name, parent, L"", L"", 0, 0, 0, nullptr));
            p->classes.atPut(name, p->owned.back().get());
            return p->owned.back().get();
        };
        AcRxClass* root = add(L"AcRxObject", nullptr);
        add(L"AcRxClass", root);
        add(L"AcRxDictionary", root);
        return p;
    }();
    return *r;
}

}  // namespace

AcRxClass* AcRxObject::desc() { return acrxFindClass(L"AcRxObject"); }
AcRxClass* AcRxObject::isA() const { return desc(); }
bool AcRxObject::isKindOf(const AcRxClass* cls) const
{
    const AcRxClass* mine = isA();
    return mine && cls && mine->isDerivedFrom(cls);
}

AcRxClass::AcRxClass(std::wstring name, AcRxClass* parent, std::wstring dxfName, std::wstring appName,
                     int dwgVersion, int maintVersion, int proxyFlags, AcRxPseudoConstructor ctor, bool proxy)
    : name_(std::move(name)), parent_(parent), dxfName_(std::move(dxfName)), appName_(std::move(appName)),
      dwgVersion_(dwgVersion), maintVersion_(maintVersion), proxyFlags_(proxyFlags), ctor_(ctor), proxy_(proxy)
{
}
AcRxClass* AcRxClass::desc() { return acrxFindClass(L"AcRxClass"); }
AcRxClass* AcRxClass::isA() const { return desc(); }

bool AcRxClass::isDerivedFrom(const AcRxClass* other) const
{
    for (const AcRxClass* c = this; c; c = c->parent_) {
        if (c == other) return true;
        // A proxy class and the real class of the same name are one class to callers.
        if (other && (c->proxy_ || other->proxy_) && c->name_ == other->name_) return true;
    }
    return false;
}

AcRxClass* AcRxDictionary::desc() { return acrxFindClass(L"AcRxDictionary"); }
AcRxClass* AcRxDictionary::isA() const { return desc(); }

AcRxObject* AcRxDictionary::at(const std::wstring& key) const
{
    auto it = index_.find(key);
    return it == index_.end() ? nullptr : it->second;
}

AcRxObject* AcRxDictionary::atPut(const std::wstring& key, AcRxObject* obj)
{
    for (auto& [k, v] : entries_)
        if (k == key) {
            AcRxObject* old = v;
            v = obj;
            index_[key] = obj;
            return old;
        }
    entries_.emplace_back(key, obj);
    index_[key] = obj;
    return nullptr;
}

AcRxObject* AcRxDictionary::remove(const std::wstring& key)
{
    for (auto it = entries_.begin(); it != entries_.end(); ++it)
        if (it->first == key) {
            AcRxObject* old = it->second;
            entries_.erase(it);
            index_.erase(key);
            return old;
        }
    return nullptr;
}

AcRxDictionary* acrxSysRegistry() { return &reg().sys; }
AcRxDictionary* acrxClassDictionary() { return &reg().classes; }
void acdbRegisterHostClasses();

AcRxClass* acrxFindClass(const std::wstring& name)
{
    acdbRegisterHostClasses();  // the host's classes are there before any module looks for a parent
    return static_cast<AcRxClass*>(reg().classes.at(name));
}
void acrxBuildClassHierarchy() {}

void acrx_abort(const wchar_t* format, ...)
{
    wchar_t buf[1024];
    va_list ap;
    va_start(ap, format);
    std::vswprintf(buf, sizeof buf / sizeof buf[0], format, ap);
    va_end(ap);
    std::fprintf(stderr, "fatal: %s\n", dxf::toUtf8(buf).c_str());
    std::fflush(stderr);
    std::abort();
}

AcRxClass* newAcRxClass(const wchar_t* className, const wchar_t* parentClassName, int dwgVer, int maintVer,
                        int proxyFlags, AcRxPseudoConstructor ctor, const wchar_t* dxfName, const wchar_t* appName)
{
    Registry& r = reg();
    AcRxClass* parent = acrxFindClass(parentClassName ? parentClassName : L"AcRxObject");
    if (!parent) acrx_abort(L"Class mismatch");
    if (AcRxClass* existing = acrxFindClass(className)) {
        if (!existing->isProxyClass()) {
            if (existing->myParent() != parent) acrx_abort(L"Class mismatch");
            return existing;  // registered twice by the same code
        }
    }
    std::wstring dxf = acdbToUpper(dxfName ? dxfName : L"");
    r.owned.push_back(std::make_unique<AcRxClass>(className, parent, dxf, appName ? appName : L"", dwgVer, maintVer,
                                                  proxyFlags, ctor));
    r.classes.atPut(className, r.owned.back().get());
    return r.owned.back().get();
}

void deleteAcRxClass(AcRxClass* cls)
{
    if (!cls) return;
    Registry& r = reg();
    auto listeners = r.listeners;  // a listener may remove itself
    for (auto& [token, fn] : listeners) fn(cls);
    if (r.classes.at(cls->name()) == cls) r.classes.remove(cls->name());
}

int acrxAddClassDeletionListener(std::function<void(AcRxClass*)> fn)
{
    Registry& r = reg();
    r.listeners[r.nextToken] = std::move(fn);
    return r.nextToken++;
}
void acrxRemoveClassDeletionListener(int token) { reg().listeners.erase(token); }

AcRxClass* acrxProxyClass(const std::wstring& name, AcRxClass* parent, const std::wstring& dxfName,
                          const std::wstring& appName)
{
    Registry& r = reg();
    std::wstring key = name + L"\x1f" + (parent ? parent->name() : L"") + L"\x1f" + dxfName + L"\x1f" + appName;
    auto it = r.proxies.find(key);
    if (it != r.proxies.end()) return it->second;
    r.owned.push_back(std::make_unique<AcRxClass>(name, parent, dxfName, appName, 0, 0, 0, nullptr, true));
    AcRxClass* c = r.owned.back().get();
    r.proxies[key] = c;
    r.proxyOrder.push_back(c);
    return c;
}

std::vector<AcRxClass*> acrxProxyClasses() { return reg().proxyOrder; }
