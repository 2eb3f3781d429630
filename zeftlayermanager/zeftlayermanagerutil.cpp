#include "zeftlayermanager/zeftlayermanagerutil.h"

#include <algorithm>
#include <set>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "host/database.h"
#include "host/dbdict.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "suite/wybase.h"
#include "suite/zeftdatabasetools.h"
#include "suite/zeftregistrytools.h"
#include "host/dbclasses.h"
#include "host/dbsymtb.h"
#include "suite/zeftmouldentities.h"
#include "suite/zeftproject.h"
#include "zeftlayermanager/zeftfilerw.h"
#include "zeftlayermanager/zeftlayermanagereditorreactor.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftresolutionbatch.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"
#include "zeftlayermanager/zeftruleevaluator.h"

bool ZEFTLayerManagerUtil::m_gbUseRuleFromDictionaryIngetEntityLayerName = false;

namespace {

using Util = ZEFTLayerManagerUtil;

// ---------------------------------------------------------------------------
// Drawing dictionary helpers

// Calls visit(entry) for every entry of the layer manager dictionary that
// opens for read, in dictionary order, until visit answers true. The
// dictionary itself is closed before the first entry is opened.
template <class F>
void forEachEntry(AcDbDatabase* db, F&& visit)
{
    AcDbDictionary* raw =
        ZEFTDatabaseTools::openDictionary(Util::kDictionaryName, AcDb::kForRead, db, ZEFTDatabaseTools::kOpenExisting);
    if (!raw) return;
    std::unique_ptr<AcDbDictionaryIterator> it;
    {
        AcDbObjectPointer<AcDbDictionary> dict(raw);
        it = std::make_unique<AcDbDictionaryIterator>(dict.object());
    }
    for (; !it->done(); it->next()) {
        AcDbObjectPointer<AcDbObject> entry(it->objectId(), AcDb::kForRead);
        if (!entry) continue;
        if (visit(entry.object())) return;
    }
}

// A clone of `obj` as a T, or null; the caller owns it.
template <class T>
T* cloneAs(const AcDbObject* obj)
{
    std::unique_ptr<AcRxObject> copy(obj->clone());
    T* typed = T::cast(copy.get());
    if (typed) copy.release();
    return typed;
}

AcDbObjectId ruleOfStandard(AcDbDatabase* db, AcDbObjectId (ZEFTLayerStandard::*which)() const)
{
    const AcDbObjectId standardId = Util::getStandardFromDictionary(db);
    if (!standardId.isValid()) return {};
    AcDbObjectPointer<ZEFTLayerStandard> standard(standardId, AcDb::kForRead);
    if (!standard) return {};
    return (standard.object()->*which)();
}

template <class T>
void namesOf(const std::vector<T*>& objects, std::vector<std::wstring>& names)
{
    names.clear();
    // An empty name keeps the positions of the list and of the names alike.
    for (const T* obj : objects) names.push_back(obj ? obj->getName() : std::wstring());
}

// ---------------------------------------------------------------------------
// Extended data helpers

constexpr short kAppCode = 1001;
constexpr short kTextCode = 1000;
constexpr short kInt16Code = 1070;
constexpr short kInt32Code = 1071;

ResBufList groupOf(const AcDbObject* obj) { return obj->xData(Util::kXDataAppName); }

// Items 1 to 3: application name, format marker, type code.
ResBufList groupHead(int type)
{
    return {ResBuf::text(kAppCode, Util::kXDataAppName), ResBuf::int16(kInt16Code, 1),
            ResBuf::int32(kInt32Code, std::int32_t(type))};
}

// Puts `group` behind the object's complete extended data and sets the
// whole: the host keeps the last group of an application, so the earlier
// one of ours goes and the other applications' groups stay.
bool setBehindAll(AcDbObject* obj, const ResBufList& group)
{
    ResBufList chain = obj->xData(nullptr);
    chain.insert(chain.end(), group.begin(), group.end());
    return obj->setXData(chain) == Acad::eOk;
}

template <class F>
bool withOpened(const AcDbObjectId& id, AcDb::OpenMode mode, F&& use)
{
    AcDbObjectPointer<AcDbObject> obj(id, mode);
    return obj && use(obj.object());
}

}  // namespace

// ===========================================================================
// Drawing dictionary

AcDbObjectId ZEFTLayerManagerUtil::getStandardFromDictionary(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getStandardFromDictionary", AcDbObjectId(), {
        if (!db) return AcDbObjectId();
        ZEFTResolutionBatch* batch = ZEFTResolutionBatch::of(db);
        if (batch && batch->standard) return *batch->standard;
        AcDbObjectId id;
        if (ZEFTDatabaseTools::getFromDictionary(kDictionaryName, kStandardKey, id, db) != Acad::eOk) id = AcDbObjectId();
        if (batch) batch->standard = id;
        return id;
    });
}

AcDbObjectId ZEFTLayerManagerUtil::getModelRuleFromDictionary(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getModelRuleFromDictionary", AcDbObjectId(), {
        return db ? ruleOfStandard(db, &ZEFTLayerStandard::getModelRule) : AcDbObjectId();
    });
}

AcDbObjectId ZEFTLayerManagerUtil::getDraftRuleFromDictionary(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getDraftRuleFromDictionary", AcDbObjectId(), {
        return db ? ruleOfStandard(db, &ZEFTLayerStandard::getDraftRule) : AcDbObjectId();
    });
}

AcDbObjectId ZEFTLayerManagerUtil::getDocRuleFromDictionary(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getDocRuleFromDictionary", AcDbObjectId(), {
        return db ? ruleOfStandard(db, &ZEFTLayerStandard::getDocRule) : AcDbObjectId();
    });
}

