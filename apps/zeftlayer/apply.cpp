// zeftlayer apply and check: every entity the layering governs goes through
// the module's editor reactor, exactly as at the end of a command (lock,
// collect, unlock), and what moved is read back from the drawing.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string_view>
#include <unordered_map>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/dbsymtb.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "suite/zeftproject.h"
#include "suite/zeftprojecteditor.h"
#include "suite/zeftregistrytools.h"
#include "zeftlayermanager/zeftlayermanagereditorreactor.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"

namespace fs = std::filesystem;

namespace zeftlayer {
namespace {

using dxf::fromUtf8;
using dxf::toUtf8;

// The name the reactor is locked and unlocked under: no filtered command and
// no drafting command, so the Model rule applies as after any editing command.
constexpr const wchar_t* kCommandName = L"zeftlayerapply";
constexpr const char* kAlready = "already on its layer";

// One entity of the report: moved (reason empty) or left where it is.
struct EntityRow {
    std::string handle;
    std::wstring className, from, to;
    std::string reason;
};

struct DrawingResult {
    std::string input, output;
    bool ok = false;
    bool written = false;
    std::string error;
    bool printed = false;  // the error is already on stderr
    std::size_t entities = 0, moved = 0;
    std::vector<std::wstring> created;
    std::map<std::string, std::size_t> left;  // why -> how many stayed
    // target layer -> source layer -> how many move
    std::map<std::wstring, std::map<std::wstring, std::size_t>> plan;
    std::vector<EntityRow> rows;  // every entity when a report is asked for; else the exceptional ones
};

struct Options {
    std::vector<std::string> inputs;
    std::string output, outDir, standard, report;
    bool inPlace = false, dryRun = false, json = false;
    bool worker = false, allRows = false;  // set by the parent of a worker
    int jobs = 1;
};

// ---------------------------------------------------------------------------
// One drawing

std::wstring layerName(const AcDbObjectId& id, std::map<AcDbObjectId, std::wstring>& cache)
{
    auto it = cache.find(id);
    if (it != cache.end()) return it->second;
    AcDbObjectPointer<AcDbLayerTableRecord> layer(id, AcDb::kForRead);
    return cache[id] = layer ? layer->getName() : std::wstring();
}

// The layer of each entity, found by the name its record holds as read:
// a drawing has few layers and many entities, and a name read back is
// looked up once. Keep one per phase, since layers are made in between.
class LayerOfEntity {
public:
    AcDbObjectId operator()(const AcDbEntity* entity)
    {
        std::string_view raw;
        if (!acdbHostBodyValue(entity->record(), 8, raw)) return entity->layerId();
        auto it = byRaw_.find(raw);
        if (it == byRaw_.end()) it = byRaw_.emplace(std::string(raw), entity->layerId()).first;
        return it->second;
    }

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view v) const { return std::hash<std::string_view>()(v); }
    };
    std::unordered_map<std::string, AcDbObjectId, Hash, std::equal_to<>> byRaw_;
};

std::vector<AcDbObjectId> layerIds(AcDbDatabase* db)
{
    AcDbObjectPointer<AcDbLayerTable> table(db->layerTableId(), AcDb::kForRead);
    return table ? table->recordIds() : std::vector<AcDbObjectId>();
}

// Why an entity that the layering put (or left) on layer "0" is there.
std::string whyOnZero(AcDbDatabase* db, const AcDbObjectId& id)
{
    const EntityLayer e = entityLayer(db, id);
    if (e.layered && e.target != L"0") return "layer \"" + toUtf8(e.target) + "\" cannot be made";
    return e.note.empty() ? kAlready : e.note;
}

