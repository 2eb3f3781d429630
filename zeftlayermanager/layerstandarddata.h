// The editing copy of one layer standard, shared by the editor's sheet,
// which owns it, and its pages and grids, which edit it in place.
#pragma once

#include <string>
#include <vector>

#include "zeftlayermanager/rulefield.h"
#include "zeftlayermanager/zeftrxclassinfo.h"

class ZEFTRuleEnum;
class ZEFTRuleException;
class ZEFTRuleFunction;

struct LayerStandardData {
    LayerStandardData() = default;
    // The clones are the copy's own.
    ~LayerStandardData();
    LayerStandardData(const LayerStandardData&) = delete;
    LayerStandardData& operator=(const LayerStandardData&) = delete;

    // The standard's file as the drawing recorded it: where the save dialog starts.
    std::wstring fileName;
    std::wstring name;
    std::vector<RuleField> modelRule;
    std::vector<RuleField> draftRule;
    std::vector<RuleField> docRule;
    std::vector<ZEFTRuleFunction*> functions;
    std::vector<ZEFTRuleEnum*> enums;
    // Null when the drawing has no exception list.
    ZEFTRuleException* exception = nullptr;
    std::vector<ZEFTEntityClassInfo> entityClasses;
    std::wstring separator;

    // Every class name that bears the display name, in list order.
    std::vector<std::wstring> classNamesOf(const std::wstring& displayName) const;
    // The values of the first enumeration of that name; empty when none.
    std::vector<std::wstring> enumValues(const std::wstring& enumName) const;
};