std::wstring ZEFTLayerManagerUtil::getFieldsSeparator(AcDbDatabase* db)
{
    // "_" is the separator of a drawing without standard; names still join.
    ZEFT_GUARD("ZEFTLayerManagerUtil::getFieldsSeparator", std::wstring(L"_"), {
        if (!db) return std::wstring(L"_");
        ZEFTResolutionBatch* batch = ZEFTResolutionBatch::of(db);
        if (batch && batch->separator) return *batch->separator;
        AcDbObjectPointer<ZEFTLayerStandard> standard(getStandardFromDictionary(db), AcDb::kForRead);
        std::wstring separator = standard ? standard->getSeparator() : std::wstring(L"_");
        if (batch) batch->separator = separator;
        return separator;
    });
}

namespace {
// The rule of the drawing's standard that applies in ctx.
bool getRuleFromDictionaryUncached(AcDbDatabase* db, const ApplicationContext& ctx, std::vector<RuleField>& fields)
{
    AcDbObjectPointer<ZEFTLayerStandard> standard(Util::getStandardFromDictionary(db), AcDb::kForRead);
    if (!standard) return false;
    AcDbObjectId ruleId;
    if (ctx.workingMode == 0 || ctx.workingMode == 1) ruleId = standard->getModelRule();
    else if (ctx.workingMode == 2) ruleId = standard->getDocRule();
    else return false;
    // Drafting overrides the working mode, but only when there is one.
    if (ctx.draftContext) ruleId = standard->getDraftRule();
    standard.close();

    AcDbObjectPointer<ZEFTLayerRule> rule(ruleId, AcDb::kForRead);
    if (!rule) return false;
    rule->getFields(fields);
    return true;
}
}  // namespace

bool ZEFTLayerManagerUtil::getRuleFromDictionary(AcDbDatabase* db, const ApplicationContext& ctx,
                                                 std::vector<RuleField>& fields)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getRuleFromDictionary", false, {
        if (!db) return false;
        ZEFTResolutionBatch* batch = ZEFTResolutionBatch::of(db);
        const std::pair<bool, int> key(ctx.draftContext, ctx.workingMode);
        if (batch) {
            if (auto it = batch->rules.find(key); it != batch->rules.end()) {
                if (it->second.first) fields = it->second.second;
                return it->second.first;
            }
            auto& slot = batch->rules[key];
            slot.first = getRuleFromDictionaryUncached(db, ctx, slot.second);
            if (slot.first) fields = slot.second;
            return slot.first;
        }
        return getRuleFromDictionaryUncached(db, ctx, fields);
    });
}


AcDbObjectId ZEFTLayerManagerUtil::getExceptionFromDictionary(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getExceptionFromDictionary", AcDbObjectId(), {
        AcDbObjectId found;
        if (!db) return found;
        ZEFTResolutionBatch* batch = ZEFTResolutionBatch::of(db);
        if (batch && batch->exception) return *batch->exception;
        forEachEntry(db, [&](AcDbObject* entry) {
            if (!ZEFTRuleException::cast(entry)) return false;
            found = entry->objectId();
            return true;
        });
        if (batch) batch->exception = found;
        return found;
    });
}

AcDbObjectId ZEFTLayerManagerUtil::getFunctionFromDictionary(AcDbDatabase* db, const std::wstring& name)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getFunctionFromDictionary", AcDbObjectId(), {
        AcDbObjectId found;
        if (!db) return found;
        ZEFTResolutionBatch* batch = ZEFTResolutionBatch::of(db);
        if (batch)
            if (auto it = batch->functions.find(name); it != batch->functions.end()) return it->second;
        forEachEntry(db, [&](AcDbObject* entry) {
            const ZEFTRuleFunction* function = ZEFTRuleFunction::cast(entry);
            if (!function || function->getName() != name) return false;
            found = entry->objectId();
            return true;
        });
        if (batch) batch->functions[name] = found;
        return found;
    });
}

void ZEFTLayerManagerUtil::getCloneException(AcDbDatabase* db, ZEFTRuleException*& exception)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getCloneException", {
        if (!db) return;
        forEachEntry(db, [&](AcDbObject* entry) {
            if (!ZEFTRuleException::cast(entry)) return false;
            if (ZEFTRuleException* copy = cloneAs<ZEFTRuleException>(entry)) exception = copy;
            return true;
        });
    });
}

void ZEFTLayerManagerUtil::getCloneFunctions(AcDbDatabase* db, std::vector<ZEFTRuleFunction*>& functions)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getCloneFunctions", {
        if (!db) return;
        forEachEntry(db, [&](AcDbObject* entry) {
            if (ZEFTRuleFunction::cast(entry))
                if (ZEFTRuleFunction* copy = cloneAs<ZEFTRuleFunction>(entry)) functions.push_back(copy);
            return false;
        });
    });
}

void ZEFTLayerManagerUtil::getCloneEnums(AcDbDatabase* db, std::vector<ZEFTRuleEnum*>& enums)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getCloneEnums", {
        if (!db) return;
        forEachEntry(db, [&](AcDbObject* entry) {
            if (ZEFTRuleEnum::cast(entry))
                if (ZEFTRuleEnum* copy = cloneAs<ZEFTRuleEnum>(entry)) enums.push_back(copy);
            return false;
        });
    });
}

void ZEFTLayerManagerUtil::getEnumValues(const std::wstring& enumName, const std::vector<ZEFTRuleEnum*>& enums,
                                         std::vector<std::wstring>& values)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getEnumValues", {
        for (const ZEFTRuleEnum* e : enums)
            if (e && e->getName() == enumName) {
                e->getValues(values);
                return;
            }
    });
}

