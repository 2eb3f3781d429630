// DXF text below the database: tokenizing ASCII text, converting binary
// drawings, numbers and tags.
#include "tests/host/builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>

namespace {

using dxf::DrawingText;

const std::string kSentinel("AutoCAD Binary DXF\r\n\x1a\0", 22);

Tags tagsOfBytes(const std::string& bytes) { return tagsOf(dxf::drawingTextFromBytes(bytes, "t.dxf")); }

std::string tokenizeError(const std::string& bytes) {
    return errorOf([&] { tagsOfBytes(bytes); });
}

TEST(AsciiText, LfAndCrlfGiveTheSameByteExactValues) {
    const std::string lf = "  0\nSECTION\n  2\nHEADER\n  1\n  two blanks  \n  1\n\n  1\na\rb\n  0\nEOF\n";
    const Tags want = {{0, "SECTION"}, {2, "HEADER"}, {1, "  two blanks  "}, {1, ""}, {1, "a\rb"}, {0, "EOF"}};
    EXPECT_EQ(tagsOfBytes(lf), want);
    EXPECT_EQ(tagsOfBytes(withCrlf(lf)), want);
    EXPECT_EQ(dxf::drawingTextFromBytes(lf, "t").eol, "\n");
    EXPECT_EQ(dxf::drawingTextFromBytes(withCrlf(lf), "t").eol, "\r\n");
    EXPECT_FALSE(dxf::drawingTextFromBytes(withCrlf(lf), "t").wasBinary);
    // Lenient ends: no final line end, blank lines after the last tag, a byte-order mark.
    for (const char* text : {"  0\nEOF", "  0\nEOF\n\n  \r\n\t\n", "\xEF\xBB\xBF  0\nEOF\n"})
        EXPECT_EQ(tagsOfBytes(text), (Tags{{0, "EOF"}}));
}

TEST(AsciiText, GroupCodeLinesAllowBlanksAndOffsetsPointAtThem) {
    const DrawingText d = dxf::drawingTextFromBytes("0\nA\n \t10 \t\r\n1.5\n+5\nB\n-3\nC\n0010\nD\n", "t");
    std::vector<std::size_t> offsets;
    EXPECT_EQ(tagsOf(d, &offsets), (Tags{{0, "A"}, {10, "1.5"}, {5, "B"}, {-3, "C"}, {10, "D"}}));
    EXPECT_EQ(offsets, (std::vector<std::size_t>{0, 4, 16, 21, 26}));
    EXPECT_EQ(d.where(16), "line 5");

    const DrawingText abc = dxf::drawingTextFromBytes("  0\nA\n  0\nB\n  0\nC\n", "t");
    dxf::Tokenizer range(abc, 6, 12);
    dxf::TagView t;
    ASSERT_TRUE(range.next(t));
    EXPECT_EQ(t.value, "B");
    EXPECT_EQ(range.position(), 12u);
    EXPECT_FALSE(range.next(t));
    const auto split = dxf::splitTags("  8\nWalls\r\n 62\n1\n");
    ASSERT_EQ(split.size(), 2u);
    EXPECT_EQ(split[0].value, "Walls");
    EXPECT_EQ(split[1].code, 62);
    EXPECT_EQ(split[1].offset, 11u);
}

// What a user reads when a drawing does not load: the file, the line, the reason.
TEST(AsciiText, ErrorsNameTheFileTheLineAndTheReason) {
    const std::pair<std::string, std::string> cases[] = {
        {"  0\nSECTION\n  2\nHEADER\nabc\nx\n", "t.dxf: line 5: invalid group code 'abc'"},
        {"  0\r\nSECTION\r\n1 0\r\nx\r\n", "t.dxf: line 3: invalid group code '1 0'"},
        // A blank line where a group code belongs is not taken for the end.
        {"  0\nA\n\n  0\nB\n", "t.dxf: line 3: invalid group code ''"},
        {"  0\nA\n99999999999\nB\n", "t.dxf: line 3: invalid group code '99999999999'"},
        {"  0\nA\n\x01\xff\n", "t.dxf: line 3: invalid group code '\\x01\\xFF'"},
        {"  0\nSECTION\n  2\n", "t.dxf: line 3: unexpected end of file (value missing for group code 2)"},
        {"  0\r\nSECTION\r\n 10", "t.dxf: line 3: unexpected end of file (value missing for group code 10)"},
        // Blank lines before the first tag pass the sniffing but not the tokenizer.
        {"\n\n  0\nEOF\n", "t.dxf: line 1: invalid group code ''"},
    };
    for (const auto& [bytes, message] : cases) EXPECT_EQ(tokenizeError(bytes), message);
    for (const std::string& bytes : {std::string(), std::string(" \n\r\n"), std::string("hello\nworld\n"),
                                     std::string("  0\nSEC\0TION\n", 13), std::string("AutoCAD Binary DXF\r\n"),
                                     std::string("\x89PNG\r\n\x1a\n", 8)})
        EXPECT_EQ(tokenizeError(bytes).rfind("t.dxf: not a DXF file", 0), 0u) << tokenizeError(bytes);
    EXPECT_EQ(errorOf([] { dxf::loadDrawingText("/nonexistent/x.dxf"); }),
              "/nonexistent/x.dxf: No such file or directory");
    EXPECT_EQ(errorOf([] { dxf::loadDrawingText("/tmp"); }), "/tmp: Is a directory");
}

// ---- binary ----------------------------------------------------------------

// Builds a binary drawing and the ASCII text it must turn into.
struct BinaryDrawing {
    explicit BinaryDrawing(bool oneByteCodes) : r12(oneByteCodes) {}
    bool r12;
    std::string bytes = kSentinel;
    std::string text;
    std::vector<std::size_t> tagStarts;

