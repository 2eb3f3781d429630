#include "zeftlayermanager/zeftruleevaluator.h"

#include <algorithm>
#include <cwctype>
#include <string_view>

#include "host/document.h"
#include "suite/wybase.h"
#include "suite/zeftproject.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftresolutionbatch.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

// Characters a layer name cannot hold, removed in this order.
constexpr wchar_t kInvalidCharacters[] = L"<>/\\\":?*|,='#~!@$%^&;`";
constexpr std::size_t kMaxLayerName = 255;

AcDbDatabase* databaseOf(const ApplicationContext& ctx)
{
    return ctx.database ? ctx.database : acdbWorkingDatabase();
}

// Whether the entity's runtime class is `upperName`, without regard to case;
// false when it does not open as an entity. Asked of every entity evaluated,
// so it compares in place.
bool classIs(const AcDbObjectId& id, std::wstring_view upperName)
{
    AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
    if (!entity || !entity->isA()) return false;
    const std::wstring_view name = entity->isA()->name();
    return name.size() == upperName.size() &&
           std::equal(name.begin(), name.end(), upperName.begin(),
                      [](wchar_t a, wchar_t b) { return wchar_t(std::towupper(wint_t(a))) == b; });
}

}  // namespace

ZEFTRuleEvaluator::ZEFTRuleEvaluator(const AcDbObjectId& objectId)
{
    if (objectId.isValid()) m_objectId = objectId;
}

ZEFTRuleEvaluator::ZEFTRuleEvaluator(const std::wstring& className) : m_className(className) {}

ZEFTRuleEvaluator::ZEFTRuleEvaluator(const AcDbObjectId& objectId, std::vector<RuleField> fields)
{
    setFields(fields);
    if (objectId.isValid()) m_objectId = objectId;
}

ZEFTRuleEvaluator::ZEFTRuleEvaluator(const std::wstring& className, std::vector<RuleField> fields)
{
    setFields(fields);
    m_className = className;
}

bool ZEFTRuleEvaluator::isFunction(const std::wstring& value, std::wstring* name)
{
    ZEFT_GUARD("ZEFTRuleEvaluator::isFunction", false, {
        const std::size_t n = value.size();
        if (n < 3 || value[0] != L'=' || value[n - 2] != L'(' || value[n - 1] != L')') return false;
        if (name) *name = value.substr(1, n - 3);
        return true;
    });
}

template <class F>
void ZEFTRuleEvaluator::evaluateFields(const ApplicationContext& ctx, F&& valueOf)
{
    m_evaluatedFields.clear();
    m_evaluatedFields.reserve(m_fields.size());
    std::unique_ptr<ZEFTProjectObject> owned;
    ZEFTProjectObject* project = nullptr;
    bool looked = false;
    for (const RuleField& field : m_fields) {
        std::wstring name;
        if (!isFunction(field.value, &name)) {
            m_evaluatedFields.push_back(field);
            continue;
        }
        if (!looked) {
            project = ZEFTResolutionBatch::projectOf(databaseOf(ctx), owned);
            looked = true;
        }
        RuleField evaluated;
        evaluated.value = valueOf(project, name);
        evaluated.isFunction = true;
        m_evaluatedFields.push_back(std::move(evaluated));
    }
}

void ZEFTRuleEvaluator::evaluate(const ApplicationContext& ctx)
{
    ZEFT_GUARD_VOID("ZEFTRuleEvaluator::evaluate", {
        m_separator = ZEFTLayerManagerUtil::getFieldsSeparator(ctx.database);
        convertImageEntity();
        convertMeshCutSymbol();
        evaluateFields(ctx, [&](ZEFTProjectObject* project, const std::wstring& name) {
            return evaluateFunction(project, name, ctx);
        });
    });
}

