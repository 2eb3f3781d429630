// Reads arbitrary bytes as a whole drawing: a bad drawing may only end in a
// ParseError, and a drawing that reads must write a text that reads back and
// writes the very same bytes again.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/database.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string out;
    try {
        auto db = AcDbDatabase::readDxfBytes(std::string(reinterpret_cast<const char*>(data), size), "fuzz.dxf");
        out = db->dxfText();
    } catch (const dxf::ParseError&) {
        return 0;
    }
    try {
        auto again = AcDbDatabase::readDxfBytes(out, "again.dxf");
        if (again->dxfText() != out) {
            std::fprintf(stderr, "the written drawing writes other bytes the second time\n");
            std::abort();
        }
    } catch (const dxf::ParseError& e) {
        std::fprintf(stderr, "the written drawing does not read back: %s\n", e.what());
        std::abort();
    }
    return 0;
}
