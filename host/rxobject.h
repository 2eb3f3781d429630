// Runtime classes: the class tree that every host and module class joins,
// with the class names, DXF names and application names that drawings carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <typeinfo>
#include <map>
#include <unordered_map>
#include <memory>
#include <string>
#include <vector>

#include "host/acad.h"

class AcRxClass;

class AcRxObject {
public:
    virtual ~AcRxObject() = default;
    static AcRxClass* desc();
    virtual AcRxClass* isA() const;
    bool isKindOf(const AcRxClass* cls) const;
};

using AcRxPseudoConstructor = AcRxObject* (*)();

class AcRxClass : public AcRxObject {
public:
    AcRxClass(std::wstring name, AcRxClass* parent, std::wstring dxfName, std::wstring appName,
              int dwgVersion, int maintVersion, int proxyFlags, AcRxPseudoConstructor ctor,
              bool proxy = false);
    static AcRxClass* desc();
    AcRxClass* isA() const override;

    const wchar_t* name() const { return name_.c_str(); }
    const wchar_t* dxfName() const { return dxfName_.c_str(); }
    const wchar_t* appName() const { return appName_.c_str(); }
    AcRxClass* myParent() const { return parent_; }
    int dwgVersion() const { return dwgVersion_; }
    int maintVersion() const { return maintVersion_; }
    int proxyFlags() const { return proxyFlags_; }
    bool isDerivedFrom(const AcRxClass* other) const;
    // A new instance, or null when the class has no constructor (proxy classes).
    AcRxObject* create() const { return ctor_ ? ctor_() : nullptr; }
    // Made by the host for a class that a drawing names but no code registered.
    bool isProxyClass() const { return proxy_; }

private:
    std::wstring name_;
    AcRxClass* parent_;
    std::wstring dxfName_, appName_;
    int dwgVersion_, maintVersion_, proxyFlags_;
    AcRxPseudoConstructor ctor_;
    bool proxy_;
};

// An ordered dictionary of runtime objects by name: the "ClassDictionary"
// and the system registry.
class AcRxDictionary : public AcRxObject {
public:
    static AcRxClass* desc();
    AcRxClass* isA() const override;
    AcRxObject* at(const std::wstring& key) const;
    AcRxObject* atPut(const std::wstring& key, AcRxObject* obj);  // returns the replaced one
    AcRxObject* remove(const std::wstring& key);
    bool has(const std::wstring& key) const { return at(key) != nullptr; }
    std::size_t numEntries() const { return entries_.size(); }
    // In registration order.
    const std::vector<std::pair<std::wstring, AcRxObject*>>& entries() const { return entries_; }

private:
    std::vector<std::pair<std::wstring, AcRxObject*>> entries_;
    std::unordered_map<std::wstring, AcRxObject*> index_;
};

// The system registry; its entry "ClassDictionary" holds every registered class.
AcRxDictionary* acrxSysRegistry();
AcRxDictionary* acrxClassDictionary();
AcRxClass* acrxFindClass(const std::wstring& name);
// Called for the module's classes after their rxInit; the tree is kept built.
void acrxBuildClassHierarchy();

// Reports the message and ends the process: a broken class tree cannot go on.
[[noreturn]] void acrx_abort(const wchar_t* format, ...);

// Registers a class; when a class of the same name is registered under
// another parent, aborts with "Class mismatch". A proxy class of the same
// name (made from a drawing) gives way to the real one.
AcRxClass* newAcRxClass(const wchar_t* className, const wchar_t* parentClassName, int dwgVer, int maintVer,
                        int proxyFlags, AcRxPseudoConstructor ctor, const wchar_t* dxfName,
                        const wchar_t* appName);
// Unregisters a class. Live objects of it are first turned into proxies by
// the listeners (databases), so that unloading a module leaves no object
// whose code is gone.
void deleteAcRxClass(AcRxClass* cls);
// Listeners told before a class goes away.
int acrxAddClassDeletionListener(std::function<void(AcRxClass*)> fn);
void acrxRemoveClassDeletionListener(int token);

// A class for objects of a drawing whose class no code registered, made from
// the CLASSES section and the subclass markers; kept for the process's life.
AcRxClass* acrxProxyClass(const std::wstring& name, AcRxClass* parent, const std::wstring& dxfName,
                          const std::wstring& appName);
// The proxy classes made so far, in the order drawings named them.
std::vector<AcRxClass*> acrxProxyClasses();

// dynamic_cast<T*>(obj), remembering the answer for the last dynamic types
// seen: opening an object casts it, and a run of objects of one type is the
// rule. The offset between the two subobjects is fixed by the dynamic type.
template <class T>
T* acrxDynamicCast(const AcRxObject* obj)
{
    struct Last {
        const std::type_info* type = nullptr;
        bool ok = false;
        std::ptrdiff_t offset = 0;
    };
    thread_local Last cache[4];
    auto* o = const_cast<AcRxObject*>(obj);
    const std::type_info& type = typeid(*o);
    Last& last = cache[(reinterpret_cast<std::uintptr_t>(&type) >> 4) & 3];
    if (last.type != &type) {
        T* t = dynamic_cast<T*>(o);
        last = {&type, t != nullptr, t ? reinterpret_cast<char*>(t) - reinterpret_cast<char*>(o) : 0};
    }
    return last.ok ? reinterpret_cast<T*>(reinterpret_cast<char*>(o) + last.offset) : nullptr;
}

#define ZEFT_WIDEN_(x) L##x
#define ZEFT_WIDEN(x) ZEFT_WIDEN_(x)

// cast() also checks the C++ type: a proxy, or an object of a class the host
// knows by name only, is of its class to isKindOf() without being an
// instance of the class's C++ type.
#define ACRX_DECLARE_MEMBERS(CLASS_NAME)            \
public:                                             \
    static AcRxClass* desc();                       \
    static CLASS_NAME* cast(const AcRxObject* obj)  \
    {                                               \
        return (obj && obj->isKindOf(desc()))       \
                   ? acrxDynamicCast<CLASS_NAME>(obj)                    \
                   : nullptr;                       \
    }                                               \
    AcRxClass* isA() const override;                \
    static void rxInit();                           \
    static AcRxClass* gpDesc

#define ACRX_DXF_DEFINE_MEMBERS(CLASS_NAME, PARENT_CLASS, DWG_VERSION, MAINT_VERSION, PROXY_FLAGS, DXF_NAME, APP) \
    AcRxClass* CLASS_NAME::gpDesc = nullptr;                                                                    \
    AcRxClass* CLASS_NAME::desc() { return gpDesc ? gpDesc : acrxFindClass(ZEFT_WIDEN(#CLASS_NAME)); }                 \
    AcRxClass* CLASS_NAME::isA() const { return desc(); }                                                       \
    static AcRxObject* make##CLASS_NAME() { return new CLASS_NAME(); }                                          \
    void CLASS_NAME::rxInit()                                                                                   \
    {                                                                                                           \
        gpDesc = newAcRxClass(ZEFT_WIDEN(#CLASS_NAME), ZEFT_WIDEN(#PARENT_CLASS), DWG_VERSION, MAINT_VERSION, PROXY_FLAGS,      \
                              &make##CLASS_NAME, ZEFT_WIDEN(#DXF_NAME), ZEFT_WIDEN(#APP));                                     \
    }
