// The host's drawing commands run from scripts on the sample drawing: what
// each appends or changes, what it refuses and why, cancelling, the
// pick-first selection, TILEMODE and CVPORT, and the script runner.
#include "host/database.h"
#include "host/dbclasses.h"
#include "host/document.h"
#include "host/editor.h"
#include "host/hostcommands.h"
#include "tests/host/builders.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace {

using AcDb::kForRead;

std::string sampleText()
{
    std::ifstream in(ZEFT_SOURCE_DIR "/examples/sample.dxf", std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

int var(const wchar_t* name)
{
    ResBuf v;
    return acedGetVar(name, v) ? int(v.rint()) : -99;
}

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
public:  // the table's checks read the drawing
    void SetUp() override { open(AcDbDatabase::readDxfBytes(sampleText(), "sample.dxf")); }
    void open(std::unique_ptr<AcDbDatabase> drawing)
    {
        acedRegisterHostCommands();
        opened.clear();
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
    AcDbObjectId at(const char* handle)
    {
        AcDbHandle h;
        AcDbHandle::parse(handle, h);
        return db->idOf(h);
    }
    // Objects the checks read stay open for read until the next drawing.
    template <class T = AcDbEntity>
    T* open(AcDbObjectId id)
    {
        opened.push_back(std::make_unique<AcDbObjectPointer<AcDbObject>>(id, kForRead));
        return T::cast(opened.back()->object());
    }
    AcDbEntity* entity(AcDbObjectId id) { return open(id); }
    std::string body(AcDbObjectId id, int code)
    {
        std::string_view v;
        return acdbHostBodyValue(entity(id)->record(), code, v) ? std::string(v) : std::string();
    }
    std::string name(AcDbObjectId id) { return dxf::toUtf8(entity(id)->isA()->dxfName()); }
    AcDbLayerTableRecord* layer(const wchar_t* n)
    {
        return open<AcDbLayerTableRecord>(AcDbSymbolTable::cast(db->layerTableId().object())->hostLookup(n));
    }
    std::string lastEvent() { return events.log.empty() ? "" : events.log.back(); }

    AcApDocument* doc = nullptr;
    AcDbDatabase* db = nullptr;
    Events events;
    Appended appended;
    std::string printed;
    std::vector<std::unique_ptr<AcDbObjectPointer<AcDbObject>>> opened;
};

struct Case {
    const char* script;  // the last line's command gives the outcome
    const char* outcome;  // its last event: "end", "cancel", "fail", or "" for an unknown command
    int appended;
    const char* error;  // part of the first failure, or "" for none
    std::function<void(HostCommands&)> check;
};

// Sample handles: A0 a LINE, B1 a CIRCLE, CF an MTEXT and D0 a DIMENSION of
// model space; C0 a DOOR reference with two attributes; COLUMNS holds the columns.
const Case kCases[] = {
    {"LINE 0,0 10,0 10,5", "end", 2, "",
     [](HostCommands& t) {
         for (AcDbObjectId id : t.appended.ids) {
             EXPECT_EQ(t.name(id), "LINE");
             EXPECT_EQ(t.entity(id)->ownerId(), t.db->modelSpaceId());
             EXPECT_EQ(t.entity(id)->layer(), L"0");
         }
         EXPECT_EQ(AcDbLine::cast(t.entity(t.appended.ids[1]))->endPoint(), (AcGePoint3d{10, 5, 0}));
     }},
    {"line 0,0", "fail", 0, "LINE: missing second point", nullptr},
    {"LINE 0,0 x,1", "fail", 0, "second point: 'x,1' is not a point", nullptr},
    {"LINE 0,0 1,2,3,4", "fail", 0, "is not a point", nullptr},
    {"LINE 0,0 10,0 20,0 *CANCEL* 30,0", "cancel", 2, "", nullptr},
    {"PLINE 0,0 10,0 10,10 close", "end", 1, "",
     [](HostCommands& t) {
         AcDbObjectId id = t.appended.ids[0];
         EXPECT_EQ(t.name(id), "LWPOLYLINE");
         EXPECT_EQ(t.body(id, 90), "3");
         EXPECT_EQ(t.body(id, 70), "1");
     }},
    {"PLINE 0,0 close", "fail", 0, "at least two points", nullptr},
    {"PLINE 0,0 1,1 close 2,2", "fail", 0, "too many answers", nullptr},
    {"CIRCLE 5,5 2", "end", 1, "",
     [](HostCommands& t) {
         auto* c = AcDbCircle::cast(t.entity(t.appended.ids[0]));
         EXPECT_EQ(c->center(), (AcGePoint3d{5, 5, 0}));
         EXPECT_EQ(c->radius(), 2);
     }},
    {"CIRCLE 5,5 0", "fail", 0, "radius must be positive", nullptr},
    {"CIRCLE 5,5 2 7", "fail", 0, "'7' is one too many", nullptr},
    {"CIRCLE 5,5 nan", "fail", 0, "'nan' is not a number", nullptr},
    {"ARC 20,20 3 0 90", "end", 1, "",
     [](HostCommands& t) {
         EXPECT_EQ(t.name(t.appended.ids[0]), "ARC");
         EXPECT_EQ(t.body(t.appended.ids[0], 51), "90.0");
     }},
    {"ARC 20,20 3 0", "fail", 0, "missing end angle", nullptr},
    {"TEXT 1,1 2.5 Étage  du \"haut\"  ", "end", 1, "",
     [](HostCommands& t) {
         EXPECT_EQ(AcDbText::cast(t.entity(t.appended.ids[0]))->textString(), L"Étage  du \"haut\"");
     }},
    {"TEXT 1,1 2.5 \"  quoted  \"", "end", 1, "",
     [](HostCommands& t) { EXPECT_EQ(AcDbText::cast(t.entity(t.appended.ids[0]))->textString(), L"  quoted  "); }},
    {"TEXT 1,1 2.5", "fail", 0, "missing text", nullptr},
    {"INSERT door 5,5 2 90", "end", 1, "",
     [](HostCommands& t) {
         auto* ref = AcDbBlockReference::cast(t.entity(t.appended.ids[0]));
         EXPECT_EQ(t.open<AcDbBlockTableRecord>(ref->blockTableRecord())->getName(), L"DOOR");
         ASSERT_EQ(ref->subEntities().size(), 3u);  // two attributes and their end
         EXPECT_EQ(t.name(ref->subEntities()[0]), "ATTRIB");
         EXPECT_EQ(t.name(ref->subEntities()[2]), "SEQEND");
     }},
    {"INSERT NOPE 0,0", "fail", 0, "no block 'NOPE'", nullptr},
    {"INSERT *Model_Space 0,0", "fail", 0, "a layout or an anonymous block", nullptr},
    {"ERASE A0 b1", "end", 0, "",
     [](HostCommands& t) { EXPECT_TRUE(t.at("A0").isErased() && t.at("B1").isErased()); }},
    {"ERASE 123456", "fail", 0, "no entity with handle 123456", nullptr},
    {"ERASE", "fail", 0, "nothing selected", nullptr},
    {"SELECT A0\nERASE", "end", 0, "", [](HostCommands& t) { EXPECT_TRUE(t.at("A0").isErased()); }},
    {"COPY A0 C0 100,0", "end", 2, "",
     [](HostCommands& t) {
         EXPECT_EQ(t.events.log[1], "clone 5 1 2");  // two copies, two attributes and their end
         auto* src = AcDbLine::cast(t.entity(t.at("A0")));
         auto* copy = AcDbLine::cast(t.entity(t.appended.ids[0]));
         EXPECT_EQ(copy->startPoint().x, src->startPoint().x + 100);
         EXPECT_EQ(t.entity(t.appended.ids[1])->subEntities().size(), 3u);
     }},
    {"TILEMODE 0\nMSPACE\nCOPY A0 0,0", "end", 1, "",
     [](HostCommands& t) { EXPECT_EQ(t.events.log[t.events.log.size() - 2], "clone 1 0 2"); }},
    {"COPY A0", "fail", 0, "displacement: 'A0' is not a point", nullptr},
    {"COPY A0 D0 10,0", "fail", 0, "cannot move or scale a DIMENSION entity", nullptr},
    {"COPY D0 CF 0,0", "end", 2, "", nullptr},
    {"INSERT DOOR 0,0 1e307", "fail", 0, "the ATTRIB would land too far out", nullptr},
    {"EXPLODE C0", "end", 5, "",
     [](HostCommands& t) {
         EXPECT_TRUE(t.at("C0").isErased());
         EXPECT_EQ(t.name(t.appended.ids[2]), "ARC");
     }},
    {"EXPLODE A0", "fail", 0, "A0 is not a block reference", nullptr},
    {"SELECT layer columns", "end", 0, "",
     [](HostCommands& t) {
         AcDbObjectIdArray sel;
         EXPECT_TRUE(acedSSGetFirst(sel));
         EXPECT_GE(sel.length(), 3);
         for (AcDbObjectId id : sel) EXPECT_EQ(t.entity(id)->layer(), L"COLUMNS");
     }},
    {"CIRCLE 1000000,1000000 1\nLINE 1000000,1000000 1000005,1000000\nLINE 0,0 1000000,1000000\n"
     "SELECT window 999990,999990 1000010,1000010",
     "end", 3, "",
     [](HostCommands& t) {
         AcDbObjectIdArray sel;
         acedSSGetFirst(sel);
         EXPECT_EQ(sel, (AcDbObjectIdArray().append(t.appended.ids[0]).append(t.appended.ids[1])));
         EXPECT_EQ(t.printed, "2 selected\n");
     }},
    {"SELECT A0 zz", "fail", 0, "'zz' is not a handle", nullptr},
    {"SELECT layer NOPE", "fail", 0, "no layer 'NOPE'", nullptr},
    {"LAYER off 0\nLAYER make Étage\nLINE 0,0 1,1", "end", 1, "",
     [](HostCommands& t) {
         AcDbLayerTableRecord* l = t.layer(L"Étage");
         ASSERT_NE(l, nullptr);
         EXPECT_FALSE(l->isOff() || l->isFrozen() || l->isLocked());
         EXPECT_TRUE(l->isPlottable());
         EXPECT_EQ(l->colorIndex(), 7);
         EXPECT_EQ(l->lineWeight(), -3);
         EXPECT_EQ(acdbToUpper(l->linetypeName()), L"CONTINUOUS");
         EXPECT_TRUE(t.layer(L"0")->isOff());
         EXPECT_EQ(t.entity(t.appended.ids[0])->layer(), L"Étage");
         std::string clayer;
         t.db->getHeaderVar("$CLAYER", clayer);
         EXPECT_EQ(t.db->decode(clayer), L"Étage");
     }},
    {"LAYER lock WALLS\nLAYER freeze columns\nLAYER set TEXT", "end", 0, "",
     [](HostCommands& t) {
         EXPECT_TRUE(t.layer(L"WALLS")->isLocked());
         EXPECT_TRUE(t.layer(L"COLUMNS")->isFrozen());
     }},
    {"LAYER freeze 0", "fail", 0, "cannot freeze the current layer '0'", nullptr},
    {"LAYER freeze WALLS\nLAYER set WALLS", "fail", 0, "cannot make the frozen layer 'WALLS' current", nullptr},
    {"LAYER set NOPE", "fail", 0, "no layer 'NOPE'", nullptr},
    {"LAYER make a<b", "fail", 0, "'a<b' is not a valid layer name", nullptr},
    {"LAYER paint WALLS", "fail", 0, "unknown option 'paint'", nullptr},
    {"TILEMODE 2", "fail", 0, "TILEMODE is 0 or 1", nullptr},
    {"MSPACE", "fail", 0, "not available in the Model tab", nullptr},
    {"PSPACE", "fail", 0, "not available in the Model tab", nullptr},
    {"TILEMODE 0\nLINE 0,0 1,1", "end", 1, "",
     [](HostCommands& t) {
         EXPECT_EQ(var(L"TILEMODE"), 0);
         EXPECT_EQ(var(L"CVPORT"), 1);
         EXPECT_EQ(t.entity(t.appended.ids[0])->ownerId(), t.db->paperSpaceId());
         EXPECT_TRUE(t.entity(t.appended.ids[0])->isInPaperSpace());
     }},
    {"TILEMODE 0\nMSPACE\nLINE 0,0 1,1", "end", 1, "",
     [](HostCommands& t) {
         EXPECT_EQ(var(L"CVPORT"), 2);
         EXPECT_EQ(t.entity(t.appended.ids[0])->ownerId(), t.db->modelSpaceId());
     }},
    {"TILEMODE 0\nMSPACE\nPSPACE\nTILEMODE 1", "end", 0, "",
     [](HostCommands& t) {
         EXPECT_EQ(var(L"TILEMODE"), 1);
         EXPECT_EQ(var(L"CVPORT"), 2);
     }},
    {"NOSUCH 1", "", 0, "t.scr:1: unknown command 'NOSUCH'", nullptr},
    {"U\nundo 3", "end", 0, "", [](HostCommands& t) { EXPECT_NE(t.printed.find("not available"), std::string::npos); }},
    {"ZEFTDCALC LINE 0,0 10,0", "end", 1, "",
     [](HostCommands& t) {
         EXPECT_EQ(t.events.log, (std::vector<std::string>{"start ZEFTDCALC", "end ZEFTDCALC"}));
     }},
    {"zeftforcecalc CLONE A0", "end", 1, "",
     [](HostCommands& t) {
         EXPECT_EQ(t.events.log.size(), 2u);  // no deep clone
         EXPECT_EQ(t.name(t.appended.ids[0]), "LINE");
     }},
    {"ZEFTDEXPORT", "end", 0, "", nullptr},
    {"ZEFTDCALC PAINT 1", "fail", 0, "unknown step 'PAINT'", nullptr},
    {"ZEFTDCALC LINE 0,0 1,0 2,0 *cancel*", "cancel", 2, "", nullptr},
};

TEST_F(HostCommands, EachCommandAppendsChangesOrRefuses)
{
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.script);
        open(AcDbDatabase::readDxfBytes(sampleText(), "sample.dxf"));
        events.log.clear();
        appended.ids.clear();
        printed.clear();
        AcedScriptResult r = run(c.script);
        std::string errors;
        for (const std::string& e : r.errors) errors += e + "\n";
        if (*c.error) EXPECT_NE(errors.find(c.error), std::string::npos) << errors;
        else EXPECT_EQ(errors, "");
        std::string last = lastEvent();
        std::string outcome = last.substr(0, last.find(' '));
        if (!*c.outcome) EXPECT_TRUE(last.empty());
        else EXPECT_EQ(outcome, c.outcome);
        EXPECT_EQ(int(appended.ids.size()), c.appended);
        if (c.check && int(appended.ids.size()) == c.appended) c.check(*this);
        // Whatever a command did or refused, the drawing still writes and reads back.
        EXPECT_NO_THROW(AcDbDatabase::readDxfBytes(db->dxfText(), "again.dxf"));
    }
}

