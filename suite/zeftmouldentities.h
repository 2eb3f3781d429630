// Named lists of mould entities (the suite's containers that own
// reinforcement and mesh entities), kept in the drawing.
#pragma once

#include "host/dbobject.h"

class AcDbDatabase;

class ZEFTMouldEntities {
public:
    // The lists the layer manager reads, in this order.
    static constexpr const wchar_t* kListNames[4] = {L"ZEFT_MOULD_ENTITIES", L"MeshMouldEntities",
                                                     L"RebarMouldEntities", L"MouleList"};

    // Appends the ids of list `listName` to `ids`, skipping references to
    // objects the drawing no longer has. A missing list appends nothing and
    // answers false. A null db means the working database.
    static bool getAllMouldEntities(const wchar_t* listName, AcDbObjectIdArray& ids, AcDbDatabase* db = nullptr);
};
