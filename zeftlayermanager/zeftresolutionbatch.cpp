#include "zeftlayermanager/zeftresolutionbatch.h"

namespace {
ZEFTResolutionBatch* gCurrent = nullptr;
}

ZEFTResolutionBatch::ZEFTResolutionBatch(AcDbDatabase* db) : db_(db), previous_(gCurrent) { gCurrent = this; }

ZEFTResolutionBatch::~ZEFTResolutionBatch() { gCurrent = previous_; }

ZEFTResolutionBatch* ZEFTResolutionBatch::of(AcDbDatabase* db)
{
    for (ZEFTResolutionBatch* b = gCurrent; b; b = b->previous_)
        if (db && b->db_ == db) return b;
    return nullptr;
}

ZEFTProjectObject* ZEFTResolutionBatch::projectOf(AcDbDatabase* db, std::unique_ptr<ZEFTProjectObject>& owned)
{
    ZEFTResolutionBatch* batch = of(db);
    if (!batch) {
        owned = zeftGetProjectObject(db);
        return owned.get();
    }
    if (!batch->projectLooked_) {
        batch->project_ = zeftGetProjectObject(db);
        batch->projectLooked_ = true;
    }
    return batch->project_.get();
}
