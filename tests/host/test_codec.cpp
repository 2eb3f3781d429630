#include "host/dxf/codec.h"
#include "host/dxf/dxftext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace {

using dxf::Codec;

Codec page(std::string_view name) { return Codec::forDrawing("AC1015", name); }

std::string allBytes() {
    std::string s;
    for (int b = 0; b < 256; ++b) s += static_cast<char>(b);
    return s;
}

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
    struct Case {
        const char* page;
        std::string bytes;
        std::wstring text;
    };
    const Case cases[] = {
        {"ANSI_1252", "Mod\xe8le", L"Mod\u00e8le"},
        {"DOS850", "\x90" "bauche \xa4", L"\u00c9bauche \u00f1"},
        {"dos437", "\xe1\xfb", L"\u00df\u221a"},
        {"ANSI_1256", "\xd8\xc8\xde\xc9", L"\u0637\u0628\u0642\u0629"},
        {"ANSI_1251", "\xd1\xeb\xee\xe9", L"\u0421\u043b\u043e\u0439"},
        {"MAC-ROMAN", "Caf\x8e \xdb", L"Caf\u00e9 \u20ac"},
        {"dos932", "\x90\x7d\x96\xca ABC", L"\u56f3\u9762 ABC"},
        {"ANSI_936", "\xb2\xe3", L"\u5c42"},
        {"ANSI_949", "\xb7\xb9\xc0\xcc\xbe\xee", L"\ub808\uc774\uc5b4"},
        {"ANSI_950", "\xb9\xcf", L"\u5716"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.page);
        const Codec codec = page(c.page);
        EXPECT_EQ(codec.decode(c.bytes), c.text);
        EXPECT_EQ(codec.encode(c.text), c.bytes);
    }
}

TEST(Codec, EveryByteOfEverySingleBytePageRoundTrips) {
    const std::string bytes = allBytes();
    for (const char* name : {"ANSI_874", "ANSI_1250", "ANSI_1251", "ANSI_1252", "ANSI_1253", "ANSI_1254",
                             "ANSI_1255", "ANSI_1256", "ANSI_1257", "ANSI_1258", "DOS437", "DOS850", "DOS852",
                             "DOS855", "DOS857", "DOS860", "DOS861", "DOS863", "DOS864", "DOS865", "DOS866",
                             "DOS869", "MAC-ROMAN", "ISO8859_1", "ISO8859_7"}) {
        SCOPED_TRACE(name);
        const Codec codec = page(name);
        const std::wstring text = codec.decode(bytes);
        ASSERT_EQ(text.size(), 256u);
        EXPECT_EQ(codec.encode(text), bytes);
    }
    // Undefined bytes are kept as private characters.
    EXPECT_EQ(page("ANSI_1252").decode("\x81\x8d"), L"\uf781\uf78d");
}

TEST(Codec, MultiByteInvalidSequencesRoundTrip) {
    const std::string junk[] = {"\x81", "A\x81", "\xa0\xfd\xfe\xff", "\x85\x40x", "\x81\x20\x90\x7d"};
    for (const char* name : {"dos932", "ANSI_936", "ANSI_949", "ANSI_950", "ANSI_1361", "BIG5"}) {
        SCOPED_TRACE(name);
        const Codec codec = page(name);
        for (const std::string& bytes : junk) EXPECT_EQ(codec.encode(codec.decode(bytes)), bytes);
        EXPECT_EQ(codec.encode(codec.decode(allBytes())), allBytes());
    }
    // CP950 holds U+F700.. itself, so its undefined bytes take surrogates.
    EXPECT_EQ(page("ANSI_950").decode("\xff"), std::wstring(1, static_cast<wchar_t>(0xDCFF)));
    EXPECT_EQ(page("dos932").decode("\xff"), L"\uf7ff");
    const Codec big5 = page("ANSI_950");
    EXPECT_EQ(big5.encode(L"\uf700").size(), 2u);
    EXPECT_EQ(big5.decode(big5.encode(L"\uf700")), L"\uf700");
}

