#include "zeftlayermanager/zeftruleevaluator.h"

#include "suite/wybase.h"

bool ZEFTRuleEvaluator::isFunction(const std::wstring& value, std::wstring* name)
{
    ZEFT_GUARD("ZEFTRuleEvaluator::isFunction", false, {
        const std::size_t n = value.size();
        if (n < 3 || value[0] != L'=' || value[n - 2] != L'(' || value[n - 1] != L')') return false;
        if (name) *name = value.substr(1, n - 3);
        return true;
    });
}
