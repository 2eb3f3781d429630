// Reads arbitrary bytes as a whole drawing and writes it back: a bad drawing
// may only end in a ParseError.
#include <cstddef>
#include <cstdint>
#include <string>

#include "host/database.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        auto db = AcDbDatabase::readDxfBytes(std::string(reinterpret_cast<const char*>(data), size), "fuzz.dxf");
        std::string out = db->dxfText();
        // What we wrote must read again.
        auto again = AcDbDatabase::readDxfBytes(out, "again.dxf");
        (void)again->dxfText();
    } catch (const dxf::ParseError&) {
    }
    return 0;
}