TEST(Codec, CharactersOutsideThePageBecomeEscapes) {
    const Codec cp1252 = page("ANSI_1252");
    const std::wstring text = L"Mod\u00e8le \u4e2d \U0001F600";
    const std::string bytes = cp1252.encode(text);
    EXPECT_EQ(bytes, "Mod\xe8le \\U+4E2D \\U+D83D\\U+DE00");
    EXPECT_EQ(cp1252.decode(bytes), text);
    EXPECT_EQ(page("dos932").encode(L"\u56f3\ud55c"), "\x90\x7d\\U+D55C");
    EXPECT_EQ(page("dos932").decode("\x90\x7d\\U+D55C"), L"\u56f3\ud55c");
}

TEST(Codec, EscapesAreDecodedInEveryVersion) {
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

TEST(Codec, Utf8InvalidBytesRoundTrip) {
    const Codec utf8;
    EXPECT_EQ(utf8.decode("Mod\xc3\xa8le \xe5\x9b\xb3 \xf0\x9f\x98\x80"), L"Mod\u00e8le \u56f3 \U0001F600");
    EXPECT_EQ(utf8.decode("a\x80z\xff"), std::wstring(L"a") + wchar_t(0xDC80) + L"z" + wchar_t(0xDCFF));
    for (const std::string bytes :
         {"\x80", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80", "\xed\xb2\x80", "\xe2\x82", "x\xe2\x82",
          "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xc3", "ok\xc3\xa8\xc3"}) {
        EXPECT_EQ(utf8.encode(utf8.decode(bytes)), bytes);
    }
    const std::string mixed = allBytes().substr(0x80) + allBytes();
    EXPECT_EQ(utf8.encode(utf8.decode(mixed)), mixed);
    // Surrogates that do not stand for bytes cannot be written as UTF-8.
    EXPECT_EQ(utf8.encode(std::wstring(1, static_cast<wchar_t>(0xD800))), "\\U+D800");
}

TEST(Codec, Utf8Helpers) {
    EXPECT_EQ(dxf::toUtf8(L"Mod\u00e8le \U0001F600"), "Mod\xc3\xa8le \xf0\x9f\x98\x80");
    EXPECT_EQ(dxf::fromUtf8("Mod\xc3\xa8le"), L"Mod\u00e8le");
    EXPECT_EQ(dxf::toUtf8(dxf::fromUtf8("bad\xff name")), "bad\xff name");  // file names survive
    EXPECT_EQ(dxf::toUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xef\xbf\xbd");
    EXPECT_EQ(dxf::fromUtf8("\\U+4E2D"), L"\\U+4E2D");  // no DXF escapes here
}

// Every corpus drawing tokenizes to its EOF, and every string of it survives
// decode and encode: byte for byte, or, where "\U+" escapes were normalised,
// as the same text.
TEST(Codec, CorpusStringsRoundTrip) {
    std::size_t values = 0, files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(ZEFT_CORPUS_DIR "/dxf")) {
        const std::string ext = entry.path().extension().string();
        if (!entry.is_regular_file() || (ext != ".dxf" && ext != ".DXF")) continue;
        SCOPED_TRACE(entry.path().string());
        ++files;
        const dxf::DrawingText d = dxf::loadDrawingText(entry.path().string());
        std::vector<dxf::TagView> tags;
        dxf::Tokenizer tok(d);
        for (dxf::TagView t; tok.next(t);) tags.push_back(t);
        EXPECT_TRUE(std::any_of(tags.begin(), tags.end(), [](const dxf::TagView& t) {
            return t.code == 0 && t.value == "EOF";
        }));
        std::string acadver, codepage;
        for (std::size_t k = 0; k + 1 < tags.size() && k < 40; ++k) {
            if (tags[k].code == 9 && tags[k].value == "$ACADVER") acadver = tags[k + 1].value;
            if (tags[k].code == 9 && tags[k].value == "$DWGCODEPAGE") codepage = tags[k + 1].value;
        }
        const Codec codec = Codec::forDrawing(acadver, codepage);
        for (const dxf::TagView& t : tags) {
            if (dxf::valueType(t.code) != dxf::ValueType::String) continue;
            ++values;
            const std::wstring text = codec.decode(t.value);
            const std::string back = codec.encode(text);
            const bool same = t.value.find("\\U+") == std::string_view::npos ? back == t.value
                                                                             : codec.decode(back) == text;
            if (!same) {
                ADD_FAILURE() << "value at " << d.where(t.offset) << ": '" << t.value << "' came back as '" << back
                              << "'";
                return;
            }
        }
    }
    EXPECT_GT(values, 10000u);
    EXPECT_GE(files, 100u);
}

}  // namespace