void ZEFTRuleEvaluator::evaluatePredefined(const ApplicationContext& ctx)
{
    ZEFT_GUARD_VOID("ZEFTRuleEvaluator::evaluatePredefined", {
        m_separator = ZEFTLayerManagerUtil::getFieldsSeparator(ctx.database);
        evaluateFields(ctx, [&](ZEFTProjectObject* project, const std::wstring& name) {
            std::wstring value;
            return evaluatePredefinedFunction(project, name, ctx, value) ? value : name;
        });
    });
}

std::wstring ZEFTRuleEvaluator::getEvaluatedLayerName() const
{
    ZEFT_GUARD("ZEFTRuleEvaluator::getEvaluatedLayerName", std::wstring(), {
        return getEvaluatedLayerName(m_evaluatedFields, m_separator);
    });
}

std::wstring ZEFTRuleEvaluator::getEvaluatedLayerName(const std::vector<RuleField>& fields,
                                                      const std::wstring& separator)
{
    ZEFT_GUARD("ZEFTRuleEvaluator::getEvaluatedLayerName", std::wstring(), {
        std::wstring name;
        for (std::size_t i = 0; i < fields.size(); ++i) {
            name += fields[i].value;
            // The next value alone decides: an empty field drops the
            // separator before it, not the one after it.
            if (i + 1 < fields.size() && !fields[i + 1].value.empty()) name += separator;
        }
        const std::size_t first = name.find_first_not_of(L' ');
        if (first == std::wstring::npos) return std::wstring();
        name = name.substr(first, name.find_last_not_of(L' ') - first + 1);
        name = removeInvalidCharacters(std::move(name));
        if (name.size() > kMaxLayerName) name.resize(kMaxLayerName);
        return name;
    });
}

std::wstring ZEFTRuleEvaluator::removeInvalidCharacters(std::wstring name)
{
    std::erase_if(name, [](wchar_t c) { return std::wstring_view(kInvalidCharacters).find(c) != std::wstring_view::npos; });
    return name;
}

void ZEFTRuleEvaluator::getEvaluatedFields(std::vector<RuleField>& out) const
{
    ZEFT_GUARD_VOID("ZEFTRuleEvaluator::getEvaluatedFields", { out = m_evaluatedFields; });
}

void ZEFTRuleEvaluator::setFields(const std::vector<RuleField>& in)
{
    ZEFT_GUARD_VOID("ZEFTRuleEvaluator::setFields", { m_fields = in; });
}

void ZEFTRuleEvaluator::convertMeshCutSymbol()
{
    ZEFT_GUARD_VOID("ZEFTRuleEvaluator::convertMeshCutSymbol", {
        if (!m_objectId.isValid() || !classIs(m_objectId, L"ZEFTMESHCUTSYMBOL")) return;
        m_objectId = AcDbObjectId();
        m_className = L"ZEFTMeshCut";
    });
}

void ZEFTRuleEvaluator::convertImageEntity()
{
    ZEFT_GUARD_VOID("ZEFTRuleEvaluator::convertImageEntity", {
        if (!m_objectId.isValid() || !classIs(m_objectId, L"ZEFTIMAGEENTITY")) return;
        std::unique_ptr<ZEFTProjectObject> owned;
        ZEFTProjectObject* project = ZEFTResolutionBatch::projectOf(m_objectId.database(), owned);
        AcDbObjectId shown;
        if (!project || !project->getReferencedObject(m_objectId, shown)) return;
        AcDbObjectPointer<AcDbEntity> entity(shown, AcDb::kForRead);
        if (!entity || !entity->isA()) return;
        m_objectId = AcDbObjectId();
        m_className = entity->isA()->name();
    });
}

void ZEFTRuleEvaluator::getPredefinedFunctionNames(std::vector<std::wstring>& out)
{
    ZEFT_GUARD_VOID("ZEFTRuleEvaluator::getPredefinedFunctionNames", {
        out = {L"PROJECT", L"BUILDING", L"LEVEL", L"VIEW NAME", L"VIEW TYPE", L"PLAN NAME", L"PROJECTION", L"LEVEL/VIEW"};
    });
}

