#include "host/dxf/dxftext.h"

#include "host/dxf/binary_dxf.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace dxf {

namespace {

// Built at compile time so that the binary decoder and typed access cost one
// array load per tag. Codes outside 0..1071 are all String.
struct TypeTable {
    std::array<ValueType, 1072> type{};  // value-initialised: String

    constexpr TypeTable() {
        auto set = [this](int lo, int hi, ValueType v) {
            for (int c = lo; c <= hi; ++c) type[static_cast<std::size_t>(c)] = v;
        };
        set(10, 59, ValueType::Double);
        set(60, 79, ValueType::Int16);
        set(90, 99, ValueType::Int32);
        set(105, 105, ValueType::Handle);
        set(110, 149, ValueType::Double);
        set(160, 169, ValueType::Int64);
        set(170, 179, ValueType::Int16);
        set(210, 239, ValueType::Double);
        set(270, 289, ValueType::Int16);
        set(290, 299, ValueType::Bool);
        set(310, 319, ValueType::Binary);
        set(320, 369, ValueType::Handle);
        set(370, 389, ValueType::Int16);
        set(390, 399, ValueType::Handle);
        set(400, 409, ValueType::Int16);
        set(420, 429, ValueType::Int32);
        set(440, 459, ValueType::Int32);
        set(460, 469, ValueType::Double);
        set(480, 481, ValueType::Handle);
        set(1004, 1004, ValueType::Binary);
        set(1005, 1005, ValueType::Handle);
        set(1010, 1059, ValueType::Double);
        set(1060, 1070, ValueType::Int16);
        set(1071, 1071, ValueType::Int32);
    }
};
constexpr TypeTable kTypes;

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }
inline bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

// A group-code line without its LF: blanks, an optional sign, decimal digits,
// blanks; a CR of a CRLF line end counts as a blank.
inline bool parseCode(const char* p, const char* e, int& code) {
    while (p < e && isBlank(*p)) ++p;
    bool negative = false;
    if (p < e && (*p == '-' || *p == '+')) negative = *p++ == '-';
    if (p == e || static_cast<unsigned char>(*p - '0') > 9) return false;
    int v = 0;
    int significant = 0;
    for (; p < e && static_cast<unsigned char>(*p - '0') <= 9; ++p) {
        if (v != 0 || *p != '0') {
            if (++significant > 9) return false;  // keeps v inside int
        }
        v = v * 10 + (*p - '0');
    }
    while (p < e && (isBlank(*p) || *p == '\r')) ++p;
    if (p != e) return false;
    code = negative ? -v : v;
    return true;
}

constexpr std::size_t kMaxLine = kMaxLineBytes;

enum class Step { Tag, End, BadCode, NoValue, LongLine };

// The first LF in [p, e), or null. Values are mostly short: a word at a
// time first, then memchr for long lines.
inline const char* findLf(const char* p, const char* e) {
    constexpr std::uint64_t kOnes = 0x0101010101010101ull, kLf = kOnes * '\n', kHigh = kOnes * 0x80;
    for (int words = 0; words < 4 && e - p >= 8; ++words, p += 8) {
        std::uint64_t w;
        std::memcpy(&w, p, 8);
        const std::uint64_t x = w ^ kLf;
        // The lowest set bit marks the first zero byte, i.e. the first LF.
        if (const std::uint64_t hit = (x - kOnes) & ~x & kHigh)
            return p + (std::countr_zero(hit) >> 3);
    }
    return static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(e - p)));
}

// One tag from [pos, end). On BadCode/NoValue `pos` is left at the code line
// and tag.code holds the code (NoValue) for the message.
inline Step scanTag(const char* d, std::size_t& pos, std::size_t end, TagView& tag) {
    if (pos >= end) return Step::End;
    const char* p = d + pos;
    const char* e = d + end;
    const char* nl = nullptr;
    // The common code line: a few spaces, digits, a line end.
    {
        const char* q = p;
        const char* spacesEnd = e - q > 8 ? q + 8 : e;
        while (q < spacesEnd && *q == ' ') ++q;
        const char* digits = q;
        const char* digitsEnd = e - q > 9 ? q + 9 : e;
        int v = 0;
        for (; q < digitsEnd && static_cast<unsigned char>(*q - '0') <= 9; ++q) v = v * 10 + (*q - '0');
        if (q > digits && q < e) {
            if (*q == '\n') nl = q;
            else if (*q == '\r' && q + 1 < e && q[1] == '\n') nl = q + 1;
        }
        if (nl) tag.code = v;
    }
    if (!nl) {
        nl = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(e - p)));
        const char* codeEnd = nl ? nl : e;
        if (static_cast<std::size_t>(codeEnd - p) > kMaxLine) return Step::LongLine;
        if (!parseCode(p, codeEnd, tag.code)) {
            // Blank lines after the last tag are not an error.
            if (std::all_of(p, e, isSpace)) {
                pos = end;
                return Step::End;
            }
            return Step::BadCode;
        }
        if (!nl) return Step::NoValue;
    }
    if (nl + 1 >= e) return Step::NoValue;
    const char* v = nl + 1;
    const char* vnl = findLf(v, e);
    const char* vend = vnl ? vnl : e;
    if (static_cast<std::size_t>(vend - v) > kMaxLine) {
        pos = static_cast<std::size_t>(v - d);
        return Step::LongLine;
    }
    const char* next = vnl ? vnl + 1 : e;
    if (vend > v && vend[-1] == '\r') --vend;
    tag.value = std::string_view(v, static_cast<std::size_t>(vend - v));
    tag.offset = pos;
    pos = static_cast<std::size_t>(next - d);
    return Step::Tag;
}

