// The host's drawing commands run from scripts on the sample drawing: what
// each appends or changes, what it refuses and why, cancelling, the
// pick-first selection, TILEMODE and CVPORT (the cases are in
// tests/data/host-commands.txt), and the script runner.
#include "host/document.h"
#include "host/editor.h"
#include "host/hostcommands.h"
#include "tests/host/builders.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include <unistd.h>

namespace {

using AcDb::kForRead;

// Every editor event, as "start LINE", "end LINE", "cancel LINE", "fail
// LINE", "clone PAIRS TILEMODE CVPORT".
struct Events : AcEditorReactor {
    std::vector<std::string> log;
    void commandWillStart(const wchar_t* n) override { log.push_back("start " + dxf::toUtf8(n)); }
    void commandEnded(const wchar_t* n) override { log.push_back("end " + dxf::toUtf8(n)); }
    void commandCancelled(const wchar_t* n) override { log.push_back("cancel " + dxf::toUtf8(n)); }
    void commandFailed(const wchar_t* n) override { log.push_back("fail " + dxf::toUtf8(n)); }
    void endDeepClone(AcDbIdMapping& m) override
    {
        log.push_back("clone " + std::to_string(m.pairs().size()) + " " + std::to_string(var(L"TILEMODE")) + " " +
                      std::to_string(var(L"CVPORT")));
    }
};

struct Appended : AcDbDatabaseReactor {
    std::vector<AcDbObjectId> ids;
    void objectAppended(const AcDbDatabase*, const AcDbObject* o) override
    {
        if (AcDbEntity::cast(o)) ids.push_back(o->objectId());
    }
};

class HostCommands : public ::testing::Test {
public:  // the checks read the drawing
    void SetUp() override { open(sample()); }
    void open(std::unique_ptr<AcDbDatabase> drawing)
    {
        acedRegisterHostCommands();
        if (doc) TearDown();
        acutSetPrintSink([this](const std::wstring& s) { printed += dxf::toUtf8(s); });
        doc = acDocManager->open(std::move(drawing));
        db = doc->database();
        db->addReactor(&appended);
        acedEditor->addReactor(&events);
    }
    void TearDown() override
    {
        opened.clear();
        acedEditor->removeReactor(&events);
        if (doc) acDocManager->close(doc);
        doc = nullptr;
        acutSetPrintSink(nullptr);
    }
    AcedScriptResult run(const std::string& script, bool stop = false)
    {
        return acedRunScript(dxf::fromUtf8(script), "t.scr", stop);
    }
    // Objects the checks read stay open for read until the next drawing.
    AcDbObject* object(AcDbObjectId id)
    {
        opened.push_back(std::make_unique<AcDbObjectPointer<AcDbObject>>(id, kForRead));
        return opened.back()->object();
    }
    std::string name(AcDbObjectId id) { return dxf::toUtf8(object(id)->isA()->dxfName()); }
    // Checks the CODE=VALUE items of "HEAD|CODE=VALUE|..." against the first value
    // of each code in the object's record, as text; returns HEAD.
    std::string expectValues(const AcDbObject* o, const std::string& line)
    {
        const std::vector<std::string> items = split(line, '|');
        for (std::size_t k = 1; k < items.size(); ++k) {
            const std::size_t eq = items[k].find('=');
            std::string_view v;
            EXPECT_TRUE(acdbHostBodyValue(o->record(), std::stoi(items[k].substr(0, eq)), v)) << items[k];
            EXPECT_EQ(dxf::toUtf8(db->decode(v)), items[k].substr(eq + 1));
        }
        return items.at(0);
    }

