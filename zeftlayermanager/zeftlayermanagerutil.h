// The layer manager's static operations, exported for the suite's other
// modules. Grouped by topic; each group keeps its own section below.
//
// Every operation fails silently: a null id, false, "_" or an empty or
// untouched vector. None keeps an object open beyond the call.
#pragma once

#include <string>
#include <vector>

#include "host/dbobject.h"
#include "zeftlayermanager/applicationcontext.h"
#include "zeftlayermanager/rulefield.h"
#include "zeftlayermanager/zeftlayermanagerexports.h"

class AcApDocument;
class AcDbDatabase;
class AcDbEntity;
class ZEFTRuleEnum;
class ZEFTRuleException;
class ZEFTRuleFunction;

class ZEFT_LM_EXPORT ZEFTLayerManagerUtil {
public:
    ZEFTLayerManagerUtil() = delete;

    // ------------------------------------------------------------------
    // Drawing dictionary: the layer standard tree under the named-object
    // dictionary entry "ZEFT_LAYER_MANAGER". Entries are told apart by
    // their class, never by their key. A null database gives the empty
    // result at once.
    // ------------------------------------------------------------------

    // Name of the layer manager dictionary and of its standard's entry.
    static constexpr const wchar_t* kDictionaryName = L"ZEFT_LAYER_MANAGER";
    static constexpr const wchar_t* kStandardKey = L"ZEFT_LAYER_MANAGER";

    // The standard's id; null when missing.
    static AcDbObjectId getStandardFromDictionary(AcDbDatabase* db);
    // The standard's Model / Draft / Doc rule; null without a standard.
    static AcDbObjectId getModelRuleFromDictionary(AcDbDatabase* db);
    static AcDbObjectId getDraftRuleFromDictionary(AcDbDatabase* db);
    static AcDbObjectId getDocRuleFromDictionary(AcDbDatabase* db);
    // The standard's separator; "_" without a standard (or database).
    static std::wstring getFieldsSeparator(AcDbDatabase* db);
    // The rule that applies in `ctx`: working mode 0 or 1 the Model rule,
    // 2 the Doc rule, any other none; a draft context takes the Draft rule
    // instead. On success `fields` holds the rule's fields (and nothing
    // else); on failure it is untouched.
    static bool getRuleFromDictionary(AcDbDatabase* db, const ApplicationContext& ctx, std::vector<RuleField>& fields);
    // The first exception list of the dictionary; null when none.
    static AcDbObjectId getExceptionFromDictionary(AcDbDatabase* db);
    // The first user function named exactly `name` (case counts); null when none.
    static AcDbObjectId getFunctionFromDictionary(AcDbDatabase* db, const std::wstring& name);

    // Copies for the editing pages, not in any database; the caller owns and
    // deletes them. `exception` is left as it is when the drawing has none;
    // the vectors are appended to, in dictionary order.
    static void getCloneException(AcDbDatabase* db, ZEFTRuleException*& exception);
    static void getCloneFunctions(AcDbDatabase* db, std::vector<ZEFTRuleFunction*>& functions);
    static void getCloneEnums(AcDbDatabase* db, std::vector<ZEFTRuleEnum*>& enums);

    // The values of the first enum named exactly `enumName`; `values` is
    // untouched when none is.
    static void getEnumValues(const std::wstring& enumName, const std::vector<ZEFTRuleEnum*>& enums,
                              std::vector<std::wstring>& values);
    // `names` is emptied, then gets one name per element, in order (an
    // empty name for a null element).
    static void getNamesFromEnums(const std::vector<ZEFTRuleEnum*>& enums, std::vector<std::wstring>& names);
    static void getNamesFromFunctions(const std::vector<ZEFTRuleFunction*>& functions,
                                      std::vector<std::wstring>& names);

    // ------------------------------------------------------------------
    // Entity extended data: an entity's own rule and type code in the group
    // of "BELTRIX_LAYER_MANAGER":
    //   1001 name, 1070 1, 1071 type code, 1071 field count N,
    //   then N pairs of 1000 value, 1070 isFunction.
    // A group written by writeXDataEntityType alone stops after the type.
    // Field names are not stored: a rule read back has empty names.
    // The id overloads open the object for read (readers, has...) or for
    // write (writers) and close it again.
    // ------------------------------------------------------------------