std::wstring ZEFTRuleEvaluator::evaluateFunction(ZEFTProjectObject* project, const std::wstring& name,
                                                const ApplicationContext& ctx) const
{
    std::wstring value;
    if (evaluatePredefinedFunction(project, name, ctx, value)) return value;
    if (evaluateUserDefinedFunction(name, ctx, value)) return value;
    // An unknown function shows its own name, so the user sees what is missing.
    return name;
}

bool ZEFTRuleEvaluator::evaluatePredefinedFunction(ZEFTProjectObject* project, const std::wstring& name,
                                                   const ApplicationContext& ctx, std::wstring& out) const
{
    ZEFT_GUARD("ZEFTRuleEvaluator::evaluatePredefinedFunction", false, {
        if (!project) return false;
        // In a batch, answers that do not depend on the entity are asked once.
        ZEFTResolutionBatch* batch = dependsOnEntity(name, ctx) ? nullptr : ZEFTResolutionBatch::of(databaseOf(ctx));
        if (!batch) return askProject(project, name, ctx, out);
        auto [it, fresh] = batch->predefined.try_emplace(
            ZEFTResolutionBatch::PredefinedKey(name, ctx.viewId.stub(), ctx.draftContext, ctx.workingMode));
        if (fresh) it->second.first = askProject(project, name, ctx, it->second.second);
        if (it->second.first) out = it->second.second;
        return it->second.first;
    });
}

bool ZEFTRuleEvaluator::dependsOnEntity(const std::wstring& name, const ApplicationContext& ctx)
{
    return (name == L"VIEW NAME" && !ctx.draftContext) ||
           (name == L"LEVEL/VIEW" && !ctx.viewId.isValid() && ctx.workingMode == 1);
}

bool ZEFTRuleEvaluator::dependsOnEntity(const std::vector<RuleField>& fields, const ApplicationContext& ctx)
{
    std::wstring name;
    return std::any_of(fields.begin(), fields.end(), [&](const RuleField& field) {
        return isFunction(field.value, &name) && dependsOnEntity(name, ctx);
    });
}

bool ZEFTRuleEvaluator::askProject(ZEFTProjectObject* project, const std::wstring& name, const ApplicationContext& ctx,
                                   std::wstring& out) const
{
    const AcDbObjectId none;
    // "VIEW TYPE" and "PROJECTION" are offered as names but answered by
    // user functions of those names only.
    if (name == L"LEVEL") return project->getLevelName(ctx.viewId, out);
    if (name == L"BUILDING") return project->getBuildingName(out);
    if (name == L"PROJECT") return project->getProjectName(out);
    if (name == L"VIEW NAME") return project->getViewName(ctx.draftContext ? none : m_objectId, ctx.viewId, out);
    if (name == L"PLAN NAME") return project->getPlanName(ctx.viewId, out);
    if (name != L"LEVEL/VIEW") return false;
    if (ctx.viewId.isValid())
        return ctx.draftContext ? project->getViewName(none, ctx.viewId, out) : project->getLevelName(ctx.viewId, out);
    if (ctx.workingMode == 0) return project->getLevelName(none, out);
    if (ctx.workingMode == 1) return project->getViewName(m_objectId, none, out);
    out.clear();
    return true;
}

bool ZEFTRuleEvaluator::evaluateUserDefinedFunction(const std::wstring& name, const ApplicationContext& ctx,
                                                    std::wstring& out) const
{
    ZEFT_GUARD("ZEFTRuleEvaluator::evaluateUserDefinedFunction", false, {
        AcDbObjectPointer<ZEFTRuleFunction> function(ZEFTLayerManagerUtil::getFunctionFromDictionary(ctx.database, name),
                                                     AcDb::kForRead);
        if (!function) return false;
        if (m_objectId.isValid()) {
            AcDbObjectPointer<AcDbObject> obj(m_objectId, AcDb::kForRead);
            out = function->getValue(obj ? obj.object() : nullptr);
        } else {
            out = function->getValue(m_className);
        }
        return true;
    });
}
