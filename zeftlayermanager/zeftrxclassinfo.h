// The entity classes the user may name in an exception list: each with the
// names a person reads and the runtime class name the rules compare.
#pragma once

#include <string>
#include <vector>

#include "zeftlayermanager/rulefield.h"

struct ZEFT_LM_EXPORT ZEFTEntityClassInfo {
    std::wstring dxfName;
    std::wstring className;
    // "Beltrix" for the suite's own classes, else the class's application.
    std::wstring appName;
    // What the class's domain protocol says it belongs to; empty without one.
    std::wstring domain;
    std::wstring displayName;
};

class ZEFT_LM_EXPORT ZEFTRxClassInfo {
public:
    // `classes` is emptied, then gets every registered entity class with a
    // DXF name (the suite's helper classes left out), in registration
    // order, followed by the classes known from drawings only (proxies).
    static void GetEntitiesClassInfo(std::vector<ZEFTEntityClassInfo>& classes);
    // The display name of a class name (first match); empty when unknown.
    static std::wstring GetEntityDisplayName(const std::vector<ZEFTEntityClassInfo>& classes,
                                             const std::wstring& className);
    // The class name of a display name (first match); empty when unknown.
    static std::wstring GetEntityClassName(const std::vector<ZEFTEntityClassInfo>& classes,
                                           const std::wstring& displayName);
    // The module's own display name of a class; the DXF name when it has none.
    static std::wstring displayNameOf(const std::wstring& className, const std::wstring& dxfName);
};
