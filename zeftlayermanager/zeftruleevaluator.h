// Turns a layer rule into the text of a layer name: function calls are
// replaced by what the project object or the drawing's user functions
// answer for the entity, and the values are joined and cleaned.
#pragma once

#include <string>
#include <vector>

#include "host/dbobject.h"
#include "zeftlayermanager/applicationcontext.h"
#include "zeftlayermanager/rulefield.h"

class ZEFTProjectObject;

class ZEFT_LM_EXPORT ZEFTRuleEvaluator {
public:
    // The id is kept only when valid. The separator is "_" until evaluated.
    explicit ZEFTRuleEvaluator(const AcDbObjectId& objectId);
    explicit ZEFTRuleEvaluator(const std::wstring& className);
    ZEFTRuleEvaluator(const AcDbObjectId& objectId, std::vector<RuleField> fields);
    ZEFTRuleEvaluator(const std::wstring& className, std::vector<RuleField> fields);

    // True when value is a call "=NAME()": at least three characters, "="
    // first and "()" last. NAME, possibly empty, goes to name when given.
    static bool isFunction(const std::wstring& value, std::wstring* name = nullptr);

    // Rebuilds the evaluated fields, one per input field: predefined
    // functions, then user functions, then the bare NAME. Converts image
    // entities and mesh cut symbols first.
    void evaluate(const ApplicationContext& ctx);
    // The same with predefined functions only and no conversions.
    void evaluatePredefined(const ApplicationContext& ctx);

    std::wstring getEvaluatedLayerName() const;
    // Joins the values (a separator goes before each non-empty value but
    // the first), trims blanks, removes the characters a layer name cannot
    // hold and keeps at most 255 characters.
    static std::wstring getEvaluatedLayerName(const std::vector<RuleField>& fields, const std::wstring& separator);
    // Removes every character a layer name cannot hold.
    static std::wstring removeInvalidCharacters(std::wstring name);

    void getEvaluatedFields(std::vector<RuleField>& out) const;
    void setFields(const std::vector<RuleField>& in);

    // A mesh cut symbol is named like the mesh cut it belongs to.
    void convertMeshCutSymbol();
    // An image entity is named like the kind of object it shows.
    void convertImageEntity();

    // "PROJECT", "BUILDING", "LEVEL", "VIEW NAME", "VIEW TYPE", "PLAN NAME",
    // "PROJECTION", "LEVEL/VIEW".
    static void getPredefinedFunctionNames(std::vector<std::wstring>& out);

    // Whether the function NAME answers differently for each entity in ctx
    // (the view an entity is held by), and whether any function of fields does.
    static bool dependsOnEntity(const std::wstring& name, const ApplicationContext& ctx);
    static bool dependsOnEntity(const std::vector<RuleField>& fields, const ApplicationContext& ctx);

private:
    // The project object is the drawing's, looked up once per evaluation.
    std::wstring evaluateFunction(ZEFTProjectObject* project, const std::wstring& name,
                                  const ApplicationContext& ctx) const;
    bool evaluatePredefinedFunction(ZEFTProjectObject* project, const std::wstring& name,
                                    const ApplicationContext& ctx, std::wstring& out) const;
    // What the project object answers for a predefined function.
    bool askProject(ZEFTProjectObject* project, const std::wstring& name, const ApplicationContext& ctx,
                    std::wstring& out) const;
    bool evaluateUserDefinedFunction(const std::wstring& name, const ApplicationContext& ctx, std::wstring& out) const;
    // Calls valueOf(project, name) for each function field; the project
    // object (null when the drawing has none) is looked up once per rule.
    template <class F>
    void evaluateFields(const ApplicationContext& ctx, F&& valueOf);

    std::vector<RuleField> m_fields;
    std::vector<RuleField> m_evaluatedFields;
    AcDbObjectId m_objectId;
    std::wstring m_className;
    std::wstring m_separator = L"_";
};
