#include "zeftlayermanager/zeftsmartunlocklayers.h"

#include "host/document.h"
#include "suite/zefttools.h"

ZEFTSmartUnlockLayers::ZEFTSmartUnlockLayers()
{
    ZEFTLayerTools::getLokedLayers(m_lockedLayers);
    if (AcApDocument* doc = acDocManager->curDocument()) {
        doc->pushDbmod();
        m_dbmodPushed = true;
    }
    ZEFTLayerTools::lockLayers(m_lockedLayers, false);
}

ZEFTSmartUnlockLayers::~ZEFTSmartUnlockLayers()
{
    // Only the layers locked at the start: layers made meanwhile keep their state.
    ZEFTLayerTools::lockLayers(m_lockedLayers, true);
    if (m_dbmodPushed)
        if (AcApDocument* doc = acDocManager->curDocument()) doc->popDbmod();
}