void ZEFTLayerManagerUtil::getNamesFromEnums(const std::vector<ZEFTRuleEnum*>& enums, std::vector<std::wstring>& names)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getNamesFromEnums", { namesOf(enums, names); });
}

void ZEFTLayerManagerUtil::getNamesFromFunctions(const std::vector<ZEFTRuleFunction*>& functions,
                                                 std::vector<std::wstring>& names)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getNamesFromFunctions", { namesOf(functions, names); });
}

// ===========================================================================
// Entity extended data

bool ZEFTLayerManagerUtil::hasXDataLayerRule(AcDbObject* obj)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::hasXDataLayerRule", false, { return obj && !groupOf(obj).empty(); });
}

bool ZEFTLayerManagerUtil::hasXDataLayerRule(const AcDbObjectId& id)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::hasXDataLayerRule", false, {
        return withOpened(id, AcDb::kForRead, [](AcDbObject* obj) { return hasXDataLayerRule(obj); });
    });
}

bool ZEFTLayerManagerUtil::hasFullXDataLayerRule(AcDbObject* obj)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::hasFullXDataLayerRule", false, {
        if (!obj || !obj->isReadEnabled()) return false;
        const ResBufList group = groupOf(obj);
        // Something (the field count) after the type code.
        return group.size() >= 4 && group[1].restype == kInt16Code && group[2].restype == kInt32Code;
    });
}

bool ZEFTLayerManagerUtil::hasFullXDataLayerRule(const AcDbObjectId& id)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::hasFullXDataLayerRule", false, {
        return withOpened(id, AcDb::kForRead, [](AcDbObject* obj) { return hasFullXDataLayerRule(obj); });
    });
}

bool ZEFTLayerManagerUtil::readXDataEntityType(AcDbObject* obj, int& type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::readXDataEntityType", false, {
        if (!obj) return false;
        const ResBufList group = groupOf(obj);
        if (group.size() < 3 || group[1].restype != kInt16Code || group[2].restype != kInt32Code) return false;
        // The 16-bit view, matching writeXDataEntityType, which sets only those bits.
        type = group[2].rint();
        return true;
    });
}

bool ZEFTLayerManagerUtil::readXDataEntityType(const AcDbObjectId& id, int& type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::readXDataEntityType", false, {
        return withOpened(id, AcDb::kForRead, [&](AcDbObject* obj) { return readXDataEntityType(obj, type); });
    });
}

bool ZEFTLayerManagerUtil::writeXDataEntityType(AcDbObject* obj, int type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::writeXDataEntityType", false, {
        if (!obj || !obj->isWriteEnabled()) return false;
        ResBufList group = groupOf(obj);
        if (group.empty()) {
            group = groupHead(type);
        } else {
            // A group without a type item is not ours to repair.
            if (group.size() < 3 || group[2].restype != kInt32Code) return false;
            // Only the low 16 bits change; type codes are small, and the
            // count and fields behind stay as they are.
            const std::uint32_t old = std::uint32_t(group[2].rlong());
            group[2].integer = std::int32_t((old & 0xFFFF0000u) | std::uint16_t(type));
        }
        return setBehindAll(obj, group);
    });
}

bool ZEFTLayerManagerUtil::writeXDataEntityType(const AcDbObjectId& id, int type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::writeXDataEntityType", false, {
        return withOpened(id, AcDb::kForWrite, [&](AcDbObject* obj) { return writeXDataEntityType(obj, type); });
    });
}

bool ZEFTLayerManagerUtil::readXDataLayerRule(AcDbObject* obj, std::vector<RuleField>& fields, int& type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::readXDataLayerRule", false, {
        if (!obj || !obj->isReadEnabled()) return false;
        const ResBufList group = groupOf(obj);
        if (group.size() < 4 || group[1].restype != kInt16Code || group[2].restype != kInt32Code ||
            group[3].restype != kInt32Code)
            return false;
        // 16-bit views: codes and counts stay below 32768.
        const int code = group[2].rint();
        const int count = group[3].rint();
        std::size_t next = 4;
        for (int i = 0; i < count; ++i, next += 2) {
            if (next + 1 >= group.size() || group[next].restype != kTextCode || group[next + 1].restype != kInt16Code)
                return false;
            fields.push_back({std::wstring(), group[next].str, group[next + 1].rint() != 0});
        }
        type = code;
        return true;
    });
}

bool ZEFTLayerManagerUtil::readXDataLayerRule(const AcDbObjectId& id, std::vector<RuleField>& fields, int& type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::readXDataLayerRule", false, {
        return withOpened(id, AcDb::kForRead, [&](AcDbObject* obj) { return readXDataLayerRule(obj, fields, type); });
    });
}

bool ZEFTLayerManagerUtil::writeXDataLayerRule(AcDbObject* obj, const std::vector<RuleField>& fields, int type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::writeXDataLayerRule", false, {
        if (!obj || !obj->isWriteEnabled()) return false;
        acdbRegApp(obj->database(), kXDataAppName);
        ResBufList group = groupHead(type);
        group.push_back(ResBuf::int32(kInt32Code, std::int32_t(fields.size())));
        for (const RuleField& field : fields) {
            group.push_back(ResBuf::text(kTextCode, field.value));
            group.push_back(ResBuf::int16(kInt16Code, field.isFunction ? 1 : 0));
        }
        return setBehindAll(obj, group);
    });
}

bool ZEFTLayerManagerUtil::writeXDataLayerRule(const AcDbObjectId& id, const std::vector<RuleField>& fields, int type)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::writeXDataLayerRule", false, {
        return withOpened(id, AcDb::kForWrite,
                          [&](AcDbObject* obj) { return writeXDataLayerRule(obj, fields, type); });
    });
}

// --- available standards and installing a standard ---

