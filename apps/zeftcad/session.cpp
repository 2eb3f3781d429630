#include "apps/zeftcad/session.h"

#include "host/database.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "host/editor.h"
#include "host/hostcommands.h"
#include "host/rxmodule.h"
#include "suite/zefttools.h"

namespace zeftcad {

Session::Session() = default;

Session::~Session()
{
    drawing_.reset();  // the document goes before the module that watches it
    if (started_) acrxDynamicLinker->unloadAll();
}

std::string Session::start()
{
    if (std::string why = zeftlayer::tryStartModule(); !why.empty()) return why;
    started_ = true;
    acedRegisterHostCommands();
    return {};
}

std::string Session::open(const std::string& path, std::vector<std::string>& warnings)
{
    auto next = std::make_unique<zeftlayer::OpenDrawing>();
    if (std::string why = zeftlayer::tryOpenDrawing(path, *next, warnings); !why.empty()) return why;
    next->db->setDbmod(0);  // what the host and the module did while reading is not the user's change
    drawing_ = std::move(next);  // the new document is current; the old one closes
    return {};
}

void Session::openNew()
{
    auto next = std::make_unique<zeftlayer::OpenDrawing>();
    next->doc = acDocManager->open(std::make_unique<AcDbDatabase>());
    next->db = next->doc->database();
    next->db->setDbmod(0);
    drawing_ = std::move(next);
}

std::string Session::save(const std::string& path)
{
    if (std::string why = zeftlayer::tryWriteDrawing(drawing_->db, path); !why.empty()) return why;
    drawing_->doc->setSavePath(path);
    drawing_->db->setDbmod(0);
    return {};
}

LineOutcome Session::runLine(const std::wstring& line)
{
    LineOutcome out;
    // An unnamed one-line script: the same parser and command runner as `zeftlayer run`.
    AcedScriptResult r = acedRunScript(line, "", false);
    out.command = r.commands > 0;
    out.failed = r.failed > 0;
    if (out.failed && !r.errors.empty()) {
        out.error = r.errors.front();
        if (out.error.starts_with(":1: ")) out.error.erase(0, 4);
    }
    if (out.command && !out.failed) {
        // QSAVE, or SAVE without a path, wrote the drawing to its own file.
        const std::size_t start = line.find_first_not_of(L" \t");
        const std::size_t end = line.find_first_of(L" \t\r", start);
        const std::wstring name = line.substr(start, end == std::wstring::npos ? end : end - start);
        const bool alone = end == std::wstring::npos || line.find_first_not_of(L" \t\r", end) == std::wstring::npos;
        if (ZEFTAcadSystemTools::isCommand(name.c_str(), L"QSAVE") ||
            (alone && ZEFTAcadSystemTools::isCommand(name.c_str(), L"SAVE")))
            drawing_->db->setDbmod(0);
    }
    return out;
}

AcDbDatabase* Session::database() const { return drawing_ ? drawing_->db : nullptr; }

std::string Session::path() const { return drawing_ ? drawing_->doc->savePath() : std::string(); }

bool Session::modified() const { return drawing_ && drawing_->db->dbmod() != 0; }

std::vector<EntityRow> Session::entities() const
{
    std::vector<EntityRow> rows;
    AcDbDatabase* db = database();
    if (!db) return rows;
    for (const AcDbObjectId& id : zeftlayer::layeredEntityIds(db)) {
        AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
        if (!entity) continue;
        rows.push_back({id.handle().str(), entity->isA()->name(), entity->layer(),
                        entity->ownerId() != db->modelSpaceId()});
    }
    return rows;
}

std::vector<LayerRow> Session::layers() const
{
    std::vector<LayerRow> rows;
    AcDbDatabase* db = database();
    if (!db) return rows;
    AcDbObjectPointer<AcDbLayerTable> table(db->layerTableId(), AcDb::kForRead);
    if (!table) return rows;
    for (const AcDbObjectId& id : table->recordIds()) {
        AcDbObjectPointer<AcDbLayerTableRecord> layer(id, AcDb::kForRead);
        if (!layer) continue;
        rows.push_back({layer->getName(), !layer->isOff(), layer->isFrozen(), layer->isLocked(), layer->colorIndex()});
    }
    return rows;
}

}  // namespace zeftcad