    AcApDocument* doc = nullptr;
    AcDbDatabase* db = nullptr;
    Events events;
    Appended appended;
    std::string printed;
    std::vector<std::unique_ptr<AcDbObjectPointer<AcDbObject>>> opened;
};

// The blocks of the cases file, each as its values by key in file order.
std::vector<std::multimap<std::string, std::string>> commandCases()
{
    std::vector<std::multimap<std::string, std::string>> out(1);
    for (const std::string& line : split(readFile(ZEFT_SOURCE_DIR "/tests/data/host-commands.txt"), '\n')) {
        if (line.empty() && !out.back().empty()) out.emplace_back();
        if (line.empty() || line[0] == '#') continue;
        const std::size_t colon = line.find(": ");
        std::string value = line.substr(colon + 2);
        if (value.ends_with('|')) value.pop_back();
        out.back().emplace(line.substr(0, colon), value);
    }
    if (out.back().empty()) out.pop_back();
    return out;
}

TEST_F(HostCommands, EachCommandAppendsChangesOrRefuses)
{
    const auto cases = commandCases();
    const std::string grid = drawingWith(gridClass(), "ENTITIES", gridEntity("17", false), sampleText());
    ASSERT_GT(cases.size(), 50u);
    for (const auto& c : cases) {
        auto all = [&](const char* key) {
            std::vector<std::string> values;
            for (auto [it, end] = c.equal_range(key); it != end; ++it) values.push_back(it->second);
            return values;
        };
        std::string script;
        for (const std::string& line : all("run")) script += line + "\n";
        SCOPED_TRACE(script);
        open(c.count("drawing") ? AcDbDatabase::readDxfBytes(grid, "grid.dxf") : sample());
        events.log.clear();
        appended.ids.clear();
        printed.clear();
        AcedScriptResult r = run(script);

        std::string errors;
        for (const std::string& e : r.errors) errors += e + "\n";
        if (all("error").empty()) EXPECT_EQ(errors, "");
        else EXPECT_NE(errors.find(all("error")[0]), std::string::npos) << errors;
        const std::string last = events.log.empty() ? "none" : events.log.back();
        EXPECT_EQ(last.substr(0, last.find(' ')), all("outcome").at(0));
        const std::vector<std::string> added = all("appended");
        EXPECT_EQ(appended.ids.size(), added.size());
        if (appended.ids.size() != added.size()) continue;
        for (std::size_t k = 0; k < added.size(); ++k)
            EXPECT_EQ(name(appended.ids[k]), expectValues(object(appended.ids[k]), added[k]));
        for (const std::string& l : all("layer")) {
            auto* table = AcDbSymbolTable::cast(db->layerTableId().object());
            const AcDbObjectId id = table->hostLookup(dxf::fromUtf8(l.substr(0, l.find('|'))));
            ASSERT_FALSE(id.isNull()) << l;
            expectValues(object(id), l);
        }
        for (const std::string& s : all("selected")) {
            AcDbObjectIdArray sel;
            EXPECT_TRUE(acedSSGetFirst(sel));
            EXPECT_EQ(std::to_string(sel.length()), s.substr(0, s.find('|')));
            for (AcDbObjectId id : sel) expectValues(object(id), s);
        }
        for (const std::string& p : all("parts")) {
            const auto* ref = AcDbBlockReference::cast(object(appended.ids.back()));
            ASSERT_NE(ref, nullptr);
            std::string names;
            for (AcDbObjectId sub : ref->subEntities()) names += (names.empty() ? "" : " ") + name(sub);
            EXPECT_EQ(names, p);
        }
        for (const std::string& h : all("erased")) {
            for (const std::string& handle : split(h, ' ')) EXPECT_TRUE(idAt(*db, handle.c_str()).isErased()) << handle;
        }
        for (const std::string& v : all("vars")) {
            for (const std::string& item : split(v, ' ')) {
                const std::size_t eq = item.find('=');
                EXPECT_EQ(std::to_string(var(dxf::fromUtf8(item.substr(0, eq)).c_str())), item.substr(eq + 1)) << item;
            }
        }
        for (const std::string& h : all("header")) {
            std::string value;
            EXPECT_TRUE(db->getHeaderVar(h.substr(0, h.find('=')), value));
            EXPECT_EQ(dxf::toUtf8(db->decode(value)), h.substr(h.find('=') + 1));
        }
        std::string log, output;
        for (const std::string& e : events.log) log += (log.empty() ? "" : "|") + e;
        for (const std::string& e : all("events")) EXPECT_EQ(log, e);
        for (const std::string& p : all("printed")) output += p + "\n";
        if (!output.empty()) {
            EXPECT_EQ(printed, output);
        }
        // Whatever a command did or refused, the drawing still writes and reads back.
        EXPECT_NO_THROW(AcDbDatabase::readDxfBytes(db->dxfText(), "again.dxf"));
    }
}

TEST_F(HostCommands, ScriptStopsAtTheFirstFailureWhenAskedAndNamesTheLine)
{
    const std::string script = "; a comment\n\nLINE 0,0 1,1\r\nCIRCLE 0,0 -1\nLINE 0,0 2,2\n\"\"\n";
    AcedScriptResult r = run(script, true);
    EXPECT_EQ(r.commands, 2);
    EXPECT_EQ(r.errors, std::vector<std::string>{"t.scr:4: CIRCLE: radius must be positive, not -1"});
    EXPECT_EQ(appended.ids.size(), 1u);

    appended.ids.clear();
    r = run(script);
    EXPECT_TRUE(r.commands == 4 && r.failed == 2);
    EXPECT_EQ(r.errors.at(1), "t.scr:6: unknown command ''");
    EXPECT_EQ(appended.ids.size(), 2u);
}

TEST_F(HostCommands, SaveWritesToTheDocumentsSavePath)
{
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / ("zeft-save-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    doc->setSavePath((dir / "out.dxf").string());
    const std::string other = (dir / "other.dxf").string();
    AcedScriptResult r = run("LINE 0,0 1,1\nQSAVE\nSAVE \"" + other + "\"\nSAVE 1 2");
    EXPECT_EQ(r.failed, 1);
    EXPECT_NE(r.errors.at(0).find("too many answers"), std::string::npos);
    EXPECT_NO_THROW(AcDbDatabase::readDxf((dir / "out.dxf").string()));
    EXPECT_NO_THROW(AcDbDatabase::readDxf(other));
    EXPECT_NE(printed.find("Saved "), std::string::npos);
    fs::remove_all(dir);
}

}  // namespace