    static constexpr const wchar_t* kXDataAppName = L"BELTRIX_LAYER_MANAGER";

    // Any group of the application.
    static bool hasXDataLayerRule(AcDbObject* obj);
    static bool hasXDataLayerRule(const AcDbObjectId& id);
    // A group with the marker and the type code and at least one item after
    // them; the object must be open for read.
    static bool hasFullXDataLayerRule(AcDbObject* obj);
    static bool hasFullXDataLayerRule(const AcDbObjectId& id);
    // The type code, as the 16-bit view of its item.
    static bool readXDataEntityType(AcDbObject* obj, int& type);
    static bool readXDataEntityType(const AcDbObjectId& id, int& type);
    // Sets the type code, keeping the rule that follows it; an object
    // without the group gets the group up to the type code.
    static bool writeXDataEntityType(AcDbObject* obj, int type);
    static bool writeXDataEntityType(const AcDbObjectId& id, int type);
    // The rule and the type code. On a failure partway, the fields read so
    // far stay appended to `fields` and `type` is untouched.
    static bool readXDataLayerRule(AcDbObject* obj, std::vector<RuleField>& fields, int& type);
    static bool readXDataLayerRule(const AcDbObjectId& id, std::vector<RuleField>& fields, int& type);
    // Replaces the application's group with the rule and the type code;
    // other applications' groups are kept.
    static bool writeXDataLayerRule(AcDbObject* obj, const std::vector<RuleField>& fields, int type);
    static bool writeXDataLayerRule(const AcDbObjectId& id, const std::vector<RuleField>& fields, int type);

    // ------------------------------------------------------------------
    // Available standards and installing a standard. File names are
    // relative to the standards folder ("<data>/Support/Layer Standards/");
    // a name that would leave it (a folder part, "..") is refused.
    // ------------------------------------------------------------------

    // The standards of the folder: parallel lists of file names and
    // standard names, and the folder. An empty folder first receives the
    // default standard "Beltrix.std", reported as ("Beltrix_backup.std", "Beltrix").
    static void getAvailableStandards(std::vector<std::wstring>& files, std::vector<std::wstring>& names,
                                      std::wstring& folder);
    // Whether the file of the folder exists and can be read.
    static bool isValidLayerStandardFile(const std::wstring& fileName);
    // Copies the standard of the file into the document's drawing.
    static void createLayerStandardDictionary(AcApDocument* document, const std::wstring& fileName);
    // Puts the standard of fileName in place of the drawing's own (apply
    // true) and back (apply false), for previews.
    static void changeLayerStandard(const std::wstring& fileName, bool apply);

    // For the front ends: a file name that stays inside the standards folder.
    static bool isStandardsFolderFileName(const std::wstring& fileName);
    // Copies the standard read from any path into a drawing, recording
    // fileName as its file; false when the drawing cannot hold it.
    static bool installStandardFromPath(AcDbDatabase* db, const std::wstring& path, const std::wstring& fileName);
    // Erases the drawing's layer standard objects, keeping the dictionary.
    static bool removeLayerStandard(AcDbDatabase* db);

    // ------------------------------------------------------------------
    // Context of an evaluation
    // ------------------------------------------------------------------

    // Fills ctx for the drawing and the command (may be null): the moulds
    // of the drawing's lists, whether the command drafts, and what the
    // project object says (working mode, the view holding `objectId` when
    // valid, whether model rules are active). "ZEFTFORCECALC" forces model
    // rules on.
    static void getApplicationContext(ApplicationContext& ctx, AcDbDatabase* db, const wchar_t* commandName,
                                      const AcDbObjectId& objectId);
    // The first mould of ctx whose class the entity's class derives from;
    // null for entities of other makers than the suite's.
    static AcDbObjectId getMouldEntity(const AcDbObjectId& entityId, const ApplicationContext& ctx);

    // ------------------------------------------------------------------
    // Exceptions and imposed layers
    // ------------------------------------------------------------------

