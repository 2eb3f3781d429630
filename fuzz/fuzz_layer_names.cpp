// Reads arbitrary bytes as a drawing, then asks what the layer manager asks
// of it: its project, levels, views and mould lists, and for every entity
// the layer its rule gives, placing it there. A bad drawing may only end in
// a ParseError; whatever the project or standard holds, nothing may crash.
// Seeds: tests/data/sample-project.dxf holds a standard and a project.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "host/rxmodule.h"
#include "suite/zeftprojecteditor.h"
#include "suite/zeftproject.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The module's classes, so that a standard in the drawing is its own.
    static const bool started = [] {
        std::freopen("/dev/null", "w", stdout);
        const bool ok = zeftlayer::startModule();
        // Unloaded at exit as the program does, so that the leak check sees
        // what a run leaves, not the loaded module. Registered after the
        // linker exists, so that it runs before the linker goes.
        std::atexit([] { acrxDynamicLinker->unloadAll(); });
        return ok;
    }();
    if (!started) __builtin_trap();
    std::unique_ptr<AcDbDatabase> read;
    try {
        read = AcDbDatabase::readDxfBytes(std::string(reinterpret_cast<const char*>(data), size), "fuzz.dxf");
    } catch (const dxf::ParseError&) {
        return 0;
    }
    bool roundTrips = true;
    try {
        (void)AcDbDatabase::readDxfBytes(read->dxfText(), "plain.dxf");
    } catch (const dxf::ParseError&) {
        roundTrips = false;
    }
    AcApDocument* doc = acDocManager->open(std::move(read));
    AcDbDatabase* db = doc->database();

    std::vector<ZEFTProjectEntry> entries;
    ZEFTProjectEditor::listEntries(db, entries, true);
    if (auto project = zeftGetProjectObject(db)) {
        std::wstring text;
        AcDbObjectId id;
        project->getBuildingName(text);
        project->getActiveView(id);
        project->getLevelName(AcDbObjectId(), text);
    }
    for (const AcDbObjectId& id : zeftlayer::layeredEntityIds(db)) {
        ApplicationContext ctx;
        ZEFTLayerManagerUtil::getApplicationContext(ctx, db, L"", id);
        ZEFTLayerManagerUtil::processEntityLayerRules(id, ctx);
        ZEFTLayerManagerUtil::getApplicationContext(ctx, db, L"zeftdcalc", id);
        std::wstring name;
        ZEFTLayerManagerUtil::getEntityLayerName(id, name, ctx);
    }
    // What the layering changed must still read (when the drawing as read
    // could be written back readably at all: that is the reader's fuzzer's
    // business).
    const std::string out = db->dxfText();
    acDocManager->close(doc);
    try {
        (void)AcDbDatabase::readDxfBytes(out, "again.dxf");
    } catch (const dxf::ParseError& e) {
        if (!roundTrips) return 0;
        std::fprintf(stderr, "written drawing does not read again: %s\n", e.what());
        __builtin_trap();
    }
    return 0;
}