// Re-layers the drawing (the current document) and records what changed.
// With allRows, every entity gets a row; otherwise only those left on "0".
void relayer(AcDbDatabase* db, DrawingResult& r, bool allRows)
{
    const std::vector<AcDbObjectId> ids = layeredEntityIds(db);
    std::vector<AcDbObjectId> before(ids.size());
    {
        LayerOfEntity layerOf;
        for (std::size_t i = 0; i < ids.size(); ++i) {
            AcDbObjectPointer<AcDbEntity> entity(ids[i], AcDb::kForRead);
            if (entity) before[i] = layerOf(entity.object());
        }
    }
    const std::vector<AcDbObjectId> layersBefore = layerIds(db);

    // At a command end the layering names the level being worked on; so that
    // each entity gets its own level, the entities of each level go through
    // with that level active, as if drawn there, and the active level is put
    // back afterwards.
    std::map<AcDbObjectId, AcDbObjectIdArray> byLevel;
    AcDbObjectId active;
    std::unique_ptr<ZEFTProjectObject> project = zeftGetProjectObject(db);
    std::int32_t mode = -1;
    const bool perLevel = project && project->getWorkingMode(mode) && mode == 0 && project->getActiveView(active);
    for (const AcDbObjectId& id : ids) {
        AcDbObjectId level;
        if (perLevel && !project->getViewOfObject(id, level)) level = AcDbObjectId();
        byLevel[level.isNull() ? active : level].append(id);
    }
    project.reset();
    for (const auto& [level, group] : byLevel) {
        if (perLevel) ZEFTProjectEditor::setActiveView(db, level);
        ZEFTLayerManagerUtil::lock(kCommandName);
        gpLayerManagerEditorReactor->addObjectsToProcess(group);
        ZEFTLayerManagerUtil::unlock(kCommandName, AcDbObjectId());
    }
    if (perLevel) ZEFTProjectEditor::setActiveView(db, active);

    std::map<AcDbObjectId, std::wstring> names;
    std::map<std::pair<AcDbObjectId, AcDbObjectId>, std::size_t> moves;  // (to, from) -> how many
    const AcDbObjectId zero = db->layerZero();
    LayerOfEntity layerOf;
    r.entities = ids.size();
    for (std::size_t i = 0; i < ids.size(); ++i) {
        AcDbObjectId after;
        std::wstring className;
        {
            AcDbObjectPointer<AcDbEntity> entity(ids[i], AcDb::kForRead);
            if (entity) {
                after = layerOf(entity.object());
                if (allRows || after == zero) className = entity->isA()->name();
            }
        }
        std::string reason;
        bool placedOnZero = false;  // by the layering, for want of a layer
        if (after != before[i]) {
            ++r.moved;
            ++moves[{after, before[i]}];
            // A rule may name layer "0" itself: then it is a move like any other.
            if (after == zero && (reason = whyOnZero(db, ids[i])) == kAlready) reason.clear();
            placedOnZero = !reason.empty();
        } else {
            reason = whyLeftAlone(db, ids[i]);
            if (reason.empty()) {
                reason = after == zero ? whyOnZero(db, ids[i]) : kAlready;
                placedOnZero = reason != kAlready;
            }
            ++r.left[reason];
        }
        // Entities the layering leaves on "0" are always listed.
        if (allRows || placedOnZero)
            r.rows.push_back({ids[i].handle().str(), className, layerName(before[i], names), layerName(after, names),
                              reason});
    }
    for (const auto& [move, count] : moves) r.plan[layerName(move.first, names)][layerName(move.second, names)] += count;
    const std::set<AcDbObjectId> old(layersBefore.begin(), layersBefore.end());
    for (const AcDbObjectId& id : layerIds(db))
        if (!old.count(id)) r.created.push_back(layerName(id, names));
}

// Why the input may not be rewritten in place, or empty.
std::string readOnlyReason(const std::string& path)
{
    // Marked read-only counts even for a user (root) who could write it.
    struct stat st {};
    if (::access(path.c_str(), W_OK) != 0 || (::stat(path.c_str(), &st) == 0 && !(st.st_mode & 0222)))
        return path + ": the drawing is read-only; nothing was changed (give -o OUT to write elsewhere)";
    const fs::path parent = fs::path(path).has_parent_path() ? fs::path(path).parent_path() : fs::path(".");
    // Written beside the drawing, then renamed over it.
    if (::access(parent.c_str(), W_OK) != 0)
        return path + ": its folder is read-only; nothing was changed (give -o OUT to write elsewhere)";
    return {};
}

