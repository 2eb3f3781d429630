// Unlocks the current drawing's locked layers for the life of the guard, so
// that entities can move between layers, and locks them again afterwards
// without the toggling counting as a change of the drawing.
#pragma once

#include "host/dbobject.h"
#include "zeftlayermanager/zeftlayermanagerexports.h"

class ZEFT_LM_EXPORT ZEFTSmartUnlockLayers {
public:
    ZEFTSmartUnlockLayers();
    virtual ~ZEFTSmartUnlockLayers();
    ZEFTSmartUnlockLayers(const ZEFTSmartUnlockLayers&) = delete;
    ZEFTSmartUnlockLayers& operator=(const ZEFTSmartUnlockLayers&) = delete;

private:
    AcDbObjectIdArray m_lockedLayers;
    bool m_dbmodPushed = false;
};
