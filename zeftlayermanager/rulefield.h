// One field of a layer rule, shared by the rule object, entity extended
// data, the ".std" files and the evaluator.
#pragma once

#include <string>

// The module is built with hidden visibility; what the suite's other
// modules use is marked with this.
#ifndef ZEFT_LM_EXPORT
#define ZEFT_LM_EXPORT __attribute__((visibility("default")))
#endif

struct RuleField {
    // Shown in the rule grids only; evaluation ignores it.
    std::wstring name;
    // A call "=NAME()" or literal text.
    std::wstring value;
    // Set by whoever builds the field from its value; stored as given.
    bool isFunction = false;

    bool operator==(const RuleField&) const = default;
};