DrawingResult applyOne(const std::string& input, const std::string& output, const Options& o, bool allRows)
{
    DrawingResult r;
    r.input = input;
    r.output = output;
    auto fail = [&](const std::string& why) {
        r.error = why;
        return r;
    };
    std::error_code ec;
    const bool inPlace = fs::exists(output, ec) && fs::equivalent(input, output, ec);
    if (!o.dryRun && inPlace)
        if (std::string why = readOnlyReason(input); !why.empty()) return fail(why);
    std::string path, recorded;
    if (!o.standard.empty())
        if (std::string why = locateStandard(o.standard, path, recorded); !why.empty()) return fail(why);
    OpenDrawing d;
    if (!openDrawing(input, d)) {
        r.printed = true;  // openDrawing said why
        return fail(input + ": cannot be read");
    }
    if (!path.empty()) {
        if (std::string why = installStandard(d.db, input, path, recorded); !why.empty()) return fail(why);
    } else if (!ZEFTLayerManagerUtil::getStandardFromDictionary(d.db).isValid()) {
        return fail(input + ": the drawing holds no layer standard (install one with 'zeftlayer install', or give "
                            "--standard)");
    }
    relayer(d.db, r, allRows);
    r.ok = true;
    if (o.dryRun) return r;
    // A drawing left as it was is not rewritten in place.
    if (inPlace && r.moved == 0 && r.created.empty() && path.empty()) return r;
    if (!writeDrawing(d.db, output)) return fail(output + ": cannot be written");
    r.written = true;
    return r;
}

// ---------------------------------------------------------------------------
// Worker records: one line each, fields separated by tabs.

std::string escape(const std::string& s)
{
    std::string out;
    for (char c : s) {
        if (c == '\\') out += "\\\\";
        else if (c == '\t') out += "\\t";
        else if (c == '\n') out += "\\n";
        else out += c;
    }
    return out;
}

std::vector<std::string> splitRecord(const std::string& line)
{
    std::vector<std::string> fields(1);
    for (std::size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (c == '\t') fields.emplace_back();
        else if (c == '\\' && i + 1 < line.size()) {
            c = line[++i];
            fields.back() += c == 't' ? '\t' : c == 'n' ? '\n' : c;
        } else fields.back() += c;
    }
    return fields;
}

void writeRecords(const DrawingResult& r, std::FILE* out)
{
    auto rec = [&](std::initializer_list<std::string> fields) {
        std::string line;
        for (const std::string& f : fields) line += (line.empty() ? "" : "\t") + escape(f);
        std::fprintf(out, "%s\n", line.c_str());
    };
    for (const std::wstring& c : r.created) rec({"C", toUtf8(c)});
    for (const auto& [why, n] : r.left) rec({"L", why, std::to_string(n)});
    for (const auto& [to, from] : r.plan)
        for (const auto& [f, n] : from) rec({"P", toUtf8(to), toUtf8(f), std::to_string(n)});
    for (const EntityRow& e : r.rows) rec({"E", e.handle, toUtf8(e.className), toUtf8(e.from), toUtf8(e.to), e.reason});
    rec({"R", r.input, r.output, r.ok ? "1" : "0", r.written ? "1" : "0", r.error, std::to_string(r.entities),
         std::to_string(r.moved)});
}

bool readRecord(const std::string& line, DrawingResult& r)
{
    const std::vector<std::string> f = splitRecord(line);
    try {
        if (f[0] == "C" && f.size() == 2) r.created.push_back(fromUtf8(f[1]));
        else if (f[0] == "L" && f.size() == 3) r.left[f[1]] += std::stoul(f[2]);
        else if (f[0] == "P" && f.size() == 4) r.plan[fromUtf8(f[1])][fromUtf8(f[2])] += std::stoul(f[3]);
        else if (f[0] == "E" && f.size() == 6)
            r.rows.push_back({f[1], fromUtf8(f[2]), fromUtf8(f[3]), fromUtf8(f[4]), f[5]});
        else if (f[0] == "R" && f.size() == 8) {
            r.ok = f[3] == "1";
            r.written = f[4] == "1";
            r.error = f[5];
            r.entities = std::stoul(f[6]);
            r.moved = std::stoul(f[7]);
            return true;
        }
    } catch (const std::exception&) {
    }
    return false;
}

