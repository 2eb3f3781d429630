// Every drawing of the corpus that an independent reader loads must read and
// write back tag for tag, and the written text must read and write the same
// again. Drawings the host refuses on purpose are listed with the reason and
// must fail with a message that names the file and the line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "host/database.h"
#include "host/dxf/dxftext.h"
#include "tests/host/builders.h"

namespace {

namespace fs = std::filesystem;

const std::string kCorpusDir = ZEFT_CORPUS_DIR;

// Drawings refused by design: relative path in the corpus -> why.
const std::map<std::string, std::string> kRefused = {
    {"dxf/ezdxf/integration_tests/data/duplicate_handles.dxf", "duplicate handle"},
};

struct CorpusFile {
    std::string path;     // relative to the corpus directory; empty when the corpus is absent
    std::string version;  // $ACADVER from the manifest
    std::string format;   // "ascii" or "binary"
};

// Test names show the drawing's path, not the bytes of the parameter.
void PrintTo(const CorpusFile& f, std::ostream* os) { *os << (f.path.empty() ? "(no corpus)" : f.path); }

std::vector<std::string> splitTabs(const std::string& line)
{
    std::vector<std::string> out;
    std::string cell;
    std::istringstream in(line);
    while (std::getline(in, cell, '\t')) out.push_back(cell);
    if (!line.empty() && line.back() == '\t') out.emplace_back();
    return out;
}

// The manifest's rows that the independent reader loads; one placeholder
// (empty path) when the corpus is not there, so that the run reports a skip.
std::vector<CorpusFile> corpusFiles()
{
    std::ifstream in(kCorpusDir + "/manifest.tsv");
    if (!in) return {CorpusFile{}};
    std::string line;
    std::getline(in, line);
    std::vector<std::string> head = splitTabs(line);
    auto column = [&](const std::string& name) {
        for (std::size_t i = 0; i < head.size(); ++i)
            if (head[i] == name) return i;
        return std::size_t(-1);
    };
    const std::size_t cPath = column("path"), cLoad = column("ezdxf_load"), cVer = column("acadver"),
                      cFormat = column("format");
    std::vector<CorpusFile> out;
    while (std::getline(in, line)) {
        std::vector<std::string> row = splitTabs(line);
        auto cell = [&](std::size_t c) { return c < row.size() ? row[c] : std::string(); };
        if (cell(cLoad) != "ok" || cell(cPath).empty()) continue;
        out.push_back({cell(cPath), cell(cVer), cell(cFormat)});
    }
    if (out.empty()) out.push_back(CorpusFile{});
    return out;
}

using Tag = std::pair<int, std::string>;

std::vector<Tag> tagsOf(const dxf::DrawingText& d, std::vector<std::size_t>* offsets = nullptr)
{
    std::vector<Tag> out;
    dxf::Tokenizer tok(d);
    dxf::TagView t;
    while (tok.next(t)) {
        out.emplace_back(t.code, std::string(t.value));
        if (offsets) offsets->push_back(t.offset);
    }
    return out;
}

// "" when equal, else where the two tag lists part, with a few tags of context.
std::string firstDifference(const dxf::DrawingText& in, const dxf::DrawingText& out)
{
    std::vector<std::size_t> inOff, outOff;
    std::vector<Tag> a = tagsOf(in, &inOff), b = tagsOf(out, &outOff);
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
    if (i == a.size() && i == b.size()) return "";
    std::ostringstream msg;
    msg << "tag " << i << " differs (input " << a.size() << " tags, output " << b.size() << " tags)\n";
    auto show = [&](const char* what, const std::vector<Tag>& t, const std::vector<std::size_t>& off,
                    const dxf::DrawingText& d) {
        msg << what;
        if (i < t.size()) msg << " at " << d.where(off[i]);
        msg << ":";
        for (std::size_t k = i >= 3 ? i - 3 : 0; k < std::min(t.size(), i + 3); ++k)
            msg << (k == i ? "  >>" : "  ") << t[k].first << "='" << t[k].second << "'";
        msg << "\n";
    };
    show("input", a, inOff, in);
    show("output", b, outOff, out);
    return msg.str();
}

// The drawing writes the tags of `input` and the written text reads back and
// writes the very same text again, with every handle once.
void expectWritesBack(const AcDbDatabase& db, const dxf::DrawingText& input, const std::string& name)
{
    const std::string written = db.dxfText();
    const dxf::DrawingText output = dxf::drawingTextFromBytes(written, name + " (written)");
    EXPECT_FALSE(output.wasBinary);
    const std::string diff = firstDifference(input, output);
    EXPECT_EQ(diff, "") << name;

    std::unique_ptr<AcDbDatabase> again;
    try {
        again = AcDbDatabase::readDxfBytes(written, name + " (written)");
    } catch (const std::exception& e) {
        FAIL() << "written text does not read back: " << e.what();
    }
    const std::string rewritten = again->dxfText();
    if (rewritten != written) {
        const std::string d = firstDifference(output, dxf::drawingTextFromBytes(rewritten, "rewritten"));
        ADD_FAILURE() << "second write differs from the first" << (d.empty() ? " (same tags, other bytes)" : ":\n" + d);
    }
}

class CorpusDrawing : public ::testing::TestWithParam<CorpusFile> {
protected:
    void SetUp() override
    {
        if (GetParam().path.empty()) GTEST_SKIP() << "corpus not found at " << kCorpusDir;
        file = kCorpusDir + "/" + GetParam().path;
        if (!fs::exists(file)) GTEST_SKIP() << file << " is listed in the manifest but missing";
    }
    std::string file;
};

TEST_P(CorpusDrawing, WritesBackTagForTagAndIdempotently)
{
    if (auto r = kRefused.find(GetParam().path); r != kRefused.end()) {
        try {
            AcDbDatabase::readDxf(file);
            ADD_FAILURE() << file << " should be refused: " << r->second;
        } catch (const dxf::ParseError& e) {
            // "FILE: line N: ..." naming the reason.
            const std::string msg = e.what();
            ASSERT_EQ(msg.rfind(file, 0), 0u) << msg;
            const std::string rest = msg.substr(file.size());
            ASSERT_EQ(rest.rfind(": line ", 0), 0u) << msg;
            const std::size_t digits = rest.find_first_not_of("0123456789", 7);
            EXPECT_TRUE(digits > 7 && rest[7] != '0' && rest.compare(digits, 2, ": ") == 0 && rest.size() > digits + 2) << msg;
            EXPECT_NE(msg.find(r->second), std::string::npos) << msg;
        }
        return;
    }

    std::unique_ptr<AcDbDatabase> db;
    try {
        db = AcDbDatabase::readDxf(file);
    } catch (const std::exception& e) {
        FAIL() << "read failed: " << e.what();
    }
    EXPECT_EQ(db->version(), GetParam().version.empty() ? "AC1009" : GetParam().version);

    const dxf::DrawingText input = dxf::loadDrawingText(file);
    EXPECT_EQ(input.wasBinary, GetParam().format == "binary");
    expectWritesBack(*db, input, file);
}

std::string testName(const ::testing::TestParamInfo<CorpusFile>& info)
{
    if (info.param.path.empty()) return "corpus_absent";
    std::string base = fs::path(info.param.path).stem().string();
    std::string name;
    for (char c : base) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return std::to_string(info.index) + "_" + name;
}

INSTANTIATE_TEST_SUITE_P(corpus, CorpusDrawing, ::testing::ValuesIn(corpusFiles()), testName);

// ---- drawings of our own making, each of a class of real files ------------

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) text.replace(at, from.size(), to);
    return text;
}

