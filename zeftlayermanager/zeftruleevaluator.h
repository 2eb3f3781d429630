// Turns a layer rule into the text of a layer name.
#pragma once

#include <string>

#include "zeftlayermanager/rulefield.h"

class ZEFT_LM_EXPORT ZEFTRuleEvaluator {
public:
    // True when value is a call "=NAME()": at least three characters, "="
    // first and "()" last. NAME, possibly empty, goes to name when given.
    static bool isFunction(const std::wstring& value, std::wstring* name = nullptr);
};
