#include "host/hostcommands.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <cstdlib>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "host/dxf/dxftext.h"
#include "host/editor.h"

namespace {

using dxf::fromUtf8;
using dxf::toUtf8;

// A bad answer: the editor reports the reason and fires commandFailed.
[[noreturn]] void fail(const std::string& why) { throw std::runtime_error(why); }

std::string quoted(const std::wstring& s) { return "'" + toUtf8(s) + "'"; }

std::string num(double v) { return dxf::formatDouble(v); }

// --- answers ---------------------------------------------------------------

// The command's answers, in order; the cancel answer cancels wherever it comes.
class Answers {
public:
    bool next(std::wstring& a)
    {
        if (!acedEditor->nextAnswer(a)) return false;
        cancelOn(a);
        return true;
    }
    std::wstring need(const char* what)
    {
        std::wstring a;
        if (!next(a)) fail(std::string("missing ") + what);
        return a;
    }
    // The rest of the line as one text (see AcEditor::restOfAnswers).
    std::wstring rest(const char* what)
    {
        std::wstring a;
        if (!acedEditor->restOfAnswers(a)) fail(std::string("missing ") + what);
        cancelOn(a);
        return a;
    }
    // Every answer left.
    std::vector<std::wstring> all()
    {
        std::vector<std::wstring> out;
        std::wstring a;
        while (next(a)) out.push_back(a);
        return out;
    }
    // Every answer must have been used.
    void end()
    {
        std::wstring a;
        if (next(a)) fail("too many answers: " + quoted(a) + " is one too many");
    }

private:
    static void cancelOn(const std::wstring& a)
    {
        if (acdbToLower(a) == kCancelAnswer) throw AcEdCommandCancelled{};
    }
};

bool parseNumber(const std::wstring& text, double& v)
{
    std::string s = toUtf8(text);
    if (s.empty() || std::isspace(static_cast<unsigned char>(s[0]))) return false;
    char* end = nullptr;
    v = std::strtod(s.c_str(), &end);
    return end == s.c_str() + s.size() && std::isfinite(v);
}

double number(const std::wstring& text, const char* what)
{
    double v = 0;
    if (!parseNumber(text, v)) fail(std::string(what) + ": " + quoted(text) + " is not a number");
    return v;
}

bool parsePoint(const std::wstring& text, AcGePoint3d& p)
{
    double v[3] = {0, 0, 0};
    std::size_t start = 0;
    int n = 0;
    while (n < 3) {
        std::size_t comma = text.find(L',', start);
        if (!parseNumber(text.substr(start, comma == std::wstring::npos ? std::wstring::npos : comma - start), v[n]))
            return false;
        ++n;
        if (comma == std::wstring::npos) break;
        start = comma + 1;
        if (n == 3) return false;
    }
    if (n < 2) return false;
    p = {v[0], v[1], v[2]};
    return true;
}

AcGePoint3d point(const std::wstring& text, const char* what)
{
    AcGePoint3d p;
    if (!parsePoint(text, p)) fail(std::string(what) + ": " + quoted(text) + " is not a point (x,y or x,y,z)");
    return p;
}

double positive(const std::wstring& text, const char* what)
{
    double v = number(text, what);
    if (v <= 0) fail(std::string(what) + " must be positive, not " + toUtf8(text));
    return v;
}

// --- the drawing commands work on ------------------------------------------

struct Drawing {
    AcApDocument* doc = nullptr;
    AcDbDatabase* db = nullptr;
};

Drawing current()
{
    AcApDocument* doc = acDocManager->curDocument();
    if (!doc) fail("no drawing is open");
    return {doc, doc->database()};
}

// Model space when the Model tab is current or the user works through a
// floating viewport, else the current layout's paper space.
AcDbObjectId currentSpace(const Drawing& d)
{
    if (d.db->tilemode() != 0 || d.doc->cvport() != 1) return d.db->modelSpaceId();
    return d.db->paperSpaceId();
}

AcDbSymbolTable* layerTable(AcDbDatabase* db)
{
    auto* t = AcDbSymbolTable::cast(db->layerTableId().object());
    if (!t) fail("the drawing has no layer table");
    return t;
}

AcDbObjectId layerNamed(AcDbDatabase* db, const std::wstring& name)
{
    AcDbObjectId id = layerTable(db)->hostLookup(name);
    if (id.isNull()) fail("no layer " + quoted(name));
    return id;
}

// $CLAYER, as the layer table spells it; "0" when it names no layer.
std::wstring currentLayer(AcDbDatabase* db)
{
    std::string raw;
    if (db->getHeaderVar("$CLAYER", raw)) {
        AcDbObjectPointer<AcDbLayerTableRecord> rec(layerTable(db)->hostLookup(db->decode(raw)), AcDb::kForRead);
        if (rec) return rec->getName();
    }
    return L"0";
}

// Appends a new entity to the current space on the current layer.
AcDbObjectId append(const Drawing& d, AcDbEntity* newEntity)
{
    std::unique_ptr<AcDbEntity> ent(newEntity);
    acdbHostSetBodyValue(ent->record().mutableTags(), 8, toUtf8(currentLayer(d.db)), "AcDbEntity");
    AcDbObjectPointer<AcDbBlockTableRecord> space(currentSpace(d), AcDb::kForWrite);
    if (!space) fail("the drawing has no current space");
    AcDbObjectId id;
    if (Acad::ErrorStatus es = space->appendAcDbEntity(id, ent.get()); es != Acad::eOk)
        fail(std::string("cannot append: ") + Acad::errorName(es));
    ent.release()->close();
    return id;
}

// An entity of a class the host knows by name only, from its record's tags.
AcDbEntity* newEntity(const wchar_t* className, DxfTags tags)
{
    AcRxClass* cls = acrxFindClass(className);
    std::unique_ptr<AcRxObject> made(cls ? cls->create() : nullptr);
    auto* ent = AcDbEntity::cast(made.get());
    if (!ent) fail("the host cannot make a " + toUtf8(className));
    made.release();
    ent->record().assign(std::move(tags));
    return ent;
}

// An entity of model space or of a layout, by its handle.
AcDbObjectId entityByHandle(AcDbDatabase* db, const std::wstring& text)
{
    AcDbHandle h;
    if (!AcDbHandle::parse(toUtf8(text), h) || h.isNull()) fail(quoted(text) + " is not a handle");
    AcDbObjectId id = db->idOf(h);
    auto* ent = AcDbEntity::cast(id.object());
    if (!ent || ent->isErased()) fail("no entity with handle " + h.str());
    AcDbObjectPointer<AcDbBlockTableRecord> owner(ent->ownerId(), AcDb::kForRead);
    if (!owner || !owner->isLayout()) fail("entity " + h.str() + " is not in model space or a layout");
    return id;
}

// Handles given as answers, or the pick-first selection when there are none.
AcDbObjectIdArray entitiesOrSelection(const Drawing& d, const std::vector<std::wstring>& handles)
{
    AcDbObjectIdArray ids;
    if (handles.empty()) {
        acedSSGetFirst(ids);
        if (ids.isEmpty()) fail("no handles given and nothing selected");
        return ids;
    }
    for (const std::wstring& h : handles) {
        AcDbObjectId id = entityByHandle(d.db, h);
        if (!ids.contains(id)) ids.append(id);
    }
    return ids;
}

std::string dxfNameOf(const AcDbObject* obj)
{
    std::string name;
    obj->record().scan([&](int code, std::string_view v) {
        if (code == 0) name.assign(v);
        return false;
    });
    return name;
}

// --- moving copies -----------------------------------------------------------

// p' = to + R(angle) * scale * (p - from): how a copy or an exploded block's
// entity is placed.
struct Placement {
    AcGePoint3d from, to;
    double scale = 1, angleDeg = 0;