void ZEFTLayerManagerUtil::getAvailableStandards(std::vector<std::wstring>& files, std::vector<std::wstring>& names,
                                                 std::wstring& folder)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getAvailableStandards", {
        ZEFTFileRW rw;
        rw.getAvailableStandards(files, names, folder);
    });
}

bool ZEFTLayerManagerUtil::isStandardsFolderFileName(const std::wstring& fileName)
{
    if (fileName.empty() || fileName == L"." || fileName == L"..") return false;
    return fileName.find(L'/') == std::wstring::npos && fileName.find(L'\\') == std::wstring::npos &&
           fileName.find(L'\0') == std::wstring::npos;
}

bool ZEFTLayerManagerUtil::isValidLayerStandardFile(const std::wstring& fileName)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::isValidLayerStandardFile", false, {
        std::wstring folder;
        if (!isStandardsFolderFileName(fileName) || !ZEFTRegistryTools::GetLayerStandardsPath(folder)) return false;
        // A folder opens for reading here, but is no file.
        std::error_code ec;
        if (!std::filesystem::is_regular_file(dxf::toUtf8(folder + fileName), ec)) return false;
        std::FILE* f = std::fopen(dxf::toUtf8(folder + fileName).c_str(), "r");
        if (!f) return false;
        std::fclose(f);
        return true;
    });
}

bool ZEFTLayerManagerUtil::installStandardFromPath(AcDbDatabase* db, const std::wstring& path,
                                                   const std::wstring& fileName)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::installStandardFromPath", false, {
        if (!db || db->isR12OrOlder()) return false;
        // The standard first, so that its rules can be set once they exist.
        // Added through db itself: a drawing that is not open as a document
        // (or not the current one) must not send it to the current drawing.
        AcDbObjectId standardId;
        AcDbObjectId model, draft, docRule;
        auto rw = std::make_unique<ZEFTFileRW>();
        {
            AcDbDictionary* dict = ZEFTDatabaseTools::openDictionary(kDictionaryName, AcDb::kForWrite, db,
                                                                     ZEFTDatabaseTools::kCreateIfMissing);
            if (!dict) return false;
            auto* standard = new ZEFTLayerStandard;
            if (dict->setAt(kStandardKey, standard, standardId) != Acad::eOk) {
                delete standard;
                dict->close();
                return false;
            }
            standard->close();
            rw->readStandard(path);
            model = rw->createRule(rw->getModelRule(), dict);
            draft = rw->createRule(rw->getDraftRule(), dict);
            docRule = rw->createRule(rw->getDocRule(), dict);
            rw->createFunctions(dict);
            rw->createEnums(dict);
            rw->createException(dict);
            dict->close();
        }
        AcDbObjectPointer<ZEFTLayerStandard> std(standardId, AcDb::kForWrite);
        if (std.openStatus() != Acad::eOk) return false;
        std->setModelRule(model);
        std->setDraftRule(draft);
        std->setDocRule(docRule);
        std->setName(rw->getName());
        std->setFileName(fileName);
        std->setSeparator(rw->getSeparator());
        return true;
    });
}

void ZEFTLayerManagerUtil::createLayerStandardDictionary(AcApDocument* document, const std::wstring& fileName)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::createLayerStandardDictionary", {
        std::wstring folder;
        if (!document || !isStandardsFolderFileName(fileName) || !ZEFTRegistryTools::GetLayerStandardsPath(folder))
            return;
        installStandardFromPath(document->database(), folder + fileName, fileName);
    });
}

bool ZEFTLayerManagerUtil::removeLayerStandard(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::removeLayerStandard", false, {
        if (!db) return false;
        AcDbDictionary* dict = ZEFTDatabaseTools::openDictionary(kDictionaryName, AcDb::kForWrite, db, 0);
        if (!dict) return true;  // nothing installed
        for (const AcDbDictionary::Entry& e : dict->entries()) {
            AcDbObject* obj = nullptr;
            if (acdbOpenObject(obj, e.id, AcDb::kForWrite) == Acad::eOk) {
                obj->erase();
                obj->close();
            }
        }
        dict->close();
        return true;
    });
}

namespace {
// The rules, functions, enums and exception list that the preview standard
// brought into the dictionary: they go again with it.
std::vector<AcDbObjectId>& previewObjects()
{
    static std::vector<AcDbObjectId> ids;
    return ids;
}

std::vector<AcDbObjectId> entryIds(AcDbDatabase* db)
{
    std::vector<AcDbObjectId> ids;
    if (AcDbDictionary* dict = ZEFTDatabaseTools::openDictionary(Util::kDictionaryName, AcDb::kForRead, db, 0)) {
        for (const AcDbDictionary::Entry& e : dict->entries()) ids.push_back(e.id);
        dict->close();
    }
    return ids;
}
}  // namespace

