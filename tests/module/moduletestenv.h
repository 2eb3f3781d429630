// What the module's tests share: a fixture that registers the five
// persistent classes and the prompt table as the module's start does,
// builders of functions and enumerations, and readers of the objects' lists.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "suite/wybase.h"
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"
#include "zeftlayermanager/rulefield.h"
#include "zeftlayermanager/zeftfiling.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace moduletest {

using Fields = std::vector<RuleField>;
using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
using Strings = std::vector<std::wstring>;

class ModuleTest : public ::testing::Test {
protected:
    // Registration is idempotent: per test, so that a test elsewhere in the
    // binary that unregisters the classes cannot leave these without them.
    void SetUp() override
    {
        zeft_filing::registerClasses();
        WyPrompts::registerTable(L"ZEFTLAYERMANAGER", &zeftLayerManagerPrompts());
    }
};

inline std::unique_ptr<ZEFTRuleFunction> function(const std::wstring& name, const std::wstring& def,
                                                  const Pairs& pairs = {})
{
    auto f = std::make_unique<ZEFTRuleFunction>();
    f->setName(name);
    f->setDefaultValue(def);
    for (const auto& [k, v] : pairs) f->addPair(k, v);
    return f;
}

inline std::unique_ptr<ZEFTRuleEnum> enumeration(const std::wstring& name, const Strings& values)
{
    auto e = std::make_unique<ZEFTRuleEnum>();
    e->setName(name);
    for (const auto& v : values) e->addValue(v);
    return e;
}

// The pairs of a rule function or exception list, in order.
template <class T>
Pairs pairsOf(const T& object)
{
    Pairs pairs;
    for (int i = 0; i < object.getPairsNumber(); ++i) {
        std::wstring k, v;
        object.getPair(unsigned(i), k, v);
        pairs.emplace_back(k, v);
    }
    return pairs;
}

inline Strings valuesOf(const ZEFTRuleEnum& e)
{
    Strings values;
    e.getValues(values);
    return values;
}

}  // namespace moduletest