// ---------------------------------------------------------------------------
// Printing

std::size_t leftCount(const DrawingResult& r)
{
    std::size_t n = 0;
    for (const auto& [why, count] : r.left)
        if (why != kAlready) n += count;
    return n;
}

void printSummary(const DrawingResult& r, bool dryRun)
{
    if (dryRun) std::printf("%s (dry run: nothing is written)\n", r.input.c_str());
    else if (r.written) std::printf("%s -> %s\n", r.input.c_str(), r.output.c_str());
    else std::printf("%s: nothing to change, not rewritten\n", r.input.c_str());
    std::printf("  %zu entities: %zu %s, %zu already on their layer, %zu left where they are\n", r.entities, r.moved,
                dryRun ? "would move" : "moved", r.left.count(kAlready) ? r.left.at(kAlready) : 0, leftCount(r));
    if (dryRun && !r.plan.empty()) {
        std::printf("  By target layer:\n");
        for (const auto& [to, from] : r.plan) {
            std::size_t total = 0;
            std::string sources;
            for (const auto& [f, n] : from) {
                total += n;
                sources += (sources.empty() ? "" : ", ") + std::to_string(n) + " from " + toUtf8(f);
            }
            std::printf("    %-32s %6zu  (%s)\n", toUtf8(to).c_str(), total, sources.c_str());
        }
    }
    if (!r.created.empty()) {
        std::printf("  Layers %s (%zu):\n", dryRun ? "to create" : "created", r.created.size());
        for (const std::wstring& c : r.created) std::printf("    %s\n", toUtf8(c).c_str());
    }
    if (leftCount(r)) {
        std::printf("  Left where they are:\n");
        for (const auto& [why, n] : r.left)
            if (why != kAlready) std::printf("    %6zu  %s\n", n, why.c_str());
    }
    // Entities the layering moved to "0", by reason (those already there are
    // among the ones left); those whose layer could not be made are named.
    std::map<std::string, std::vector<const EntityRow*>> onZero;
    for (const EntityRow& e : r.rows)
        if (e.to == L"0" && e.from != L"0" && !e.reason.empty()) onZero[e.reason].push_back(&e);
    if (!onZero.empty()) std::printf("  Put on layer \"0\":\n");
    for (const auto& [why, rows] : onZero) {
        std::printf("    %6zu  %s\n", rows.size(), why.c_str());
        if (why.find("cannot be made") == std::string::npos) continue;
        for (std::size_t i = 0; i < rows.size() && i < 20; ++i)
            std::printf("            %-8s %s\n", rows[i]->handle.c_str(), toUtf8(rows[i]->className).c_str());
        if (rows.size() > 20) std::printf("            ... and %zu more (see --report)\n", rows.size() - 20);
    }
}

