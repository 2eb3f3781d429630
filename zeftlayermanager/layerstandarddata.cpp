#include "zeftlayermanager/layerstandarddata.h"

#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

LayerStandardData::~LayerStandardData()
{
    for (ZEFTRuleFunction* f : functions) delete f;
    for (ZEFTRuleEnum* e : enums) delete e;
    delete exception;
    exception = nullptr;
}

std::vector<std::wstring> LayerStandardData::classNamesOf(const std::wstring& displayName) const
{
    std::vector<std::wstring> names;
    for (const ZEFTEntityClassInfo& info : entityClasses)
        if (info.displayName == displayName && !info.className.empty()) names.push_back(info.className);
    return names;
}

std::vector<std::wstring> LayerStandardData::enumValues(const std::wstring& enumName) const
{
    std::vector<std::wstring> values;
    for (const ZEFTRuleEnum* e : enums) {
        if (e && e->getName() == enumName) {
            e->getValues(values);
            break;
        }
    }
    return values;
}
