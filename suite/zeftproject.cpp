#include "suite/zeftproject.h"

#include <map>
#include <optional>

#include "host/database.h"
#include "host/document.h"
#include "suite/wybase.h"
#include "suite/zeftprojectformat.h"

using namespace zeft_project;

namespace {

// The project object kept in the drawing. Like any project object it is
// got, asked and released within one operation: the project record and the
// level and view records are read once per object (they are asked for
// several things per entity placed), the list records on every call.
class ZEFTDrawingProject : public ZEFTProjectObject {
public:
    ZEFTDrawingProject(AcDbObjectId dict, AcDbObjectId record) : dict_(dict), record_(record) {}

    bool getWorkingMode(std::int32_t& mode) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getWorkingMode", false, {
            const ProjectData* d = project();
            if (!d) return false;
            mode = d->workingMode;
            return true;
        });
    }

    bool getProjectName(std::wstring& name) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getProjectName", false, {
            const ProjectData* d = project();
            if (!d) return false;
            name = d->projectName;
            return true;
        });
    }

    bool getBuildingName(std::wstring& name) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getBuildingName", false, {
            const ProjectData* d = project();
            if (!d) return false;
            name = d->buildingName;
            return true;
        });
    }

    bool getLevelName(const AcDbObjectId& id, std::wstring& name) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getLevelName", false, {
            AcDbObjectId target = id;
            ViewData v;
            bool known = false;
            if (id.isNull()) {
                const ProjectData* d = project();
                if (!d) return false;
                target = d->activeView;
            } else {
                known = view(id, v);
                if (!known && !holderOf(id, target)) return false;
            }
            if (!known) known = view(target, v);
            name = known && v.kind == kLevel ? v.name : std::wstring();
            return true;
        });
    }

    bool getViewName(const AcDbObjectId& objectId, const AcDbObjectId& viewId, std::wstring& name) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getViewName", false, {
            AcDbObjectId target = viewId;
            if (target.isNull() && !objectId.isNull()) {
                if (!holderOf(objectId, target)) return false;
            } else if (target.isNull()) {
                const ProjectData* d = project();
                if (!d) return false;
                target = d->activeView;
            }
            ViewData v;
            name = view(target, v) && v.kind == kView ? v.name : std::wstring();
            return true;
        });
    }

    bool setObjectLayers(const AcDbObjectId& objectId, const AcDbObjectIdArray& layers,
                         const AcDbObjectId& viewId) override
    {
        ZEFT_GUARD("ZEFTProjectObject::setObjectLayers", false, {
            if (objectId.isNull()) return false;
            AcDbObjectId view = viewId;
            if (view.isNull()) {
                const ProjectData* d = project();
                if (!d) return false;
                view = d->selectedView;
            }
            ResBufList items = {ResBuf::objectId(kPointerCode, objectId)};
            if (!view.isNull()) items.push_back(ResBuf::objectId(kBoundViewCode, view));
            AcDbObjectIdArray bound;
            bound.reserve(layers.size());
            for (const AcDbObjectId& layer : layers)
                if (!layer.isNull()) bound.append(layer);
            return append(kObjectLayersKey, kObjectLayers, items, false, &bound);
        });
    }

    bool getActiveView(AcDbObjectId& viewId) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getActiveView", false, {
            const ProjectData* d = project();
            if (!d) return false;
            ViewData v;
            viewId = view(d->activeView, v) ? d->activeView : AcDbObjectId();
            return true;
        });
    }

    bool getReferencedObject(const AcDbObjectId& imageId, AcDbObjectId& objectId) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getReferencedObject", false, {
            AcDbObjectPointer<AcDbObject> image(imageId, AcDb::kForNotify);
            if (!image) return false;
            AcDbObjectId shown = linkOf(image.object(), kShows);
            if (shown.isNull()) return false;
            objectId = shown;
            return true;
        });
    }

    bool getPlanName(const AcDbObjectId& viewId, std::wstring& name) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getPlanName", false, {
            ViewData v;
            name = view(viewId, v) ? v.planName : std::wstring();
            return true;
        });
    }

    bool getViewOfObject(const AcDbObjectId& objectId, AcDbObjectId& viewId) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getViewOfObject", false, { return holderOf(objectId, viewId); });
    }

    bool getModelRulesActive(bool& active) override
    {
        ZEFT_GUARD("ZEFTProjectObject::getModelRulesActive", false, {
            const ProjectData* d = project();
            if (!d) return false;
            active = d->modelRulesActive;
            return true;
        });
    }

    bool selectView(const AcDbObjectId& viewId, AcDbObjectId& previous) override
    {
        ZEFT_GUARD("ZEFTProjectObject::selectView", false, {
            ViewData v;
            if (!viewId.isNull() && !view(viewId, v)) return false;
            AcDbObjectPointer<AcDbXrecord> rec(record_, AcDb::kForWrite);
            if (!rec) return false;
            ProjectData d;
            if (!parseProject(rec->rbChain(), d)) return false;
            AcDbObjectId before = d.selectedView;
            d.selectedView = viewId;
            cached_.reset();
            if (rec->setFromRbChain(projectChain(d)) != Acad::eOk) return false;
            previous = before;
            return true;
        });
    }

    bool registerLayer(const AcDbObjectId& layerId) override
    {
        ZEFT_GUARD("ZEFTProjectObject::registerLayer", false, {
            if (layerId.isNull()) return false;
            return append(kRegisteredLayersKey, kRegisteredLayers, {ResBuf::objectId(kPointerCode, layerId)}, true);
        });
    }

