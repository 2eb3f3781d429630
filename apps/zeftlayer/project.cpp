// zeftlayer project: the project object and mould lists of a drawing.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "host/hostcommands.h"
#include "suite/zeftmouldentities.h"
#include "suite/zeftprojecteditor.h"

namespace zeftlayer {
namespace {

using dxf::fromUtf8;
using dxf::toUtf8;
using Kind = ZEFTProjectKind;

constexpr const char* kCmd = "project";

int usage(const std::string& msg) { return usageError("project: " + msg, kCmd); }

const char* kindName(Kind k) { return k == Kind::kLevel ? "level" : "view"; }

std::string quote(const std::wstring& s) { return "\"" + toUtf8(s) + "\""; }

std::string handleOf(AcDbObjectId id) { return id.isNull() ? std::string("0") : id.handle().str(); }

// Texts at the edges must be valid UTF-8 to round-trip.
bool validUtf8(const std::string& s) { return toUtf8(fromUtf8(s)) == s; }

struct Window {
    double x1, y1, x2, y2;
};

bool parseWindow(const std::string& text, Window& w)
{
    double v[4];
    const char* p = text.c_str();
    for (int i = 0; i < 4; ++i) {
        char* end = nullptr;
        v[i] = std::strtod(p, &end);
        if (end == p || !std::isfinite(v[i])) return false;
        p = end;
        if (i < 3 && *p++ != ',') return false;
    }
    if (*p) return false;
    w = {std::min(v[0], v[2]), std::min(v[1], v[3]), std::max(v[0], v[2]), std::max(v[1], v[3])};
    return true;
}

// The options of a subcommand, parsed before the drawing is read.
struct Options {
    std::string out;
    bool json = false;
    std::map<std::string, std::string> values;  // --project, --building, ...
    std::vector<std::string> handles, layers, positional;
    std::vector<Window> windows;
    bool clear = false;
};

class ProjectCommand {
public:
    ProjectCommand(std::string drawing, std::string target, AcDbDatabase* db)
        : drawing_(std::move(drawing)), target_(std::move(target)), db_(db)
    {
    }

    int fail(const std::string& msg) const { return failure(drawing_ + ": " + msg); }

    // The failure message of an editor status.
    int failStatus(Acad::ErrorStatus es, const std::string& what) const
    {
        switch (es) {
        case Acad::eNotApplicable:
            return fail("an R12 drawing (" + db_->version() + ") cannot hold a project; save it as R2000 or later");
        case Acad::eNotThatKindOfClass:
            return fail("the drawing's \"ZEFT_PROJECT\" entry does not hold a project; it is left alone");
        case Acad::eDuplicateKey: return fail(what + " already exists");
        case Acad::eKeyNotFound: return fail("no " + what);
        case Acad::eInvalidInput: return fail("invalid " + what);
        default: return fail(what + ": " + Acad::errorName(es));
        }
    }

    bool object(const std::string& text, bool entity, AcDbObjectId& id, int& rc) const
    {
        AcDbHandle h;
        if (!AcDbHandle::parse(text, h) || h.isNull()) {
            rc = fail("'" + text + "' is not a handle");
            return false;
        }
        id = db_->idOf(h);
        if (!id.isValid() || id.isErased()) {
            rc = fail("no object with handle " + text);
            return false;
        }
        if (entity && !AcDbEntity::cast(id.object())) {
            rc = fail("the object with handle " + text + " is not an entity");
            return false;
        }
        return true;
    }

    bool find(Kind kind, const std::string& name, AcDbObjectId& id, int& rc) const
    {
        Acad::ErrorStatus es = ZEFTProjectEditor::findEntry(db_, kind, fromUtf8(name), id);
        if (es == Acad::eOk) return true;
        rc = es == Acad::eNotThatKindOfClass ? failStatus(es, "")
                                             : fail(std::string("no ") + kindName(kind) + " '" + name + "'");
        return false;
    }