std::string lineRecord(const std::string& handle, const std::string& owner, bool paper)
{
    std::string text = tagText({{0, "LINE"}, {5, handle}, {330, owner}, {100, "AcDbEntity"}});
    if (paper) text += tagText({{67, "1"}});
    return text + tagText({{8, "0"}, {100, "AcDbLine"}, {10, "0.0"}, {20, "0.0"}, {30, "0.0"}, {11, "1.0"}, {21, "2.0"}, {31, "0.0"}});
}

// Model space and the layout under anonymous names ("*U12"), their real names
// on the layouts only; with a line in each when `entities`.
std::string anonymousSpaces(bool entities)
{
    std::string text = replaced(replaced(AcDbDatabase().dxfText(), "*Model_Space", "*U12"), "*Paper_Space", "*U13");
    if (!entities) return text;
    return drawingWith("", "ENTITIES", lineRecord("2F0", "17", false) + lineRecord("2F1", "1B", true), text);
}

struct MadeDrawing {
    std::string name;
    std::string bytes;
    std::string writes;  // the drawing whose tags it writes; empty: its own
};
void PrintTo(const MadeDrawing& d, std::ostream* os) { *os << d.name; }

std::vector<MadeDrawing> madeDrawings()
{
    const std::string plain = AcDbDatabase().dxfText();
    return {
        {"dos_eof_character_after_eof", plain + "\x1a", plain},
        {"blank_lines_after_eof", plain + "\r\n\n  \n", plain},
        {"padding_after_eof", plain + std::string(4096, ' '), plain},
        {"nul_padding_after_eof", plain + std::string(1000, '\0'), plain},
        {"other_bytes_after_eof", plain + "\x1a\x1a junk\n 12\n", plain},
        {"anonymous_spaces", anonymousSpaces(true), ""},
        {"anonymous_spaces_without_entities", anonymousSpaces(false), ""},
    };
}

