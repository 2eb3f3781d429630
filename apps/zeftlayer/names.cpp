// zeftlayer names: the layer every entity would get, without writing the
// drawing.
#include <cstdio>
#include <memory>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "suite/zeftproject.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleevaluator.h"

namespace zeftlayer {
namespace {

using dxf::fromUtf8;
using dxf::toUtf8;
using Util = ZEFTLayerManagerUtil;

std::wstring standardName(AcDbDatabase* db)
{
    AcDbObjectPointer<ZEFTLayerStandard> standard(Util::getStandardFromDictionary(db), AcDb::kForRead);
    return standard ? standard->getName() : std::wstring();
}

// Why the rules leave an entity alone. The checks mirror the order in which
// the layering decides, so the first that holds is the reason.
std::string whyNotLayered(const AcDbEntity* entity, const ApplicationContext& ctx)
{
    if (acdbToUpper(entity->isA()->dxfName()).rfind(L"QRV", 0) == 0) return "excluded class";
    const auto* viewport = AcDbViewport::cast(entity);
    if (viewport && viewport->number() == 1) return "overall paper-space viewport";
    if (entity->ownerId() != ctx.database->modelSpaceId() && entity->ownerId() != ctx.database->paperSpaceId())
        return "in another block";
    return "exception: Auto...";
}

// Why the layering leaves the open entity where it is, or empty when it
// places it; `imposed` receives a layer the exception list imposes.
std::string whyLeft(AcDbEntity* entity, const ApplicationContext& ctx, std::wstring& imposed)
{
    if (!Util::layerRulesAplicable(entity, ctx, imposed)) return whyNotLayered(entity, ctx);
    if (!ctx.modelRulesActive) return "model rules inactive";
    return {};
}

}  // namespace

std::string whyLeftAlone(AcDbDatabase* db, const AcDbObjectId& id)
{
    ApplicationContext ctx;
    Util::getApplicationContext(ctx, db, L"", id);
    AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
    if (!entity) return "cannot be opened";
    std::wstring imposed;
    return whyLeft(entity.object(), ctx, imposed);
}

EntityLayer entityLayer(AcDbDatabase* db, const AcDbObjectId& id)
{
    EntityLayer row;
    row.handle = id.handle().str();
    ApplicationContext ctx;
    Util::getApplicationContext(ctx, db, L"", id);
    AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
    if (!entity) {
        row.note = "cannot be opened";
        return row;
    }
    row.className = entity->isA()->name();
    row.layer = entity->layer();
    row.space = entity->ownerId() == db->modelSpaceId() ? "model" : "paper";
    std::wstring imposed;
    row.note = whyLeft(entity.object(), ctx, imposed);
    if (!row.note.empty()) return row;
    entity.close();
    // From here on the layering places the entity: on layer "0" first, where
    // it stays when no rule or no name comes out.
    row.layered = true;
    row.target = L"0";
    std::wstring name;
    if (!imposed.empty()) {
        name = imposed;
        row.note = "exception";
    } else {
        std::vector<RuleField> fields;
        // A suite entity is given an empty rule when there is none to copy.
        if (!Util::getEntityLayerRules(id, ctx, fields) || fields.empty()) {
            row.note = ctx.workingMode == -1 && !zeftGetProjectObject(db)
                           ? "no project, so no rule"
                           : "no rule for working mode " + std::to_string(ctx.workingMode);
            return row;
        }
        ZEFTRuleEvaluator evaluator(id, fields);
        evaluator.evaluate(ctx);
        name = evaluator.getEvaluatedLayerName();
    }
    row.target = ZEFTRuleEvaluator::removeInvalidCharacters(name);
    if (row.target.empty()) {
        row.target = L"0";
        row.note = "empty name";
    }
    return row;
}

namespace {

void printText(const std::vector<EntityLayer>& rows, const std::wstring& standard, const std::string& project)
{
    std::printf("Standard: %s\nProject:  %s\n\n", toUtf8(standard).c_str(), project.c_str());
    std::size_t classWidth = 5, layerWidth = 5;
    for (const EntityLayer& r : rows) {
        classWidth = std::max(classWidth, r.className.size());
        layerWidth = std::max(layerWidth, r.layer.size());
    }
    std::printf("%-8s %-5s %s %s  NEW LAYER\n", "HANDLE", "SPACE", padded(L"CLASS", classWidth).c_str(),
                padded(L"LAYER", layerWidth).c_str());
    int moving = 0, staying = 0, left = 0;
    for (const EntityLayer& r : rows) {
        std::string target;
        if (!r.layered) {
            target = "(none: " + r.note + ")";
            ++left;
        } else {
            target = toUtf8(r.target);
            if (!r.note.empty()) target += "  (" + r.note + ")";
            ++(r.target == r.layer ? staying : moving);
        }
        std::printf("%-8s %-5s %s %s  %s\n", r.handle.c_str(), r.space.c_str(), padded(r.className, classWidth).c_str(),
                    padded(r.layer, layerWidth).c_str(), target.c_str());
    }
    std::printf("\n%zu entities: %d would move, %d already on their layer, %d not layered.\n", rows.size(), moving,
                staying, left);
}

void printJson(const std::vector<EntityLayer>& rows, const std::wstring& standard)
{
    std::printf("{\n  \"standard\": %s,\n  \"entities\": [", jsonString(standard).c_str());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const EntityLayer& r = rows[i];
        std::printf("%s\n    {\"handle\": \"%s\", \"space\": \"%s\", \"class\": %s, \"layer\": %s, \"target\": %s, "
                    "\"note\": %s}",
                    i ? "," : "", r.handle.c_str(), r.space.c_str(), jsonString(r.className).c_str(),
                    jsonString(r.layer).c_str(), r.layered ? jsonString(r.target).c_str() : "null",
                    jsonString(fromUtf8(r.note)).c_str());
    }
    std::printf("%s]\n}\n", rows.empty() ? "" : "\n  ");
}

}  // namespace

