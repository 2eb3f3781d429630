// Arbitrary bytes as a drawing file: loading and tokenizing may reject them
// with ParseError only. Along the way, every value must survive the codecs
// byte for byte and every number must read back as written.
#include "host/dxf/codec.h"
#include "host/dxf/dxftext.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

void require(bool ok) {
    if (!ok) std::abort();
}

void checkValue(std::string_view v) {
    static const dxf::Codec codecs[] = {dxf::Codec(), dxf::Codec::forDrawing("AC1015", "ANSI_1252"),
                                        dxf::Codec::forDrawing("AC1015", "dos932"),
                                        dxf::Codec::forDrawing("AC1015", "ANSI_950")};
    // Escapes are normalised on the way, so only escape-free values must come
    // back unchanged.
    if (v.find('\\') == std::string_view::npos) {
        for (const dxf::Codec& c : codecs) require(c.encode(c.decode(v)) == v);
    }
    double d = 0;
    if (dxf::parseDouble(v, d) && std::isfinite(d)) {
        double back = 0;
        require(dxf::parseDouble(dxf::formatDouble(d), back));
        require(std::memcmp(&back, &d, sizeof d) == 0);
    }
    long long i = 0;
    if (dxf::parseInt(v, i)) require(dxf::parseDouble(v, d));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const dxf::DrawingText d =
            dxf::drawingTextFromBytes(std::string(reinterpret_cast<const char*>(data), size), "fuzz.dxf");
        dxf::Tokenizer tok(d);
        std::size_t last = 0;
        for (dxf::TagView t; tok.next(t);) {
            require(t.offset >= last && t.offset < d.text.size());
            require(t.value.data() >= d.text.data() && t.value.data() + t.value.size() <= d.text.data() + d.text.size());
            last = t.offset + 1;
            checkValue(t.value);
        }
        require(d.where(last).rfind("line ", 0) == 0 || d.wasBinary);
    } catch (const dxf::ParseError& e) {
        require(std::strncmp(e.what(), "fuzz.dxf: ", 10) == 0);
    }
    return 0;
}