void ZEFTLayerManagerUtil::changeLayerStandard(const std::wstring& fileName, bool apply)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::changeLayerStandard", {
        AcApDocument* doc = acDocManager->curDocument();
        AcDbDatabase* db = doc ? doc->database() : nullptr;
        if (apply) {
            const std::vector<AcDbObjectId> before = entryIds(db);
            if (AcDbDictionary* dict = ZEFTDatabaseTools::openDictionary(kDictionaryName, AcDb::kForWrite, db, 0)) {
                dict->setName(kStandardKey, L"ZEFT_LAYER_MANAGER_OLD");
                dict->close();
            }
            createLayerStandardDictionary(doc, fileName);
            const AcDbObjectId preview = getStandardFromDictionary(db);
            previewObjects().clear();
            for (const AcDbObjectId& id : entryIds(db))
                if (id != preview && std::find(before.begin(), before.end(), id) == before.end())
                    previewObjects().push_back(id);
            m_gbUseRuleFromDictionaryIngetEntityLayerName = true;
        } else {
            if (AcDbDictionary* dict = ZEFTDatabaseTools::openDictionary(kDictionaryName, AcDb::kForWrite, db, 0)) {
                // The preview standard goes with the previewed rules: a detached
                // object would still be written, pointing at erased ones.
                AcDbObjectId preview;
                dict->remove(kStandardKey, preview);
                AcDbObject* standard = nullptr;
                if (!preview.isNull() && acdbOpenObject(standard, preview, AcDb::kForWrite) == Acad::eOk) {
                    standard->erase();
                    standard->close();
                }
                for (const AcDbObjectId& id : previewObjects()) {
                    AcDbObject* obj = nullptr;
                    if (dict->has(id) && acdbOpenObject(obj, id, AcDb::kForWrite) == Acad::eOk) {
                        obj->erase();
                        obj->close();
                    }
                }
                dict->setName(L"ZEFT_LAYER_MANAGER_OLD", kStandardKey);
                dict->close();
            }
            previewObjects().clear();
            m_gbUseRuleFromDictionaryIngetEntityLayerName = false;
        }
    });
}

// ===========================================================================
// Context of an evaluation

namespace {

// Commands of the suite that place entities in drafts.
const std::set<std::wstring> kDraftCommands = {
    L"zeftdcalc",   L"zeftiso",        L"zeftdrebar",    L"zeftdnew",      L"zeftutcalc",    L"zeftelevcalc",
    L"zeftrebarcalc", L"zeftisocalc", L"zeftdblclkdraft", L"zeftdupdate", L"zeftdactive", L"zeftvtopbottom"};

std::wstring classNameOf(const AcDbObject* obj)
{
    return obj && obj->isA() ? std::wstring(obj->isA()->name()) : std::wstring();
}

std::wstring dxfNameOf(const AcDbObject* obj)
{
    return obj && obj->isA() ? std::wstring(obj->isA()->dxfName()) : std::wstring();
}

}  // namespace

void ZEFTLayerManagerUtil::getApplicationContext(ApplicationContext& ctx, AcDbDatabase* db, const wchar_t* commandName,
                                                 const AcDbObjectId& objectId)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getApplicationContext", {
        ctx.mouldEntities.clear();
        for (const wchar_t* list : ZEFTMouldEntities::kListNames)
            ZEFTMouldEntities::getAllMouldEntities(list, ctx.mouldEntities, db);
        ctx.database = db;
        const std::wstring command = acdbToLower(commandName ? commandName : L"");
        ctx.draftContext = kDraftCommands.count(command) > 0;
        ctx.modelRulesActive = true;
        if (std::unique_ptr<ZEFTProjectObject> project = zeftGetProjectObject(db)) {
            std::int32_t mode = 0;
            if (project->getWorkingMode(mode)) ctx.workingMode = mode;
            AcDbObjectId view;
            if (objectId.isValid() && project->getViewOfObject(objectId, view)) ctx.viewId = view;
            bool active = true;
            if (project->getModelRulesActive(active)) ctx.modelRulesActive = active;
        }
        // A forced calculation re-layers the model whatever the project says.
        if (command == L"zeftforcecalc") ctx.modelRulesActive = true;
    });
}

AcDbObjectId ZEFTLayerManagerUtil::getMouldEntity(const AcDbObjectId& entityId, const ApplicationContext& ctx)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getMouldEntity", AcDbObjectId(), {
        AcDbObjectPointer<AcDbEntity> entity(entityId, AcDb::kForRead);
        if (!entity || dxfNameOf(entity.object()).find(L"ZEFT") == std::wstring::npos) return AcDbObjectId();
        for (const AcDbObjectId& mouldId : ctx.mouldEntities) {
            AcDbObjectPointer<AcDbEntity> mould(mouldId, AcDb::kForRead);
            if (mould && entity->isA()->isDerivedFrom(mould->isA())) return mouldId;
        }
        return AcDbObjectId();
    });
}

// ===========================================================================
// Exceptions and imposed layers

namespace {

// Opens the exception list of the drawing for read; null when it has none.
std::unique_ptr<AcDbObjectPointer<ZEFTRuleException>> openException(AcDbDatabase* db)
{
    auto exception = std::make_unique<AcDbObjectPointer<ZEFTRuleException>>(Util::getExceptionFromDictionary(db),
                                                                             AcDb::kForRead);
    if (!*exception) return nullptr;
    return exception;
}

ZEFTResolutionBatch::ClassTraits traitsOf(const AcRxClass* cls)
{
    ZEFTResolutionBatch::ClassTraits traits;
    if (!cls) return traits;
    traits.suite = acdbToUpper(cls->name()).find(L"ZEFT") != std::wstring::npos;
    traits.unlayered = acdbToUpper(cls->dxfName()).rfind(L"QRV", 0) == 0;
    traits.viewport = cls->isDerivedFrom(AcDbViewport::desc());
    return traits;
}

// The same, asked once per class in a batch.
const ZEFTResolutionBatch::ClassTraits& traitsOf(const AcRxClass* cls, ZEFTResolutionBatch* batch)
{
    thread_local ZEFTResolutionBatch::ClassTraits unbatched;
    if (!batch) return unbatched = traitsOf(cls);
    auto [it, fresh] = batch->classes.try_emplace(cls);
    if (fresh) it->second = traitsOf(cls);
    return it->second;
}

// Model space or the current paper space of ctx's drawing.
bool inLayeredSpace(const AcDbEntity* entity, const ApplicationContext& ctx)
{
    if (!ctx.database) return false;
    const AcDbObjectId owner = entity->ownerId();
    return owner == ctx.database->modelSpaceId() || owner == ctx.database->paperSpaceId();
}

}  // namespace

