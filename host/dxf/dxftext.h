// Low-level DXF text: loading a file (ASCII or binary) as ASCII DXF text,
// tokenizing it into tags, formatting tags and numbers for writing, and the
// value type of every group code.
//
// Everything above this layer sees a drawing as ASCII DXF text: a binary
// drawing is converted once at load, so that the rest of the host handles
// one form only and unmodified records are written back by copying bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace dxf {

// A malformed or unreadable drawing. what() is one complete message for a
// person: "FILE: line N: what went wrong" or "FILE: byte N: ...".
class ParseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Far beyond the longest line a DXF writer produces (string values end at
// 2049 bytes); a longer one means the file is not DXF.
inline constexpr std::size_t kMaxLineBytes = 1 << 16;

enum class ValueType : std::uint8_t { String, Double, Int16, Int32, Int64, Bool, Binary, Handle };

// The value type the DXF reference gives a group code. Unknown codes are
// String. Used for binary DXF decoding and for typed access to tags.
ValueType valueType(int code);

// One tag of ASCII DXF text. `value` is the value line without its line end
// (CR LF or LF), exactly as in the file, in the file's encoding.
struct TagView {
    int code = 0;
    std::string_view value;
    std::size_t offset = 0;  // offset of the group-code line in the text
};

// The text of a whole drawing. Copies share the bytes.
struct DrawingText {
    std::string fileName;
    // ASCII DXF: a read-only mapping of the file, or bytes the drawing owns
    // (converted binary input, bytes from memory). Records keep views of it.
    std::string_view text;
    std::string eol = "\n";     // the line end the input used ("\r\n" or "\n")
    bool wasBinary = false;
    // For converted binary drawings: (text offset, byte offset in the file)
    // of the start of every tag, sorted by text offset; used for messages only.
    std::vector<std::pair<std::size_t, std::size_t>> binaryOffsets;

    // "line N" for ASCII input (1-based), "byte N" for binary input (offset
    // from the start of the file), for the tag that starts at `textOffset`.
    std::string where(std::size_t textOffset) const;
    // "FILE: line N: message"
    [[noreturn]] void fail(std::size_t textOffset, const std::string& message) const;

    // Makes `text` the whole of `bytes`, which the drawing keeps.
    void own(std::string bytes);

private:
    friend DrawingText loadDrawingText(const std::string& path);
    std::shared_ptr<const void> storage_;
};

// Reads a drawing file. Binary DXF (the 22-byte sentinel
// "AutoCAD Binary DXF\r\n\x1a\0") is converted to ASCII DXF text: group codes
// as decimal, reals in shortest round-trip form, binary chunks as upper-case
// hex, line breaks inside strings as "^J"/"^M"; conversion stops after the
// (0, EOF) tag. Throws ParseError for an unreadable file, a file that is not
// DXF, and a truncated or malformed binary stream.
DrawingText loadDrawingText(const std::string& path);
// The same from bytes in memory (fuzzing, tests); `name` is used in messages.
DrawingText drawingTextFromBytes(std::string bytes, const std::string& name);

// Splits ASCII DXF text into tags. Blanks around a group code are allowed; a
// group code that is not an integer, or a missing value line, is a
// ParseError naming the line.
class Tokenizer {
public:
    Tokenizer(const DrawingText& drawing, std::size_t begin = 0, std::size_t end = std::string_view::npos);
    bool next(TagView& tag);
    std::size_t position() const { return pos_; }

private:
    const DrawingText& drawing_;
    std::size_t pos_;
    std::size_t end_;
};

// Tokenizes a record's bytes outside any drawing (its text came from the
// file, so it is known to be well formed).
std::vector<TagView> splitTags(std::string_view text);

// Appends one tag as two lines; the group code right-aligned in three
// columns as the common writers do ("  0", " 10", "100", "1001").
void appendTag(std::string& out, int code, std::string_view value, std::string_view eol);

// Shortest text that reads back as the same double; integral values keep a
// decimal point ("10.0") as DXF writers do.
std::string formatDouble(double v);
// Lenient number reading of a value line (blanks around allowed).
// Return false when the text is not a number.
bool parseInt(std::string_view s, long long& out);
bool parseDouble(std::string_view s, double& out);
std::string_view trim(std::string_view s);
// A value from a file quoted in a message: at most `max` bytes, then "...";
// bytes outside printable ASCII (and the backslash) as "\xNN".
std::string excerpt(std::string_view value, std::size_t max = 40);

}  // namespace dxf
