// What the rules may ask about the place an entity lives in: a snapshot
// taken once per object or batch and passed to every evaluation function.
#pragma once

#include <cstdint>

#include "host/dbobject.h"

class AcDbDatabase;

struct ApplicationContext {
    ApplicationContext() = default;
    explicit ApplicationContext(AcDbDatabase* db) : database(db) {}

    // Ids of all moulds of the drawing, in the order their lists are read.
    AcDbObjectIdArray mouldEntities;
    // The drawing being worked on; not owned.
    AcDbDatabase* database = nullptr;
    // The current command places entities in a draft: the Draft rule applies.
    bool draftContext = false;
    // The draft view (or level) holding the object; null when unknown.
    AcDbObjectId viewId;
    // 0 = working on a level, 1 = in a view, anything else = neither.
    std::int32_t workingMode = -1;
    // Whether entities in model (non-draft) contexts are re-layered.
    bool modelRulesActive = true;
    // An entity of another database than `database` is still eligible.
    bool ignoreDatabase = false;
    // The object a locked section names as active (the editor reactor's
    // current object); null when none.
    AcDbObjectId activeObjectId;
};
