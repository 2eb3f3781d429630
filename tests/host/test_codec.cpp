// Code pages, UTF-8 and "\U+" escapes. Strings of the corpus drawings are
// checked with the corpus (test_corpus.cpp).
#include "host/dxf/codec.h"
#include "host/dxf/dxftext.h"
#include "tests/host/builders.h"

#include <gtest/gtest.h>

namespace {

using dxf::Codec;

Codec page(std::string_view name) { return Codec::forDrawing("AC1015", name); }

std::string allBytes() {
    std::string s;
    for (int b = 0; b < 256; ++b) s += static_cast<char>(b);
    return s;
}

const std::wstring kSurrogate(1, static_cast<wchar_t>(0xD800));

TEST(Codec, VersionAndCodePageChooseTheEncoding) {
    EXPECT_TRUE(Codec().isUtf8());
    EXPECT_TRUE(Codec::forDrawing("AC1021", "ANSI_1252").isUtf8());
    EXPECT_TRUE(Codec::forDrawing("AC1032", "no such page").isUtf8());
    EXPECT_FALSE(Codec::forDrawing("AC1018", "ANSI_1252").isUtf8());
    EXPECT_FALSE(Codec::forDrawing("", "").isUtf8());
    EXPECT_EQ(Codec::forDrawing("AC1009", "").codePage(), "ANSI_1252");
    EXPECT_EQ(Codec::forDrawing("AC1009", "dos850").codePage(), "dos850");

    // Names are case-insensitive; empty, ASCII and UNDEFINED mean Windows-1252.
    for (const char* name : {"ansi_1252", "ANSI_1252", "Ansi_1252", "", "ASCII", "undefined", "UNDEFINED"})
        EXPECT_EQ(page(name).decode("Mod\xe8le\x80"), L"Mod\u00e8le\u20ac") << name;
    for (const char* name : {"ANSI_9999", "KOI8-R", "UTF-8", "DOS999", "ANSI_"})
        EXPECT_THROW(page(name), dxf::UnknownCodePage) << name;
}

TEST(Codec, KnownCharactersOfSeveralPages) {
    for (const auto& row : tableRows(ZEFT_SOURCE_DIR "/tests/data/host-codepages.tsv")) {
        SCOPED_TRACE(row.at(0));
        std::string bytes;
        for (std::size_t i = 0; i + 1 < row.at(1).size(); i += 2)
            bytes += static_cast<char>(std::stoi(row[1].substr(i, 2), nullptr, 16));
        EXPECT_EQ(page(row[0]).decode(bytes), dxf::fromUtf8(row.at(2)));
        EXPECT_EQ(page(row[0]).encode(dxf::fromUtf8(row[2])), bytes);
    }
}

// Bytes a page does not define, and broken multi-byte sequences, are kept as
// private characters (or surrogates) and written back as they were.
TEST(Codec, EveryByteRoundTripsInEveryPage) {
    const std::string bytes = allBytes();
    for (const char* name : {"ANSI_874", "ANSI_1250", "ANSI_1251", "ANSI_1252", "ANSI_1253", "ANSI_1254",
                             "ANSI_1255", "ANSI_1256", "ANSI_1257", "ANSI_1258", "DOS437", "DOS850", "DOS852",
                             "DOS855", "DOS857", "DOS860", "DOS861", "DOS863", "DOS864", "DOS865", "DOS866",
                             "DOS869", "MAC-ROMAN", "ISO8859_1", "ISO8859_7"}) {
        SCOPED_TRACE(name);
        const std::wstring text = page(name).decode(bytes);
        ASSERT_EQ(text.size(), 256u);
        EXPECT_EQ(page(name).encode(text), bytes);
    }
    EXPECT_EQ(page("ANSI_1252").decode("\x81\x8d"), L"\uf781\uf78d");

    const std::string junk[] = {"\x81", "A\x81", "\xa0\xfd\xfe\xff", "\x85\x40x", "\x81\x20\x90\x7d", bytes};
    for (const char* name : {"dos932", "ANSI_936", "ANSI_949", "ANSI_950", "ANSI_1361", "BIG5"}) {
        SCOPED_TRACE(name);
        for (const std::string& b : junk) EXPECT_EQ(page(name).encode(page(name).decode(b)), b);
    }
    // CP950 holds U+F700.. itself, so its undefined bytes take surrogates.
    EXPECT_EQ(page("ANSI_950").decode("\xff"), std::wstring(1, static_cast<wchar_t>(0xDCFF)));
    EXPECT_EQ(page("dos932").decode("\xff"), L"\uf7ff");
    EXPECT_EQ(page("ANSI_950").encode(L"\uf700").size(), 2u);
    EXPECT_EQ(page("ANSI_950").decode(page("ANSI_950").encode(L"\uf700")), L"\uf700");
}

TEST(Codec, CharactersOutsideThePageTravelAsEscapes) {
    const std::wstring text = L"Mod\u00e8le \u4e2d \U0001F600";
    EXPECT_EQ(page("ANSI_1252").encode(text), "Mod\xe8le \\U+4E2D \\U+D83D\\U+DE00");
    EXPECT_EQ(page("ANSI_1252").decode("Mod\xe8le \\U+4E2D \\U+D83D\\U+DE00"), text);
    EXPECT_EQ(page("dos932").encode(L"\u56f3\ud55c"), "\x90\x7d\\U+D55C");
    EXPECT_EQ(page("dos932").decode("\x90\x7d\\U+D55C"), L"\u56f3\ud55c");

    for (const Codec& codec : {Codec(), page("ANSI_1252"), page("dos932")}) {
        EXPECT_EQ(codec.decode("a\\U+4E2Db\\U+4e2d"), L"a\u4e2db\u4e2d");
        EXPECT_EQ(codec.decode("\\U+d83d\\U+de00"), L"\U0001F600");
        // Not escapes: wrong length, not hex, lower-case u, missing '+'.
        for (const char* literal : {"\\U+12G4", "\\U+123", "\\u+4E2D", "\\U4E2D", "\\U+", "\\"})
            EXPECT_EQ(codec.encode(codec.decode(literal)), literal);
        // A lone surrogate would not survive the way back.
        EXPECT_EQ(codec.decode("\\U+D83D x"), L"\\U+D83D x");
    }
    // Escapes naming a character that stands for a raw byte stay text, or the
    // bytes written back would change.
    EXPECT_EQ(page("ANSI_1252").decode("\\U+F781"), L"\\U+F781");
    EXPECT_EQ(page("ANSI_1252").decode("\\U+F741"), L"\uf741");
    EXPECT_EQ(Codec().decode("\\U+DC80"), L"\\U+DC80");
}

TEST(Codec, Utf8KeepsInvalidBytes) {
    const Codec utf8;
    EXPECT_EQ(utf8.decode("Mod\xc3\xa8le \xe5\x9b\xb3 \xf0\x9f\x98\x80"), L"Mod\u00e8le \u56f3 \U0001F600");
    EXPECT_EQ(utf8.decode("a\x80z\xff"), std::wstring(L"a") + wchar_t(0xDC80) + L"z" + wchar_t(0xDCFF));
    const std::string invalid[] = {"\x80", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80", "\xed\xb2\x80", "\xe2\x82", "x\xe2\x82",
          "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xc3", "ok\xc3\xa8\xc3", allBytes().substr(0x80) + allBytes()};
    for (const std::string& bytes : invalid) EXPECT_EQ(utf8.encode(utf8.decode(bytes)), bytes);
    // Surrogates that do not stand for bytes cannot be written as UTF-8.
    EXPECT_EQ(utf8.encode(kSurrogate), "\\U+D800");

    // The plain helpers (file names, messages) know no DXF escapes.
    EXPECT_EQ(dxf::toUtf8(L"Mod\u00e8le \U0001F600"), "Mod\xc3\xa8le \xf0\x9f\x98\x80");
    EXPECT_EQ(dxf::fromUtf8("Mod\xc3\xa8le"), L"Mod\u00e8le");
    EXPECT_EQ(dxf::toUtf8(dxf::fromUtf8("bad\xff name")), "bad\xff name");
    EXPECT_EQ(dxf::toUtf8(kSurrogate), "\xef\xbf\xbd");
    EXPECT_EQ(dxf::fromUtf8("\\U+4E2D"), L"\\U+4E2D");
}

}  // namespace