TEST_F(HostCommands, SuiteStandInClonesASuiteEntityKeptAsProxy)
{
    const std::string modelSpace = db->modelSpaceId().handle().str();
    const std::string record = tagText({{0, "ZEFTGRIDRECTE"}, {5, "9A0"}, {330, modelSpace}, {100, "AcDbEntity"}, {8, "0"},
                                        {100, "ZEFTGridBase"}, {100, "ZEFTGridRectangularE"}, {10, "1.5"}, {20, "2.5"},
                                        {30, "0.0"}});
    const std::string cls = tagText({{0, "CLASS"}, {1, "ZEFTGRIDRECTE"}, {2, "ZEFTGridRectangularE"},
                                     {3, "ZeftApp"}, {90, "1151"}, {91, "1"}, {280, "0"}, {281, "1"}});
    open(AcDbDatabase::readDxfBytes(drawingWith(cls, "ENTITIES", record, sampleText()), "grid.dxf"));
    ASSERT_TRUE(at("9A0").isValid());
    EXPECT_EQ(run("ZEFTDCALC CLONE 9A0").failed, 0);
    ASSERT_EQ(appended.ids.size(), 1u);
    AcDbEntity* copy = entity(appended.ids[0]);
    EXPECT_TRUE(copy->isAProxy());
    EXPECT_STREQ(copy->isA()->name(), L"ZEFTGridRectangularE");
    EXPECT_EQ(copy->ownerId(), db->modelSpaceId());
}

TEST_F(HostCommands, ScriptStopsAtTheFirstFailureWhenAskedAndNamesTheLine)
{
    const std::string script = "; a comment\n\nLINE 0,0 1,1\r\nCIRCLE 0,0 -1\nLINE 0,0 2,2\n\"\"\n";
    AcedScriptResult r = run(script, true);
    EXPECT_EQ(r.commands, 2);
    ASSERT_EQ(r.errors.size(), 1u);
    EXPECT_EQ(r.errors[0], "t.scr:4: CIRCLE: radius must be positive, not -1");
    EXPECT_EQ(appended.ids.size(), 1u);

    appended.ids.clear();
    r = run(script);
    EXPECT_EQ(r.commands, 4);
    EXPECT_EQ(r.failed, 2);
    EXPECT_EQ(r.errors[1], "t.scr:6: unknown command ''");
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
    EXPECT_NE(r.errors[0].find("too many answers"), std::string::npos);
    EXPECT_NO_THROW(AcDbDatabase::readDxf((dir / "out.dxf").string()));
    EXPECT_NO_THROW(AcDbDatabase::readDxf(other));
    EXPECT_NE(printed.find("Saved "), std::string::npos);
    fs::remove_all(dir);
}

}  // namespace
