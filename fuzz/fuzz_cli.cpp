// Feeds arbitrary argument lists to the command line. Arguments are the
// NUL-separated pieces of the input; paths are kept inside a scratch folder
// so that no run can touch a real file. Each run starts from the same
// folder: one small drawing, d.dxf, with a project (level "L" holding a
// line, view "V"), so that commands reading or editing a drawing get past
// opening it (fuzz_cli.dict names it).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/dbclasses.h"
#include "suite/zeftprojecteditor.h"

namespace {

namespace fs = std::filesystem;

std::string sampleDrawing()
{
    AcDbDatabase db;
    AcDbObjectId line;
    {
        AcDbObjectPointer<AcDbBlockTableRecord> ms(db.modelSpaceId(), AcDb::kForWrite);
        for (double x : {0.0, 10.0}) {
            AcDbObjectPointer<AcDbLine> l(new AcDbLine({x, 0, 0}, {x + 5, 5, 0}));
            ms->appendAcDbEntity(line, l.object());
        }
    }
    AcDbObjectId level;
    ZEFTProjectEditor::addEntry(&db, ZEFTProjectKind::kLevel, L"L", L"", L"", &level);
    ZEFTProjectEditor::addEntry(&db, ZEFTProjectKind::kView, L"V", L"", L"");
    AcDbObjectIdArray ids;
    ids.append(line);
    ZEFTProjectEditor::assignEntities(&db, level, ids);
    return db.dxfText();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const fs::path dir = fs::temp_directory_path() / ("zeftlayer-fuzz-cli-" + std::to_string(::getpid()));
    static const std::string drawing = [] {
        fs::create_directories(dir);
        fs::current_path(dir);
        // The data folder too: `standards` writes the default standard there.
        ::setenv("BELTRIX_DATA", (dir / "data").c_str(), 1);
        // Help texts would flood the log; errors on stderr stay visible.
        std::freopen("/dev/null", "w", stdout);
        return sampleDrawing();
    }();
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec)) fs::remove_all(entry.path(), ec);
    std::ofstream(dir / "d.dxf", std::ios::binary) << drawing;

    std::vector<std::string> args(1);
    for (std::size_t i = 0; i < size && args.size() < 16; ++i) {
        char c = char(data[i]);
        if (c == '\0') args.emplace_back();
        else if (c == '/') args.back() += '_';
        else args.back() += c;
    }
    int rc = zeftlayer::run(args);
    if (rc != zeftlayer::kSuccess && rc != zeftlayer::kFailure && rc != zeftlayer::kUsage) __builtin_trap();
    return 0;
}
