// Layer resolution benchmark: the time to put every model-space entity of a
// generated drawing on the layer its rule gives, per entity.
//
//   resolve_bench DRAWING.dxf
//
// Setup is untimed: the module's classes, the drawing as the current
// document, the default standard, and a project "Bâtiment A" in level mode
// with six levels "Level 0".."Level 5". An entity on input layer "IN-<i>"
// is held by level i mod 6 (level 0 for any other layer), as the ezdxf peer
// computes it. Timed: what a command end does, through the editor reactor
// (lock, collect, unlock), once per level with that level active: one
// context, every entity resolved and moved, grouped by layer. Afterwards every entity must sit on "Bâtiment A. Level <k>",
// the name the peer gives; the exit status is 1 otherwise.
//
// Prints "key: value" lines (entities, seconds, ns_per_entity, peak_rss_kb)
// that bench/resolve.sh reads.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cwctype>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "host/database.h"
#include "host/dbobject.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "suite/zeftprojecteditor.h"
#include "zeftlayermanager/applicationcontext.h"
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"
#include "zeftlayermanager/zeftfiling.h"
#include "zeftlayermanager/zeftlayermanagereditorreactor.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"

namespace {

using Clock = std::chrono::steady_clock;
using Util = ZEFTLayerManagerUtil;
using Editor = ZEFTProjectEditor;

constexpr int kLevels = 6;
const std::wstring kBuilding = L"Bâtiment A";

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

long peakRssKb()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;  // kilobytes on Linux
}

int fail(const std::string& msg)
{
    std::fprintf(stderr, "resolve_bench: %s\n", msg.c_str());
    return 1;
}

// The level of an input layer "IN-<digits>": its index mod 6; 0 otherwise.
int levelOf(const std::wstring& layer)
{
    if (layer.size() <= 3 || layer.compare(0, 3, L"IN-") != 0) return 0;
    long index = 0;
    for (std::size_t i = 3; i < layer.size(); ++i) {
        if (!std::iswdigit(layer[i])) return 0;
        index = (index * 10 + (layer[i] - L'0')) % kLevels;
    }
    return int(index);
}

std::wstring levelName(int k) { return L"Level " + std::to_wstring(k); }