    int set(const Options& o)
    {
        using E = ZEFTProjectEditor;
        auto has = [&](const char* k) { return o.values.count(k) > 0; };
        auto val = [&](const char* k) { return fromUtf8(o.values.at(k)); };
        Acad::ErrorStatus es = E::createProject(db_);
        if (es != Acad::eOk) return failStatus(es, "project");
        AcDbObjectId active;
        if (has("--active") && !o.values.at("--active").empty()) {
            const std::string& name = o.values.at("--active");
            AcDbObjectId level, view;
            E::findEntry(db_, Kind::kLevel, fromUtf8(name), level);
            E::findEntry(db_, Kind::kView, fromUtf8(name), view);
            if (!level.isNull() && !view.isNull()) return fail("'" + name + "' names both a level and a view");
            if (level.isNull() && view.isNull()) return fail("no level or view '" + name + "'");
            active = level.isNull() ? view : level;
        }
        if (has("--project")) es = E::setProjectName(db_, val("--project"));
        if (es == Acad::eInvalidInput) return fail("invalid project name");
        if (es == Acad::eOk && has("--building")) es = E::setBuildingName(db_, val("--building"));
        if (es == Acad::eInvalidInput) return fail("invalid building name");
        if (es == Acad::eOk && has("--mode")) {
            const std::string& m = o.values.at("--mode");
            es = E::setWorkingMode(db_, m == "level" ? 0 : m == "view" ? 1 : m == "doc" ? 2 : -1);
        }
        if (es == Acad::eOk && has("--drawing-set"))
            es = E::setDrawingSet(db_, o.values.at("--drawing-set") == "yes");
        if (es == Acad::eOk && has("--model-rules"))
            es = E::setModelRulesActive(db_, o.values.at("--model-rules") == "on");
        if (es == Acad::eOk && has("--active")) es = E::setActiveView(db_, active);
        if (es != Acad::eOk) return failStatus(es, "project");
        std::printf("Updated the project of %s\n", target_.c_str());
        return kSuccess;
    }

    int entry(Kind kind, const std::string& action, const Options& o)
    {
        const std::wstring name = fromUtf8(o.positional[0]);
        const std::string what = std::string(kindName(kind)) + " '" + o.positional[0] + "'";
        Acad::ErrorStatus es;
        int rc = kFailure;
        if (action == "add") {
            auto text = [&](const char* k) { return o.values.count(k) ? fromUtf8(o.values.at(k)) : std::wstring(); };
            es = ZEFTProjectEditor::addEntry(db_, kind, name, text("--type"), text("--plan"));
            if (es != Acad::eOk) return failStatus(es, what);
            std::printf("Added %s to %s\n", what.c_str(), target_.c_str());
            return kSuccess;
        }
        AcDbObjectId id;
        if (!find(kind, o.positional[0], id, rc)) return rc;
        if (action == "remove") {
            if ((es = ZEFTProjectEditor::removeEntry(db_, kind, name)) != Acad::eOk) return failStatus(es, what);
            std::printf("Removed %s from %s\n", what.c_str(), target_.c_str());
            return kSuccess;
        }
        if (action == "rename") {
            const std::string renamed = std::string(kindName(kind)) + " '" + o.positional[1] + "'";
            if ((es = ZEFTProjectEditor::renameEntry(db_, kind, name, fromUtf8(o.positional[1]))) != Acad::eOk)
                return failStatus(es, renamed);
            std::printf("Renamed %s to '%s' in %s\n", what.c_str(), o.positional[1].c_str(), target_.c_str());
            return kSuccess;
        }
        AcDbObjectIdArray ids;
        if (!select(o, ids, rc)) return rc;
        if ((es = ZEFTProjectEditor::assignEntities(db_, id, ids)) != Acad::eOk) return failStatus(es, what);
        std::printf("Put %d entit%s in %s of %s\n", ids.length(), ids.length() == 1 ? "y" : "ies", what.c_str(),
                    target_.c_str());
        return kSuccess;
    }

