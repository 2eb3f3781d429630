// The suite's project object: what the project knows about a drawing (its
// project and building, the working mode, levels and draft views, which
// entities each holds, the active view, what image entities show) and what
// it is told of layer changes.
//
// Every operation answers true on success and false on failure; outputs are
// left untouched on failure. Ids given may be null where noted.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/dbobject.h"

class AcDbDatabase;

class ZEFTProjectObject {
public:
    virtual ~ZEFTProjectObject() = default;

    // 0 = working on a level, 1 = working in a view, another value = neither.
    virtual bool getWorkingMode(std::int32_t& mode) = 0;
    virtual bool getProjectName(std::wstring& name) = 0;
    virtual bool getBuildingName(std::wstring& name) = 0;
    // The name of the level `id` is (or holds `id`); with a null id, of the
    // active view when that is a level. Empty when there is no such level.
    virtual bool getLevelName(const AcDbObjectId& id, std::wstring& name) = 0;
    // The name of draft view `viewId`; with a null view, of the view holding
    // `objectId`; with both null, of the active view when that is a view.
    // Empty when there is no such view.
    virtual bool getViewName(const AcDbObjectId& objectId, const AcDbObjectId& viewId, std::wstring& name) = 0;
    // Records that `objectId` is bound to `layers` in `viewId` (may be null).
    virtual bool setObjectLayers(const AcDbObjectId& objectId, const AcDbObjectIdArray& layers,
                                 const AcDbObjectId& viewId) = 0;
    // The current level or draft view; null when none is active.
    virtual bool getActiveView(AcDbObjectId& viewId) = 0;
    // The object an image entity shows; fails when it shows none.
    virtual bool getReferencedObject(const AcDbObjectId& imageId, AcDbObjectId& objectId) = 0;
    // The plan (layout) name of a level or view; empty when it has none.
    virtual bool getPlanName(const AcDbObjectId& viewId, std::wstring& name) = 0;
    // The level or draft view holding the object; null when none holds it.
    virtual bool getViewOfObject(const AcDbObjectId& objectId, AcDbObjectId& viewId) = 0;
    virtual bool getModelRulesActive(bool& active) = 0;
    // Makes `viewId` the view whose layer bindings the next setObjectLayers
    // calls report; `previous` receives the view selected before.
    virtual bool selectView(const AcDbObjectId& viewId, AcDbObjectId& previous) = 0;
    // Records a layer the layer manager has just created.
    virtual bool registerLayer(const AcDbObjectId& layerId) = 0;
};

// The project object of a drawing: the first entry of the named-object
// dictionary entry "ZEFT_PROJECT" (the working database when db is null).
// Null when the drawing has none; the caller owns (releases) it.
std::unique_ptr<ZEFTProjectObject> zeftGetProjectObject(AcDbDatabase* db = nullptr);