bool ZEFTLayerManagerUtil::layerRulesAplicable(AcDbEntity* entity, const ApplicationContext& ctx,
                                               std::wstring& imposedLayer)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::layerRulesAplicable", false, {
        if (!entity || !entity->isReadEnabled()) return false;
        AcDbDatabase* db = entity->database();
        if (!db || !acDocManager->documentOf(db)) return false;
        if (!ctx.ignoreDatabase && db != ctx.database) return false;
        // Block definitions and other layouts keep the layers they were drawn on.
        if (!inLayeredSpace(entity, ctx)) return false;
        ZEFTResolutionBatch* batch = ZEFTResolutionBatch::of(ctx.database);
        const auto& traits = traitsOf(entity->isA(), batch);
        if (traits.unlayered) return false;
        if (const auto* viewport = traits.viewport ? AcDbViewport::cast(entity) : nullptr;
            viewport && entity->ownerId() == ctx.database->paperSpaceId() && viewport->number() == 1)
            return false;
        if (!batch) {
            auto exception = openException(ctx.database);
            return !exception || (*exception)->layerRulesApplicable(entity, imposedLayer);
        }
        // The exception list answers by class only.
        auto [it, fresh] = batch->exceptions.try_emplace(entity->isA());
        if (fresh) {
            if (auto exception = openException(ctx.database)) {
                // A marker tells a layer written (even an empty one) from none.
                const std::wstring marker(1, L'\x1');
                std::wstring imposed = marker;
                it->second.applicable = (*exception)->layerRulesApplicable(entity, imposed);
                if (imposed != marker) it->second.imposed = imposed;
            }
        }
        if (it->second.imposed) imposedLayer = *it->second.imposed;
        return it->second.applicable;
    });
}

bool ZEFTLayerManagerUtil::layerRulesAplicable(const AcDbObjectId& entityId, const ApplicationContext& ctx,
                                               std::wstring& imposedLayer)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::layerRulesAplicable", false, {
        AcDbObjectPointer<AcDbEntity> entity(entityId, AcDb::kForRead);
        return entity && layerRulesAplicable(entity.object(), ctx, imposedLayer);
    });
}

std::wstring ZEFTLayerManagerUtil::getImposedLayer(AcDbEntity* entity, const ApplicationContext& ctx)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getImposedLayer", std::wstring(), {
        std::wstring layer;
        if (auto exception = openException(ctx.database)) (*exception)->layerRulesApplicable(entity, layer);
        return layer;
    });
}

std::wstring ZEFTLayerManagerUtil::getImposedLayer(const AcDbObjectId& entityId, const ApplicationContext& ctx)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getImposedLayer", std::wstring(), {
        AcDbObjectPointer<AcDbEntity> entity(entityId, AcDb::kForRead);
        return entity ? getImposedLayer(entity.object(), ctx) : std::wstring();
    });
}

void ZEFTLayerManagerUtil::getExceptionLayerNames(AcDbDatabase* db, std::vector<std::wstring>& names)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getExceptionLayerNames", {
        names.clear();
        auto exception = openException(db);
        if (!exception) return;
        for (int i = 0; i < (*exception)->getPairsNumber(); ++i) {
            std::wstring key, layer;
            (*exception)->getPair(unsigned(i), key, layer);
            if (std::find(names.begin(), names.end(), layer) == names.end()) names.push_back(layer);
        }
    });
}

// ===========================================================================
// Layer creation and entity layer resolution

namespace {

bool setEntityLayer(const AcDbObjectId& entityId, const AcDbObjectId& layerId)
{
    AcDbObjectPointer<AcDbEntity> entity(entityId, AcDb::kForWrite);
    return entity && entity->setLayer(layerId, true, false) == Acad::eOk;
}

// The draft view holding what is placed: the context's, else the project's
// active view. Null when there is none.
AcDbObjectId draftHolder(const ApplicationContext& ctx)
{
    if (ctx.viewId.isValid()) return ctx.viewId;
    AcDbObjectId active;
    std::unique_ptr<ZEFTProjectObject> owned;
    ZEFTProjectObject* project = ZEFTResolutionBatch::projectOf(ctx.database, owned);
    if (project && project->getActiveView(active)) return active;
    return AcDbObjectId();
}

// The holder's rule, given it from the standard when it has none yet.
bool holderRule(const AcDbObjectId& holder, const ApplicationContext& ctx, std::vector<RuleField>& fields)
{
    if (!Util::hasXDataLayerRule(holder)) Util::createEntityLayerRuleFromDict(holder, ctx);
    int type = 0;
    return Util::readXDataLayerRule(holder, fields, type);
}

}  // namespace