    bool identity() const { return from == to && scale == 1 && angleDeg == 0; }
    AcGePoint3d vector(const AcGePoint3d& v) const
    {
        double a = angleDeg * std::numbers::pi / 180, c = std::cos(a), s = std::sin(a);
        return {scale * (v.x * c - v.y * s), scale * (v.x * s + v.y * c), scale * v.z};
    }
    AcGePoint3d point(const AcGePoint3d& p) const
    {
        AcGePoint3d v = vector({p.x - from.x, p.y - from.y, p.z - from.z});
        return {to.x + v.x, to.y + v.y, to.z + v.z};
    }
};

// What a placement changes in a record, by record name.
struct Geometry {
    const char* dxfName;
    std::vector<int> points, vectors, lengths, angles;
};

const Geometry* geometryOf(const std::string& dxfName)
{
    static const Geometry table[] = {
        {"LINE", {10, 11}, {}, {}, {}},
        {"POINT", {10}, {}, {}, {}},
        {"CIRCLE", {10}, {}, {40}, {}},
        {"ARC", {10}, {}, {40}, {50, 51}},
        {"TEXT", {10, 11}, {}, {40}, {50}},
        {"ATTDEF", {10, 11}, {}, {40}, {50}},
        {"ATTRIB", {10, 11}, {}, {40}, {50}},
        {"MTEXT", {10}, {11}, {40, 41}, {50}},
        {"LWPOLYLINE", {10}, {}, {40, 41, 43}, {}},
        {"POLYLINE", {}, {}, {40, 41}, {}},
        {"VERTEX", {10}, {}, {40, 41}, {}},
        {"SEQEND", {}, {}, {}, {}},
        {"INSERT", {10}, {}, {41, 42, 43, 44, 45}, {50}},
        {"SOLID", {10, 11, 12, 13}, {}, {}, {}},
        {"TRACE", {10, 11, 12, 13}, {}, {}, {}},
        {"3DFACE", {10, 11, 12, 13}, {}, {}, {}},
        {"ELLIPSE", {10}, {11}, {}, {}},
        {"SPLINE", {10, 11}, {12, 13}, {}, {}},
    };
    for (const Geometry& g : table)
        if (dxfName == g.dxfName) return &g;
    return nullptr;
}

bool has(const std::vector<int>& codes, int c) { return std::find(codes.begin(), codes.end(), c) != codes.end(); }

double tagNumber(const DxfTag& t)
{
    double v = 0;
    dxf::parseDouble(t.value, v);
    return v;
}

// Places a record's tags; false when a value comes out too large to write.
bool placeTags(DxfTags& tags, const Geometry& g, const Placement& p)
{
    bool finite = true;
    auto set = [&](DxfTag& t, double v) {
        finite = finite && std::isfinite(v);
        t.value = num(v);
    };
    std::size_t end = layoutOf(tags).xdataBegin;
    bool inGroup = false;
    for (std::size_t i = 0; i < end; ++i) {
        DxfTag& t = tags[i];
        if (t.code == 101) break;  // an embedded object: the host keeps it as it is
        if (t.code == 102) {
            inGroup = !t.value.empty() && t.value[0] == '{';
            continue;
        }
        if (inGroup) continue;
        bool isPoint = has(g.points, t.code), isVector = has(g.vectors, t.code);
        if (isPoint || isVector) {
            AcGePoint3d v{tagNumber(t), 0, 0};
            bool hasY = i + 1 < end && tags[i + 1].code == t.code + 10;
            bool hasZ = hasY && i + 2 < end && tags[i + 2].code == t.code + 20;
            if (hasY) v.y = tagNumber(tags[i + 1]);
            if (hasZ) v.z = tagNumber(tags[i + 2]);
            AcGePoint3d out = isPoint ? p.point(v) : p.vector(v);
            set(t, out.x);
            if (hasY) set(tags[i + 1], out.y);
            if (hasZ) set(tags[i + 2], out.z);  // 2D points (LWPOLYLINE) keep their elevation
            i += hasZ ? 2 : hasY ? 1 : 0;
        } else if (has(g.lengths, t.code)) {
            set(t, tagNumber(t) * p.scale);
        } else if (has(g.angles, t.code)) {
            set(t, std::fmod(tagNumber(t) + p.angleDeg, 360.0));
        }
    }
    return finite;
}

// What a placement changes in the entity; throws, before anything changes,
// for entities it cannot place.
const Geometry* placeable(const AcDbEntity* ent, const Placement& p)
{
    if (!ent || p.identity()) return nullptr;
    std::string name = dxfNameOf(ent);
    const Geometry* g = geometryOf(name);
    if (!g) fail("cannot move or scale a " + name + " entity");
    std::string_view z;
    double dz = 1;
    if (acdbHostBodyValue(ent->record(), 230, z) && dxf::parseDouble(z, dz) && dz != 1)
        fail("cannot move a " + name + " drawn in another plane than the drawing's");
    DxfTags trial = ent->record().tags();
    if (!placeTags(trial, *g, p)) fail("the " + name + " would land too far out to be written");
    return g;
}

// Places one record.
void place(AcDbEntity* ent, const Placement& p)
{
    if (const Geometry* g = placeable(ent, p)) placeTags(ent->record().mutableTags(), *g, p);
}

void placeCopy(AcDbHostEntityCopy& copy, const Placement& p)
{
    place(copy.entity.get(), p);
    for (auto& sub : copy.subs) place(sub.get(), p);
}

// --- drawing ----------------------------------------------------------------

DxfTags head(const char* dxfName) { return {{0, dxfName}, {100, "AcDbEntity"}, {8, "0"}}; }

void pointTags(DxfTags& tags, int code, const AcGePoint3d& p)
{
    tags.push_back({code, num(p.x)});
    tags.push_back({code + 10, num(p.y)});
    tags.push_back({code + 20, num(p.z)});
}

void drawLine(Answers& a)
{
    Drawing d = current();
    AcGePoint3d from = point(a.need("first point"), "first point");
    AcGePoint3d to = point(a.need("second point"), "second point");
    // One line per segment, each appended as its end point comes.
    while (true) {
        append(d, new AcDbLine(from, to));
        std::wstring next;
        if (!a.next(next)) break;
        from = to;
        to = point(next, "next point");
    }
}

void drawPline(Answers& a)
{
    Drawing d = current();
    if (d.db->isR12OrOlder()) fail("an R12 drawing cannot hold a lightweight polyline");
    std::vector<AcGePoint3d> pts;
    bool closed = false;
    std::wstring w;
    while (a.next(w)) {
        if (acdbToLower(w) == L"close") {
            closed = true;
            a.end();
            break;
        }
        pts.push_back(point(w, "vertex"));
    }
    if (pts.size() < 2) fail("a polyline needs at least two points");
    for (const AcGePoint3d& p : pts)
        if (p.z != pts[0].z) fail("the points of a polyline must share one z");
    DxfTags tags = head("LWPOLYLINE");
    tags.push_back({100, "AcDbPolyline"});
    tags.push_back({90, std::to_string(pts.size())});
    tags.push_back({70, closed ? "1" : "0"});
    if (pts[0].z != 0) tags.push_back({38, num(pts[0].z)});
    tags.push_back({43, "0"});
    for (const AcGePoint3d& p : pts) {
        tags.push_back({10, num(p.x)});
        tags.push_back({20, num(p.y)});
    }
    append(d, newEntity(L"AcDbPolyline", std::move(tags)));
}

void drawCircle(Answers& a)
{
    Drawing d = current();
    AcGePoint3d c = point(a.need("centre"), "centre");
    double r = positive(a.need("radius"), "radius");
    a.end();
    append(d, new AcDbCircle(c, r));
}

void drawArc(Answers& a)
{
    Drawing d = current();
    AcGePoint3d c = point(a.need("centre"), "centre");
    double r = positive(a.need("radius"), "radius");
    double start = number(a.need("start angle"), "start angle");
    double endAngle = number(a.need("end angle"), "end angle");
    a.end();
    DxfTags tags = head("ARC");
    tags.push_back({100, "AcDbCircle"});
    pointTags(tags, 10, c);
    tags.push_back({40, num(r)});
    tags.push_back({100, "AcDbArc"});
    tags.push_back({50, num(start)});
    tags.push_back({51, num(endAngle)});
    append(d, newEntity(L"AcDbArc", std::move(tags)));
}

void drawText(Answers& a)
{
    Drawing d = current();
    AcGePoint3d p = point(a.need("insertion point"), "insertion point");
    double h = positive(a.need("height"), "height");
    std::wstring text = a.rest("text");
    append(d, new AcDbText(p, text.c_str(), h));
}

// The attributes of a block's definitions, placed for a reference.
std::vector<std::unique_ptr<AcDbEntity>> attributesFor(AcDbBlockTableRecord* block, const Placement& p,
                                                       const std::wstring& layer)
{
    std::vector<std::unique_ptr<AcDbEntity>> out;
    for (AcDbObjectId id : block->entityIds()) {
        AcDbObject* def = id.object();
        if (!def || dxfNameOf(def) != "ATTDEF") continue;
        // Everything up to an embedded object or extended data, the head's
        // handle, owner and groups left out, the prompt (3) dropped.
        DxfTags src = def->record().tags();
        RecordLayout l = layoutOf(src);
        DxfTags tags;
        bool inGroup = false, constant = false;
        for (std::size_t i = 0; i < l.xdataBegin; ++i) {
            const DxfTag& t = src[i];
            if (t.code == 101) break;
            if (t.code == 102) {
                inGroup = !t.value.empty() && t.value[0] == '{';
                continue;
            }
            if (inGroup || t.code == 5 || t.code == 330 || t.code == 3) continue;
            if (t.code == 70) constant = (std::atoi(t.value.c_str()) & 2) != 0;
            if (t.code == 0) tags.push_back({0, "ATTRIB"});
            else if (t.code == 100 && t.value == "AcDbAttributeDefinition") tags.push_back({100, "AcDbAttribute"});
            else tags.push_back(t);
        }
        if (constant) continue;  // shown by the block itself
        // Texts of a resident record are in the drawing's encoding; a new one holds UTF-8.
        AcDbDatabase* db = def->database();
        for (DxfTag& t : tags)
            if (dxf::valueType(t.code) == dxf::ValueType::String) t.value = toUtf8(db->decode(t.value));
        acdbHostSetBodyValue(tags, 8, toUtf8(layer), "AcDbEntity");
        auto attrib = std::unique_ptr<AcDbEntity>(newEntity(L"AcDbAttribute", std::move(tags)));
        place(attrib.get(), p);
        out.push_back(std::move(attrib));
    }
    return out;
}

AcGePoint3d blockBase(AcDbBlockTableRecord* block)
{
    AcGePoint3d base;
    if (AcDbObject* begin = block->hostBlockBegin.object()) {
        std::string_view v;
        if (acdbHostBodyValue(begin->record(), 10, v)) dxf::parseDouble(v, base.x);
        if (acdbHostBodyValue(begin->record(), 20, v)) dxf::parseDouble(v, base.y);
        if (acdbHostBodyValue(begin->record(), 30, v)) dxf::parseDouble(v, base.z);
    }
    return base;
}

void drawInsert(Answers& a)
{
    Drawing d = current();
    std::wstring name = a.need("block name");
    AcGePoint3d at = point(a.need("insertion point"), "insertion point");
    double scale = 1, rotation = 0;
    std::wstring w;
    if (a.next(w)) {
        scale = number(w, "scale");
        if (scale == 0) fail("scale must not be 0");
        if (a.next(w)) rotation = number(w, "rotation");
    }
    a.end();
    auto* blocks = AcDbSymbolTable::cast(d.db->blockTableId().object());
    AcDbObjectPointer<AcDbBlockTableRecord> block(blocks ? blocks->hostLookup(name) : AcDbObjectId(), AcDb::kForRead);
    if (!block) fail("no block " + quoted(name));
    if (block->isLayout() || block->getName().starts_with(L"*"))
        fail("cannot insert " + quoted(block->getName()) + ": a layout or an anonymous block");
    std::wstring layer = currentLayer(d.db);
    auto attributes = attributesFor(block.object(), {blockBase(block.object()), at, scale, rotation}, layer);
    DxfTags tags = head("INSERT");
    tags.push_back({100, "AcDbBlockReference"});
    if (!attributes.empty()) tags.push_back({66, "1"});
    tags.push_back({2, toUtf8(block->getName())});
    pointTags(tags, 10, at);
    if (scale != 1) {
        tags.push_back({41, num(scale)});
        tags.push_back({42, num(scale)});
        tags.push_back({43, num(scale)});
    }
    if (rotation != 0) tags.push_back({50, num(rotation)});
    AcDbHostEntityCopy ref;
    ref.entity.reset(new AcDbBlockReference);
    ref.entity->record().assign(std::move(tags));
    if (!attributes.empty()) {
        ref.subs = std::move(attributes);
        ref.subs.emplace_back(newEntity(L"AcDbSequenceEnd", head("SEQEND")));
        ref.subSources.resize(ref.subs.size());
    }
    acdbHostSetBodyValue(ref.entity->record().mutableTags(), 8, toUtf8(layer), "AcDbEntity");
    for (auto& sub : ref.subs) acdbHostSetBodyValue(sub->record().mutableTags(), 8, toUtf8(layer), "AcDbEntity");
    AcDbObjectPointer<AcDbBlockTableRecord> space(currentSpace(d), AcDb::kForWrite);
    if (!space) fail("the drawing has no current space");
    d.db->hostAppendCopy(space.object(), std::move(ref), AcDbObjectId(), nullptr);
}

void cmdLine() { Answers a; drawLine(a); }
void cmdPline() { Answers a; drawPline(a); }
void cmdCircle() { Answers a; drawCircle(a); }
void cmdArc() { Answers a; drawArc(a); }
void cmdText() { Answers a; drawText(a); }
void cmdInsert() { Answers a; drawInsert(a); }

// --- editing ----------------------------------------------------------------

// COPY handle... displacement: copies through a deep clone into the space of
// each source, as the host's copy does, then moves the copies.
void cmdCopy()
{
    Answers a;
    Drawing d = current();
    std::vector<std::wstring> words = a.all();
    if (words.empty()) fail("missing displacement (dx,dy or dx,dy,dz)");
    const Placement move{{0, 0, 0}, point(words.back(), "displacement"), 1, 0};
    words.pop_back();
    AcDbObjectIdArray ids = entitiesOrSelection(d, words);
    // Refused before anything is copied.
    for (AcDbObjectId id : ids) {
        AcDbObjectPointer<AcDbEntity> src(id, AcDb::kForRead);
        placeable(src.object(), move);
        for (AcDbObjectId sub : src->subEntities()) placeable(AcDbEntity::cast(sub.object()), move);
    }
    // One deep clone per space the sources live in.
    std::vector<AcDbObjectId> owners;
    for (AcDbObjectId id : ids)
        if (AcDbObjectId o = AcDbEntity::cast(id.object())->ownerId();
            std::find(owners.begin(), owners.end(), o) == owners.end())
            owners.push_back(o);
    for (AcDbObjectId owner : owners) {
        AcDbObjectIdArray group;
        for (AcDbObjectId id : ids)
            if (AcDbEntity::cast(id.object())->ownerId() == owner) group.append(id);
        AcDbIdMapping map;
        if (Acad::ErrorStatus es = d.db->deepCloneObjects(group, owner, map); es != Acad::eOk)
            fail(std::string("cannot copy: ") + Acad::errorName(es));
        for (const AcDbIdMapping::Pair& pair : map.pairs()) {
            AcDbObjectPointer<AcDbEntity> copy(pair.value, AcDb::kForWrite);
            if (copy) place(copy.object(), move);
        }
    }
}

void cmdErase()
{
    Answers a;
    Drawing d = current();
    for (AcDbObjectId id : entitiesOrSelection(d, a.all())) {
        AcDbObjectPointer<AcDbEntity> ent(id, AcDb::kForWrite);
        if (ent) ent->erase();
    }
}

// EXPLODE handle...: each block reference becomes its block's entities,
// placed as the reference shows them; the reference is erased.
void cmdExplode()
{
    Answers a;
    Drawing d = current();
    AcDbObjectIdArray ids = entitiesOrSelection(d, a.all());
    for (AcDbObjectId id : ids) {
        auto* ref = AcDbBlockReference::cast(id.object());
        if (!ref || dxfNameOf(ref) != "INSERT") fail("entity " + id.handle().str() + " is not a block reference");
    }
    for (AcDbObjectId id : ids) {
        AcDbObjectPointer<AcDbBlockReference> ref(id, AcDb::kForRead);
        if (!ref) fail("cannot open entity " + id.handle().str());
        const TagRecord& rec = ref->record();
        auto value = [&](int code, double dflt) {
            std::string_view v;
            double out = dflt;
            if (acdbHostBodyValue(rec, code, v)) dxf::parseDouble(v, out);
            return out;
        };
        if (value(70, 1) > 1 || value(71, 1) > 1) fail("cannot explode " + id.handle().str() + ": an array of references");
        double sx = value(41, 1), sy = value(42, 1), sz = value(43, 1);
        if (sx != sy || sx != sz) fail("cannot explode " + id.handle().str() + ": its scale is not the same along x, y and z");
        AcDbObjectPointer<AcDbBlockTableRecord> block(ref->blockTableRecord(), AcDb::kForRead);
        if (!block) fail("entity " + id.handle().str() + " names no block");
        AcGePoint3d at;
        at.x = value(10, 0), at.y = value(20, 0), at.z = value(30, 0);
        Placement p{blockBase(block.object()), at, sx, value(50, 0)};
        std::vector<AcDbHostEntityCopy> parts;
        for (AcDbObjectId partId : block->entityIds()) {
            AcDbHostEntityCopy copy;
            if (!d.db->hostCopyEntity(partId, copy)) fail("cannot copy entity " + partId.handle().str() + " of the block");
            placeCopy(copy, p);
            parts.push_back(std::move(copy));
        }
        block.close();
        auto* owner = AcDbBlockTableRecord::cast(ref->ownerId().object());
        ref.close();
        for (AcDbHostEntityCopy& part : parts) d.db->hostAppendCopy(owner, std::move(part), AcDbObjectId(), nullptr);
        AcDbObjectPointer<AcDbEntity> erase(id, AcDb::kForWrite);
        if (erase) erase->erase();
    }
}

// SELECT handle... | SELECT layer NAME | SELECT window x1,y1 x2,y2 | SELECT
// (clears): sets the pick-first selection.
void cmdSelect()
{
    Answers a;
    Drawing d = current();
    AcDbObjectIdArray ids;
    std::wstring first;
    if (a.next(first)) {
        std::wstring key = acdbToLower(first);
        if (key == L"layer" || key == L"window") {
            std::wstring layer;
            AcGePoint3d p1, p2;
            if (key == L"layer") {
                AcDbObjectPointer<AcDbLayerTableRecord> rec(layerNamed(d.db, a.need("layer name")), AcDb::kForRead);
                if (!rec) fail("cannot open the layer");
                layer = acdbToUpper(rec->getName());
            } else {
                p1 = point(a.need("first corner"), "first corner");
                p2 = point(a.need("second corner"), "second corner");
            }
            a.end();
            AcDbObjectPointer<AcDbBlockTableRecord> space(currentSpace(d), AcDb::kForRead);
            for (AcDbObjectId id : space ? space->entityIds() : std::vector<AcDbObjectId>()) {
                AcDbObjectPointer<AcDbEntity> ent(id, AcDb::kForRead);
                if (!ent) continue;
                bool in = key == L"layer" ? acdbToUpper(ent->layer()) == layer
                                          : acdbHostPointsInWindow(ent.object(), p1.x, p1.y, p2.x, p2.y);
                if (in) ids.append(id);
            }
        } else {
            std::vector<std::wstring> handles{first};
            for (std::wstring& h : a.all()) handles.push_back(std::move(h));
            ids = entitiesOrSelection(d, handles);
        }
    }
    acedSSSetFirst(ids);
    acutPrintf(L"%d selected\n", ids.length());
}

// --- layers, spaces, files ----------------------------------------------------

void setCurrentLayer(AcDbDatabase* db, AcDbLayerTableRecord* rec)
{
    if (rec->isFrozen()) fail("cannot make the frozen layer " + quoted(rec->getName()) + " current");
    db->setHeaderVar("$CLAYER", 8, db->encode(rec->getName()));
}

void cmdLayer()
{
    Answers a;
    Drawing d = current();
    std::wstring op = acdbToLower(a.need("option (make, set, on, off, freeze, thaw, lock or unlock)"));
    std::wstring name = a.need("layer name");
    a.end();
    static const wchar_t* const kOps[] = {L"make", L"set", L"on", L"off", L"freeze", L"thaw", L"lock", L"unlock"};
    if (std::find(std::begin(kOps), std::end(kOps), op) == std::end(kOps))
        fail("unknown option " + quoted(op) + " (make, set, on, off, freeze, thaw, lock or unlock)");
    AcDbSymbolTable* table = layerTable(d.db);
    AcDbObjectId id = table->hostLookup(name);
    if (op == L"make" && id.isNull()) {
        if (!acdbIsValidSymbolName(name)) fail(quoted(name) + " is not a valid layer name");
        // A new layer's defaults, whatever layer "0" looks like; its linetype must exist.
        std::unique_ptr<AcDbLayerTableRecord> rec(d.db->newLayerRecord());
        rec->setName(name.c_str());
        rec->setLinetypeObjectId(d.db->continuousLinetype());
        AcDbObjectPointer<AcDbSymbolTable> writable(d.db->layerTableId(), AcDb::kForWrite);
        if (!writable) fail("cannot open the layer table");
        if (Acad::ErrorStatus es = writable->add(id, rec.get()); es != Acad::eOk)
            fail("cannot add layer " + quoted(name) + ": " + Acad::errorName(es));
        rec.release()->close();
    }
    if (id.isNull()) fail("no layer " + quoted(name));
    AcDbObjectPointer<AcDbLayerTableRecord> rec(id, AcDb::kForWrite);
    if (!rec) fail("cannot open layer " + quoted(name));
    bool isCurrent = acdbToUpper(rec->getName()) == acdbToUpper(currentLayer(d.db));
    if (op == L"make" || op == L"set") setCurrentLayer(d.db, rec.object());
    else if (op == L"on") rec->setIsOff(false);
    else if (op == L"off") rec->setIsOff(true);
    else if (op == L"freeze") {
        if (isCurrent) fail("cannot freeze the current layer " + quoted(rec->getName()));
        rec->setIsFrozen(true);
    } else if (op == L"thaw") rec->setIsFrozen(false);
    else if (op == L"lock") rec->setIsLocked(true);
    else if (op == L"unlock") rec->setIsLocked(false);
}

void cmdTilemode()
{
    Answers a;
    current();  // a drawing must be open
    std::wstring v = a.need("value (0 or 1)");
    a.end();
    if (v != L"0" && v != L"1") fail("TILEMODE is 0 or 1, not " + quoted(v));
    acedSetVar(L"TILEMODE", ResBuf::int16(5003, v == L"1" ? 1 : 0));
}

void needLayout(const Drawing& d)
{
    if (d.db->tilemode() != 0) fail("not available in the Model tab (TILEMODE 1)");
}

void cmdMspace()
{
    Answers a;
    Drawing d = current();
    a.end();
    needLayout(d);
    // The first floating viewport of the layout takes the cursor.
    AcDbObjectPointer<AcDbBlockTableRecord> paper(d.db->paperSpaceId(), AcDb::kForRead);
    bool floating = false;
    for (AcDbObjectId id : paper ? paper->entityIds() : std::vector<AcDbObjectId>())
        if (AcDbObjectPointer<AcDbViewport> vp(id, AcDb::kForRead); vp && vp->number() != 1) floating = true;
    if (!floating) fail("the layout has no floating viewport");
    d.doc->setCvport(2);
}

void cmdPspace()
{
    Answers a;
    Drawing d = current();
    a.end();
    needLayout(d);
    d.doc->setCvport(1);
}

void save(const Drawing& d, std::string path)
{
    if (path.empty()) fail("the drawing has no file to save to: give SAVE a path");
    d.db->writeDxf(path);  // atomic: a temporary file, then a rename
    acutPrintf(L"Saved %ls\n", fromUtf8(path).c_str());
}

void cmdSave()
{
    Answers a;
    Drawing d = current();
    std::wstring path;
    bool given = a.next(path);
    a.end();
    save(d, given ? toUtf8(path) : d.doc->savePath());
}

void cmdQsave()
{
    Answers a;
    Drawing d = current();
    a.end();
    save(d, d.doc->savePath());
}

void cmdUndo()
{
    // Options such as a number of steps are accepted and ignored.
    std::wstring ignored;
    while (acedEditor->nextAnswer(ignored)) {
    }
    acutPrintf(L"Undo is not available yet: nothing was undone\n");
}

// --- the suite's commands ------------------------------------------------------

// A suite command's stand-in: its answers name one drawing step that it
// performs inside itself (no nested command events), as the suite's modules
// append entities: LINE, PLINE, CIRCLE, ARC, TEXT or INSERT with that
// command's answers, or CLONE handle... for copies of existing entities
// (suite entities kept as proxies included), made without a deep clone.
void cmdSuite()
{
    Answers a;
    std::wstring step;
    if (!a.next(step)) return;
    std::wstring s = acdbToUpper(step);
    if (s == L"LINE") drawLine(a);
    else if (s == L"PLINE") drawPline(a);
    else if (s == L"CIRCLE") drawCircle(a);
    else if (s == L"ARC") drawArc(a);
    else if (s == L"TEXT") drawText(a);
    else if (s == L"INSERT") drawInsert(a);
    else if (s == L"CLONE") {
        Drawing d = current();
        std::vector<std::wstring> handles = a.all();
        if (handles.empty()) fail("missing handle of the entity to clone");
        for (AcDbObjectId id : entitiesOrSelection(d, handles)) {
            AcDbHostEntityCopy copy;
            if (!d.db->hostCopyEntity(id, copy)) fail("cannot copy entity " + id.handle().str());
            AcDbObjectPointer<AcDbBlockTableRecord> space(currentSpace(d), AcDb::kForWrite);
            if (!space) fail("the drawing has no current space");
            d.db->hostAppendCopy(space.object(), std::move(copy), id, nullptr);
        }
    } else {
        fail("unknown step " + quoted(step) + " (LINE, PLINE, CIRCLE, ARC, TEXT, INSERT or CLONE)");
    }
}

}  // namespace