    BinaryDrawing& code(int c, std::string_view asText) {
        tagStarts.push_back(bytes.size());
        if (r12 && c < 255) {
            bytes += static_cast<char>(c);
        } else {
            if (r12) bytes += '\xff';  // a 16-bit code follows
            bytes += static_cast<char>(c & 0xff);
            bytes += static_cast<char>(c >> 8);
        }
        dxf::appendTag(text, c, asText, "\n");
        return *this;
    }
    template <class T>
    BinaryDrawing& number(int c, T v, std::string_view asText) {
        code(c, asText);
        unsigned char raw[sizeof(T)];
        std::memcpy(raw, &v, sizeof v);
        if constexpr (std::endian::native == std::endian::big) std::reverse(std::begin(raw), std::end(raw));
        bytes.append(reinterpret_cast<const char*>(raw), sizeof raw);
        return *this;
    }
    BinaryDrawing& str(int c, std::string_view v, std::string_view asText = {}) {
        code(c, asText.data() ? asText : v);
        bytes.append(v).push_back('\0');
        return *this;
    }
    BinaryDrawing& chunk(int c, std::string_view data, std::string_view asText) {
        code(c, asText);
        bytes.append(1, static_cast<char>(data.size())).append(data);
        return *this;
    }
};

BinaryDrawing sampleOfEveryType(bool r12) {
    BinaryDrawing b{r12};
    b.str(0, "SECTION").str(2, "HEADER").str(9, "$ACADVER").str(1, r12 ? "AC1009" : "AC1015");
    b.number(10, 1.5, "1.5").number(20, -0.1, "-0.1").number(30, 100.0, "100.0");
    b.number<std::int16_t>(62, -7, "-7").number<std::int16_t>(70, 32767, "32767");
    b.str(5, "1F").str(8, "Lay\xe8r 1 ");
    b.str(1001, "APP").number<std::int16_t>(1070, 3, "3").number<std::int32_t>(1071, -100000, "-100000");
    b.number(1040, 0.25, "0.25").chunk(1004, std::string("\x00\xab\x10", 3), "00AB10").str(1000, "");
    // Line breaks inside strings become caret codes.
    b.str(1, "two\nlines\r", "two^Jlines^M");
    if (!r12) {
        b.number<std::int32_t>(90, -2, "-2").number<std::int64_t>(160, -5000000000LL, "-5000000000");
        b.number<std::uint8_t>(290, 1, "1").number<std::uint8_t>(291, 255, "255");
        std::string hex;
        for (int k = 0; k < 127; ++k) hex += "5A";
        b.chunk(310, std::string(127, '\x5a'), hex);
        b.chunk(311, "", "").str(330, "2F").number(1010, 1e300, "1e+300");
    }
    b.str(0, "ENDSEC").str(0, "EOF");
    return b;
}

TEST(BinaryText, EveryValueTypeConvertsAndTruncationIsAnErrorAtItsTag) {
    for (bool r12 : {true, false}) {
        SCOPED_TRACE(r12 ? "R12" : "R2000");
        const BinaryDrawing b = sampleOfEveryType(r12);
        const DrawingText d = dxf::drawingTextFromBytes(b.bytes, "b.dxf");
        EXPECT_TRUE(d.wasBinary);
        EXPECT_EQ(d.eol, "\n");
        EXPECT_EQ(d.text, b.text);
        // Every tag maps back to where it starts in the file.
        std::vector<std::size_t> offsets;
        tagsOf(d, &offsets);
        ASSERT_EQ(offsets.size(), b.tagStarts.size());
        for (std::size_t k = 0; k < offsets.size(); ++k)
            EXPECT_EQ(d.where(offsets[k]), "byte " + std::to_string(b.tagStarts[k]));

        for (std::size_t cut = kSentinel.size(); cut < b.bytes.size(); ++cut) {
            const std::string e = errorOf([&] { dxf::drawingTextFromBytes(b.bytes.substr(0, cut), "b.dxf"); });
            const std::size_t tag = *std::prev(std::upper_bound(b.tagStarts.begin(), b.tagStarts.end(), cut));
            if (tag == cut) EXPECT_EQ(e, "") << cut;  // a cut between tags is just a shorter drawing
            else EXPECT_EQ(e.rfind("b.dxf: byte " + std::to_string(tag) + ": truncated", 0), 0u) << cut << ": " << e;
        }
    }
}

TEST(BinaryText, LayoutIsFoundWithoutHeaderAndDataAfterEofIsIgnored) {
    BinaryDrawing b{false};
    b.str(0, "SECTION").str(2, "ENTITIES").str(0, "LINE").str(8, "0").number(10, 2.0, "2.0");
    b.str(0, "ENDSEC").str(0, "EOF");
    EXPECT_EQ(dxf::drawingTextFromBytes(b.bytes + std::string(16, '\0'), "b").text, b.text);
    BinaryDrawing r12{true};
    r12.str(0, "SECTION").str(2, "ENTITIES").str(0, "EOF");
    EXPECT_EQ(dxf::drawingTextFromBytes(r12.bytes, "b").text, r12.text);
}

TEST(BinaryText, CorpusBinariesMatchAnIndependentReader) {
    int checked = 0;
    // Path, tag count, index of the first tag shown, then codes and values.
    for (const auto& c : tableRows(ZEFT_SOURCE_DIR "/tests/data/host-binary-tags.tsv")) {
        SCOPED_TRACE(c.at(0));
        Tags expected;
        for (std::size_t k = 3; k + 1 < c.size(); k += 2) expected.emplace_back(std::stoi(c[k]), c[k + 1]);
        const DrawingText d = dxf::loadDrawingText(ZEFT_CORPUS_DIR "/dxf/" + c.at(0));
        ASSERT_TRUE(d.wasBinary);
        const Tags tags = tagsOf(d);
        ASSERT_EQ(tags.size(), std::stoul(c.at(1)));
        EXPECT_EQ(tags.back(), (std::pair<int, std::string>{0, "EOF"}));
        const auto from = tags.begin() + std::stol(c.at(2));
        EXPECT_EQ(Tags(from, from + long(expected.size())), expected);
        ++checked;
    }
    EXPECT_EQ(checked, 7);
}

// ---- value types and numbers ----------------------------------------------

// The cases are in tests/data/host-values.tsv.
TEST(Values, TypesOfCodesAndNumbersReadAndWritten) {
    const char* types[] = {"String", "Double", "Int16", "Int32", "Int64", "Bool", "Binary", "Handle"};
    for (const auto& row : tableRows(ZEFT_SOURCE_DIR "/tests/data/host-values.tsv")) {
        SCOPED_TRACE(row.at(0) + " '" + row.at(1) + "'");
        long long i = 0;
        double d = 0;
        if (row[0] == "type") EXPECT_EQ(types[int(dxf::valueType(std::stoi(row[1])))], row.at(2));
        else if (row[0] == "int") EXPECT_EQ(dxf::parseInt(row[1], i) ? std::to_string(i) : "refused", row.at(2));
        else EXPECT_EQ(dxf::parseDouble(row[1], d) ? dxf::formatDouble(d) : "refused", row.at(2));
    }
    long long i = 0;
    EXPECT_TRUE(dxf::parseInt(" +7 \r", i) && i == 7);
    EXPECT_EQ(dxf::trim(" \t a b \r\n"), "a b");
}

TEST(Numbers, FormatDoubleReadsBackBitForBit) {
    std::mt19937_64 rng(12345);
    for (int k = 0; k < 20000; ++k) {
        const double x = std::bit_cast<double>(rng());
        if (!std::isfinite(x)) continue;
        double back = 0;
        const std::string s = dxf::formatDouble(x);
        ASSERT_TRUE(dxf::parseDouble(s, back)) << s;
        ASSERT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(x)) << s;
    }
}

TEST(Numbers, AppendTagRightAlignsTheCode) {
    std::string out;
    dxf::appendTag(out, 0, "LINE", "\r\n");
    for (auto [code, value] : {std::pair{10, "1.0"}, std::pair{100, "AcDbLine"}, std::pair{1001, "APP"}})
        dxf::appendTag(out, code, value, "\n");
    EXPECT_EQ(out, "  0\r\nLINE\r\n 10\n1.0\n100\nAcDbLine\n1001\nAPP\n");
}

}  // namespace