AcDbObjectId ZEFTLayerManagerUtil::processEntityLayerRules(const AcDbObjectId& entityId, const ApplicationContext& ctx)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::processEntityLayerRules", AcDbObjectId(), {
        if (!entityId.isValid()) return AcDbObjectId();
        std::wstring imposed;
        const AcRxClass* cls = nullptr;
        ZEFTResolutionBatch* batch = nullptr;
        {
            AcDbObjectPointer<AcDbEntity> entity(entityId, AcDb::kForRead);
            if (!entity || !layerRulesAplicable(entity.object(), ctx, imposed)) return AcDbObjectId();
            if (!ctx.draftContext && !ctx.modelRulesActive) return AcDbObjectId();
            cls = entity->isA();
            // Outside drafts, entities of a class whose rule asks nothing of
            // the entity itself all go where the first of them went.
            batch = ctx.draftContext ? nullptr : ZEFTResolutionBatch::of(ctx.database);
            auto it = batch ? batch->resolved.find(cls) : decltype(batch->resolved)::iterator();
            if (batch && it != batch->resolved.end()) {
                const AcDbObjectId target = it->second.isValid() ? it->second : ctx.database->layerZero();
                if (entity->upgradeOpen() == Acad::eOk) entity->setLayer(target, true, false);
                return it->second;
            }
        }
        // Through layer "0" first: an entity whose layer cannot be made stays there.
        setEntityLayer(entityId, ctx.database->layerZero());
        std::wstring name = imposed;
        bool sameForClass = true;
        if (name.empty()) {
            std::vector<RuleField> fields;
            const bool found = getEntityLayerRules(entityId, ctx, fields);
            sameForClass = !traitsOf(cls, batch).suite && !ZEFTRuleEvaluator::dependsOnEntity(fields, ctx);
            if (!found) {
                if (batch && sameForClass) batch->resolved.emplace(cls, AcDbObjectId());
                return AcDbObjectId();
            }
            ZEFTRuleEvaluator evaluator(entityId, fields);
            evaluator.evaluate(ctx);
            name = evaluator.getEvaluatedLayerName();
        }
        if (ctx.draftContext) writeXDataEntityType(entityId, 1);
        // Inside a view the user's layer states are the view's business.
        const AcDbObjectId layerId = createLayer(name, ctx, !ctx.viewId.isValid());
        if (layerId.isValid()) setEntityLayer(entityId, layerId);
        if (batch && sameForClass) batch->resolved.emplace(cls, layerId);
        return layerId;
    });
}

bool ZEFTLayerManagerUtil::getEntityLayerRules(const AcDbObjectId& entityId, const ApplicationContext& ctx,
                                               std::vector<RuleField>& fields)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getEntityLayerRules", false, {
        std::wstring className;
        {
            AcDbObjectPointer<AcDbEntity> entity(entityId, AcDb::kForRead);
            if (!entity) return false;
            className = acdbToUpper(classNameOf(entity.object()));
        }
        if (ctx.draftContext) {
            // A draft view carries the rule of everything drawn in it.
            const AcDbObjectId holder = draftHolder(ctx);
            std::vector<RuleField> viewFields;
            if (holder.isValid() && holderRule(holder, ctx, viewFields)) {
                writeXDataLayerRule(entityId, viewFields, 1);
                fields.insert(fields.end(), viewFields.begin(), viewFields.end());
                return true;
            }
        }
        // The host's own entities follow the standard and carry no rule.
        if (className.find(L"ZEFT") == std::wstring::npos) return getRuleFromDictionary(ctx.database, ctx, fields);
        if (!hasXDataLayerRule(entityId)) {
            const AcDbObjectId mould = getMouldEntity(entityId, ctx);
            if (mould.isValid() && !hasXDataLayerRule(mould)) createEntityLayerRuleFromDict(mould, ctx);
            createEntityLayerRule(entityId, ctx);
        }
        int type = 0;
        return readXDataLayerRule(entityId, fields, type);
    });
}

void ZEFTLayerManagerUtil::createEntityLayerRule(const AcDbObjectId& entityId, const ApplicationContext& ctx)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::createEntityLayerRule", {
        if (!entityId.isValid()) return;
        if (ctx.mouldEntities.contains(entityId)) return createEntityLayerRuleFromDict(entityId, ctx);
        const AcDbObjectId mould = getMouldEntity(entityId, ctx);
        if (!mould.isValid()) return createEntityLayerRuleFromDict(entityId, ctx);
        std::vector<RuleField> fields;
        int type = 0;
        if (!readXDataLayerRule(mould, fields, type)) {
            wyOutputDebugString(L"\nNo layer manager rule for mould. Maybe we should create one for it.");
            return createEntityLayerRuleFromDict(entityId, ctx);
        }
        // Members of a mould inherit the mould's rule.
        writeXDataLayerRule(entityId, fields, 0);
    });
}

void ZEFTLayerManagerUtil::createEntityLayerRuleFromDict(const AcDbObjectId& id, const ApplicationContext& ctx)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::createEntityLayerRuleFromDict", {
        std::vector<RuleField> fields;
        getRuleFromDictionary(ctx.database, ctx, fields);
        writeXDataLayerRule(id, fields, 0);
    });
}

void ZEFTLayerManagerUtil::createEntityLayerRuleFromDict(AcDbObject* obj, const ApplicationContext& ctx)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::createEntityLayerRuleFromDict", {
        std::vector<RuleField> fields;
        getRuleFromDictionary(ctx.database, ctx, fields);
        writeXDataLayerRule(obj, fields, 0);
    });
}

bool ZEFTLayerManagerUtil::getEntityLayerName(AcDbEntity* entity, std::wstring& name, const ApplicationContext& ctx)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getEntityLayerName", false, {
        std::vector<RuleField> fields;
        if (m_gbUseRuleFromDictionaryIngetEntityLayerName) {
            // A previewed standard: its rule, nothing of the drawing's.
            getRuleFromDictionary(ctx.database, ctx, fields);
            ZEFTRuleEvaluator evaluator(classNameOf(entity), fields);
            evaluator.evaluate(ctx);
            name = evaluator.getEvaluatedLayerName();
            return true;
        }
        if (AcDbDatabase* db = entity ? entity->database() : ctx.database) db->regApp(kXDataAppName);
        name.clear();
        if (!ctx.draftContext) return false;
        // An imposed layer is handed back, but not as a success.
        if (!layerRulesAplicable(entity, ctx, name) || !name.empty()) return false;
        const AcDbObjectId holder = draftHolder(ctx);
        if (!holder.isValid() || !holderRule(holder, ctx, fields)) return false;
        ZEFTRuleEvaluator evaluator(classNameOf(entity), fields);
        evaluator.evaluate(ctx);
        name = evaluator.getEvaluatedLayerName();
        return true;
    });
}

