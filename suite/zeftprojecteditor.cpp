#include "suite/zeftprojecteditor.h"

#include <algorithm>
#include <map>

#include "host/database.h"
#include "suite/wybase.h"
#include "suite/zeftdatabasetools.h"
#include "suite/zeftprojectformat.h"

using namespace zeft_project;
using Acad::eOk;
using Status = Acad::ErrorStatus;

namespace {

bool validText(const std::wstring& s)
{
    return s.size() <= 255 && std::none_of(s.begin(), s.end(), [](wchar_t c) { return c < 0x20 || c == 0x7F; });
}

bool validName(const std::wstring& s)
{
    return validText(s) && s.find_first_not_of(L' ') != std::wstring::npos;
}

// Levels and views share the project dictionary: the key keeps the two
// kinds apart and makes a name unique within its kind.
std::wstring keyOf(ZEFTProjectKind kind, const std::wstring& name)
{
    return (kind == ZEFTProjectKind::kLevel ? L"LEVEL:" : L"VIEW:") + name;
}

struct Project {
    AcDbObjectId dict, record;
};

Status findProject(AcDbDatabase* db, Project& p)
{
    if (!db) return Acad::eNoDatabase;
    AcDbObjectId entry = namedEntry(db, kDictionary);
    if (entry.isNull()) return Acad::eKeyNotFound;
    AcDbObjectPointer<AcDbDictionary> dict(entry, AcDb::kForNotify);
    if (!dict) return Acad::eNotThatKindOfClass;
    AcDbObjectId first = dict->firstEntryId();
    dict.close();
    if (first.isNull()) return Acad::eKeyNotFound;  // an empty dictionary holds no project yet
    if (projectRecordOf(entry).isNull()) return Acad::eNotThatKindOfClass;
    p = {entry, first};
    return eOk;
}

Status ensureProject(AcDbDatabase* db, Project& p)
{
    Status es = findProject(db, p);
    if (es != Acad::eKeyNotFound) return es;
    if (db->isR12OrOlder() || db->namedObjectsDictionaryId().isNull()) return Acad::eNotApplicable;
    AcDbObjectPointer<AcDbDictionary> dict;
    dict.open(namedEntry(db, kDictionary), AcDb::kForWrite);
    if (!dict) {
        AcDbDictionary* made = ZEFTDatabaseTools::openDictionary(kDictionary, AcDb::kForWrite, db,
                                                                 ZEFTDatabaseTools::kCreateIfMissing);
        if (!made) return Acad::eNotApplicable;
        AcDbObjectId madeId = made->objectId();
        made->close();
        if (dict.open(madeId, AcDb::kForWrite) != eOk) return dict.openStatus();
    }
    AcDbObjectPointer<AcDbXrecord> rec(new AcDbXrecord);
    rec->setFromRbChain(projectChain(ProjectData()));
    AcDbObjectId id;
    if ((es = dict->setAt(kProjectKey, rec.object(), id)) != eOk) return es;
    p = {dict->objectId(), id};
    return eOk;
}

template <class F>
Status updateProject(AcDbDatabase* db, F&& change)
{
    Project p;
    Status es = ensureProject(db, p);
    if (es != eOk) return es;
    AcDbObjectPointer<AcDbXrecord> rec(p.record, AcDb::kForWrite);
    if (!rec) return rec.openStatus();
    ProjectData d;
    if (!parseProject(rec->rbChain(), d)) return Acad::eNotThatKindOfClass;
    change(d);
    return rec->setFromRbChain(projectChain(d));
}

// A live object of the drawing; an entity when `entity`.
Status checkObject(AcDbDatabase* db, AcDbObjectId id, bool entity)
{
    if (id.isNull() || id.database() != db || !id.isValid() || id.isErased()) return Acad::eKeyNotFound;
    if (entity && !AcDbEntity::cast(id.object())) return Acad::eNotThatKindOfClass;
    return eOk;
}

// Every entity of every block record, in drawing order.
template <class F>
void forEachEntity(AcDbDatabase* db, F&& fn)
{
    for (AcDbObjectId btrId : db->blockRecordIds()) {
        AcDbObjectPointer<AcDbBlockTableRecord> btr(btrId, AcDb::kForNotify);
        if (!btr) continue;
        std::vector<AcDbObjectId> ids = btr->entityIds();
        btr.close();
        for (AcDbObjectId id : ids) {
            AcDbObjectPointer<AcDbEntity> ent(id, AcDb::kForNotify);
            if (ent) fn(id, ent.object());
        }
    }
}

Status setLink(AcDbObjectId entity, const wchar_t* label, AcDbObjectId target)
{
    AcDbObjectPointer<AcDbObject> obj(entity, AcDb::kForWrite);
    if (!obj) return obj.openStatus();
    // Clearing always writes: a link to an erased record no longer reads as one.
    if (!target.isNull() && linkOf(obj.object(), label) == target) return eOk;
    return obj->setXData(withLink(obj.object(), label, target));
}

// Opens list record `key` of the project for write, made when missing.
Status listRecord(AcDbObjectId dictId, const wchar_t* key, AcDbObjectPointer<AcDbXrecord>& rec, ResBufList* made)
{
    AcDbObjectPointer<AcDbDictionary> dict(dictId, AcDb::kForWrite);
    if (!dict) return dict.openStatus();
    AcDbObjectId id;
    if (dict->getAt(key, id) != eOk) {
        if (!made) return Acad::eKeyNotFound;
        AcDbObjectPointer<AcDbXrecord> fresh(new AcDbXrecord);
        fresh->setFromRbChain(*made);
        Status es = dict->setAt(key, fresh.object(), id);
        if (es != eOk) return es;
    }
    dict.close();
    return rec.open(id, AcDb::kForWrite);
}

AcDbObjectId mouldLists(AcDbDatabase* db) { return namedEntry(db, kMouldDictionary); }

}  // namespace

