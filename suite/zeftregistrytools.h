// Where the suite keeps its data: the folder given on the command line
// (--data-dir), else the BELTRIX_DATA environment variable, else
// $XDG_DATA_HOME/beltrix, else ~/.local/share/beltrix.
#pragma once

#include <string>

class ZEFTRegistryTools {
public:
    // The data folder, without a trailing slash. False when no folder can
    // be named (no variable set and no home folder).
    static bool GetBeltrixDataPath(std::wstring& path);
    // A folder chosen by the user for this process; empty goes back to the environment.
    static void SetBeltrixDataPath(const std::wstring& path);
    // The folder of the ".std" files, ending with '/': "<data>/Support/Layer Standards/".
    static bool GetLayerStandardsPath(std::wstring& path);
};
