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
    const std::string written = db->dxfText();
    const dxf::DrawingText output = dxf::drawingTextFromBytes(written, file + " (written)");
    EXPECT_FALSE(output.wasBinary);
    const std::string diff = firstDifference(input, output);
    EXPECT_EQ(diff, "") << file;

    // The written drawing reads back and writes the very same text.
    std::unique_ptr<AcDbDatabase> again;
    try {
        again = AcDbDatabase::readDxfBytes(written, file + " (written)");
    } catch (const std::exception& e) {
        FAIL() << "written text does not read back: " << e.what();
    }
    const std::string rewritten = again->dxfText();
    if (rewritten != written) {
        const std::string d = firstDifference(output, dxf::drawingTextFromBytes(rewritten, "rewritten"));
        ADD_FAILURE() << "second write differs from the first" << (d.empty() ? " (same tags, other bytes)" : ":\n" + d);
    }
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