std::string csvField(const std::string& s)
{
    if (s.find_first_of(",\"\n\r") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

// Through a temporary file, like drawings.
bool writeReport(const std::string& path, const std::vector<DrawingResult>& results)
{
    const bool csv = path.size() >= 4 && path.compare(path.size() - 4, 4, ".csv") == 0;
    const std::string tmp = path + ".tmp" + std::to_string(::getpid());
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        if (csv) {
            out << "file,status,handle,class,old_layer,new_layer,reason\n";
            for (const DrawingResult& r : results) {
                if (!r.ok) out << csvField(r.input) << ",failed,,,,," << csvField(r.error) << "\n";
                for (const EntityRow& e : r.rows)
                    out << csvField(r.input) << ",ok," << e.handle << "," << csvField(toUtf8(e.className)) << ","
                        << csvField(toUtf8(e.from)) << "," << csvField(e.reason.empty() ? toUtf8(e.to) : "") << ","
                        << csvField(e.reason) << "\n";
            }
        } else {
            out << "{\n  \"files\": [";
            for (std::size_t i = 0; i < results.size(); ++i) {
                const DrawingResult& r = results[i];
                out << (i ? "," : "") << "\n    {\"file\": " << jsonString(fromUtf8(r.input))
                    << ", \"output\": " << (r.written ? jsonString(fromUtf8(r.output)) : "null")
                    << ", \"status\": \"" << (r.ok ? "ok" : "failed") << "\", \"error\": "
                    << (r.ok ? "null" : jsonString(fromUtf8(r.error))) << ", \"entities\": " << r.entities
                    << ", \"moved\": " << r.moved << ",\n     \"layers_created\": [";
                for (std::size_t j = 0; j < r.created.size(); ++j) out << (j ? ", " : "") << jsonString(r.created[j]);
                out << "],\n     \"rows\": [";
                for (std::size_t j = 0; j < r.rows.size(); ++j) {
                    const EntityRow& e = r.rows[j];
                    out << (j ? "," : "") << "\n      {\"handle\": \"" << e.handle
                        << "\", \"class\": " << jsonString(e.className) << ", \"old_layer\": " << jsonString(e.from)
                        << ", \"new_layer\": " << jsonString(e.to) << ", \"reason\": "
                        << (e.reason.empty() ? "null" : jsonString(fromUtf8(e.reason))) << "}";
                }
                out << (r.rows.empty() ? "" : "\n     ") << "]}";
            }
            out << "\n  ]\n}\n";
        }
        if (!out.flush()) return false;
    }
    std::error_code ec;
    fs::rename(tmp, path, ec);
    if (ec) fs::remove(tmp, ec);
    return !ec;
}

// ---------------------------------------------------------------------------
// Several drawings: one worker process each, --jobs at a time.

struct Worker {
    pid_t pid = -1;
    int out = -1, err = -1;
    std::size_t index = 0;
    std::string records, messages;
};


bool spawn(const std::vector<std::string>& argv, Worker& w)
{
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return false;
    if (::pipe2(err, O_CLOEXEC) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        return false;
    }
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        ::execv(args[0], args.data());
        std::fprintf(stderr, "zeftlayer: cannot start %s: %s\n", args[0], std::strerror(errno));
        ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    if (pid < 0) {
        ::close(out[0]);
        ::close(err[0]);
        return false;
    }
    w.pid = pid;
    w.out = out[0];
    w.err = err[0];
    return true;
}

class Progress {
public:
    explicit Progress(std::size_t total) : total_(total), tty_(::isatty(STDERR_FILENO)) {}
    void update(std::size_t done, std::size_t running, const std::string& last)
    {
        if (!tty_) return;
        winsize ws{};
        int width = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 20 ? ws.ws_col : 80;
        const int bar = std::min(40, width / 3);
        const int filled = total_ ? int(done * std::size_t(bar) / total_) : bar;
        std::string line = "[" + std::string(std::size_t(filled), '#') + std::string(std::size_t(bar - filled), '.') +
                           "] " + std::to_string(done) + "/" + std::to_string(total_) + " drawings, " +
                           std::to_string(running) + " running";
        if (!last.empty()) line += "; done: " + last;
        if (int(line.size()) > width - 1) line.resize(std::size_t(width - 1));
        if (line == shown_) return;
        shown_ = line;
        std::fprintf(stderr, "\r%s\033[K", line.c_str());
        std::fflush(stderr);
    }
    // A finished drawing: a plain line when stderr is not a terminal.
    void finished(std::size_t done, const DrawingResult& r)
    {
        if (tty_) return;
        std::fprintf(stderr, "apply: [%zu/%zu] %s: %s\n", done, total_, r.input.c_str(),
                     r.ok ? (std::to_string(r.moved) + " moved").c_str() : "failed");
    }
    void end()
    {
        if (tty_) std::fprintf(stderr, "\r\033[K");
    }

private:
    std::size_t total_;
    bool tty_;
    std::string shown_;
};

DrawingResult collect(Worker& w, const std::string& input, const std::string& output)
{
    DrawingResult r;
    r.input = input;
    r.output = output;
    bool complete = false;
    std::istringstream lines(w.records);
    for (std::string line; std::getline(lines, line);)
        if (readRecord(line, r)) complete = true;
    r.input = input;
    r.output = output;
    int status = 0;
    ::waitpid(w.pid, &status, 0);
    std::string why;
    if (WIFSIGNALED(status)) why = std::string("stopped by signal ") + strsignal(WTERMSIG(status));
    else if (!complete) why = "the worker gave no result";
    if (!why.empty()) {
        r.ok = false;
        r.error = input + ": " + why;
    }
    // The worker's own message says best why a drawing could not be read.
    if (!r.ok && (r.error.empty() || r.error == input + ": cannot be read")) {
        std::istringstream messages(w.messages);
        for (std::string line; std::getline(messages, line);)
            if (line.rfind("zeftlayer: ", 0) == 0 && line.rfind("zeftlayer: warning:", 0) != 0) r.error = line.substr(11);
    }
    return r;
}

std::vector<DrawingResult> runWorkers(const Options& o, const std::vector<std::string>& outputs)
{
    std::vector<std::string> base = {programFile()};
    std::wstring data;
    if (ZEFTRegistryTools::GetBeltrixDataPath(data)) base.insert(base.end(), {"--data-dir", toUtf8(data)});
    base.insert(base.end(), {"apply", "--worker"});
    if (o.dryRun) base.push_back("--dry-run");
    if (!o.report.empty()) base.push_back("--all-rows");
    if (!o.standard.empty()) base.insert(base.end(), {"--standard", o.standard});

    std::vector<DrawingResult> results(o.inputs.size());
    std::vector<Worker> running;
    Progress progress(o.inputs.size());
    std::size_t next = 0, done = 0;
    std::string last;
    progress.update(0, 0, "");
    while (done < o.inputs.size()) {
        while (next < o.inputs.size() && running.size() < std::size_t(o.jobs)) {
            std::vector<std::string> argv = base;
            if (!o.dryRun) argv.insert(argv.end(), {"-o", outputs[next]});
            argv.insert(argv.end(), {"--", o.inputs[next]});
            Worker w;
            w.index = next;
            if (spawn(argv, w)) {
                running.push_back(w);
            } else {
                results[next].input = o.inputs[next];
                results[next].error = o.inputs[next] + ": cannot start a worker: " + std::strerror(errno);
                progress.finished(++done, results[next]);
            }
            ++next;
        }
        progress.update(done, running.size(), last);
        if (running.empty()) continue;
        std::vector<pollfd> fds;
        for (const Worker& w : running) {
            fds.push_back({w.out, POLLIN, 0});
            fds.push_back({w.err, POLLIN, 0});
        }
        if (::poll(fds.data(), fds.size(), 500) < 0 && errno != EINTR) break;
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            Worker& w = running[i / 2];
            int& fd = i % 2 ? w.err : w.out;
            if (fd < 0) continue;
            char buf[65536];
            const ssize_t n = ::read(fd, buf, sizeof buf);
            if (n > 0) (i % 2 ? w.messages : w.records).append(buf, std::size_t(n));
            else if (n == 0 || errno != EINTR) {
                ::close(fd);
                fd = -1;
            }
        }
        for (std::size_t i = 0; i < running.size();) {
            Worker& w = running[i];
            if (w.out >= 0 || w.err >= 0) {
                ++i;
                continue;
            }
            DrawingResult& r = results[w.index] = collect(w, o.inputs[w.index], outputs[w.index]);
            last = fs::path(r.input).filename().string() + (r.ok ? " ok" : " failed");
            progress.finished(++done, r);
            running.erase(running.begin() + std::ptrdiff_t(i));
        }
    }
    progress.end();
    return results;
}