class MadeDrawingTest : public ::testing::TestWithParam<MadeDrawing> {};

TEST_P(MadeDrawingTest, WritesBackTagForTagAndIdempotently)
{
    const MadeDrawing& d = GetParam();
    std::unique_ptr<AcDbDatabase> db;
    try {
        db = AcDbDatabase::readDxfBytes(d.bytes, d.name);
    } catch (const std::exception& e) {
        FAIL() << "read failed: " << e.what();
    }
    expectWritesBack(*db, dxf::drawingTextFromBytes(d.writes.empty() ? d.bytes : d.writes, d.name), d.name);
}

INSTANTIATE_TEST_SUITE_P(made, MadeDrawingTest, ::testing::ValuesIn(madeDrawings()),
                         [](const auto& info) { return info.param.name; });

// Spaces are the block records the entities and layouts point at, whatever
// their names; an entity is written once, where it belongs.
TEST(made, AnonymousSpacesAreFoundByTheirOwnersAndLayouts)
{
    for (bool entities : {true, false}) {
        SCOPED_TRACE(entities ? "with entities" : "layouts only");
        auto db = AcDbDatabase::readDxfBytes(anonymousSpaces(entities), "anonymous.dxf");
        EXPECT_EQ(db->modelSpaceId().handle().str(), "17");
        EXPECT_EQ(db->paperSpaceId().handle().str(), "1B");
        const AcDbObjectId model = addLine(*db), paper = addLine(*db, {}, {2, 2, 0}, db->paperSpaceId());
        const std::string out = db->dxfText();
        const std::size_t entitiesAt = out.find("\nENTITIES\n"), objectsAt = out.find("\nOBJECTS\n");
        std::vector<std::string> handles = {model.handle().str(), paper.handle().str()};
        if (entities) handles.insert(handles.end(), {"2F0", "2F1"});
        for (const std::string& h : handles) {
            const std::string tag = "\n  5\n" + h + "\n";
            const std::size_t at = out.find(tag);
            EXPECT_TRUE(at > entitiesAt && at < objectsAt) << h << " is not in section ENTITIES";
            EXPECT_EQ(out.find(tag, at + 1), std::string::npos) << h << " is written twice";
        }
    }
}

// The list of refused drawings stays honest: every entry is in the manifest
// as a drawing the independent reader loads.
TEST(corpus, RefusedDrawingsAreLoadableCorpusDrawings)
{
    std::vector<CorpusFile> files = corpusFiles();
    if (files.size() == 1 && files[0].path.empty()) GTEST_SKIP() << "corpus not found at " << kCorpusDir;
    for (const auto& [path, why] : kRefused)
        EXPECT_TRUE(std::any_of(files.begin(), files.end(), [&](const CorpusFile& f) { return f.path == path; }))
            << path << " (" << why << ") is not a loadable drawing of the manifest";
}

}  // namespace
