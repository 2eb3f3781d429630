// Every drawing of the corpus that an independent reader loads must read and
// write back tag for tag, and the written text must read and write the same
// again. Drawings the host refuses on purpose are listed with the reason and
// must fail with a message that names the file and the line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>

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

// The manifest's rows that the independent reader loads; one placeholder
// (empty path) when the corpus is not there, so that the run reports a skip.
std::vector<CorpusFile> corpusFiles()
{
    const auto rows = tableRows(kCorpusDir + "/manifest.tsv");
    std::vector<CorpusFile> out;
    auto cell = [&](const std::vector<std::string>& row, const std::string& name) {
        const auto at = std::find(rows[0].begin(), rows[0].end(), name);
        return std::size_t(at - rows[0].begin()) < row.size() ? row[std::size_t(at - rows[0].begin())] : "";
    };
    for (std::size_t r = 1; r < rows.size(); ++r)
        if (cell(rows[r], "ezdxf_load") == "ok" && !cell(rows[r], "path").empty())
            out.push_back({cell(rows[r], "path"), cell(rows[r], "acadver"), cell(rows[r], "format")});
    if (out.empty()) out.push_back(CorpusFile{});
    return out;
}

// "" when equal, else the first tag where the two differ, with where it is in each.
std::string firstDifference(const dxf::DrawingText& in, const dxf::DrawingText& out)
{
    std::vector<std::size_t> inOff, outOff;
    const Tags a = tagsOf(in, &inOff), b = tagsOf(out, &outOff);
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
    if (i == a.size() && i == b.size()) return "";
    auto at = [i](const Tags& t, const std::vector<std::size_t>& off, const dxf::DrawingText& d) {
        if (i == t.size()) return std::string("the end");
        return d.where(off[i]) + ": " + std::to_string(t[i].first) + "='" + t[i].second + "'";
    };
    return "tag " + std::to_string(i) + " differs: input " + at(a, inOff, in) + ", output " + at(b, outOff, out);
}

// The drawing writes the tags of `input` and the written text reads back and
// writes the very same text again, with every handle once.
void expectWritesBack(const AcDbDatabase& db, const dxf::DrawingText& input, const std::string& name)
{
    const std::string written = db.dxfText();
    const dxf::DrawingText output = dxf::drawingTextFromBytes(written, name + " (written)");
    EXPECT_FALSE(output.wasBinary);
    EXPECT_EQ(firstDifference(input, output), "") << name;
    std::unique_ptr<AcDbDatabase> again;
    ASSERT_EQ(errorOf<std::exception>([&] { again = AcDbDatabase::readDxfBytes(written, name + " (written)"); }), "");
    const std::string rewritten = again->dxfText();
    if (rewritten != written) {
        const std::string d = firstDifference(output, dxf::drawingTextFromBytes(rewritten, "rewritten"));
        ADD_FAILURE() << "second write differs from the first" << (d.empty() ? " (same tags, other bytes)" : ":\n" + d);
    }
}

class CorpusDrawing : public ::testing::TestWithParam<CorpusFile> {};

TEST_P(CorpusDrawing, WritesBackTagForTagAndIdempotently)
{
    if (GetParam().path.empty()) GTEST_SKIP() << "corpus not found at " << kCorpusDir;
    const std::string file = kCorpusDir + "/" + GetParam().path;
    if (!fs::exists(file)) GTEST_SKIP() << file << " is listed in the manifest but missing";
    if (auto r = kRefused.find(GetParam().path); r != kRefused.end()) {
        // "FILE: line N: ..." naming the reason.
        const std::string msg = errorOf([&] { AcDbDatabase::readDxf(file); }), head = file + ": line ";
        ASSERT_EQ(msg.rfind(head, 0), 0u) << "should be refused: " << r->second << ": " << msg;
        const std::size_t end = msg.find_first_not_of("0123456789", head.size());
        EXPECT_TRUE(end > head.size() && msg[head.size()] != '0' && msg.compare(end, 2, ": ") == 0) << msg;
        EXPECT_NE(msg.find(r->second, end), std::string::npos) << msg;
        return;
    }
    std::unique_ptr<AcDbDatabase> db;
    ASSERT_EQ(errorOf<std::exception>([&] { db = AcDbDatabase::readDxf(file); }), "");
    EXPECT_EQ(db->version(), GetParam().version.empty() ? "AC1009" : GetParam().version);
    const dxf::DrawingText input = dxf::loadDrawingText(file);
    EXPECT_EQ(input.wasBinary, GetParam().format == "binary");
    expectWritesBack(*db, input, file);

    // Every string survives decode and encode in the drawing's own encoding:
    // byte for byte, or, where "\U+" escapes were normalised, as the same text.
    for (const auto& [code, value] : tagsOf(input)) {
        if (dxf::valueType(code) != dxf::ValueType::String) continue;
        const std::wstring text = db->decode(value);
        const std::string back = db->encode(text);
        const bool same = value.find("\\U+") == std::string::npos ? back == value : db->decode(back) == text;
        ASSERT_TRUE(same) << "'" << value << "' came back as '" << back << "'";
    }
}

std::string testName(const ::testing::TestParamInfo<CorpusFile>& info)
{
    if (info.param.path.empty()) return "corpus_absent";
    std::string name = std::to_string(info.index) + "_";
    for (char c : fs::path(info.param.path).stem().string()) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(corpus, CorpusDrawing, ::testing::ValuesIn(corpusFiles()), testName);

// ---- drawings of our own making, each of a class of real files ------------

std::string lineRecord(const std::string& handle, const std::string& owner, bool paper)
{
    return tagText({{0, "LINE"}, {5, handle}, {330, owner}, {100, "AcDbEntity"}}) + (paper ? tagText({{67, "1"}}) : "") +
           tagText({{8, "0"}, {100, "AcDbLine"}, {10, "0.0"}, {20, "0.0"}, {30, "0.0"}, {11, "1.0"}, {21, "2.0"}, {31, "0.0"}});
}

// Model space and the layout under anonymous names ("*U12"), their real names
// on the layouts only; with a line in each when `entities`.
std::string anonymousSpaces(bool entities)
{
    std::string text = AcDbDatabase().dxfText();
    for (auto [from, to] : {std::pair{"*Model_Space", "*U12"}, std::pair{"*Paper_Space", "*U13"}})
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos;) text.replace(at, 12, to);
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
    ASSERT_EQ(errorOf<std::exception>([&] { db = AcDbDatabase::readDxfBytes(d.bytes, d.name); }), "");
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
        std::vector<std::string> handles = {addLine(*db).handle().str(),
                                            addLine(*db, {}, {2, 2, 0}, db->paperSpaceId()).handle().str()};
        if (entities) handles.insert(handles.end(), {"2F0", "2F1"});
        const std::string out = db->dxfText();
        for (const std::string& h : handles) {
            const std::size_t at = out.find("\n  5\n" + h + "\n");
            EXPECT_TRUE(at > out.find("\nENTITIES\n") && at < out.find("\nOBJECTS\n")) << h << " is not in ENTITIES";
            EXPECT_EQ(out.find("\n  5\n" + h + "\n", at + 1), std::string::npos) << h << " is written twice";
        }
    }
}

}  // namespace