// A code line quoted in a message.
std::string quoteLine(std::string_view text, std::size_t offset) {
    std::string_view line = text.substr(std::min(offset, text.size()));
    line = line.substr(0, line.find('\n'));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return excerpt(line);
}

constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";

void checkLooksLikeDxf(std::string_view bytes, const std::string& name) {
    auto notDxf = [&](const char* why) {
        throw ParseError(name + ": not a DXF file (" + why + ")");
    };
    if (bytes.substr(0, 3) == kUtf8Bom) bytes.remove_prefix(3);
    if (std::all_of(bytes.begin(), bytes.end(), isSpace)) notDxf("empty");
    if (bytes.substr(0, 1024).find('\0') != std::string_view::npos) notDxf("binary data");
    std::size_t pos = 0;
    while (pos < bytes.size()) {
        std::size_t nl = bytes.find('\n', pos);
        if (nl == std::string_view::npos) nl = bytes.size();
        std::string_view line = bytes.substr(pos, nl - pos);
        if (!std::all_of(line.begin(), line.end(), isSpace)) {
            int code = 0;
            if (!parseCode(line.data(), line.data() + line.size(), code)) notDxf("no group code on the first line");
            return;
        }
        pos = nl + 1;
    }
}

std::string detectEol(std::string_view text) {
    const std::size_t nl = text.find('\n');
    return nl != std::string_view::npos && nl > 0 && text[nl - 1] == '\r' ? "\r\n" : "\n";
}

}  // namespace

std::string excerpt(std::string_view value, std::size_t max) {
    const bool cut = value.size() > max;
    if (cut) value = value.substr(0, max);
    std::string out;
    for (char ch : value) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            out += ch;
        } else {
            static constexpr char hex[] = "0123456789ABCDEF";
            out += "\\x";
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    if (cut) out += "...";
    return out;
}

ValueType valueType(int code) {
    if (code < 0 || static_cast<std::size_t>(code) >= kTypes.type.size()) return ValueType::String;
    return kTypes.type[static_cast<std::size_t>(code)];
}

std::string DrawingText::where(std::size_t textOffset) const {
    if (wasBinary) {
        auto it = std::upper_bound(binaryOffsets.begin(), binaryOffsets.end(), textOffset,
                                   [](std::size_t off, const auto& entry) { return off < entry.first; });
        const std::size_t byte = it == binaryOffsets.begin() ? kBinarySentinel.size() : std::prev(it)->second;
        return "byte " + std::to_string(byte);
    }
    const std::size_t end = std::min(textOffset, text.size());
    std::size_t line = 1;
    const char* p = text.data();
    const char* e = p + end;
    while (p < e) {
        const void* nl = std::memchr(p, '\n', static_cast<std::size_t>(e - p));
        if (!nl) break;
        ++line;
        p = static_cast<const char*>(nl) + 1;
    }
    return "line " + std::to_string(line);
}

void DrawingText::fail(std::size_t textOffset, const std::string& message) const {
    throw ParseError(fileName + ": " + where(textOffset) + ": " + message);
}

void DrawingText::own(std::string bytes) {
    auto kept = std::make_shared<const std::string>(std::move(bytes));
    text = *kept;
    storage_ = std::move(kept);
}

namespace {
bool isBinaryDxf(std::string_view bytes) { return bytes.substr(0, kBinarySentinel.size()) == kBinarySentinel; }

// ASCII text that is known to stay where it is: checked, its line end found.
DrawingText asciiText(std::string_view bytes, const std::string& name) {
    checkLooksLikeDxf(bytes, name);
    DrawingText drawing;
    drawing.fileName = name;
    drawing.eol = detectEol(bytes);
    drawing.text = bytes;
    return drawing;
}
}  // namespace

DrawingText drawingTextFromBytes(std::string bytes, const std::string& name) {
    if (isBinaryDxf(bytes)) return convertBinaryDxf(bytes, name);
    DrawingText drawing = asciiText(bytes, name);
    drawing.own(std::move(bytes));
    return drawing;
}

