// The module's texts, by prompt number.
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"

const std::map<int, std::wstring>& zeftLayerManagerPrompts()
{
    static const std::map<int, std::wstring> prompts = {
        {17701, L"zeftstandardcalque"},
        {17704, L"Standard de noms de calques"},
        {17717, L"Beltrix gestion des calques"},
    };
    return prompts;
}