std::string padded(const std::wstring& s, std::size_t width)
{
    std::string out = toUtf8(s);
    if (s.size() < width) out.append(width - s.size(), ' ');
    return out;
}

std::vector<AcDbObjectId> layeredEntityIds(AcDbDatabase* db)
{
    std::vector<AcDbObjectId> ids;
    for (const AcDbObjectId& space : {db->modelSpaceId(), db->paperSpaceId()}) {
        AcDbObjectPointer<AcDbBlockTableRecord> block(space, AcDb::kForRead);
        if (!block) continue;
        const auto entities = block->entityIds();
        ids.insert(ids.end(), entities.begin(), entities.end());
    }
    return ids;
}

int cmdNames(const std::vector<std::string>& args)
{
    std::vector<std::string> pos;
    bool asJson = false;
    std::string standard;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--json") asJson = true;
        else if (a == "--standard" && i + 1 < args.size()) standard = args[++i];
        else if (a.rfind("--standard=", 0) == 0) standard = a.substr(11);
        else if (a == "--standard") return usageError("names: --standard needs a FILE", "names");
        else if (a.size() > 1 && a[0] == '-') return usageError("names: unknown option '" + a + "'", "names");
        else pos.push_back(a);
    }
    if (pos.size() != 1) return usageError("names: expected one DRAWING", "names");
    if (!startModule()) return kFailure;
    std::string path, recorded;
    if (!standard.empty())
        if (std::string why = locateStandard(standard, path, recorded); !why.empty()) return failure("names: " + why);
    OpenDrawing d;
    if (!openDrawing(pos[0], d)) return kFailure;
    // Installed into the drawing in memory, as apply would: its functions
    // replace the drawing's own, and nothing is written.
    if (!path.empty()) {
        if (std::string why = installStandard(d.db, pos[0], path, recorded); !why.empty()) return failure(why);
    } else if (!Util::getStandardFromDictionary(d.db).isValid()) {
        return failure(pos[0] + ": the drawing holds no layer standard (install one with 'zeftlayer install')");
    }
    std::string project = "none (no predefined function answers; working mode -1 selects no rule)";
    if (auto p = zeftGetProjectObject(d.db)) {
        std::wstring building;
        std::int32_t mode = -1;
        p->getBuildingName(building);
        p->getWorkingMode(mode);
        project = "building \"" + toUtf8(building) + "\", working mode " + std::to_string(mode);
    }
    std::vector<EntityLayer> rows;
    for (const AcDbObjectId& id : layeredEntityIds(d.db)) rows.push_back(entityLayer(d.db, id));
    const std::wstring name = standardName(d.db);
    if (asJson) printJson(rows, name);
    else printText(rows, name, project);
    return kSuccess;
}

}  // namespace zeftlayer