    // Whether layering applies to an entity of ctx's drawing that lies in
    // model space or the current paper space (not the overall paper-space
    // viewport, not a "QRV" class). The exception list may impose a layer,
    // written to imposedLayer (untouched otherwise), or exclude the class
    // ("Auto...").
    static bool layerRulesAplicable(AcDbEntity* entity, const ApplicationContext& ctx, std::wstring& imposedLayer);
    static bool layerRulesAplicable(const AcDbObjectId& entityId, const ApplicationContext& ctx,
                                    std::wstring& imposedLayer);
    // The layer the exception list imposes on the entity's class; empty
    // when none (or "Auto..."). Placement is not checked.
    static std::wstring getImposedLayer(AcDbEntity* entity, const ApplicationContext& ctx);
    static std::wstring getImposedLayer(const AcDbObjectId& entityId, const ApplicationContext& ctx);
    // The distinct layers of the exception list, in order of appearance.
    static void getExceptionLayerNames(AcDbDatabase* db, std::vector<std::wstring>& names);

    // ------------------------------------------------------------------
    // Layer creation and entity layer resolution
    // ------------------------------------------------------------------

    // Puts the entity on the layer its rule gives (through layer "0", where
    // it stays when no layer can be made); the layer's id, or null when
    // the rules do not govern the entity.
    static AcDbObjectId processEntityLayerRules(const AcDbObjectId& entityId, const ApplicationContext& ctx);
    // The entity's rule: the draft view's in a draft context, the
    // standard's for the host's own entities, else the entity's own rule,
    // created from its mould or the standard when missing.
    static bool getEntityLayerRules(const AcDbObjectId& entityId, const ApplicationContext& ctx,
                                    std::vector<RuleField>& fields);
    // Gives the entity its own rule: its mould's, else the standard's.
    static void createEntityLayerRule(const AcDbObjectId& entityId, const ApplicationContext& ctx);
    // Writes the standard's rule for ctx (empty when none) into the
    // object's extended data.
    static void createEntityLayerRuleFromDict(const AcDbObjectId& id, const ApplicationContext& ctx);
    static void createEntityLayerRuleFromDict(AcDbObject* obj, const ApplicationContext& ctx);
    // The name the entity would get in a draft view, changing nothing but
    // the view's rule. With an imposed layer: false, and name holds it.
    static bool getEntityLayerName(AcDbEntity* entity, std::wstring& name, const ApplicationContext& ctx);
    static bool getEntityLayerName(const AcDbObjectId& entityId, std::wstring& name, const ApplicationContext& ctx);
    // The layer of the cleaned name, made when missing (continuous
    // linetype, told to the project object). With turnOn an existing layer
    // is also turned on, thawed and unlocked. Null for an empty name.
    static AcDbObjectId createLayer(std::wstring name, const ApplicationContext& ctx, bool turnOn);
    // Tells the project object that objects[i] goes with layers[i].
    static bool addLayersToActiveObject(const AcDbObjectIdArray& objects, const std::vector<AcDbObjectIdArray>& layers,
                                        const ApplicationContext& ctx);

    // ------------------------------------------------------------------
    // Function names and help texts
    // ------------------------------------------------------------------

    // The predefined names, then the drawing's user functions; nothing for
    // a null database.
    static void getAllFunctionNames(AcDbDatabase* db, std::vector<std::wstring>& names);
    // Appends one help text per name (the user-function text for any name
    // that is not one of the suite's).
    static void getFunctionHelpStrings(const std::vector<std::wstring>& names, std::vector<std::wstring>& helps);

    // ------------------------------------------------------------------
    // Deferring the re-layering across commands
    // ------------------------------------------------------------------

    // From lock to the matching unlock, command ends re-layer nothing: what
    // the commands append accumulates, and unlock re-layers it all under
    // commandName, with objectId (may be null) as the active object. Pairs
    // nest. The module must be loaded.
    static void lock(const wchar_t* commandName);
    static void unlock(const wchar_t* commandName, AcDbObjectId objectId);

    // ------------------------------------------------------------------
    // Standard swapping state
    // ------------------------------------------------------------------

    // True while a swapped-in standard is active: entity layer resolution
    // then takes the rule from the dictionary.
    static bool m_gbUseRuleFromDictionaryIngetEntityLayerName;
};
