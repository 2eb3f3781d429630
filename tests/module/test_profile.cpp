// Profile files: the bytes written, in-place edits, name matching, values,
// encodings, and files that are missing, strange or too large.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "suite/wyprofile.h"

namespace {

namespace fs = std::filesystem;

class WyProfile : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string templ = ::testing::TempDir() + "wyprofile-XXXXXX";
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        dir_ = templ;
        path_ = dir_ / "standard.std";
    }
    void TearDown() override { fs::remove_all(dir_); }

    static void putBytes(const fs::path& p, const std::string& bytes)
    {
        std::ofstream(p, std::ios::binary | std::ios::trunc) << bytes;
    }
    static std::string bytesOf(const fs::path& p)
    {
        std::ifstream in(p, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::wstring wpath() const { return path_.wstring(); }
    std::wstring get(const std::wstring& section, const std::wstring& key, const std::wstring& def = L"") const
    {
        return wyGetProfileString(section, key, def, wpath());
    }
    BOOL put(const wchar_t* section, const wchar_t* key, const wchar_t* value) const
    {
        return WritePrivateProfileStringW(section, key, value, wpath().c_str());
    }
    // The list a null section or key answers, split at its terminators.
    std::vector<std::wstring> list(const wchar_t* section, DWORD size, DWORD* returned = nullptr) const
    {
        std::vector<wchar_t> buffer(size, L'#');
        const DWORD n = GetPrivateProfileStringW(section, nullptr, L"", buffer.data(), size, wpath().c_str());
        if (returned) *returned = n;
        std::vector<std::wstring> names;
        for (std::size_t i = 0; i < size && buffer[i] != L'\0'; ++i) {
            names.emplace_back(buffer.data() + i);
            i += names.back().size();
        }
        return names;
    }

    fs::path dir_;
    fs::path path_;
};

std::string utf16(const std::wstring& text, bool littleEndian)
{
    std::string out = littleEndian ? "\xFF\xFE" : "\xFE\xFF";
    auto unit = [&](unsigned v) {
        const char lo = char(v & 0xFF), hi = char(v >> 8);
        out += littleEndian ? std::string{lo, hi} : std::string{hi, lo};
    };
    for (wchar_t c : text) {
        const auto v = unsigned(c);
        if (v < 0x10000) {
            unit(v);
        } else {
            unit(0xD800 + ((v - 0x10000) >> 10));
            unit(0xDC00 + ((v - 0x10000) & 0x3FF));
        }
    }
    return out;
}

// --- writing ---------------------------------------------------------------------

TEST_F(WyProfile, WritesWindows1252WithCrLfAndValuesAsGiven)
{
    ASSERT_TRUE(put(L"Layer_Standard", L"Name", L"Mod\u00E8le\n"));
    ASSERT_TRUE(put(L"Model_Rules", L"Name_1 ", L"Vues calcul\u00E9es"));
    ASSERT_TRUE(put(L"Model_Rules", L"Field_1 ", L"=BUILDING()\n"));
    ASSERT_TRUE(put(L"Separator", L"Value", L". "));
    EXPECT_EQ(bytesOf(path_),
              "[Layer_Standard]\r\nName=Mod\xE8le\n\r\n"
              "[Model_Rules]\r\nName_1 =Vues calcul\xE9""es\r\nField_1 ==BUILDING()\n\r\n"
              "[Separator]\r\nValue=. \r\n");

    EXPECT_EQ(get(L"Layer_Standard", L"Name"), L"Mod\u00E8le");
    EXPECT_EQ(get(L"model_rules", L"NAME_1"), L"Vues calcul\u00E9es");
    EXPECT_EQ(get(L"Model_Rules", L"Field_1"), L"=BUILDING()");
    EXPECT_EQ(get(L"Separator", L"Value"), L".");
}

TEST_F(WyProfile, WritesAQuestionMarkForWhatWindows1252CannotHold)
{
    ASSERT_TRUE(put(L"S", L"K", L"\u03A9\u20AC\u017E\U0001F600\u00FF"));
    EXPECT_EQ(bytesOf(path_), "[S]\r\nK=?\x80\x9E?\xFF\r\n");
}

TEST_F(WyProfile, EditsOneLineAndKeepsEveryOtherByte)
{
    putBytes(path_, "; header\n[One]\n  alpha = 1 \nbeta=2\n\n[Two]\r\ngamma=3");
    ASSERT_TRUE(put(L" ONE ", L"ALPHA ", L"x"));
    EXPECT_EQ(bytesOf(path_), "; header\n[One]\nALPHA =x\nbeta=2\n\n[Two]\r\ngamma=3");
    // A new key goes after the section's last line, before its blank lines.
    ASSERT_TRUE(put(L"one", L"delta", L"4"));
    EXPECT_EQ(bytesOf(path_), "; header\n[One]\nALPHA =x\nbeta=2\ndelta=4\r\n\n[Two]\r\ngamma=3");
    // A last line without a line end gets one.
    ASSERT_TRUE(put(L"Two", L"k", L"v"));
    EXPECT_EQ(bytesOf(path_), "; header\n[One]\nALPHA =x\nbeta=2\ndelta=4\r\n\n[Two]\r\ngamma=3\r\nk=v\r\n");
    ASSERT_TRUE(put(L"Three", L"k", L"v"));
    EXPECT_EQ(bytesOf(path_),
              "; header\n[One]\nALPHA =x\nbeta=2\ndelta=4\r\n\n[Two]\r\ngamma=3\r\nk=v\r\n[Three]\r\nk=v\r\n");

    // A null value removes a key, a null key a section; removing nothing
    // creates nothing.
    ASSERT_TRUE(put(L"one", L"BETA", nullptr));
    ASSERT_TRUE(put(L"Two", nullptr, nullptr));
    EXPECT_EQ(bytesOf(path_), "; header\n[One]\nALPHA =x\ndelta=4\r\n\n[Three]\r\nk=v\r\n");
    const fs::path other = dir_ / "none.std";
    EXPECT_TRUE(WritePrivateProfileStringW(L"Q", nullptr, nullptr, other.wstring().c_str()));
    EXPECT_FALSE(fs::exists(other));
}

TEST_F(WyProfile, ReplacesTheFileWholeAndKeepsItsPermissions)
{
    putBytes(path_, "[S]\r\nk=1\r\n");
    const auto perms = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    fs::permissions(path_, perms);
    ASSERT_TRUE(put(L"S", L"k", L"2"));
    EXPECT_EQ(fs::status(path_).permissions(), perms);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);

    // Through a link, the file it names is written and the link stays.
    const fs::path link = dir_ / "link.std";
    fs::create_symlink(path_, link);
    ASSERT_TRUE(WritePrivateProfileStringW(L"S", L"k", L"3", link.wstring().c_str()));
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(bytesOf(path_), "[S]\r\nk=3\r\n");
}

