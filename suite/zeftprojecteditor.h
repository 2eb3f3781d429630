// Editing a drawing's project object and mould lists: what `zeftlayer
// project` does, through the host's objects. The layout in the drawing is
// described in docs/project.md.
//
// Every function answers Acad::eOk or a host error status, and checks its
// input before it changes anything: on failure the drawing is as it was.
// Statuses callers meet: eNoDatabase, eNotApplicable (an R12 drawing holds
// no objects), eNotThatKindOfClass ("ZEFT_PROJECT" holds something that is
// not a project, or an id is not an entity), eKeyNotFound (no project, no
// such level or view, an id the drawing does not have), eDuplicateKey (the
// name is taken), eInvalidInput (a name that is empty, longer than 255
// characters or with control characters; texts have the same limits but
// may be empty).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/dbobject.h"

class AcDbDatabase;

enum class ZEFTProjectKind : int { kLevel = 1, kView = 2 };

// What the project record holds.
struct ZEFTProjectSettings {
    std::wstring projectName, buildingName;
    std::int32_t workingMode = -1;  // 0 level, 1 view, another value neither
    bool modelRulesActive = true;
    bool drawingSet = false;
    AcDbObjectId activeView, selectedView;  // null when none
};

// A level or draft view.
struct ZEFTProjectEntry {
    ZEFTProjectKind kind = ZEFTProjectKind::kLevel;
    AcDbObjectId id;
    std::wstring name, viewType, planName;
    AcDbObjectIdArray entities;  // the entities it holds, when asked for
};

// One binding told to setObjectLayers.
struct ZEFTObjectLayers {
    AcDbObjectId object, view;
    AcDbObjectIdArray layers;
};

class ZEFTProjectEditor {
public:
    // --- the project record ---
    // Makes the project record when the drawing has none (eOk when it has one).
    static Acad::ErrorStatus createProject(AcDbDatabase* db);
    static bool hasProject(AcDbDatabase* db);
    static Acad::ErrorStatus getSettings(AcDbDatabase* db, ZEFTProjectSettings& settings);
    // The setters make the project record first when needed.
    static Acad::ErrorStatus setProjectName(AcDbDatabase* db, const std::wstring& name);
    static Acad::ErrorStatus setBuildingName(AcDbDatabase* db, const std::wstring& name);
    static Acad::ErrorStatus setWorkingMode(AcDbDatabase* db, std::int32_t mode);
    static Acad::ErrorStatus setModelRulesActive(AcDbDatabase* db, bool active);
    static Acad::ErrorStatus setDrawingSet(AcDbDatabase* db, bool drawingSet);
    // A level or view of the project, or null for none.
    static Acad::ErrorStatus setActiveView(AcDbDatabase* db, AcDbObjectId viewId);

    // --- levels and draft views (names unique per kind, without regard to case) ---
    static Acad::ErrorStatus addEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name,
                                      const std::wstring& viewType, const std::wstring& planName,
                                      AcDbObjectId* id = nullptr);
    static Acad::ErrorStatus findEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name,
                                       AcDbObjectId& id);
    static Acad::ErrorStatus renameEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name,
                                         const std::wstring& newName);
    // Releases the entities it holds and images that show it, and clears it
    // as active or selected view.
    static Acad::ErrorStatus removeEntry(AcDbDatabase* db, ZEFTProjectKind kind, const std::wstring& name);
    // Levels and views in drawing order; with `withEntities`, the entities
    // each holds (one pass over all entities).
    static Acad::ErrorStatus listEntries(AcDbDatabase* db, std::vector<ZEFTProjectEntry>& entries,
                                         bool withEntities);

    // --- entities ---
    // Puts entities in a level or view (taking them from any other); a null
    // holder releases them.
    static Acad::ErrorStatus assignEntities(AcDbDatabase* db, AcDbObjectId holder, const AcDbObjectIdArray& entities);
    // What an image entity shows (any object of the drawing); null clears it.
    static Acad::ErrorStatus setImageReference(AcDbDatabase* db, AcDbObjectId image, AcDbObjectId shown);
    // (image, shown) pairs of all entities, in drawing order.
    static Acad::ErrorStatus listImageReferences(AcDbDatabase* db,
                                                 std::vector<std::pair<AcDbObjectId, AcDbObjectId>>& refs);

    // --- what the layer manager told the project ---
    static Acad::ErrorStatus registeredLayers(AcDbDatabase* db, AcDbObjectIdArray& layers);
    static Acad::ErrorStatus objectLayers(AcDbDatabase* db, std::vector<ZEFTObjectLayers>& bindings);

    // --- mould lists (any list name; the layer manager reads ZEFTMouldEntities::kListNames) ---
    // Adds the ids the list lacks, in order.
    static Acad::ErrorStatus addMouldEntities(AcDbDatabase* db, const std::wstring& list, const AcDbObjectIdArray& ids);
    // Removes ids from the list; eKeyNotFound (nothing removed) when one is not in it.
    static Acad::ErrorStatus removeMouldEntities(AcDbDatabase* db, const std::wstring& list,
                                                 const AcDbObjectIdArray& ids);
    // The handles of the list as stored, references the drawing lost
    // included; eKeyNotFound when there is no such list.
    static Acad::ErrorStatus mouldList(AcDbDatabase* db, const std::wstring& list, std::vector<AcDbHandle>& handles);
    // Names of the lists the drawing holds.
    static std::vector<std::wstring> mouldListNames(AcDbDatabase* db);
};