// --- the project record ---

Status ZEFTProjectEditor::createProject(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTProjectEditor::createProject", Status(Acad::eInvalidInput), {
        Project p;
        return ensureProject(db, p);
    });
}

bool ZEFTProjectEditor::hasProject(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTProjectEditor::hasProject", false, {
        Project p;
        return findProject(db, p) == eOk;
    });
}

Status ZEFTProjectEditor::getSettings(AcDbDatabase* db, ZEFTProjectSettings& settings)
{
    ZEFT_GUARD("ZEFTProjectEditor::getSettings", Status(Acad::eInvalidInput), {
        Project p;
        Status es = findProject(db, p);
        if (es != eOk) return es;
        ResBufList chain;
        ProjectData d;
        if (!readChain(p.record, chain) || !parseProject(chain, d)) return Acad::eNotThatKindOfClass;
        settings = {d.projectName, d.buildingName, d.workingMode, d.modelRulesActive, d.drawingSet, d.activeView,
                    d.selectedView};
        return eOk;
    });
}

Status ZEFTProjectEditor::setProjectName(AcDbDatabase* db, const std::wstring& name)
{
    ZEFT_GUARD("ZEFTProjectEditor::setProjectName", Status(Acad::eInvalidInput), {
        if (!validText(name)) return Acad::eInvalidInput;
        return updateProject(db, [&](ProjectData& d) { d.projectName = name; });
    });
}

Status ZEFTProjectEditor::setBuildingName(AcDbDatabase* db, const std::wstring& name)
{
    ZEFT_GUARD("ZEFTProjectEditor::setBuildingName", Status(Acad::eInvalidInput), {
        if (!validText(name)) return Acad::eInvalidInput;
        return updateProject(db, [&](ProjectData& d) { d.buildingName = name; });
    });
}

Status ZEFTProjectEditor::setWorkingMode(AcDbDatabase* db, std::int32_t mode)
{
    ZEFT_GUARD("ZEFTProjectEditor::setWorkingMode", Status(Acad::eInvalidInput),
               { return updateProject(db, [&](ProjectData& d) { d.workingMode = mode; }); });
}

Status ZEFTProjectEditor::setModelRulesActive(AcDbDatabase* db, bool active)
{
    ZEFT_GUARD("ZEFTProjectEditor::setModelRulesActive", Status(Acad::eInvalidInput),
               { return updateProject(db, [&](ProjectData& d) { d.modelRulesActive = active; }); });
}

Status ZEFTProjectEditor::setDrawingSet(AcDbDatabase* db, bool drawingSet)
{
    ZEFT_GUARD("ZEFTProjectEditor::setDrawingSet", Status(Acad::eInvalidInput),
               { return updateProject(db, [&](ProjectData& d) { d.drawingSet = drawingSet; }); });
}

Status ZEFTProjectEditor::setActiveView(AcDbDatabase* db, AcDbObjectId viewId)
{
    ZEFT_GUARD("ZEFTProjectEditor::setActiveView", Status(Acad::eInvalidInput), {
        if (!viewId.isNull()) {
            Project p;
            ViewData v;
            if (findProject(db, p) != eOk || !readView(viewId, p.dict, v)) return Acad::eKeyNotFound;
        }
        return updateProject(db, [&](ProjectData& d) { d.activeView = viewId; });
    });
}

