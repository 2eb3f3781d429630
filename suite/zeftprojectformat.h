// How the project object and the mould lists sit in a drawing (docs/project.md):
// names, group codes, and the readers and writers of the records. Shared
// by the project object, the mould lists and the editor; not for modules.
#pragma once

#include <cstdint>
#include <string>

#include "host/dbclasses.h"

namespace zeft_project {

inline constexpr const wchar_t* kDictionary = L"ZEFT_PROJECT";   // named-object dictionary entry
inline constexpr const wchar_t* kApplication = L"ZEFT_PROJECT";  // extended data of entities
inline constexpr const wchar_t* kProjectKey = L"PROJECT";
inline constexpr const wchar_t* kRegisteredLayersKey = L"REGISTERED_LAYERS";
inline constexpr const wchar_t* kObjectLayersKey = L"OBJECT_LAYERS";
inline constexpr const wchar_t* kMouldDictionary = L"ZEFT_MOULD_LISTS";
// Labels of the entity's extended data items.
inline constexpr const wchar_t* kHeldBy = L"HELD_BY";
inline constexpr const wchar_t* kShows = L"SHOWS";

// The first data item of every record of the project dictionary: 70 kind.
enum Kind : int { kProject = 0, kLevel = 1, kView = 2, kRegisteredLayers = 3, kObjectLayers = 4 };
enum Code : short {
    kKindCode = 70,
    kTextCode = 300,         // project name; level or view name
    kSecondTextCode = 301,   // building name; view type
    kPlanCode = 302,         // plan name of a level or view
    kModeCode = 90,
    kModelRulesCode = 290,
    kDrawingSetCode = 291,   // project: the drawing is a drawing set
    kActiveCode = 340,       // project: active view
    kSelectedCode = 341,     // project: view chosen by selectView
    kPointerCode = 340,      // lists: one entry (layer, mould entity, bound object)
    kBoundViewCode = 341,    // object layers: the view of the binding before it
    kBoundLayerCode = 331,   // object layers: a layer of the binding
};

struct ProjectData {
    std::wstring projectName, buildingName;
    std::int32_t workingMode = -1;
    bool modelRulesActive = true;
    bool drawingSet = false;
    AcDbObjectId activeView, selectedView;  // null when absent or not in the drawing
};

struct ViewData {
    int kind = kLevel;
    std::wstring name, viewType, planName;
};

// The kind of a record's data (its leading 70), or -1.
int kindOf(const ResBufList& chain);
bool parseProject(const ResBufList& chain, ProjectData& out);
ResBufList projectChain(const ProjectData& data);
bool parseView(const ResBufList& chain, ViewData& out);
ResBufList viewChain(const ViewData& data);

// Reading opens for notify, so that what callers hold open does not matter.
// The entry `key` of the named-object dictionary, or null.
AcDbObjectId namedEntry(AcDbDatabase* db, const wchar_t* key);
// The project record of the project dictionary `dictId`: its first entry,
// when that is an Xrecord holding a project. Null otherwise.
AcDbObjectId projectRecordOf(AcDbObjectId dictId);
// The data of an Xrecord; false when the id is not a readable Xrecord.
bool readChain(AcDbObjectId id, ResBufList& chain);
// A level or draft view record owned by `dictId`.
bool readView(AcDbObjectId id, AcDbObjectId dictId, ViewData& out);

// The object the entity's "ZEFT_PROJECT" item `label` names; null when
// absent or when the drawing no longer has it.
AcDbObjectId linkOf(const AcDbObject* entity, const wchar_t* label);
// The entity's "ZEFT_PROJECT" group with item `label` set to `target`
// (removed for null), other items kept. A group of only its 1001 item
// removes the application's data when given to setXData.
ResBufList withLink(const AcDbObject* entity, const wchar_t* label, AcDbObjectId target);

}  // namespace zeft_project