    // The entities of --handle, --layer and --window, each once, in that order.
    bool select(const Options& o, AcDbObjectIdArray& ids, int& rc) const
    {
        std::set<AcDbObjectId> seen;
        auto add = [&](AcDbObjectId id) {
            if (seen.insert(id).second) ids.append(id);
        };
        for (const std::string& h : o.handles) {
            AcDbObjectId id;
            if (!object(h, true, id, rc)) return false;
            add(id);
        }
        std::vector<std::wstring> layers;
        auto* table = AcDbSymbolTable::cast(db_->layerTableId().object());
        for (const std::string& l : o.layers) {
            if (!table || table->hostLookup(fromUtf8(l)).isNull()) {
                rc = fail("no layer '" + l + "'");
                return false;
            }
            layers.push_back(acdbToUpper(fromUtf8(l)));
        }
        if (layers.empty() && o.windows.empty()) return true;
        AcDbObjectPointer<AcDbBlockTableRecord> ms(db_->modelSpaceId(), AcDb::kForRead);
        if (!ms) return true;
        for (AcDbObjectId id : ms->entityIds()) {
            AcDbObjectPointer<AcDbEntity> e(id, AcDb::kForRead);
            if (!e) continue;
            if (std::find(layers.begin(), layers.end(), acdbToUpper(e->layer())) != layers.end()) add(id);
            for (const Window& w : o.windows)
                if (acdbHostPointsInWindow(e.object(), w.x1, w.y1, w.x2, w.y2)) add(id);
        }
        return true;
    }

    int mould(const std::wstring& list, const std::string& action, const Options& o)
    {
        if (action == "list") {
            std::vector<AcDbHandle> handles;
            ZEFTProjectEditor::mouldList(db_, list, handles);
            for (const AcDbHandle& h : handles) std::printf("%s\n", h.str().c_str());
            return kSuccess;
        }
        AcDbObjectIdArray ids;
        int rc = kFailure;
        for (const std::string& h : o.positional) {
            AcDbObjectId id;
            if (!object(h, false, id, rc)) return rc;
            ids.append(id);
        }
        const std::string what = "mould list " + toUtf8(list);
        if (action == "add") {
            if (Acad::ErrorStatus es = ZEFTProjectEditor::addMouldEntities(db_, list, ids); es != Acad::eOk)
                return es == Acad::eNotThatKindOfClass
                           ? fail("the drawing's \"ZEFT_MOULD_LISTS\" entry is not a dictionary")
                           : failStatus(es, what);
            std::printf("Added %d reference%s to %s in %s\n", ids.length(), ids.length() == 1 ? "" : "s",
                        what.c_str(), target_.c_str());
            return kSuccess;
        }
        std::vector<AcDbHandle> handles;
        if (ZEFTProjectEditor::mouldList(db_, list, handles) != Acad::eOk) return fail("no " + what);
        for (std::size_t i = 0; i < ids.size(); ++i)
            if (std::find(handles.begin(), handles.end(), ids[i].handle()) == handles.end())
                return fail(what + " does not hold " + o.positional[i]);
        if (Acad::ErrorStatus es = ZEFTProjectEditor::removeMouldEntities(db_, list, ids); es != Acad::eOk)
            return failStatus(es, what);
        std::printf("Removed %d reference%s from %s in %s\n", ids.length(), ids.length() == 1 ? "" : "s",
                    what.c_str(), target_.c_str());
        return kSuccess;
    }

    int image(const std::string& handle, const Options& o, bool change)
    {
        int rc = kFailure;
        AcDbObjectId image, shown;
        if (!object(handle, true, image, rc)) return rc;
        if (!change) {
            std::vector<std::pair<AcDbObjectId, AcDbObjectId>> refs;
            ZEFTProjectEditor::listImageReferences(db_, refs);
            auto it = std::find_if(refs.begin(), refs.end(), [&](auto& r) { return r.first == image; });
            std::printf("%s shows %s\n", handle.c_str(), it == refs.end() ? "nothing" : handleOf(it->second).c_str());
            return kSuccess;
        }
        if (!o.clear && !object(o.values.at("--shows"), false, shown, rc)) return rc;
        if (Acad::ErrorStatus es = ZEFTProjectEditor::setImageReference(db_, image, shown); es != Acad::eOk)
            return failStatus(es, "image " + handle);
        if (o.clear) std::printf("%s shows nothing now (%s)\n", handle.c_str(), target_.c_str());
        else std::printf("%s shows %s (%s)\n", handle.c_str(), handleOf(shown).c_str(), target_.c_str());
        return kSuccess;
    }

