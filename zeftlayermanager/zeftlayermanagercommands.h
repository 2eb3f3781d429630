// The module's command.
#pragma once

class ZEFTLayerManagerCommands {
public:
    // "zeftlayerstandard": opens the editor of the drawing's layer standard.
    static void ZEFTLayerStandards();
};
