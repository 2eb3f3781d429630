// Private to host/dxf: binary DXF conversion and the tag-writing helpers it
// shares with the ASCII side.
#pragma once

#include "host/dxf/dxftext.h"

#include <string>
#include <string_view>

namespace dxf {

inline constexpr std::string_view kBinarySentinel{"AutoCAD Binary DXF\r\n\x1a\0", 22};

// `bytes` starts with kBinarySentinel. Stops after the (0, EOF) tag.
DrawingText convertBinaryDxf(std::string_view bytes, const std::string& name);

// The group code right-aligned in three columns, without a line end.
void appendCode(std::string& out, int code);
void appendDouble(std::string& out, double v);

}  // namespace dxf