void printTable(const std::vector<DrawingResult>& results, bool dryRun)
{
    std::size_t width = 4;
    for (const DrawingResult& r : results) width = std::max(width, r.input.size());
    std::printf("\n%-*s  %-6s %9s %9s %7s %7s  %s\n", int(width), "FILE", "RESULT", "ENTITIES",
                dryRun ? "TO MOVE" : "MOVED", "LAYERS", "LEFT", dryRun ? "" : "OUTPUT");
    std::size_t failed = 0, moved = 0;
    for (const DrawingResult& r : results) {
        if (!r.ok) {
            ++failed;
            std::string why = r.error;
            if (why.rfind(r.input + ": ", 0) == 0) why.erase(0, r.input.size() + 2);
            std::printf("%-*s  %-6s %s\n", int(width), r.input.c_str(), "failed", why.c_str());
            continue;
        }
        moved += r.moved;
        std::printf("%-*s  %-6s %9zu %9zu %7zu %7zu  %s\n", int(width), r.input.c_str(), "ok", r.entities, r.moved,
                    r.created.size(), leftCount(r),
                    dryRun ? "" : r.written ? r.output.c_str() : "(unchanged, not rewritten)");
    }
    std::printf("\n%zu drawings: %zu done, %zu failed; %zu entities %s.\n", results.size(), results.size() - failed,
                failed, moved, dryRun ? "would move" : "moved");
}

