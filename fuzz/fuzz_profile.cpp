// Feeds arbitrary bytes as a layer standard file: reading the standard and
// the name lists must end quietly, and a key written into the file must
// read back as written, a second identical write changing no byte.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "suite/wyprofile.h"
#include "zeftlayermanager/zeftfilerw.h"

namespace {

std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::string path = [] {
        auto dir = std::filesystem::temp_directory_path() / ("zeftlayer-fuzz-profile-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        return (dir / "standard.std").string();
    }();
    static const std::wstring wpath(path.begin(), path.end());

    if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }

    {
        ZEFTFileRW rw;
        rw.readStandard(wpath);
    }
    wchar_t buffer[257];
    GetPrivateProfileStringW(nullptr, nullptr, L"", buffer, 256, wpath.c_str());
    GetPrivateProfileStringW(L"Layer_Standard", nullptr, L"", buffer, 256, wpath.c_str());
    GetPrivateProfileStringW(L"Separator", L"Value", L"", buffer, 3, wpath.c_str());

    // Quotes keep the blanks inside them.
    const wchar_t* value = L"\" Value \u00E9 \"";
    if (WritePrivateProfileStringW(L"Fuzz", L"Key ", value, wpath.c_str())) {
        if (wyGetProfileString(L"fuzz", L"KEY", L"", wpath) != L" Value \u00E9 ") __builtin_trap();
        const std::string once = readAll(path);
        if (!WritePrivateProfileStringW(L"Fuzz", L"Key ", value, wpath.c_str())) __builtin_trap();
        if (readAll(path) != once) __builtin_trap();
    }
    return 0;
}
