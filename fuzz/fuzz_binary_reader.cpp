// Arbitrary bytes after the binary DXF sentinel: conversion may fail with
// ParseError only, and what it produces must be well-formed ASCII DXF whose
// every tag maps back to a byte of the input.
#include "host/dxf/dxftext.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {
void require(bool ok) {
    if (!ok) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string bytes("AutoCAD Binary DXF\r\n\x1a\0", 22);
    bytes.append(reinterpret_cast<const char*>(data), size);
    dxf::DrawingText d;
    try {
        d = dxf::drawingTextFromBytes(bytes, "fuzz.dxf");
    } catch (const dxf::ParseError& e) {
        require(std::strncmp(e.what(), "fuzz.dxf: byte ", 15) == 0);
        return 0;
    }
    require(d.wasBinary);
    // Converted text never fails to tokenize.
    try {
        dxf::Tokenizer tok(d);
        std::size_t k = 0;
        for (dxf::TagView t; tok.next(t); ++k) {
            require(k < d.binaryOffsets.size() && d.binaryOffsets[k].first == t.offset);
            require(d.binaryOffsets[k].second < bytes.size());
            require(d.where(t.offset) == "byte " + std::to_string(d.binaryOffsets[k].second));
        }
        require(k == d.binaryOffsets.size());
    } catch (const dxf::ParseError&) {
        std::abort();
    }
    return 0;
}