// ---------------------------------------------------------------------------
// Options

// Parses the options apply and check share; returns kSuccess or the usage error's code.
int parse(const std::vector<std::string>& args, const char* command, Options& o)
{
    const std::string cmd = command;
    const bool apply = cmd == "apply";
    bool endOfOptions = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& into) {
            if (i + 1 >= args.size()) return false;
            into = args[++i];
            return !into.empty();
        };
        if (endOfOptions || a.size() < 2 || a[0] != '-') o.inputs.push_back(a);
        else if (a == "--") endOfOptions = true;
        else if (a == "--standard") {
            if (!value(o.standard)) return usageError(cmd + ": --standard needs a FILE", command);
        } else if (!apply && a == "--json") o.json = true;
        else if (apply && (a == "-o" || a == "--output")) {
            if (!value(o.output)) return usageError(cmd + ": " + a + " needs a file", command);
        } else if (apply && a == "--out-dir") {
            if (!value(o.outDir)) return usageError(cmd + ": --out-dir needs a folder", command);
        } else if (apply && a == "--report") {
            if (!value(o.report)) return usageError(cmd + ": --report needs a file", command);
        } else if (apply && a == "--jobs") {
            std::string n;
            if (!value(n) || n.find_first_not_of("0123456789") != std::string::npos || n.size() > 3 || std::stoi(n) < 1)
                return usageError(cmd + ": --jobs needs a number of drawings from 1 to 999", command);
            o.jobs = std::stoi(n);
        } else if (apply && a == "--in-place") o.inPlace = true;
        else if (apply && a == "--dry-run") o.dryRun = true;
        else if (apply && a == "--worker") o.worker = true;
        else if (apply && a == "--all-rows") o.allRows = true;
        else return usageError(cmd + ": unknown option '" + a + "'", command);
    }
    if (o.inputs.empty()) return usageError(cmd + ": expected at least one DRAWING", command);
    if (!apply) return kSuccess;
    const int targets = int(!o.output.empty()) + int(o.inPlace) + int(!o.outDir.empty());
    if (targets > 1) return usageError("apply: give only one of -o, --in-place and --out-dir", command);
    if (!o.report.empty()) {
        const std::string ext = fs::path(o.report).extension().string();
        if (ext != ".json" && ext != ".csv") return usageError("apply: --report needs a .json or .csv file", command);
    }
    if (o.dryRun) return targets ? usageError("apply: --dry-run writes nothing; drop -o, --in-place and --out-dir",
                                              command)
                                 : kSuccess;
    if (o.inputs.size() > 1 && !o.output.empty())
        return usageError("apply: -o takes one drawing; with several, give --in-place or --out-dir", command);
    if (!targets)
        return usageError(o.inputs.size() > 1 ? "apply: say where to write: --in-place or --out-dir DIR"
                                              : "apply: say where to write: -o OUT or --in-place",
                          command);
    return kSuccess;
}

}  // namespace