// --- levels and views ---

Status ZEFTProjectEditor::addEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name,
                                   const std::wstring& viewType, const std::wstring& planName, AcDbObjectId* id)
{
    ZEFT_GUARD("ZEFTProjectEditor::addEntry", Status(Acad::eInvalidInput), {
        if (!validName(name) || !validText(viewType) || !validText(planName)) return Acad::eInvalidInput;
        AcDbObjectId existing;
        if (findEntry(db, kind, name, existing) == eOk) return Acad::eDuplicateKey;
        Project p;
        Status es = ensureProject(db, p);
        if (es != eOk) return es;
        AcDbObjectPointer<AcDbDictionary> dict(p.dict, AcDb::kForWrite);
        if (!dict) return dict.openStatus();
        AcDbObjectPointer<AcDbXrecord> rec(new AcDbXrecord);
        rec->setFromRbChain(viewChain({int(kind), name, viewType, planName}));
        AcDbObjectId made;
        if ((es = dict->setAt(keyOf(kind, name).c_str(), rec.object(), made)) != eOk) return es;
        if (id) *id = made;
        return eOk;
    });
}

Status ZEFTProjectEditor::findEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name, AcDbObjectId& id)
{
    ZEFT_GUARD("ZEFTProjectEditor::findEntry", Status(Acad::eInvalidInput), {
        Project p;
        Status es = findProject(db, p);
        if (es != eOk) return es;
        AcDbObjectPointer<AcDbDictionary> dict(p.dict, AcDb::kForNotify);
        AcDbObjectId found;
        ViewData v;
        if (!dict || dict->getAt(keyOf(kind, name).c_str(), found) != eOk || !readView(found, p.dict, v) ||
            v.kind != int(kind))
            return Acad::eKeyNotFound;
        id = found;
        return eOk;
    });
}

Status ZEFTProjectEditor::renameEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name,
                                      const std::wstring& newName)
{
    ZEFT_GUARD("ZEFTProjectEditor::renameEntry", Status(Acad::eInvalidInput), {
        if (!validName(newName)) return Acad::eInvalidInput;
        AcDbObjectId id, other;
        Status es = findEntry(db, kind, name, id);
        if (es != eOk) return es;
        if (findEntry(db, kind, newName, other) == eOk && other != id) return Acad::eDuplicateKey;
        Project p;
        findProject(db, p);
        AcDbObjectPointer<AcDbDictionary> dict(p.dict, AcDb::kForWrite);
        AcDbObjectPointer<AcDbXrecord> rec(id, AcDb::kForWrite);
        if (!dict || !rec) return Acad::eWasOpenForWrite;
        ViewData v;
        parseView(rec->rbChain(), v);
        if (!dict->setName(keyOf(kind, name).c_str(), keyOf(kind, newName).c_str())) return Acad::eDuplicateKey;
        v.name = newName;
        return rec->setFromRbChain(viewChain(v));
    });
}

Status ZEFTProjectEditor::removeEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name)
{
    ZEFT_GUARD("ZEFTProjectEditor::removeEntry", Status(Acad::eInvalidInput), {
        AcDbObjectId id;
        Status es = findEntry(db, kind, name, id);
        if (es != eOk) return es;
        // Links are found before the record goes: afterwards they no longer resolve.
        std::vector<std::pair<AcDbObjectId, const wchar_t*>> links;
        forEachEntity(db, [&](AcDbObjectId ent, const AcDbEntity* e) {
            for (const wchar_t* label : {kHeldBy, kShows})
                if (linkOf(e, label) == id) links.push_back({ent, label});
        });
        {
            AcDbObjectPointer<AcDbXrecord> rec(id, AcDb::kForWrite);
            if (!rec) return rec.openStatus();
            if ((es = rec->erase()) != eOk) return es;
        }
        for (auto& [ent, label] : links)
            if ((es = setLink(ent, label, AcDbObjectId())) != eOk) return es;
        // Rewriting the project record drops its pointers to the erased record: they read as null.
        return updateProject(db, [](ProjectData&) {});
    });
}