DrawingText loadDrawingText(const std::string& path) {
    auto osError = [&](int err) { throw ParseError(path + ": " + std::strerror(err)); };
    // Non-blocking: opening a pipe would otherwise wait for a writer.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) osError(errno);
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};

    struct stat st {};
    if (::fstat(fd, &st) != 0) osError(errno);
    if (S_ISDIR(st.st_mode)) osError(EISDIR);
    // Devices, pipes and sockets may never end (/dev/zero).
    if (!S_ISREG(st.st_mode)) throw ParseError(path + ": not a regular file");

    // The head tells a drawing from other data before the rest is looked at.
    const std::size_t size = static_cast<std::size_t>(st.st_size);
    constexpr std::size_t kHead = 1 << 16;
    std::string head(std::min(size, kHead), '\0');
    std::size_t used = 0;
    while (used < head.size()) {
        const ssize_t n = ::read(fd, head.data() + used, head.size() - used);
        if (n < 0) {
            if (errno == EINTR) continue;
            osError(errno);
        }
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    head.resize(used);
    if (size <= kHead || used < kHead) return drawingTextFromBytes(std::move(head), path);
    if (!isBinaryDxf(head)) {
        checkLooksLikeDxf(head, path);
        if (head.find('\n') == std::string::npos)
            throw ParseError(path + ": line 1: no line break in the first " + std::to_string(kHead) + " bytes (not a DXF file)");
    }
    // Mapped rather than read: no zero-filled copy, and records that nothing
    // changes are written straight from the file's pages. A file that grows
    // meanwhile is read as it was when opened.
    void* map = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    if (map == MAP_FAILED) osError(errno);
    std::shared_ptr<const void> mapping(map, [size](const void* p) { ::munmap(const_cast<void*>(p), size); });
    const std::string_view bytes(static_cast<const char*>(map), size);
    // A converted binary drawing owns its text; the mapping goes.
    if (isBinaryDxf(bytes)) return convertBinaryDxf(bytes, path);
    DrawingText drawing = asciiText(bytes, path);
    drawing.storage_ = std::move(mapping);
    return drawing;
}

Tokenizer::Tokenizer(const DrawingText& drawing, std::size_t begin, std::size_t end)
    : drawing_(drawing), pos_(begin), end_(std::min(end, drawing.text.size())) {
    // Some editors save UTF-8 drawings with a byte-order mark; it stays in the
    // text so that the file is written back as it was.
    if (pos_ == 0 && std::string_view(drawing.text).substr(0, 3) == kUtf8Bom) pos_ = 3;
}

bool Tokenizer::next(TagView& tag) {
    const std::size_t start = pos_;
    switch (scanTag(drawing_.text.data(), pos_, end_, tag)) {
    case Step::Tag:
        return true;
    case Step::End:
        return false;
    case Step::BadCode:
        drawing_.fail(start, "invalid group code '" + quoteLine(drawing_.text, start) + "'");
    case Step::NoValue:
        drawing_.fail(start, "unexpected end of file (value missing for group code " + std::to_string(tag.code) + ")");
    case Step::LongLine:
        drawing_.fail(pos_, "line longer than " + std::to_string(kMaxLine) + " bytes (not a DXF line)");
    }
    return false;
}

std::vector<TagView> splitTags(std::string_view text) {
    std::vector<TagView> tags;
    std::size_t pos = 0;
    TagView tag;
    while (scanTag(text.data(), pos, text.size(), tag) == Step::Tag) tags.push_back(tag);
    return tags;
}

void appendCode(std::string& out, int code) {
    char buf[16];
    auto r = std::to_chars(buf, buf + sizeof buf, code);
    const auto len = static_cast<std::size_t>(r.ptr - buf);
    if (len < 3) out.append(3 - len, ' ');
    out.append(buf, len);
}

void appendTag(std::string& out, int code, std::string_view value, std::string_view eol) {
    appendCode(out, code);
    out += eol;
    out += value;
    out += eol;
}

void appendDouble(std::string& out, double v) {
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
    // DXF writers always give reals a decimal point ("0.0", "10.0"); some
    // readers rely on it to tell reals from integers.
    if (std::all_of(buf, r.ptr, [](char c) { return c == '-' || (c >= '0' && c <= '9'); })) out += ".0";
}

std::string formatDouble(double v) {
    std::string out;
    appendDouble(out, v);
    return out;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
    while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
    return s;
}

namespace {
// from_chars takes neither blanks nor a '+'; DXF values may have both.
std::string_view numberText(std::string_view s) {
    s = trim(s);
    if (s.size() > 1 && s.front() == '+' && s[1] != '-' && s[1] != '+') s.remove_prefix(1);
    return s;
}
}  // namespace

bool parseInt(std::string_view s, long long& out) {
    s = numberText(s);
    if (s.empty()) return false;
    long long v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return false;
    out = v;
    return true;
}

bool parseDouble(std::string_view s, double& out) {
    s = numberText(s);
    if (s.empty()) return false;
    double v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return false;
    out = v;
    return true;
}

}  // namespace dxf
