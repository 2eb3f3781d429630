#include "suite/zeftregistrytools.h"

#include <cstdlib>

#include "host/dxf/codec.h"

namespace {
std::wstring& chosen()
{
    static std::wstring path;
    return path;
}

std::wstring withoutTrailingSlash(std::wstring p)
{
    while (p.size() > 1 && p.back() == L'/') p.pop_back();
    return p;
}
}  // namespace

void ZEFTRegistryTools::SetBeltrixDataPath(const std::wstring& path) { chosen() = path; }

bool ZEFTRegistryTools::GetBeltrixDataPath(std::wstring& path)
{
    if (!chosen().empty()) {
        path = withoutTrailingSlash(chosen());
        return true;
    }
    if (const char* v = std::getenv("BELTRIX_DATA"); v && *v) {
        path = withoutTrailingSlash(dxf::fromUtf8(v));
        return true;
    }
    if (const char* v = std::getenv("XDG_DATA_HOME"); v && *v == '/') {
        path = withoutTrailingSlash(dxf::fromUtf8(v)) + L"/beltrix";
        return true;
    }
    if (const char* v = std::getenv("HOME"); v && *v) {
        path = withoutTrailingSlash(dxf::fromUtf8(v)) + L"/.local/share/beltrix";
        return true;
    }
    return false;
}

bool ZEFTRegistryTools::GetLayerStandardsPath(std::wstring& path)
{
    std::wstring data;
    if (!GetBeltrixDataPath(data)) return false;
    path = data + L"/Support/Layer Standards/";
    return true;
}
