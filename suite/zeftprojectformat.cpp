#include "suite/zeftprojectformat.h"

#include "host/database.h"
#include "host/dxf/codec.h"

namespace zeft_project {

namespace {

// A pointer the drawing still has an object for.
AcDbObjectId live(const ResBuf& item)
{
    return item.id.isValid() && !item.id.isErased() ? item.id : AcDbObjectId();
}

}  // namespace

int kindOf(const ResBufList& chain)
{
    return !chain.empty() && chain.front().restype == kKindCode ? int(chain.front().rint()) : -1;
}

bool parseProject(const ResBufList& chain, ProjectData& out)
{
    if (kindOf(chain) != kProject) return false;
    ProjectData d;
    for (const ResBuf& item : chain) {
        switch (item.restype) {
        case kTextCode: d.projectName = item.str; break;
        case kSecondTextCode: d.buildingName = item.str; break;
        case kModeCode: d.workingMode = item.rlong(); break;
        case kModelRulesCode: d.modelRulesActive = item.integer != 0; break;
        case kDrawingSetCode: d.drawingSet = item.integer != 0; break;
        case kActiveCode: d.activeView = live(item); break;
        case kSelectedCode: d.selectedView = live(item); break;
        default: break;
        }
    }
    out = std::move(d);
    return true;
}

ResBufList projectChain(const ProjectData& d)
{
    ResBufList chain = {ResBuf::int16(kKindCode, kProject), ResBuf::text(kTextCode, d.projectName),
                        ResBuf::text(kSecondTextCode, d.buildingName), ResBuf::int32(kModeCode, d.workingMode),
                        ResBuf::int16(kModelRulesCode, d.modelRulesActive ? 1 : 0)};
    // Written only when set, so that projects that are not drawing sets keep their records as they were.
    if (d.drawingSet) chain.push_back(ResBuf::int16(kDrawingSetCode, 1));
    if (!d.activeView.isNull()) chain.push_back(ResBuf::objectId(kActiveCode, d.activeView));
    if (!d.selectedView.isNull()) chain.push_back(ResBuf::objectId(kSelectedCode, d.selectedView));
    return chain;
}

bool parseView(const ResBufList& chain, ViewData& out)
{
    int kind = kindOf(chain);
    if (kind != kLevel && kind != kView) return false;
    ViewData d;
    d.kind = kind;
    for (const ResBuf& item : chain) {
        switch (item.restype) {
        case kTextCode: d.name = item.str; break;
        case kSecondTextCode: d.viewType = item.str; break;
        case kPlanCode: d.planName = item.str; break;
        default: break;
        }
    }
    out = std::move(d);
    return true;
}

ResBufList viewChain(const ViewData& d)
{
    return {ResBuf::int16(kKindCode, std::int16_t(d.kind)), ResBuf::text(kTextCode, d.name),
            ResBuf::text(kSecondTextCode, d.viewType), ResBuf::text(kPlanCode, d.planName)};
}

AcDbObjectId namedEntry(AcDbDatabase* db, const wchar_t* key)
{
    if (!db) return {};
    AcDbObjectPointer<AcDbDictionary> nod(db->namedObjectsDictionaryId(), AcDb::kForNotify);
    AcDbObjectId id;
    if (nod) nod->getAt(key, id);
    return id;
}

AcDbObjectId projectRecordOf(AcDbObjectId dictId)
{
    AcDbObjectPointer<AcDbDictionary> dict(dictId, AcDb::kForNotify);
    if (!dict) return {};
    AcDbObjectId first = dict->firstEntryId();
    dict.close();
    ResBufList chain;
    return readChain(first, chain) && kindOf(chain) == kProject ? first : AcDbObjectId();
}

bool readChain(AcDbObjectId id, ResBufList& chain)
{
    AcDbObjectPointer<AcDbXrecord> rec(id, AcDb::kForNotify);
    if (!rec) return false;
    chain = rec->rbChain();
    return true;
}

bool readView(AcDbObjectId id, AcDbObjectId dictId, ViewData& out)
{
    AcDbObjectPointer<AcDbXrecord> rec(id, AcDb::kForNotify);
    if (!rec || dictId.isNull() || rec->ownerId() != dictId) return false;
    return parseView(rec->rbChain(), out);
}

AcDbObjectId linkOf(const AcDbObject* entity, const wchar_t* label)
{
    // Asked of every entity a job re-layers: read in place from the record
    // when the group is there under its exact name, as it almost always is.
    static const std::string app = dxf::toUtf8(kApplication);
    const std::string wanted = dxf::toUtf8(label);
    bool exact = false, inGroup = false, afterLabel = false;
    AcDbHandle handle;
    entity->record().scan([&](int code, std::string_view v) {
        if (code == 1001) {
            inGroup = v == app;
            exact = exact || inGroup;
            afterLabel = false;
            return true;
        }
        if (!inGroup) return true;
        if (afterLabel && code == 1005) {
            AcDbHandle::parse(v, handle);
            return false;
        }
        afterLabel = code == 1000 && v == wanted;
        return true;
    });
    if (exact) {
        AcDbDatabase* db = entity->database();
        if (handle.isNull() || !db) return {};
        const AcDbObjectId id = db->idOf(handle);
        return id.isValid() && !id.isErased() ? id : AcDbObjectId();
    }
    ResBufList group = entity->xData(kApplication);
    for (std::size_t i = 1; i + 1 < group.size(); ++i)
        if (group[i].restype == 1000 && group[i].str == label && group[i + 1].restype == 1005)
            return live(group[i + 1]);
    return {};
}

ResBufList withLink(const AcDbObject* entity, const wchar_t* label, AcDbObjectId target)
{
    ResBufList group = entity->xData(kApplication);
    ResBufList out = {ResBuf::text(1001, kApplication)};
    for (std::size_t i = 1; i < group.size(); ++i) {
        if (group[i].restype == 1000 && group[i].str == label) {
            if (i + 1 < group.size() && group[i + 1].restype == 1005) ++i;
            continue;
        }
        out.push_back(group[i]);
    }
    if (!target.isNull()) {
        out.push_back(ResBuf::text(1000, label));
        out.push_back(ResBuf::objectId(1005, target));
    }
    return out;
}

}  // namespace zeft_project