private:
    // The project record as read once; null when it cannot be read.
    const ProjectData* project() const
    {
        if (!cached_) {
            ResBufList chain;
            ProjectData fresh;
            if (!readChain(record_, chain) || !parseProject(chain, fresh)) return nullptr;
            cached_ = std::move(fresh);
        }
        return &*cached_;
    }

    // A level or view record of this project, as read once.
    bool view(AcDbObjectId id, ViewData& out) const
    {
        auto [it, fresh] = views_.try_emplace(id.stub());
        if (fresh) {
            ViewData v;
            if (readView(id, dict_, v)) it->second = std::move(v);
        }
        if (!it->second) return false;
        out = *it->second;
        return true;
    }

    // The level or view holding `objectId` (null when none); false when
    // the object cannot be read.
    bool holderOf(AcDbObjectId objectId, AcDbObjectId& holder) const
    {
        AcDbObjectPointer<AcDbObject> obj(objectId, AcDb::kForNotify);
        if (!obj) return false;
        AcDbObjectId h = linkOf(obj.object(), kHeldBy);
        obj.close();
        ViewData v;
        holder = view(h, v) ? h : AcDbObjectId();
        return true;
    }

    // Appends items to the list record `key`, made on first use. With
    // `once`, an item already listed is not appended again.
    // Appends items, then one kBoundLayerCode pointer per id of `bound`.
    bool append(const wchar_t* key, Kind kind, const ResBufList& items, bool once,
                const AcDbObjectIdArray* bound = nullptr) const
    {
        AcDbObjectId id;
        {
            AcDbObjectPointer<AcDbDictionary> dict(dict_, AcDb::kForNotify);
            if (!dict) return false;
            if (dict->getAt(key, id) != Acad::eOk) {
                dict.close();
                AcDbObjectPointer<AcDbDictionary> writable(dict_, AcDb::kForWrite);
                if (!writable) return false;
                AcDbObjectPointer<AcDbXrecord> rec(new AcDbXrecord);
                rec->setFromRbChain({ResBuf::int16(kKindCode, std::int16_t(kind))});
                if (writable->setAt(key, rec.object(), id) != Acad::eOk) return false;
            }
        }
        AcDbObjectPointer<AcDbXrecord> rec(id, AcDb::kForWrite);
        if (!rec) return false;
        if (once)
            for (const ResBuf& item : rec->rbChain())
                if (item.restype == kPointerCode && item.handle == items.front().handle) return true;
        return rec->appendRbChain(items) == Acad::eOk &&
               (!bound || rec->hostAppendPointers(kBoundLayerCode, *bound) == Acad::eOk);
    }

    AcDbObjectId dict_, record_;
    mutable std::optional<ProjectData> cached_;
    mutable std::map<const AcDbStub*, std::optional<ViewData>> views_;
};

}  // namespace

std::unique_ptr<ZEFTProjectObject> zeftGetProjectObject(AcDbDatabase* db)
{
    ZEFT_GUARD("zeftGetProjectObject", std::unique_ptr<ZEFTProjectObject>(), {
        if (!db) db = acdbWorkingDatabase();
        AcDbObjectId dict = namedEntry(db, kDictionary);
        AcDbObjectId record = projectRecordOf(dict);
        if (record.isNull()) return std::unique_ptr<ZEFTProjectObject>();
        return std::unique_ptr<ZEFTProjectObject>(std::make_unique<ZEFTDrawingProject>(dict, record));
    });
}
