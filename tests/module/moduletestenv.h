// What the module's tests share: a fixture that registers the five
// persistent classes, and readers of the objects' lists.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "zeftlayermanager/rulefield.h"
#include "zeftlayermanager/zeftfiling.h"
#include "zeftlayermanager/zeftruleenum.h"

namespace moduletest {

using Fields = std::vector<RuleField>;
using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
using Strings = std::vector<std::wstring>;

class ModuleTest : public ::testing::Test {
protected:
    // Registration is idempotent: per test, so that a test elsewhere in the
    // binary that unregisters the classes cannot leave these without them.
    void SetUp() override { zeft_filing::registerClasses(); }
};

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