void acedRegisterHostCommands()
{
    static bool done = false;
    if (done) return;
    done = true;
    struct Entry {
        const wchar_t* name;
        AcRxFunctionPtr fn;
    };
    static const Entry kHost[] = {
        {L"LINE", &cmdLine},       {L"PLINE", &cmdPline},       {L"CIRCLE", &cmdCircle}, {L"ARC", &cmdArc},
        {L"TEXT", &cmdText},       {L"INSERT", &cmdInsert},     {L"COPY", &cmdCopy},     {L"ERASE", &cmdErase},
        {L"EXPLODE", &cmdExplode}, {L"SELECT", &cmdSelect},     {L"LAYER", &cmdLayer},   {L"TILEMODE", &cmdTilemode},
        {L"MSPACE", &cmdMspace},   {L"PSPACE", &cmdPspace},     {L"SAVE", &cmdSave},     {L"QSAVE", &cmdQsave},
        {L"U", &cmdUndo},          {L"UNDO", &cmdUndo},
    };
    for (const Entry& e : kHost) acedRegCmds->addCommand(kHostCommandGroup, e.name, e.name, ACRX_CMD_MODAL, e.fn);
    // The suite's commands that the layering looks for by name.
    static const wchar_t* const kSuite[] = {
        L"ZEFTDCALC",    L"ZEFTISO",     L"ZEFTDREBAR",    L"ZEFTDNEW",      L"ZEFTUTCALC",    L"ZEFTELEVCALC",
        L"ZEFTREBARCALC", L"ZEFTISOCALC", L"ZEFTDBLCLKDRAFT", L"ZEFTDUPDATE", L"ZEFTDACTIVE",   L"ZEFTVTOPBOTTOM",
        L"ZEFTDEXPORT",  L"ZEFTPEXPORT", L"ZEFTFORCECALC", L"ZEFTDBCONNECT", L"ZEFTCREATEDRAWINGSET",
    };
    // A loaded suite module that owns one of the names keeps it.
    for (const wchar_t* name : kSuite) acedRegCmds->addCommand(L"ZEFT_SUITE_STANDINS", name, name, ACRX_CMD_MODAL, &cmdSuite);
}

bool acdbHostPointsInWindow(const AcDbEntity* e, double x1, double y1, double x2, double y2)
{
    const double left = std::min(x1, x2), right = std::max(x1, x2), bottom = std::min(y1, y2), top = std::max(y1, y2);
    bool any = false, inside = true;
    int pendingY = -1;
    e->record().scan([&](int code, std::string_view v) {
        if (code >= 1000) return false;
        double d = 0;
        if (code >= 10 && code <= 13) {
            if (!dxf::parseDouble(v, d) || d < left || d > right) inside = false;
            pendingY = code + 10;
            any = true;
        } else if (code == pendingY) {
            if (!dxf::parseDouble(v, d) || d < bottom || d > top) inside = false;
            pendingY = -1;
        }
        return inside;
    });
    return any && inside;
}