    int show(bool asJson) const;

private:
    std::string layerName(AcDbObjectId id) const
    {
        AcDbObjectPointer<AcDbLayerTableRecord> layer(id, AcDb::kForRead);
        return layer ? toUtf8(layer->getName()) : handleOf(id);
    }

    std::string drawing_, target_;  // read from, written to
    AcDbDatabase* db_;
};

const char* modeName(std::int32_t mode)
{
    return mode == 0 ? "level" : mode == 1 ? "view" : mode == 2 ? "doc" : "none";
}

int ProjectCommand::show(bool asJson) const
{
    ZEFTProjectSettings s;
    Acad::ErrorStatus projectStatus = ZEFTProjectEditor::getSettings(db_, s);
    bool has = projectStatus == Acad::eOk;
    std::vector<ZEFTProjectEntry> entries;
    if (has) ZEFTProjectEditor::listEntries(db_, entries, true);
    std::vector<std::pair<AcDbObjectId, AcDbObjectId>> images;
    ZEFTProjectEditor::listImageReferences(db_, images);
    AcDbObjectIdArray registered;
    std::vector<ZEFTObjectLayers> bindings;
    if (has) {
        ZEFTProjectEditor::registeredLayers(db_, registered);
        ZEFTProjectEditor::objectLayers(db_, bindings);
    }
    std::map<AcDbObjectId, const ZEFTProjectEntry*> byId;
    for (const auto& e : entries) byId[e.id] = &e;
    std::vector<std::pair<std::wstring, std::vector<AcDbHandle>>> moulds;
    for (const std::wstring& name : ZEFTProjectEditor::mouldListNames(db_)) {
        moulds.push_back({name, {}});
        ZEFTProjectEditor::mouldList(db_, name, moulds.back().second);
    }

    if (asJson) {
        auto view = [&](AcDbObjectId id) {
            auto it = byId.find(id);
            if (it == byId.end()) return std::string("null");
            return std::string("{\"kind\": \"") + kindName(it->second->kind) + "\", \"name\": " +
                   jsonString(it->second->name) + ", \"handle\": \"" + handleOf(id) + "\"}";
        };
        std::printf("{\n  \"project\": ");
        if (has)
            std::printf("{\"name\": %s, \"building\": %s, \"mode\": %d, \"modelRules\": %s, \"activeView\": %s, "
                        "\"selectedView\": %s, \"drawingSet\": %s}",
                        jsonString(s.projectName).c_str(), jsonString(s.buildingName).c_str(), s.workingMode,
                        s.modelRulesActive ? "true" : "false", view(s.activeView).c_str(),
                        view(s.selectedView).c_str(), s.drawingSet ? "true" : "false");
        else
            std::printf("null");
        for (Kind kind : {Kind::kLevel, Kind::kView}) {
            std::printf(",\n  \"%ss\": [", kindName(kind));
            bool first = true;
            for (const auto& e : entries) {
                if (e.kind != kind) continue;
                std::printf("%s\n    {\"name\": %s, \"handle\": \"%s\", ", first ? "" : ",", jsonString(e.name).c_str(),
                            handleOf(e.id).c_str());
                if (kind == Kind::kView) std::printf("\"type\": %s, ", jsonString(e.viewType).c_str());
                std::printf("\"plan\": %s, \"count\": %d, \"entities\": [", jsonString(e.planName).c_str(),
                            e.entities.length());
                for (int i = 0; i < e.entities.length(); ++i)
                    std::printf("%s\"%s\"", i ? ", " : "", handleOf(e.entities.at(i)).c_str());
                std::printf("]}");
                first = false;
            }
            std::printf("%s]", first ? "" : "\n  ");
        }
        std::printf(",\n  \"images\": [");
        for (std::size_t i = 0; i < images.size(); ++i)
            std::printf("%s{\"image\": \"%s\", \"shows\": \"%s\"}", i ? ", " : "", handleOf(images[i].first).c_str(),
                        handleOf(images[i].second).c_str());
        std::printf("],\n  \"mouldLists\": {");
        for (std::size_t i = 0; i < moulds.size(); ++i) {
            std::printf("%s%s: [", i ? ", " : "", jsonString(moulds[i].first).c_str());
            for (std::size_t j = 0; j < moulds[i].second.size(); ++j)
                std::printf("%s\"%s\"", j ? ", " : "", moulds[i].second[j].str().c_str());
            std::printf("]");
        }
        std::printf("},\n  \"registeredLayers\": [");
        for (int i = 0; i < registered.length(); ++i)
            std::printf("%s{\"handle\": \"%s\", \"name\": %s}", i ? ", " : "", handleOf(registered.at(i)).c_str(),
                        jsonString(fromUtf8(layerName(registered.at(i)))).c_str());
        std::printf("],\n  \"objectLayers\": [");
        for (std::size_t i = 0; i < bindings.size(); ++i) {
            const auto& b = bindings[i];
            std::printf("%s\n    {\"object\": \"%s\", \"view\": %s, \"layers\": [", i ? "," : "",
                        handleOf(b.object).c_str(),
                        b.view.isNull() ? "null" : ("\"" + handleOf(b.view) + "\"").c_str());
            for (int j = 0; j < b.layers.length(); ++j)
                std::printf("%s%s", j ? ", " : "", jsonString(fromUtf8(layerName(b.layers.at(j)))).c_str());
            std::printf("]}");
        }
        std::printf("%s]\n}\n", bindings.empty() ? "" : "\n  ");
        return kSuccess;
    }

    auto viewText = [&](AcDbObjectId id) {
        auto it = byId.find(id);
        return it == byId.end() ? std::string("none")
                                : std::string(kindName(it->second->kind)) + " " + quote(it->second->name);
    };
    if (has) {
        std::printf("Project:        %s\n", toUtf8(s.projectName).c_str());
        std::printf("Building:       %s\n", toUtf8(s.buildingName).c_str());
        std::printf("Working mode:   %s (%d)\n", modeName(s.workingMode), s.workingMode);
        std::printf("Model rules:    %s\n", s.modelRulesActive ? "on" : "off");
        std::printf("Drawing set:    %s\n", s.drawingSet ? "yes" : "no");
        std::printf("Active view:    %s\n", viewText(s.activeView).c_str());
        std::printf("Selected view:  %s\n", viewText(s.selectedView).c_str());
    } else {
        std::printf("Project:        none (%s)\n", projectStatus == Acad::eNotThatKindOfClass
                                                        ? "the \"ZEFT_PROJECT\" entry holds no project"
                                                        : "the drawing holds no project");
    }
    for (Kind kind : {Kind::kLevel, Kind::kView}) {
        std::printf("\n%s:\n", kind == Kind::kLevel ? "Levels" : "Views");
        bool any = false;
        for (const auto& e : entries) {
            if (e.kind != kind) continue;
            any = true;
            std::printf("  %s  record %s, %d entit%s", quote(e.name).c_str(), handleOf(e.id).c_str(),
                        e.entities.length(), e.entities.length() == 1 ? "y" : "ies");
            if (kind == Kind::kView && !e.viewType.empty()) std::printf(", type %s", quote(e.viewType).c_str());
            if (!e.planName.empty()) std::printf(", plan %s", quote(e.planName).c_str());
            std::printf("\n");
        }
        if (!any) std::printf("  (none)\n");
    }
    std::printf("\nImages:\n");
    for (const auto& [image, shown] : images)
        std::printf("  %s shows %s\n", handleOf(image).c_str(), handleOf(shown).c_str());
    if (images.empty()) std::printf("  (none)\n");
    std::printf("\nMould lists:\n");
    for (const auto& [name, handles] : moulds) {
        std::string list;
        for (const AcDbHandle& h : handles) list += (list.empty() ? "" : " ") + h.str();
        std::printf("  %s (%zu): %s\n", toUtf8(name).c_str(), handles.size(), list.c_str());
    }
    if (moulds.empty()) std::printf("  (none)\n");
    std::printf("\nRegistered layers:\n");
    for (const AcDbObjectId& id : registered) std::printf("  %s\n", layerName(id).c_str());
    if (registered.isEmpty()) std::printf("  (none)\n");
    std::printf("\nObject layers:\n");
    for (const auto& b : bindings) {
        std::string layers;
        for (const AcDbObjectId& l : b.layers) layers += (layers.empty() ? "" : ", ") + layerName(l);
        std::printf("  %s in %s: %s\n", handleOf(b.object).c_str(), viewText(b.view).c_str(), layers.c_str());
    }
    if (bindings.empty()) std::printf("  (none)\n");
    return kSuccess;
}

// The list name as the layer manager spells it, or empty.
std::wstring knownMouldList(const std::string& name)
{
    for (const wchar_t* known : ZEFTMouldEntities::kListNames)
        if (acdbToUpper(known) == acdbToUpper(fromUtf8(name))) return known;
    return {};
}

}  // namespace

int cmdProject(const std::vector<std::string>& argsIn)
{
    // -o anywhere; the rest in order.
    Options o;
    std::vector<std::string> args;
    for (std::size_t i = 0; i < argsIn.size(); ++i) {
        const std::string& a = argsIn[i];
        if (a == "-o" || a == "--output") {
            if (i + 1 >= argsIn.size() || argsIn[i + 1].empty()) return usage(a + " needs a file");
            o.out = argsIn[++i];
        } else if (a.rfind("--output=", 0) == 0) {
            o.out = a.substr(9);
            if (o.out.empty()) return usage("--output needs a file");
        } else {
            args.push_back(a);
        }
    }
    if (args.size() < 2) return usage("expected DRAWING and a subcommand (show, set, level, view, mould, image)");
    const std::string drawing = args[0];
    const std::string sub = args[1];
    std::vector<std::string> rest(args.begin() + 2, args.end());

    // Options with a value, per subcommand; --handle, --layer and --window repeat.
    auto parse = [&](std::size_t from, std::initializer_list<const char*> valued, bool selectors,
                     bool clearFlag) -> int {
        for (std::size_t i = from; i < rest.size(); ++i) {
            const std::string& a = rest[i];
            bool isValued = std::any_of(valued.begin(), valued.end(), [&](const char* v) { return a == v; });
            bool isSelector = selectors && (a == "--handle" || a == "--layer" || a == "--window");
            if (isValued || isSelector) {
                if (i + 1 >= rest.size()) return usage(a + " needs a value");
                const std::string& v = rest[++i];
                if (!validUtf8(v)) return usage(a + ": the value is not valid UTF-8");
                if (a == "--handle") o.handles.push_back(v);
                else if (a == "--layer") o.layers.push_back(v);
                else if (a == "--window") {
                    Window w;
                    if (!parseWindow(v, w)) return usage("--window needs X1,Y1,X2,Y2, not '" + v + "'");
                    o.windows.push_back(w);
                } else if (o.values.count(a)) {
                    return usage(a + " given twice");
                } else {
                    o.values[a] = v;
                }
            } else if (clearFlag && a == "--clear") {
                o.clear = true;
            } else if (a == "--json" && sub == "show") {
                o.json = true;
            } else if (a.size() > 1 && a[0] == '-') {
                return usage(sub + ": unknown option '" + a + "'");
            } else {
                if (!validUtf8(a)) return usage("'" + a + "' is not valid UTF-8");
                o.positional.push_back(a);
            }
        }
        return kSuccess;
    };
    auto readOnly = [&]() { return o.out.empty() ? kSuccess : usage("-o is for subcommands that change the drawing"); };

    enum class Action { Show, Set, Entry, Mould, Image } action = Action::Show;
    Kind kind = Kind::kLevel;
    std::string verb;
    std::wstring mouldName;
    bool imageChange = false;
    if (sub == "show") {
        if (int rc = parse(0, {}, false, false); rc != kSuccess) return rc;
        if (!o.positional.empty()) return usage("show: unexpected argument '" + o.positional[0] + "'");
        if (int rc = readOnly(); rc != kSuccess) return rc;
        action = Action::Show;
    } else if (sub == "set") {
        if (int rc = parse(0, {"--project", "--building", "--mode", "--model-rules", "--active", "--drawing-set"}, false,
                           false); rc)
            return rc;
        if (!o.positional.empty()) return usage("set: unexpected argument '" + o.positional[0] + "'");
        if (o.values.empty()) return usage("set: nothing to set");
        if (o.values.count("--mode") && o.values["--mode"] != "level" && o.values["--mode"] != "view" &&
            o.values["--mode"] != "doc" && o.values["--mode"] != "none")
            return usage("--mode must be level, view, doc or none, not '" + o.values["--mode"] + "'");
        if (o.values.count("--drawing-set") && o.values["--drawing-set"] != "yes" && o.values["--drawing-set"] != "no")
            return usage("--drawing-set must be yes or no, not '" + o.values["--drawing-set"] + "'");
        if (o.values.count("--model-rules") && o.values["--model-rules"] != "on" && o.values["--model-rules"] != "off")
            return usage("--model-rules must be on or off, not '" + o.values["--model-rules"] + "'");
        action = Action::Set;
    } else if (sub == "level" || sub == "view") {
        kind = sub == "level" ? Kind::kLevel : Kind::kView;
        if (rest.empty()) return usage(sub + ": expected add, remove, rename or assign");
        verb = rest[0];
        int rc;
        if (verb == "add") rc = parse(1, kind == Kind::kView ? std::initializer_list<const char*>{"--type", "--plan"}
                                                           : std::initializer_list<const char*>{"--plan"},
                                      false, false);
        else if (verb == "remove" || verb == "rename") rc = parse(1, {}, false, false);
        else if (verb == "assign") rc = parse(1, {}, true, false);
        else return usage(sub + ": unknown action '" + verb + "' (add, remove, rename or assign)");
        if (rc != kSuccess) return rc;
        std::size_t want = verb == "rename" ? 2 : 1;
        if (o.positional.size() != want)
            return usage(sub + " " + verb + ": expected " + (want == 2 ? "NAME and NEW" : "one NAME"));
        if (verb == "assign" && o.handles.empty() && o.layers.empty() && o.windows.empty())
            return usage(sub + " assign: give --handle, --layer or --window");
        action = Action::Entry;
    } else if (sub == "mould") {
        if (rest.size() < 2) return usage("mould: expected LIST and add, remove or list");
        mouldName = knownMouldList(rest[0]);
        if (mouldName.empty())
            return usage("unknown mould list '" + rest[0] +
                         "' (ZEFT_MOULD_ENTITIES, MeshMouldEntities, RebarMouldEntities or MouleList)");
        verb = rest[1];
        if (verb != "add" && verb != "remove" && verb != "list")
            return usage("mould: unknown action '" + verb + "' (add, remove or list)");
        if (int rc = parse(2, {}, false, false); rc != kSuccess) return rc;
        if (verb == "list" && !o.positional.empty())
            return usage("mould list: unexpected argument '" + o.positional[0] + "'");
        if (verb == "list") {
            if (int r = readOnly(); r != kSuccess) return r;
        } else if (o.positional.empty()) {
            return usage("mould " + verb + ": expected one or more HANDLEs");
        }
        action = Action::Mould;
    } else if (sub == "image") {
        if (int rc = parse(0, {"--shows"}, false, true); rc != kSuccess) return rc;
        if (o.positional.size() != 1) return usage("image: expected one HANDLE");
        if (o.clear && o.values.count("--shows")) return usage("image: --shows and --clear exclude each other");
        imageChange = o.clear || o.values.count("--shows");
        if (!imageChange)
            if (int r = readOnly(); r != kSuccess) return r;
        action = Action::Image;
    } else {
        return usage("unknown subcommand '" + sub + "' (show, set, level, view, mould, image)");
    }

    OpenDrawing d;
    if (!openDrawing(drawing, d)) return kFailure;
    const std::string target = o.out.empty() ? drawing : o.out;
    ProjectCommand cmd(drawing, target, d.db);
    int rc = kFailure;
    switch (action) {
    case Action::Show: return cmd.show(o.json);
    case Action::Set: rc = cmd.set(o); break;
    case Action::Entry: rc = cmd.entry(kind, verb, o); break;
    case Action::Mould:
        rc = cmd.mould(mouldName, verb, o);
        if (verb == "list") return rc;
        break;
    case Action::Image:
        rc = cmd.image(o.positional[0], o, imageChange);
        if (!imageChange) return rc;
        break;
    }
    if (rc != kSuccess) return rc;
    return writeDrawing(d.db, target) ? kSuccess : kFailure;
}

}  // namespace zeftlayer
