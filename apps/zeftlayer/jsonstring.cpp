// JSON string literals for the --json outputs; compiled on its own so that
// the test tools that print the same JSON use it too.
#include <cstdio>
#include <string>

#include "apps/zeftlayer/commands.h"
#include "host/dxf/codec.h"

namespace zeftlayer {

std::string jsonString(const std::wstring& s)
{
    std::string out = "\"";
    for (unsigned char c : dxf::toUtf8(s)) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += char(c);
            }
        }
    }
    return out + "\"";
}

}  // namespace zeftlayer
