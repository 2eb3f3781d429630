#include "host/dxf/dxftext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>

namespace {

using dxf::DrawingText;
using dxf::ParseError;
using dxf::TagView;
using Tags = std::vector<std::pair<int, std::string>>;

const std::string kCorpus = ZEFT_CORPUS_DIR "/dxf/";
const std::string kSentinel("AutoCAD Binary DXF\r\n\x1a\0", 22);

Tags tagsOf(const DrawingText& d) {
    Tags out;
    dxf::Tokenizer tok(d);
    TagView t;
    while (tok.next(t)) out.emplace_back(t.code, std::string(t.value));
    return out;
}

Tags tagsOf(const std::string& bytes) { return tagsOf(dxf::drawingTextFromBytes(bytes, "t.dxf")); }

// The message of the ParseError `f` throws, or "" when it does not throw.
template <class F>
std::string errorOf(F&& f) {
    try {
        f();
    } catch (const ParseError& e) {
        return e.what();
    }
    return "";
}

std::string tokenizeError(const std::string& bytes) {
    return errorOf([&] { tagsOf(bytes); });
}

TEST(AsciiText, LfAndCrlfGiveTheSameByteExactValues) {
    const std::string lf = "  0\nSECTION\n  2\nHEADER\n  1\n  two blanks  \n  1\n\n  1\na\rb\n  0\nEOF\n";
    std::string crlf;
    for (char c : lf) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    const Tags want = {{0, "SECTION"}, {2, "HEADER"}, {1, "  two blanks  "}, {1, ""}, {1, "a\rb"}, {0, "EOF"}};
    EXPECT_EQ(tagsOf(lf), want);
    EXPECT_EQ(tagsOf(crlf), want);
    EXPECT_EQ(dxf::drawingTextFromBytes(lf, "t").eol, "\n");
    EXPECT_EQ(dxf::drawingTextFromBytes(crlf, "t").eol, "\r\n");
    EXPECT_FALSE(dxf::drawingTextFromBytes(crlf, "t").wasBinary);
}

TEST(AsciiText, GroupCodeLinesAllowBlanksAndOffsetsPointAtThem) {
    const DrawingText d = dxf::drawingTextFromBytes("0\nA\n \t10 \t\r\n1.5\n+5\nB\n-3\nC\n0010\nD\n", "t");
    std::vector<std::size_t> offsets;
    Tags tags;
    dxf::Tokenizer tok(d);
    for (TagView t; tok.next(t);) {
        tags.emplace_back(t.code, std::string(t.value));
        offsets.push_back(t.offset);
    }
    EXPECT_EQ(tags, (Tags{{0, "A"}, {10, "1.5"}, {5, "B"}, {-3, "C"}, {10, "D"}}));
    EXPECT_EQ(offsets, (std::vector<std::size_t>{0, 4, 16, 21, 26}));
    EXPECT_EQ(d.where(16), "line 5");
}

TEST(AsciiText, EndOfTextIsLenient) {
    EXPECT_EQ(tagsOf("  0\nEOF"), (Tags{{0, "EOF"}}));                 // no final line end
    EXPECT_EQ(tagsOf("  0\nEOF\n\n  \r\n\t\n"), (Tags{{0, "EOF"}}));  // blank lines after the last tag
    EXPECT_EQ(tagsOf("\xEF\xBB\xBF  0\nEOF\n"), (Tags{{0, "EOF"}}));   // byte-order mark
}

TEST(AsciiText, ErrorsNameTheLineOfTheGroupCode) {
    EXPECT_EQ(tokenizeError("  0\nSECTION\n  2\nHEADER\nabc\nx\n"), "t.dxf: line 5: invalid group code 'abc'");
    EXPECT_EQ(tokenizeError("  0\r\nSECTION\r\n1 0\r\nx\r\n"), "t.dxf: line 3: invalid group code '1 0'");
    // A blank line where a group code belongs is not taken for the end.
    EXPECT_EQ(tokenizeError("  0\nA\n\n  0\nB\n"), "t.dxf: line 3: invalid group code ''");
    EXPECT_EQ(tokenizeError("  0\nA\n99999999999\nB\n"), "t.dxf: line 3: invalid group code '99999999999'");
    EXPECT_EQ(tokenizeError("  0\nA\n\x01\xff\n"), "t.dxf: line 3: invalid group code '\\x01\\xFF'");
    EXPECT_EQ(tokenizeError("  0\nSECTION\n  2\n"),
              "t.dxf: line 3: unexpected end of file (value missing for group code 2)");
    EXPECT_EQ(tokenizeError("  0\r\nSECTION\r\n 10"),
              "t.dxf: line 3: unexpected end of file (value missing for group code 10)");
}

TEST(AsciiText, TokenizerHonoursItsRange) {
    const DrawingText d = dxf::drawingTextFromBytes("  0\nA\n  0\nB\n  0\nC\n", "t");
    dxf::Tokenizer tok(d, 6, 12);
    TagView t;
    ASSERT_TRUE(tok.next(t));
    EXPECT_EQ(t.value, "B");
    EXPECT_EQ(tok.position(), 12u);
    EXPECT_FALSE(tok.next(t));

    const auto split = dxf::splitTags("  8\nWalls\r\n 62\n1\n");
    ASSERT_EQ(split.size(), 2u);
    EXPECT_EQ(split[0].value, "Walls");
    EXPECT_EQ(split[1].code, 62);
    EXPECT_EQ(split[1].offset, 11u);
}

TEST(AsciiText, NonDxfInputIsRejected) {
    for (const std::string& bytes : {std::string(), std::string(" \n\r\n"), std::string("hello\nworld\n"),
                                     std::string("  0\nSEC\0TION\n", 13), std::string("AutoCAD Binary DXF\r\n"),
                                     std::string("\x89PNG\r\n\x1a\n", 8)}) {
        const std::string e = tokenizeError(bytes);
        EXPECT_EQ(e.rfind("t.dxf: not a DXF file", 0), 0u) << e;
    }
    // Blank lines before the first tag pass the sniffing but not the tokenizer.
    EXPECT_EQ(tokenizeError("\n\n  0\nEOF\n"), "t.dxf: line 1: invalid group code ''");
}

TEST(AsciiText, UnreadableFilesNameTheFileAndTheReason) {
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

    BinaryDrawing& code(int c, std::string_view value) {
        tagStarts.push_back(bytes.size());
        if (r12 && c < 255) {
            bytes += static_cast<char>(c);
        } else {
            if (r12) bytes += '\xff';  // a 16-bit code follows
            bytes += static_cast<char>(c & 0xff);
            bytes += static_cast<char>(c >> 8);
        }
        const std::string cs = std::to_string(c);
        text += std::string(cs.size() < 3 ? 3 - cs.size() : 0, ' ') + cs + "\n" + std::string(value) + "\n";
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
    BinaryDrawing& str(int c, std::string_view v, std::string_view asText) {
        code(c, asText);
        bytes += v;
        bytes += '\0';
        return *this;
    }
    BinaryDrawing& str(int c, std::string_view v) { return str(c, v, v); }
    BinaryDrawing& chunk(int c, std::string_view data, std::string_view asText) {
        code(c, asText);
        bytes += static_cast<char>(data.size());
        bytes += data;
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

TEST(BinaryText, EveryValueTypeConvertsInR12AndLaterLayouts) {
    for (bool r12 : {true, false}) {
        const BinaryDrawing b = sampleOfEveryType(r12);
        const DrawingText d = dxf::drawingTextFromBytes(b.bytes, "b.dxf");
        EXPECT_TRUE(d.wasBinary);
        EXPECT_EQ(d.eol, "\n");
        EXPECT_EQ(d.text, b.text) << (r12 ? "R12" : "R2000");
        // Every tag maps back to where it starts in the file.
        dxf::Tokenizer tok(d);
        std::size_t k = 0;
        for (TagView t; tok.next(t); ++k) {
            ASSERT_LT(k, b.tagStarts.size());
            EXPECT_EQ(d.where(t.offset), "byte " + std::to_string(b.tagStarts[k]));
        }
        EXPECT_EQ(k, b.tagStarts.size());
    }
}

TEST(BinaryText, TruncationAnywhereInsideATagIsAnErrorAtThatTag) {
    for (bool r12 : {true, false}) {
        const BinaryDrawing b = sampleOfEveryType(r12);
        for (std::size_t cut = kSentinel.size(); cut < b.bytes.size(); ++cut) {
            const std::string e = errorOf([&] { dxf::drawingTextFromBytes(b.bytes.substr(0, cut), "b.dxf"); });
            auto next = std::upper_bound(b.tagStarts.begin(), b.tagStarts.end(), cut);
            if (*std::prev(next) == cut) {
                EXPECT_EQ(e, "") << cut;  // a cut between tags is just a shorter drawing
            } else {
                EXPECT_EQ(e.rfind("b.dxf: byte " + std::to_string(*std::prev(next)) + ": truncated", 0), 0u)
                    << "cut at " << cut << ": " << e;
            }
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

TEST(BinaryText, LineBreaksInsideStringsBecomeCaretCodes) {
    BinaryDrawing b{true};
    b.str(1, "two\nlines\r", "two^Jlines^M").str(0, "EOF");
    const DrawingText d = dxf::drawingTextFromBytes(b.bytes, "b");
    EXPECT_EQ(tagsOf(d), (Tags{{1, "two^Jlines^M"}, {0, "EOF"}}));
}

TEST(BinaryText, CorpusBinariesMatchAnIndependentReader) {
    // Tag counts and tags as ezdxf reads these files.
    struct Known {
        const char* path;
        std::size_t tags;
        std::size_t index;
        Tags expected;
    };
    const Known known[] = {
        {"ezdxf/integration_tests/data/bin_dxf_r12.dxf",
         499,
         470,
         {{0, "LINE"}, {5, "111"}, {8, "0"}, {10, "335.7175512218761"}, {20, "383.1616235910567"}, {30, "0.0"}}},
        {"ezdxf/integration_tests/data/bin_dxf_r13.dxf", 2075, 0, {{0, "SECTION"}, {2, "HEADER"}, {9, "$ACADVER"}, {1, "AC1012"}}},
        {"ezdxf/integration_tests/data/bin_dxf_r14.dxf", 2083, 0, {{0, "SECTION"}, {2, "HEADER"}, {9, "$ACADVER"}, {1, "AC1014"}}},
        {"ezdxf/integration_tests/data/bin_dxf_r2000.dxf",
         1332,
         878,
         {{0, "TEXT"}, {5, "2D"}, {330, "17"}, {100, "AcDbEntity"}, {8, "0"}, {100, "AcDbText"}, {10, "0.0"},
          {20, "0.0"}, {30, "0.0"}, {40, "2.5"}, {1, "ezdxf"}, {100, "AcDbText"}, {1001, "PE_URL"},
          {1000, "http://ezdxf.mozman.at"}}},
        {"ixmilia-dxf/9bd0387/src/IxMilia.Dxf.Test/diamond-bin.dxf",
         100,
         2,
         {{0, "LINE"}, {8, "0"}, {10, "45.0"}, {20, "45.0"}, {30, "0.0"}, {11, "45.0"}, {21, "-45.0"}}},
    };
    for (const Known& k : known) {
        SCOPED_TRACE(k.path);
        const DrawingText d = dxf::loadDrawingText(kCorpus + k.path);
        ASSERT_TRUE(d.wasBinary);
        const Tags tags = tagsOf(d);
        ASSERT_EQ(tags.size(), k.tags);
        EXPECT_EQ(tags.back(), (std::pair<int, std::string>{0, "EOF"}));
        EXPECT_EQ(Tags(tags.begin() + static_cast<long>(k.index),
                       tags.begin() + static_cast<long>(k.index + k.expected.size())),
                  k.expected);
    }
    const Tags r2000 = tagsOf(dxf::loadDrawingText(kCorpus + known[3].path));
    EXPECT_EQ(r2000[429], (std::pair<int, std::string>{290, "0"}));
    EXPECT_EQ(r2000[437], (std::pair<int, std::string>{290, "1"}));
}

// ---- value types and numbers ----------------------------------------------

TEST(ValueTypes, RangeBoundaries) {
    using V = dxf::ValueType;
    // Edges where a neighbouring range has another type, and the R2000+
    // additions whose sizes binary files depend on.
    const std::pair<int, V> cases[] = {
        {9, V::String},    {10, V::Double},  {59, V::Double},  {60, V::Int16},   {80, V::String},
        {90, V::Int32},    {105, V::Handle}, {160, V::Int64},  {290, V::Bool},   {310, V::Binary},
        {320, V::Handle},  {389, V::Int16},  {390, V::Handle}, {420, V::Int32},  {459, V::Int32},
        {460, V::Double},  {481, V::Handle}, {999, V::String}, {1004, V::Binary}, {1005, V::Handle},
        {1059, V::Double}, {1070, V::Int16}, {1071, V::Int32}, {1072, V::String}, {-1, V::String},
    };
    for (auto [code, type] : cases) EXPECT_EQ(dxf::valueType(code), type) << code;
}

TEST(Numbers, LenientParsing) {
    long long i = 0;
    EXPECT_TRUE(dxf::parseInt("     42", i));
    EXPECT_EQ(i, 42);
    EXPECT_TRUE(dxf::parseInt(" +7 \r", i));
    EXPECT_EQ(i, 7);
    EXPECT_TRUE(dxf::parseInt("-9223372036854775808", i));
    EXPECT_EQ(i, INT64_MIN);
    for (const char* bad : {"", "  ", "+", "+-1", "++1", "1.0", "12a", "1 2", "0x10", "99999999999999999999"})
        EXPECT_FALSE(dxf::parseInt(bad, i)) << bad;

    double v = 0;
    EXPECT_TRUE(dxf::parseDouble(" 1.5 ", v));
    EXPECT_EQ(v, 1.5);
    EXPECT_TRUE(dxf::parseDouble("+.5", v));
    EXPECT_EQ(v, 0.5);
    EXPECT_TRUE(dxf::parseDouble("-1E+3", v));
    EXPECT_EQ(v, -1000.0);
    EXPECT_TRUE(dxf::parseDouble("7", v));
    EXPECT_EQ(v, 7.0);
    for (const char* bad : {"", " ", "1,5", "1.5.", "e5", "+-1", "1e", "abc"})
        EXPECT_FALSE(dxf::parseDouble(bad, v)) << bad;

    EXPECT_EQ(dxf::trim(" \t a b \r\n"), "a b");
}

TEST(Numbers, FormatDoubleIsShortestAndReadsBack) {
    EXPECT_EQ(dxf::formatDouble(0.0), "0.0");
    EXPECT_EQ(dxf::formatDouble(-0.0), "-0.0");
    EXPECT_EQ(dxf::formatDouble(10.0), "10.0");
    EXPECT_EQ(dxf::formatDouble(0.1), "0.1");
    EXPECT_EQ(dxf::formatDouble(335.7175512218761), "335.7175512218761");
    EXPECT_EQ(dxf::formatDouble(1e300), "1e+300");
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
    dxf::appendTag(out, 10, "1.0", "\n");
    dxf::appendTag(out, 100, "AcDbLine", "\n");
    dxf::appendTag(out, 1001, "APP", "\n");
    EXPECT_EQ(out, "  0\r\nLINE\r\n 10\n1.0\n100\nAcDbLine\n1001\nAPP\n");
    EXPECT_EQ(tagsOf(out), (Tags{{0, "LINE"}, {10, "1.0"}, {100, "AcDbLine"}, {1001, "APP"}}));
}

}  // namespace