int cmdApply(const std::vector<std::string>& args)
{
    Options o;
    if (int code = parse(args, "apply", o); code != kSuccess) return code;
    // Where each drawing goes.
    std::vector<std::string> outputs;
    std::set<std::string> seen;
    for (const std::string& in : o.inputs) {
        std::string out = !o.output.empty() ? o.output : in;
        if (!o.outDir.empty()) {
            out = (fs::path(o.outDir) / fs::path(in).filename()).string();
            if (!seen.insert(fs::path(in).filename().string()).second)
                return usageError("apply: two drawings named " + fs::path(in).filename().string() +
                                      " would both go to " + out,
                                  "apply");
        }
        outputs.push_back(out);
    }
    if (!o.outDir.empty()) {
        std::error_code ec;
        fs::create_directories(o.outDir, ec);
        if (!fs::is_directory(o.outDir, ec)) return failure("apply: cannot make the folder " + o.outDir);
    }

    std::vector<DrawingResult> results;
    if (o.inputs.size() == 1) {
        if (!startModule()) return kFailure;
        results.push_back(applyOne(o.inputs[0], outputs[0], o, o.allRows || !o.report.empty()));
        if (o.worker) {
            writeRecords(results[0], stdout);
            return results[0].ok ? kSuccess : kFailure;
        }
        if (results[0].ok) printSummary(results[0], o.dryRun);
        else if (!results[0].printed) failure(results[0].error);
    } else if (!programFile().empty()) {
        results = runWorkers(o, outputs);
        printTable(results, o.dryRun);
    } else {
        // Inside another program (tests, fuzzers): one drawing after the other.
        if (!startModule()) return kFailure;
        Progress progress(o.inputs.size());
        for (std::size_t i = 0; i < o.inputs.size(); ++i) {
            results.push_back(applyOne(o.inputs[i], outputs[i], o, !o.report.empty()));
            progress.finished(i + 1, results.back());
        }
        printTable(results, o.dryRun);
    }
    if (!o.report.empty()) {
        if (!writeReport(o.report, results)) return failure("apply: cannot write the report " + o.report);
        std::printf("Report: %s\n", o.report.c_str());
    }
    for (const DrawingResult& r : results)
        if (!r.ok) return kFailure;
    return kSuccess;
}

int cmdCheck(const std::vector<std::string>& args)
{
    Options o;
    if (int code = parse(args, "check", o); code != kSuccess) return code;
    o.dryRun = true;
    if (!startModule()) return kFailure;
    bool misplaced = false, failed = false;
    std::string json = "{\n  \"drawings\": [";
    for (std::size_t f = 0; f < o.inputs.size(); ++f) {
        const DrawingResult r = applyOne(o.inputs[f], o.inputs[f], o, true);
        if (!r.ok) {
            if (!r.printed) failure(r.error);
            failed = true;
            continue;
        }
        std::vector<const EntityRow*> wrong;
        for (const EntityRow& e : r.rows)
            if (e.from != e.to) wrong.push_back(&e);
        misplaced = misplaced || !wrong.empty();
        if (o.json) {
            json += std::string(f ? "," : "") + "\n    {\"file\": " + jsonString(fromUtf8(r.input)) +
                    ", \"entities\": " + std::to_string(r.entities) + ", \"misplaced\": [";
            for (std::size_t i = 0; i < wrong.size(); ++i)
                json += std::string(i ? "," : "") + "\n      {\"handle\": \"" + wrong[i]->handle +
                        "\", \"class\": " + jsonString(wrong[i]->className) + ", \"layer\": " +
                        jsonString(wrong[i]->from) + ", \"expected\": " + jsonString(wrong[i]->to) + "}";
            json += std::string(wrong.empty() ? "" : "\n    ") + "]}";
            continue;
        }
        if (wrong.empty()) {
            std::printf("%s: all %zu entities are on their layers\n", r.input.c_str(), r.entities);
            continue;
        }
        std::printf("%s: %zu of %zu entities are not on their layer\n", r.input.c_str(), wrong.size(), r.entities);
        std::size_t cw = 5, lw = 5;
        for (const EntityRow* e : wrong) {
            cw = std::max(cw, e->className.size());
            lw = std::max(lw, e->from.size());
        }
        std::printf("  %-8s %s %s  %s\n", "HANDLE", padded(L"CLASS", cw).c_str(), padded(L"LAYER", lw).c_str(),
                    "EXPECTED");
        for (const EntityRow* e : wrong)
            std::printf("  %-8s %s %s  %s\n", e->handle.c_str(), padded(e->className, cw).c_str(),
                        padded(e->from, lw).c_str(), toUtf8(e->to).c_str());
    }
    if (o.json) std::printf("%s\n  ]\n}\n", json.c_str());
    return misplaced || failed ? kFailure : kSuccess;
}

}  // namespace zeftlayer
