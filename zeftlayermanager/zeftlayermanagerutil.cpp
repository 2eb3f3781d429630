#include "zeftlayermanager/zeftlayermanagerutil.h"

#include <algorithm>
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
#include "zeftlayermanager/zeftfilerw.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

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
        AcDbObjectId id;
        if (ZEFTDatabaseTools::getFromDictionary(kDictionaryName, kStandardKey, id, db) != Acad::eOk) return AcDbObjectId();
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
        AcDbObjectPointer<ZEFTLayerStandard> standard(getStandardFromDictionary(db), AcDb::kForRead);
        if (!standard) return std::wstring(L"_");
        return standard->getSeparator();
    });
}

bool ZEFTLayerManagerUtil::getRuleFromDictionary(AcDbDatabase* db, const ApplicationContext& ctx,
                                                 std::vector<RuleField>& fields)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getRuleFromDictionary", false, {
        if (!db) return false;
        AcDbObjectPointer<ZEFTLayerStandard> standard(getStandardFromDictionary(db), AcDb::kForRead);
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
    });
}

AcDbObjectId ZEFTLayerManagerUtil::getExceptionFromDictionary(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getExceptionFromDictionary", AcDbObjectId(), {
        AcDbObjectId found;
        if (!db) return found;
        forEachEntry(db, [&](AcDbObject* entry) {
            if (!ZEFTRuleException::cast(entry)) return false;
            found = entry->objectId();
            return true;
        });
        return found;
    });
}

AcDbObjectId ZEFTLayerManagerUtil::getFunctionFromDictionary(AcDbDatabase* db, const std::wstring& name)
{
    ZEFT_GUARD("ZEFTLayerManagerUtil::getFunctionFromDictionary", AcDbObjectId(), {
        AcDbObjectId found;
        if (!db) return found;
        forEachEntry(db, [&](AcDbObject* entry) {
            const ZEFTRuleFunction* function = ZEFTRuleFunction::cast(entry);
            if (!function || function->getName() != name) return false;
            found = entry->objectId();
            return true;
        });
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
                // The preview standard is detached, not erased, as the drawing's own was kept.
                dict->remove(kStandardKey);
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