// The default standard as the module writes it into an empty standards
// folder: CR LF line ends, one byte per character.
bool writeDefaultStandard(const std::filesystem::path& path)
{
    const auto& prompts = zeftLayerManagerPrompts();
    auto it = prompts.find(17714);
    if (it == prompts.end()) return false;
    std::string bytes;
    for (wchar_t c : it->second) {
        if (c == L'\n') bytes += "\r\n";
        else bytes += char(c < 0x100 ? c : '?');
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
    return bool(out);
}

int run(const std::string& drawing)
{
    const Clock::time_point readStart = Clock::now();
    zeft_filing::registerClasses();
    AcApDocument* doc = acDocManager->open(AcDbDatabase::readDxf(drawing));
    AcDbDatabase* db = doc->database();
    const double readSeconds = secondsSince(readStart);

    const Clock::time_point setupStart = Clock::now();
    const auto stdPath = std::filesystem::temp_directory_path() /
                         ("resolve_bench-" + std::to_string(getpid()) + ".std");
    if (!writeDefaultStandard(stdPath)) return fail("cannot write the default standard to " + stdPath.string());
    const bool installed = Util::installStandardFromPath(db, stdPath.wstring(), L"Beltrix.std");
    std::filesystem::remove(stdPath);
    if (!installed) return fail("installing the default standard failed");

    std::vector<AcDbObjectId> entities;
    std::vector<int> expected;  // the level of each entity
    {
        AcDbObjectPointer<AcDbBlockTableRecord> ms(db->modelSpaceId(), AcDb::kForRead);
        if (ms.openStatus() != Acad::eOk) return fail("cannot open model space");
        entities = ms->entityIds();
    }
    std::vector<AcDbObjectIdArray> byLevel(kLevels);
    expected.reserve(entities.size());
    for (const AcDbObjectId& id : entities) {
        AcDbObjectPointer<AcDbEntity> e(id, AcDb::kForRead);
        if (e.openStatus() != Acad::eOk) return fail("cannot open entity " + id.handle().str());
        expected.push_back(levelOf(e->layer()));
        byLevel[std::size_t(expected.back())].append(id);
    }

    Acad::ErrorStatus es = Editor::setBuildingName(db, kBuilding);
    if (es == Acad::eOk) es = Editor::setWorkingMode(db, 0);
    std::vector<AcDbObjectId> levels(kLevels);
    for (int k = 0; k < kLevels && es == Acad::eOk; ++k) {
        es = Editor::addEntry(db, ZEFTProjectKind::kLevel, levelName(k), L"", L"", &levels[std::size_t(k)]);
        if (es == Acad::eOk) es = Editor::assignEntities(db, levels[std::size_t(k)], byLevel[std::size_t(k)]);
    }
    if (es != Acad::eOk) return fail(std::string("making the project failed: ") + Acad::errorName(es));
    const double setupSeconds = secondsSince(setupStart);

    // The path of a command end, once per level with that level active, as
    // if one command had drawn all of its entities there.
    ZEFTLayerManagerEditorReactor reactor(false);
    gpLayerManagerEditorReactor = &reactor;
    double seconds = 0;
    for (int k = 0; k < kLevels; ++k) {
        Editor::setActiveView(db, levels[std::size_t(k)]);
        Util::lock(L"RESOLVE_BENCH");
        reactor.addObjectsToProcess(byLevel[std::size_t(k)]);
        const Clock::time_point start = Clock::now();
        Util::unlock(L"RESOLVE_BENCH", AcDbObjectId());
        seconds += secondsSince(start);
    }
    gpLayerManagerEditorReactor = nullptr;

    // Every entity, not a sample: checking is cheap next to resolving.
    std::size_t wrong = 0, governed = 0;
    for (std::size_t i = 0; i < entities.size(); ++i) {
        AcDbObjectPointer<AcDbEntity> e(entities[i], AcDb::kForRead);
        const std::wstring want = kBuilding + L". " + levelName(expected[i]);
        const std::wstring got = e.openStatus() == Acad::eOk ? e->layer() : L"<cannot open>";
        if (got == want) ++governed;
        else if (++wrong <= 5)
            std::fprintf(stderr, "resolve_bench: entity %s is on \"%s\", the peer puts it on \"%s\"\n",
                         entities[i].handle().str().c_str(), dxf::toUtf8(got).c_str(), dxf::toUtf8(want).c_str());
    }

    const double ns = entities.empty() ? 0.0 : seconds * 1e9 / double(entities.size());
    std::printf("drawing: %s\n", drawing.c_str());
    std::printf("read_seconds: %.3f\n", readSeconds);
    std::printf("setup_seconds: %.3f\n", setupSeconds);
    std::printf("entities: %zu\n", entities.size());
    std::printf("governed: %zu\n", governed);
    std::printf("seconds: %.6f\n", seconds);
    std::printf("ns_per_entity: %.1f\n", ns);
    std::printf("peak_rss_kb: %ld\n", peakRssKb());
    std::printf("wrong_layers: %zu\n", wrong);
    std::fflush(stdout);
    if (wrong) return fail(std::to_string(wrong) + " of " + std::to_string(entities.size()) +
                           " entities are not on the peer's layer");
    if (entities.empty()) return fail("the drawing has no model-space entity");
    // The drawing is left to the process's end: tearing down a million
    // objects would only add to the wall time the script measures.
    std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: resolve_bench DRAWING.dxf\n");
        return 2;
    }
    try {
        return run(argv[1]);
    } catch (const std::exception& e) {
        return fail(e.what());
    }
}