// --- reading ---------------------------------------------------------------------

TEST_F(WyProfile, MatchesNamesWithoutRegardToCaseOrBlanks)
{
    putBytes(path_, "  [ Vues Calcul\xE9""es ]  \r\n\tCl\xE9 =  valeur  \r\n");
    EXPECT_EQ(get(L"VUES CALCUL\u00C9ES", L" CL\u00C9 "), L"valeur");
    EXPECT_EQ(get(L"vues calcul\u00E9es", L"cl\u00E9"), L"valeur");
    EXPECT_EQ(get(L"vues calculees", L"cle", L"none"), L"none");
}

TEST_F(WyProfile, StripsOnePairOfSurroundingQuotes)
{
    putBytes(path_, "[S]\r\na=\"x y\"\r\nb='z'\r\nc=\"open\r\nd=\"\"q\"\"\r\ne= \" padded \" \r\nf=\"\r\n");
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"a", L"x y"}, {L"b", L"z"}, {L"c", L"\"open"}, {L"d", L"\"q\""}, {L"e", L" padded "}, {L"f", L"\""}};
    for (const auto& [key, value] : cases) EXPECT_EQ(get(L"S", key), value) << key;
}

TEST_F(WyProfile, IgnoresCommentsBlankLinesAndStrayLines)
{
    using namespace std::string_literals;
    putBytes(path_, "k=0\r\n[S]\r\n;k=1\r\n\r\n  ; k=2\r\nnot a key\r\n[broken\r\nk=3\n\rj=4\0i=5"s);
    EXPECT_EQ(get(L"S", L"k"), L"3");
    EXPECT_EQ(get(L"S", L"j"), L"4");
    EXPECT_EQ(get(L"S", L"i"), L"5");

    // Only the first section and the first key of a name count.
    putBytes(path_, "[S]\r\nk=1\r\nK=2\r\n[T]\r\n[s]\r\nk=3\r\nj=4\r\n");
    EXPECT_EQ(get(L"S", L"k"), L"1");
    EXPECT_EQ(get(L"S", L"j", L"none"), L"none");
    ASSERT_TRUE(put(L"s", L"j", L"5"));
    EXPECT_EQ(bytesOf(path_), "[S]\r\nk=1\r\nK=2\r\nj=5\r\n[T]\r\n[s]\r\nk=3\r\nj=4\r\n");
}