Status ZEFTProjectEditor::listEntries(AcDbDatabase* db, std::vector<ZEFTProjectEntry>& entries, bool withEntities)
{
    ZEFT_GUARD("ZEFTProjectEditor::listEntries", Status(Acad::eInvalidInput), {
        Project p;
        Status es = findProject(db, p);
        if (es != eOk) return es;
        std::vector<ZEFTProjectEntry> out;
        std::map<AcDbObjectId, std::size_t> index;
        {
            AcDbObjectPointer<AcDbDictionary> dict(p.dict, AcDb::kForNotify);
            if (!dict) return dict.openStatus();
            for (const auto& e : dict->entries()) {
                ViewData v;
                if (!readView(e.id, p.dict, v)) continue;
                index[e.id] = out.size();
                out.push_back({ZEFTProjectKind(v.kind), e.id, v.name, v.viewType, v.planName, {}});
            }
        }
        if (withEntities)
            forEachEntity(db, [&](AcDbObjectId ent, const AcDbEntity* e) {
                auto it = index.find(linkOf(e, kHeldBy));
                if (it != index.end()) out[it->second].entities.append(ent);
            });
        entries = std::move(out);
        return eOk;
    });
}

// --- entities ---

Status ZEFTProjectEditor::assignEntities(AcDbDatabase* db, AcDbObjectId holder, const AcDbObjectIdArray& entities)
{
    ZEFT_GUARD("ZEFTProjectEditor::assignEntities", Status(Acad::eInvalidInput), {
        if (!db) return Acad::eNoDatabase;
        if (!holder.isNull()) {
            Project p;
            ViewData v;
            if (findProject(db, p) != eOk || !readView(holder, p.dict, v)) return Acad::eKeyNotFound;
        }
        for (const AcDbObjectId& id : entities)
            if (Status es = checkObject(db, id, true); es != eOk) return es;
        if (!holder.isNull() && !acdbRegApp(db, kApplication)) return Acad::eNotApplicable;
        for (const AcDbObjectId& id : entities)
            if (Status es = setLink(id, kHeldBy, holder); es != eOk) return es;
        return eOk;
    });
}

Status ZEFTProjectEditor::setImageReference(AcDbDatabase* db, AcDbObjectId image, AcDbObjectId shown)
{
    ZEFT_GUARD("ZEFTProjectEditor::setImageReference", Status(Acad::eInvalidInput), {
        if (!db) return Acad::eNoDatabase;
        if (Status es = checkObject(db, image, true); es != eOk) return es;
        if (!shown.isNull())
            if (Status es = checkObject(db, shown, false); es != eOk) return es;
        if (!shown.isNull() && !acdbRegApp(db, kApplication)) return Acad::eNotApplicable;
        return setLink(image, kShows, shown);
    });
}

Status ZEFTProjectEditor::listImageReferences(AcDbDatabase* db,
                                              std::vector<std::pair<AcDbObjectId, AcDbObjectId>>& refs)
{
    ZEFT_GUARD("ZEFTProjectEditor::listImageReferences", Status(Acad::eInvalidInput), {
        if (!db) return Acad::eNoDatabase;
        std::vector<std::pair<AcDbObjectId, AcDbObjectId>> out;
        forEachEntity(db, [&](AcDbObjectId ent, const AcDbEntity* e) {
            if (AcDbObjectId shown = linkOf(e, kShows); !shown.isNull()) out.push_back({ent, shown});
        });
        refs = std::move(out);
        return eOk;
    });
}

// --- what the layer manager told ---

Status ZEFTProjectEditor::registeredLayers(AcDbDatabase* db, AcDbObjectIdArray& layers)
{
    ZEFT_GUARD("ZEFTProjectEditor::registeredLayers", Status(Acad::eInvalidInput), {
        Project p;
        Status es = findProject(db, p);
        if (es != eOk) return es;
        AcDbObjectIdArray out;
        ResBufList chain;
        AcDbObjectId id;
        AcDbObjectPointer<AcDbDictionary> dict(p.dict, AcDb::kForNotify);
        if (dict && dict->getAt(kRegisteredLayersKey, id) == eOk && readChain(id, chain))
            for (const ResBuf& item : chain)
                if (item.restype == kPointerCode && !item.id.isNull()) out.append(item.id);
        layers = std::move(out);
        return eOk;
    });
}

