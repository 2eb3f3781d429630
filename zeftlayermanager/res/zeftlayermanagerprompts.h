#pragma once

#include <map>
#include <string>

// Prompt table of the project "ZEFTLAYERMANAGER".
const std::map<int, std::wstring>& zeftLayerManagerPrompts();