TEST_F(WyProfile, CutsToTheBufferAndAnswersTheCount)
{
    const std::wstring longValue(150, L'v');
    ASSERT_TRUE(put(L"S", L"k", longValue.c_str()));
    wchar_t buffer[101];
    std::fill(std::begin(buffer), std::end(buffer), L'#');
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"k", L"", buffer, 100, wpath().c_str()), 99u);
    EXPECT_EQ(std::wstring(buffer), longValue.substr(0, 99));
    EXPECT_EQ(buffer[100], L'#');

    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"k", L"", buffer, 1, wpath().c_str()), 0u);
    EXPECT_EQ(buffer[0], L'\0');
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"k", L"", nullptr, 100, wpath().c_str()), 0u);
    // The default loses its trailing blanks and is cut like a value.
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"none", L" abc  ", buffer, 100, wpath().c_str()), 4u);
    EXPECT_EQ(std::wstring(buffer), L" abc");
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"none", L"abcdef", buffer, 4, wpath().c_str()), 3u);
    EXPECT_EQ(std::wstring(buffer), L"abc");
    EXPECT_EQ(GetPrivateProfileStringW(L"S", L"none", nullptr, buffer, 100, wpath().c_str()), 0u);
    EXPECT_EQ(wyGetProfileString(L"S", L"k", L"", wpath(), 10), longValue.substr(0, 9));
}

TEST_F(WyProfile, ListsSectionAndKeyNames)
{
    putBytes(path_, "[A]\r\na=1\r\nb=2\r\nA=3\r\n[B]\r\n[a]\r\nc=3\r\n");
    DWORD n = 0;
    EXPECT_EQ(list(nullptr, 100, &n), (std::vector<std::wstring>{L"A", L"B"}));
    EXPECT_EQ(n, 4u);
    EXPECT_EQ(list(L"a", 100, &n), (std::vector<std::wstring>{L"a", L"b"}));
    EXPECT_EQ(n, 4u);
    // A list that does not fit is cut and answers size - 2.
    EXPECT_EQ(list(nullptr, 4, &n), (std::vector<std::wstring>{L"A"}));
    EXPECT_EQ(n, 2u);
}

// --- encodings -------------------------------------------------------------------

TEST_F(WyProfile, ReadsWindows1252Utf8AndUtf16Files)
{
    const std::string utf8 = "[Layer_Standard]\r\nName=Mod\xC3\xA8le\n\r\n[Vues]\r\nName_1 =Vues calcul\xC3\xA9""es\r\n";
    const std::wstring wide = L"[Layer_Standard]\r\nName=Mod\u00E8le\n\r\n[Vues]\r\nName_1 =Vues calcul\u00E9es\r\n";
    const std::string files[] = {
        "[Layer_Standard]\r\nName=Mod\xE8le\n\r\n[Vues]\r\nName_1 =Vues calcul\xE9""es\r\n",
        utf8, "\xEF\xBB\xBF" + utf8, utf16(wide, true), utf16(wide, false)};
    for (const std::string& file : files) {
        putBytes(path_, file);
        EXPECT_EQ(get(L"Layer_Standard", L"Name"), L"Mod\u00E8le");
        EXPECT_EQ(get(L"VUES", L"name_1"), L"Vues calcul\u00E9es");
    }
    putBytes(path_, utf16(L"[S]\r\nk=\U0001F600\r\n", true));
    EXPECT_EQ(get(L"S", L"k"), L"\U0001F600");
    // Bytes that do not form UTF-8 make the whole file Windows-1252.
    putBytes(path_, "[S]\r\na=\xC3\xA8\r\nb=\x80\x81\xE8\r\n");
    EXPECT_EQ(get(L"S", L"a"), L"\u00C3\u00A8");
    EXPECT_EQ(get(L"S", L"b"), L"\u20AC\u0081\u00E8");
}

TEST_F(WyProfile, KeepsTheEncodingOfAUnicodeFile)
{
    putBytes(path_, utf16(L"[S]\r\na=1\r\n", true));
    ASSERT_TRUE(put(L"S", L"b", L"\u03A9\u00E8"));
    EXPECT_EQ(bytesOf(path_), utf16(L"[S]\r\na=1\r\nb=\u03A9\u00E8\r\n", true));

    putBytes(path_, "[S]\r\na=\xC3\xA8\r\n");
    ASSERT_TRUE(put(L"S", L"b", L"\u03A9"));
    EXPECT_EQ(bytesOf(path_), "[S]\r\na=\xC3\xA8\r\nb=\xCE\xA9\r\n");
}

// --- files that are missing, strange or large -------------------------------------