Status ZEFTProjectEditor::objectLayers(AcDbDatabase* db, std::vector<ZEFTObjectLayers>& bindings)
{
    ZEFT_GUARD("ZEFTProjectEditor::objectLayers", Status(Acad::eInvalidInput), {
        Project p;
        Status es = findProject(db, p);
        if (es != eOk) return es;
        std::vector<ZEFTObjectLayers> out;
        ResBufList chain;
        AcDbObjectId id;
        AcDbObjectPointer<AcDbDictionary> dict(p.dict, AcDb::kForNotify);
        if (dict && dict->getAt(kObjectLayersKey, id) == eOk && readChain(id, chain))
            for (const ResBuf& item : chain) {
                if (item.restype == kPointerCode) out.push_back({item.id, {}, {}});
                else if (out.empty()) continue;
                else if (item.restype == kBoundViewCode) out.back().view = item.id;
                else if (item.restype == kBoundLayerCode) out.back().layers.append(item.id);
            }
        bindings = std::move(out);
        return eOk;
    });
}

// --- mould lists ---

Status ZEFTProjectEditor::addMouldEntities(AcDbDatabase* db, const std::wstring& list, const AcDbObjectIdArray& ids)
{
    ZEFT_GUARD("ZEFTProjectEditor::addMouldEntities", Status(Acad::eInvalidInput), {
        if (!db) return Acad::eNoDatabase;
        if (!validName(list)) return Acad::eInvalidInput;
        for (const AcDbObjectId& id : ids)
            if (Status es = checkObject(db, id, false); es != eOk) return es;
        if (db->isR12OrOlder()) return Acad::eNotApplicable;
        if (AcDbObjectId lists = mouldLists(db); !lists.isNull() && !AcDbDictionary::cast(lists.object()))
            return Acad::eNotThatKindOfClass;
        AcDbDictionary* dict = ZEFTDatabaseTools::openDictionary(kMouldDictionary, AcDb::kForWrite, db,
                                                                 ZEFTDatabaseTools::kCreateIfMissing);
        if (!dict) return Acad::eNotApplicable;
        AcDbObjectId dictId = dict->objectId();
        dict->close();
        AcDbObjectPointer<AcDbXrecord> rec;
        ResBufList empty;
        Status es = listRecord(dictId, list.c_str(), rec, &empty);
        if (es != eOk) return es;
        ResBufList chain = rec->rbChain();
        for (const AcDbObjectId& id : ids)
            if (std::none_of(chain.begin(), chain.end(), [&](const ResBuf& r) { return r.handle == id.handle(); }))
                chain.push_back(ResBuf::objectId(kPointerCode, id));
        return rec->setFromRbChain(chain);
    });
}

Status ZEFTProjectEditor::removeMouldEntities(AcDbDatabase* db, const std::wstring& list, const AcDbObjectIdArray& ids)
{
    ZEFT_GUARD("ZEFTProjectEditor::removeMouldEntities", Status(Acad::eInvalidInput), {
        if (!db) return Acad::eNoDatabase;
        AcDbObjectPointer<AcDbXrecord> rec;
        Status es = listRecord(mouldLists(db), list.c_str(), rec, nullptr);
        if (es != eOk) return es == Acad::eNullObjectId ? Acad::eKeyNotFound : es;
        ResBufList chain = rec->rbChain();
        for (const AcDbObjectId& id : ids)
            if (std::none_of(chain.begin(), chain.end(), [&](const ResBuf& r) { return r.handle == id.handle(); }))
                return Acad::eKeyNotFound;
        std::erase_if(chain, [&](const ResBuf& r) {
            return std::any_of(ids.begin(), ids.end(), [&](const AcDbObjectId& id) { return r.handle == id.handle(); });
        });
        return rec->setFromRbChain(chain);
    });
}

Status ZEFTProjectEditor::mouldList(AcDbDatabase* db, const std::wstring& list, std::vector<AcDbHandle>& handles)
{
    ZEFT_GUARD("ZEFTProjectEditor::mouldList", Status(Acad::eInvalidInput), {
        if (!db) return Acad::eNoDatabase;
        AcDbObjectPointer<AcDbDictionary> dict(mouldLists(db), AcDb::kForNotify);
        AcDbObjectId id;
        ResBufList chain;
        if (!dict || dict->getAt(list.c_str(), id) != eOk || !readChain(id, chain)) return Acad::eKeyNotFound;
        std::vector<AcDbHandle> out;
        for (const ResBuf& item : chain)
            if (item.restype == kPointerCode) out.push_back(item.handle);
        handles = std::move(out);
        return eOk;
    });
}

std::vector<std::wstring> ZEFTProjectEditor::mouldListNames(AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTProjectEditor::mouldListNames", std::vector<std::wstring>(), {
        std::vector<std::wstring> names;
        AcDbObjectPointer<AcDbDictionary> dict(mouldLists(db), AcDb::kForNotify);
        if (dict)
            for (const auto& e : dict->entries()) names.push_back(e.key);
        return names;
    });
}
