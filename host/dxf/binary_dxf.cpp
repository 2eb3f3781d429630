// Binary DXF to ASCII DXF text. Both forms carry the same tags; binary only
// changes how group codes and values are stored:
//  - group codes: one byte before R13 (255 escapes a following 16-bit code,
//    used for extended data), two bytes little-endian from R13 on;
//  - values by the code's type: NUL-terminated strings (in the drawing's
//    code page, copied as they are), little-endian integers and doubles, one
//    byte for bools, and a length byte plus data for binary chunks.
#include "host/dxf/binary_dxf.h"

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace dxf {

namespace {

// The version decides the group-code width, as other readers decide it:
// $ACADVER near the start of the header. Without a header, the first tag is
// (0, "SECTION") in any real file, whose code takes one or two bytes.
bool usesOneByteCodes(std::string_view b) {
    const std::size_t at = b.substr(0, 1024).find("$ACADVER", kBinarySentinel.size());
    if (at != std::string_view::npos) {
        std::size_t s = at + 10;  // name, NUL, one-byte code 1
        if (s < b.size() && b[s] != 'A') ++s;
        if (s + 6 <= b.size()) return b.substr(s, 6) <= "AC1009";
    }
    // With one-byte codes, two NULs would be an empty first value.
    const std::size_t f = kBinarySentinel.size();
    return !(b.size() >= f + 2 && b[f] == 0 && b[f + 1] == 0);
}

class Converter {
public:
    Converter(std::string_view bytes, const std::string& name)
        : d_(reinterpret_cast<const unsigned char*>(bytes.data())), n_(bytes.size()), name_(name) {}

    DrawingText run(bool oneByteCodes) {
        DrawingText out;
        out.fileName = name_;
        out.wasBinary = true;
        std::string t;
        // Text is usually a bit larger than the binary (doubles as digits).
        t.reserve(n_ + n_ / 2);
        std::size_t i = kBinarySentinel.size();
        while (i < n_) {
            tagStart_ = i;
            int code;
            if (oneByteCodes) {
                code = d_[i++];
                if (code == 255) {
                    need(i, 2, "extended group code");
                    code = static_cast<int>(le(i, 2));
                    i += 2;
                }
            } else {
                need(i, 2, "group code");
                code = static_cast<int>(le(i, 2));
                i += 2;
            }
            out.binaryOffsets.emplace_back(t.size(), tagStart_);
            appendCode(t, code);
            t += '\n';
            const std::size_t valueStart = t.size();
            i = value(code, i, t);
            t += '\n';
            if (code == 0 && std::string_view(t).substr(valueStart) == "EOF\n") break;
        }
        out.own(std::move(t));
        return out;
    }

private:
    const unsigned char* d_;
    std::size_t n_;
    const std::string& name_;
    std::size_t tagStart_ = 0;

    [[noreturn]] void fail(const std::string& message) const {
        throw ParseError(name_ + ": byte " + std::to_string(tagStart_) + ": " + message);
    }
    void need(std::size_t i, std::size_t count, const char* what) const {
        if (n_ - i < count) {
            fail("truncated binary DXF (" + std::string(what) + " needs " + std::to_string(count) + " bytes, " +
                 std::to_string(n_ - i) + " left)");
        }
    }
    std::uint64_t le(std::size_t i, int bytes) const {
        std::uint64_t v = 0;
        for (int k = bytes - 1; k >= 0; --k) v = (v << 8) | d_[i + static_cast<std::size_t>(k)];
        return v;
    }
    template <class T>
    static void appendInt(std::string& t, T v) {
        char buf[24];
        auto r = std::to_chars(buf, buf + sizeof buf, v);
        t.append(buf, r.ptr);
    }

    std::size_t value(int code, std::size_t i, std::string& t) const {
        switch (valueType(code)) {
        case ValueType::Double:
            need(i, 8, "real");
            appendDouble(t, std::bit_cast<double>(le(i, 8)));
            return i + 8;
        case ValueType::Int16:
            need(i, 2, "16-bit integer");
            appendInt(t, static_cast<std::int16_t>(le(i, 2)));
            return i + 2;
        case ValueType::Int32:
            need(i, 4, "32-bit integer");
            appendInt(t, static_cast<std::int32_t>(le(i, 4)));
            return i + 4;
        case ValueType::Int64:
            need(i, 8, "64-bit integer");
            appendInt(t, static_cast<std::int64_t>(le(i, 8)));
            return i + 8;
        case ValueType::Bool:
            need(i, 1, "bool");
            appendInt(t, static_cast<unsigned>(d_[i]));
            return i + 1;
        case ValueType::Binary: {
            need(i, 1, "chunk length");
            const std::size_t len = d_[i];
            need(i + 1, len, "binary chunk");
            static constexpr char hex[] = "0123456789ABCDEF";
            for (std::size_t k = 0; k < len; ++k) {
                const unsigned char c = d_[i + 1 + k];
                t += hex[c >> 4];
                t += hex[c & 15];
            }
            return i + 1 + len;
        }
        case ValueType::String:
        case ValueType::Handle:
            break;
        }
        const void* nul = std::memchr(d_ + i, 0, n_ - i);
        if (!nul) fail("truncated binary DXF (string of group code " + std::to_string(code) + " has no end)");
        const auto* e = static_cast<const unsigned char*>(nul);
        // A line break inside a value would split the ASCII line; DXF writes
        // those as caret codes.
        const unsigned char* p = d_ + i;
        const std::size_t before = t.size();
        while (p < e) {
            const unsigned char* q = p;
            while (q < e && *q != '\n' && *q != '\r') ++q;
            t.append(reinterpret_cast<const char*>(p), static_cast<std::size_t>(q - p));
            if (q < e) {
                t += *q == '\n' ? "^J" : "^M";
                ++q;
            }
            p = q;
        }
        // Its ASCII line must read back as one.
        if (t.size() - before > kMaxLineBytes)
            fail("string of group code " + std::to_string(code) + " longer than " + std::to_string(kMaxLineBytes) +
                 " bytes (not a DXF value)");
        return static_cast<std::size_t>(e - d_) + 1;
    }
};

}  // namespace

DrawingText convertBinaryDxf(std::string_view bytes, const std::string& name) {
    return Converter(bytes, name).run(usesOneByteCodes(bytes));
}

}  // namespace dxf