TEST_F(WyProfile, MissingEmptyAndSpecialFilesReadAsNothing)
{
    EXPECT_EQ(get(L"S", L"k", L"def"), L"def");
    EXPECT_TRUE(list(nullptr, 10).empty());
    putBytes(path_, "");
    EXPECT_EQ(get(L"S", L"k", L"def"), L"def");
    EXPECT_EQ(wyGetProfileString(L"S", L"k", L"def", dir_.wstring()), L"def");
    EXPECT_EQ(wyGetProfileString(L"S", L"k", L"def", L""), L"def");
    // A pipe nobody writes to must not block.
    const fs::path fifo = dir_ / "pipe.std";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(wyGetProfileString(L"S", L"k", L"def", fifo.wstring()), L"def");
    EXPECT_FALSE(WritePrivateProfileStringW(L"S", L"k", L"v", fifo.wstring().c_str()));
    EXPECT_FALSE(WritePrivateProfileStringW(L"S", L"k", L"v", dir_.wstring().c_str()));
    // A missing file is created, a missing folder is not.
    const fs::path nested = dir_ / "missing" / "x.std";
    EXPECT_FALSE(WritePrivateProfileStringW(L"S", L"k", L"v", nested.wstring().c_str()));
    EXPECT_FALSE(fs::exists(nested.parent_path()));
    EXPECT_FALSE(WritePrivateProfileStringW(nullptr, L"k", L"v", wpath().c_str()));
    EXPECT_FALSE(WritePrivateProfileStringW(L"S", L"k", L"v", nullptr));
    fs::remove(path_);
    EXPECT_TRUE(put(L"S", L"k", L"v"));
    EXPECT_EQ(get(L"S", L"k"), L"v");
}

TEST_F(WyProfile, BinaryGarbageReadsAsWhatItHoldsAndIsKeptOnWrite)
{
    std::string garbage;
    for (int b = 0; b < 256; ++b) garbage.push_back(char(b));
    std::mt19937 random(7);
    for (int i = 0; i < 256 * 1024; ++i) garbage.push_back(char(random() & 0xFF));
    garbage += "\r\n";
    putBytes(path_, garbage);
    EXPECT_EQ(get(L"Zeft", L"k", L"def"), L"def");
    list(nullptr, 4096);
    ASSERT_TRUE(put(L"Zeft", L"k", L"v"));
    const std::string after = bytesOf(path_);
    ASSERT_GE(after.size(), garbage.size());
    EXPECT_EQ(after.substr(0, garbage.size()), garbage);
    EXPECT_EQ(after.substr(garbage.size()), "[Zeft]\r\nk=v\r\n");
    EXPECT_EQ(get(L"Zeft", L"k"), L"v");
}

TEST_F(WyProfile, AbsurdlyLongLinesAreCut)
{
    putBytes(path_, "[S]\r\nk=" + std::string(4 << 20, 'x') + "\r\n" + std::string(3 << 20, '[') + "\r\nj=1\r\n");
    EXPECT_EQ(get(L"S", L"k"), std::wstring(99, L'x'));
    EXPECT_EQ(get(L"S", L"j"), L"1");
}

TEST_F(WyProfile, ThousandsOfSectionsStayQuick)
{
    std::string text;
    const int count = 20000;
    for (int i = 1; i <= count; ++i) text += "[S_" + std::to_string(i) + "]\r\nk=" + std::to_string(i) + "\r\n";
    putBytes(path_, text);
    for (int i = 1; i <= count; ++i) ASSERT_EQ(get(L"S_" + std::to_wstring(i), L"k"), std::to_wstring(i));
    EXPECT_EQ(list(nullptr, 1 << 20).size(), std::size_t(count));
    ASSERT_TRUE(put(L"S_10", L"k", L"ten"));
    EXPECT_EQ(get(L"s_10", L"K"), L"ten");
    EXPECT_EQ(get(L"S_11", L"k"), L"11");
}

TEST_F(WyProfile, OnlyTheFirst16MiBAreReadAndALargerFileIsNotRewritten)
{
    std::string text = "[S]\r\nk=v\r\n";
    const std::string filler = ";" + std::string(1022, '-') + "\n";
    while (text.size() < (std::size_t(17) << 20)) text += filler;
    text += "[T]\r\nk=late\r\n";
    putBytes(path_, text);
    EXPECT_EQ(get(L"S", L"k"), L"v");
    EXPECT_EQ(get(L"T", L"k", L"def"), L"def");
    EXPECT_FALSE(put(L"S", L"k", L"w"));
    EXPECT_EQ(fs::file_size(path_), text.size());
}

TEST_F(WyProfile, SeesAChangeMadeBehindItsBack)
{
    putBytes(path_, "[S]\r\nk=a\r\n");
    ASSERT_EQ(get(L"S", L"k"), L"a");
    const auto time = fs::last_write_time(path_);
    {
        // Same size, same file, same modification time.
        std::fstream f(path_, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(7);
        f.put('b');
    }
    fs::last_write_time(path_, time);
    EXPECT_EQ(get(L"S", L"k"), L"b");
}

}  // namespace