bool ZEFTLayerManagerUtil::getEntityLayerName(const AcDbObjectId& entityId, std::wstring& name,
                                              const ApplicationContext& ctx)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getEntityLayerName", false, {
        AcDbObjectPointer<AcDbEntity> entity(entityId, AcDb::kForRead);
        return entity && getEntityLayerName(entity.object(), name, ctx);
    });
}

namespace {
// The layer of a cleaned, non-empty name, made when missing.
AcDbObjectId createLayerUncached(const std::wstring& name, const ApplicationContext& ctx, bool turnOn)
{
    AcDbObjectPointer<AcDbLayerTable> table(ctx.database->layerTableId(), AcDb::kForRead);
    if (!table) return AcDbObjectId();
    AcDbObjectId layerId;
    if (table->getAt(name.c_str(), layerId) == Acad::eOk) {
        table.close();
        if (turnOn) {
            AcDbObjectPointer<AcDbLayerTableRecord> layer(layerId, AcDb::kForRead);
            // Opened for write only when a state changes: most entities
            // land on layers that are already on.
            if (layer && (layer->isOff() || layer->isFrozen() || layer->VPDFLT() || layer->isLocked()) &&
                layer->upgradeOpen() == Acad::eOk) {
                layer->setIsOff(false);
                layer->setIsFrozen(false);
                layer->setVPDFLT(false);
                layer->setIsLocked(false);
            }
        }
        return layerId;
    }
    if (table->upgradeOpen() != Acad::eOk) return AcDbObjectId();
    AcDbObjectPointer<AcDbLayerTableRecord> layer(ctx.database->newLayerRecord());
    if (layer->setName(name.c_str()) != Acad::eOk) layer->setName(L"Layer");
    layer->setIsFrozen(false);
    layer->setVPDFLT(false);
    layer->setIsLocked(false);
    layer->setLinetypeObjectId(ctx.database->continuousLinetype());
    if (table->add(layerId, layer.object()) != Acad::eOk) return AcDbObjectId();
    layer.close();
    table.close();
    std::unique_ptr<ZEFTProjectObject> owned;
    if (ZEFTProjectObject* project = ZEFTResolutionBatch::projectOf(ctx.database, owned))
        project->registerLayer(layerId);
    return layerId;
}
}  // namespace

AcDbObjectId ZEFTLayerManagerUtil::createLayer(std::wstring name, const ApplicationContext& ctx, bool turnOn)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::createLayer", AcDbObjectId(), {
        name = ZEFTRuleEvaluator::removeInvalidCharacters(std::move(name));
        if (name.empty() || !ctx.database) return AcDbObjectId();
        // In a batch a layer made or turned on once stays so.
        ZEFTResolutionBatch* batch = ZEFTResolutionBatch::of(ctx.database);
        if (batch)
            if (auto it = batch->layers.find({name, turnOn}); it != batch->layers.end()) return it->second;
        const AcDbObjectId layerId = createLayerUncached(name, ctx, turnOn);
        if (batch && layerId.isValid()) batch->layers[{name, turnOn}] = layerId;
        return layerId;
    });
}


bool ZEFTLayerManagerUtil::addLayersToActiveObject(const AcDbObjectIdArray& objects,
                                                   const std::vector<AcDbObjectIdArray>& layers,
                                                   const ApplicationContext& ctx)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::addLayersToActiveObject", false, {
        if (objects.size() != layers.size()) return false;
        auto project = zeftGetProjectObject(ctx.database);
        if (!project) return true;
        if (!ctx.modelRulesActive) {
            AcDbObjectId previous;
            project->selectView(ctx.viewId, previous);
        }
        for (std::size_t i = 0; i < objects.size(); ++i) project->setObjectLayers(objects[i], layers[i], ctx.viewId);
        return true;
    });
}

// ===========================================================================
// Function names and help texts

void ZEFTLayerManagerUtil::getAllFunctionNames(AcDbDatabase* db, std::vector<std::wstring>& names)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getAllFunctionNames", {
        if (!db) return;
        ZEFTRuleEvaluator::getPredefinedFunctionNames(names);
        forEachEntry(db, [&](AcDbObject* entry) {
            if (const auto* function = ZEFTRuleFunction::cast(entry)) names.push_back(function->getName());
            return false;
        });
    });
}

void ZEFTLayerManagerUtil::getFunctionHelpStrings(const std::vector<std::wstring>& names,
                                                  std::vector<std::wstring>& helps)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::getFunctionHelpStrings", {
        static const std::pair<const wchar_t*, int> kHelps[] = {
            {L"BUILDING", 17722},  {L"GENERAL TYPE", 17723}, {L"TYPE", 17724},      {L"LEVEL", 17725},
            {L"LEVEL/VIEW", 17726}, {L"PLAN NAME", 17732},   {L"PROJECT", 17727},   {L"PROJECTION", 17728},
            {L"VIEW NAME", 17729}, {L"VIEW TYPE", 17730}};
        for (const std::wstring& name : names) {
            int prompt = 17731;
            for (const auto& [known, id] : kHelps)
                if (name == known) {
                    prompt = id;
                    break;
                }
            helps.push_back(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", prompt));
        }
    });
}

// ===========================================================================
// Deferring the re-layering across commands

void ZEFTLayerManagerUtil::lock(const wchar_t* commandName)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::lock", {
        if (gpLayerManagerEditorReactor) gpLayerManagerEditorReactor->lock(commandName);
    });
}

void ZEFTLayerManagerUtil::unlock(const wchar_t* commandName, AcDbObjectId objectId)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerUtil::unlock", {
        if (gpLayerManagerEditorReactor) gpLayerManagerEditorReactor->unlock(commandName, objectId);
    });
}
