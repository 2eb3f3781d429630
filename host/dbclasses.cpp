#include "host/dbclasses.h"

#include <array>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "host/database.h"
#include "host/dbdict.h"
#include "host/dbsymtb.h"
#include "host/filer.h"

ACDB_HOST_DEFINE_MEMBERS(AcDbCurve, AcDbEntity, "")
ACDB_HOST_DEFINE_MEMBERS(AcDbLine, AcDbCurve, "LINE")
ACDB_HOST_DEFINE_MEMBERS(AcDbCircle, AcDbCurve, "CIRCLE")
ACDB_HOST_DEFINE_MEMBERS(AcDbText, AcDbEntity, "TEXT")
ACDB_HOST_DEFINE_MEMBERS(AcDbBlockReference, AcDbEntity, "INSERT")
ACDB_HOST_DEFINE_MEMBERS(AcDbViewport, AcDbEntity, "VIEWPORT")
ACDB_HOST_DEFINE_MEMBERS(AcDbRasterImage, AcDbEntity, "IMAGE")
ACDB_HOST_DEFINE_MEMBERS(AcDbXrecord, AcDbObject, "XRECORD")
ACDB_HOST_DEFINE_MEMBERS(AcDbLayout, AcDbObject, "LAYOUT")
ACDB_HOST_DEFINE_MEMBERS(AcDbProxyEntity, AcDbEntity, "ACAD_PROXY_ENTITY")
ACDB_HOST_DEFINE_MEMBERS(AcDbProxyObject, AcDbObject, "ACAD_PROXY_OBJECT")

namespace {

// Classes known by name only: records of them keep their tags.
struct GenericClass {
    const wchar_t* name;
    const wchar_t* parent;
    const wchar_t* dxfName;
};

constexpr GenericClass kGeneric[] = {
    // entities
    {L"AcDbArc", L"AcDbCurve", L"ARC"},
    {L"AcDbEllipse", L"AcDbCurve", L"ELLIPSE"},
    {L"AcDbSpline", L"AcDbCurve", L"SPLINE"},
    {L"AcDbHelix", L"AcDbSpline", L"HELIX"},
    {L"AcDbPolyline", L"AcDbCurve", L"LWPOLYLINE"},
    {L"AcDb2dPolyline", L"AcDbCurve", L"POLYLINE"},
    {L"AcDb3dPolyline", L"AcDbCurve", L"POLYLINE"},
    {L"AcDbPolyFaceMesh", L"AcDbEntity", L"POLYLINE"},
    {L"AcDbPolygonMesh", L"AcDbEntity", L"POLYLINE"},
    {L"AcDbVertex", L"AcDbEntity", L"VERTEX"},
    {L"AcDb2dVertex", L"AcDbVertex", L"VERTEX"},
    {L"AcDb3dPolylineVertex", L"AcDbVertex", L"VERTEX"},
    {L"AcDbPolyFaceMeshVertex", L"AcDbVertex", L"VERTEX"},
    {L"AcDbPolygonMeshVertex", L"AcDbVertex", L"VERTEX"},
    {L"AcDbFaceRecord", L"AcDbVertex", L"VERTEX"},
    {L"AcDbSequenceEnd", L"AcDbEntity", L"SEQEND"},
    {L"AcDbAttributeDefinition", L"AcDbText", L"ATTDEF"},
    {L"AcDbAttribute", L"AcDbText", L"ATTRIB"},
    {L"AcDbMText", L"AcDbEntity", L"MTEXT"},
    {L"AcDbMInsertBlock", L"AcDbBlockReference", L"INSERT"},
    {L"AcDbBlockBegin", L"AcDbEntity", L"BLOCK"},
    {L"AcDbBlockEnd", L"AcDbEntity", L"ENDBLK"},
    {L"AcDbPoint", L"AcDbEntity", L"POINT"},
    {L"AcDbSolid", L"AcDbEntity", L"SOLID"},
    {L"AcDbTrace", L"AcDbEntity", L"TRACE"},
    {L"AcDbFace", L"AcDbEntity", L"3DFACE"},
    {L"AcDbShape", L"AcDbEntity", L"SHAPE"},
    {L"AcDbHatch", L"AcDbEntity", L"HATCH"},
    {L"AcDbDimension", L"AcDbEntity", L"DIMENSION"},
    {L"AcDbRotatedDimension", L"AcDbDimension", L"DIMENSION"},
    {L"AcDbAlignedDimension", L"AcDbDimension", L"DIMENSION"},
    {L"AcDb2LineAngularDimension", L"AcDbDimension", L"DIMENSION"},
    {L"AcDb3PointAngularDimension", L"AcDbDimension", L"DIMENSION"},
    {L"AcDbDiametricDimension", L"AcDbDimension", L"DIMENSION"},
    {L"AcDbRadialDimension", L"AcDbDimension", L"DIMENSION"},
    {L"AcDbOrdinateDimension", L"AcDbDimension", L"DIMENSION"},
    {L"AcDbArcDimension", L"AcDbDimension", L"ARC_DIMENSION"},
    {L"AcDbRadialDimensionLarge", L"AcDbDimension", L"LARGE_RADIAL_DIMENSION"},
    {L"AcDbLeader", L"AcDbCurve", L"LEADER"},
    {L"AcDbMLeader", L"AcDbEntity", L"MULTILEADER"},
    {L"AcDbMline", L"AcDbEntity", L"MLINE"},
    {L"AcDbXline", L"AcDbCurve", L"XLINE"},
    {L"AcDbRay", L"AcDbCurve", L"RAY"},
    {L"AcDbRegion", L"AcDbEntity", L"REGION"},
    {L"AcDb3dSolid", L"AcDbEntity", L"3DSOLID"},
    {L"AcDbBody", L"AcDbEntity", L"BODY"},
    {L"AcDbSurface", L"AcDbEntity", L"SURFACE"},
    {L"AcDbSubDMesh", L"AcDbEntity", L"MESH"},
    {L"AcDbFcf", L"AcDbEntity", L"TOLERANCE"},
    {L"AcDbOleFrame", L"AcDbEntity", L"OLEFRAME"},
    {L"AcDbOle2Frame", L"AcDbOleFrame", L"OLE2FRAME"},
    {L"AcDbWipeout", L"AcDbRasterImage", L"WIPEOUT"},
    {L"AcDbTable", L"AcDbBlockReference", L"ACAD_TABLE"},
    {L"AcDbLight", L"AcDbEntity", L"LIGHT"},
    {L"AcDbUnderlayReference", L"AcDbEntity", L""},
    {L"AcDbPdfReference", L"AcDbUnderlayReference", L"PDFUNDERLAY"},
    {L"AcDbDwfReference", L"AcDbUnderlayReference", L"DWFUNDERLAY"},
    {L"AcDbDgnReference", L"AcDbUnderlayReference", L"DGNUNDERLAY"},
    // objects
    {L"AcDbDictionaryWithDefault", L"AcDbDictionary", L"ACDBDICTIONARYWDFLT"},
    {L"AcDbPlotSettings", L"AcDbObject", L"PLOTSETTINGS"},
    {L"AcDbGroup", L"AcDbObject", L"GROUP"},
    {L"AcDbMlineStyle", L"AcDbObject", L"MLINESTYLE"},
    {L"AcDbDictionaryVar", L"AcDbObject", L"DICTIONARYVAR"},
    {L"AcDbPlaceHolder", L"AcDbObject", L"ACDBPLACEHOLDER"},
    {L"AcDbRasterImageDef", L"AcDbObject", L"IMAGEDEF"},
    {L"AcDbRasterImageDefReactor", L"AcDbObject", L"IMAGEDEF_REACTOR"},
    {L"AcDbRasterVariables", L"AcDbObject", L"RASTERVARIABLES"},
    {L"AcDbWipeoutVariables", L"AcDbObject", L"WIPEOUTVARIABLES"},
    {L"AcDbSortentsTable", L"AcDbObject", L"SORTENTSTABLE"},
    {L"AcDbFilter", L"AcDbObject", L""},
    {L"AcDbSpatialFilter", L"AcDbFilter", L"SPATIAL_FILTER"},
    {L"AcDbLayerFilter", L"AcDbFilter", L"LAYER_FILTER"},
    {L"AcDbIndex", L"AcDbObject", L""},
    {L"AcDbSpatialIndex", L"AcDbIndex", L"SPATIAL_INDEX"},
    {L"AcDbLayerIndex", L"AcDbIndex", L"LAYER_INDEX"},
    {L"AcDbIdBuffer", L"AcDbObject", L"IDBUFFER"},
    {L"AcDbMaterial", L"AcDbObject", L"MATERIAL"},
    {L"AcDbVisualStyle", L"AcDbObject", L"VISUALSTYLE"},
    {L"AcDbScale", L"AcDbObject", L"SCALE"},
    {L"AcDbMLeaderStyle", L"AcDbObject", L"MLEADERSTYLE"},
    {L"AcDbTableStyle", L"AcDbObject", L"TABLESTYLE"},
    {L"AcDbField", L"AcDbObject", L"FIELD"},
    {L"AcDbGeoData", L"AcDbObject", L"GEODATA"},
    {L"AcDbSun", L"AcDbObject", L"SUN"},
    {L"AcDbUnderlayDefinition", L"AcDbObject", L""},
    {L"AcDbPdfDefinition", L"AcDbUnderlayDefinition", L"PDFDEFINITION"},
    {L"AcDbDwfDefinition", L"AcDbUnderlayDefinition", L"DWFDEFINITION"},
    {L"AcDbDgnDefinition", L"AcDbUnderlayDefinition", L"DGNDEFINITION"},
    // tables and records the host keeps as they are
    {L"AcDbTextStyleTable", L"AcDbSymbolTable", L"TABLE"},
    {L"AcDbTextStyleTableRecord", L"AcDbSymbolTableRecord", L"STYLE"},
    {L"AcDbViewTable", L"AcDbSymbolTable", L"TABLE"},
    {L"AcDbAbstractViewTableRecord", L"AcDbSymbolTableRecord", L""},
    {L"AcDbViewTableRecord", L"AcDbAbstractViewTableRecord", L"VIEW"},
    {L"AcDbViewportTable", L"AcDbSymbolTable", L"TABLE"},
    {L"AcDbViewportTableRecord", L"AcDbAbstractViewTableRecord", L"VPORT"},
    {L"AcDbUCSTable", L"AcDbSymbolTable", L"TABLE"},
    {L"AcDbUCSTableRecord", L"AcDbSymbolTableRecord", L"UCS"},
    {L"AcDbDimStyleTable", L"AcDbSymbolTable", L"TABLE"},
    {L"AcDbDimStyleTableRecord", L"AcDbSymbolTableRecord", L"DIMSTYLE"},
};

template <std::size_t I>
AcRxObject* makeGeneric()
{
    AcRxClass* cls = acrxFindClass(kGeneric[I].name);
    // An instance of the nearest host class with a C++ type, so that cast() to it works.
    AcDbObject* o;
    if (cls && cls->isDerivedFrom(AcDbText::desc())) o = new AcDbText;
    else if (cls && cls->isDerivedFrom(AcDbBlockReference::desc())) o = new AcDbBlockReference;
    else if (cls && cls->isDerivedFrom(AcDbRasterImage::desc())) o = new AcDbRasterImage;
    else if (cls && cls->isDerivedFrom(AcDbCurve::desc())) o = new AcDbCurve;
    else if (cls && cls->isDerivedFrom(AcDbEntity::desc())) o = new AcDbEntity;
    else if (cls && cls->isDerivedFrom(AcDbDictionary::desc())) o = new AcDbDictionary;
    else if (cls && cls->isDerivedFrom(AcDbSymbolTableRecord::desc())) o = new AcDbSymbolTableRecord;
    else if (cls && cls->isDerivedFrom(AcDbSymbolTable::desc())) o = new AcDbSymbolTable;
    else o = new AcDbObject;
    o->hostSetClass(cls);
    return o;
}

template <std::size_t... I>
constexpr auto makeCtors(std::index_sequence<I...>)
{
    return std::array<AcRxPseudoConstructor, sizeof...(I)>{&makeGeneric<I>...};
}

struct DxfIndex {
    std::unordered_map<std::wstring, AcRxClass*> entities, objects;
};
DxfIndex& dxfIndex()
{
    static DxfIndex idx;
    return idx;
}

}  // namespace

void acdbRegisterHostClasses()
{
    static bool done = false;
    if (done) return;
    done = true;  // before registering: desc() of the classes below comes back here
    AcDbObject::rxInit();
    AcDbEntity::rxInit();
    AcDbCurve::rxInit();
    AcDbLine::rxInit();
    AcDbCircle::rxInit();
    AcDbText::rxInit();
    AcDbBlockReference::rxInit();
    AcDbViewport::rxInit();
    AcDbRasterImage::rxInit();
    AcDbDictionary::rxInit();
    AcDbXrecord::rxInit();
    AcDbLayout::rxInit();
    AcDbProxyEntity::rxInit();
    AcDbProxyObject::rxInit();
    AcDbSymbolTable::rxInit();
    AcDbSymbolTableRecord::rxInit();
    AcDbLayerTable::rxInit();
    AcDbLayerTableRecord::rxInit();
    AcDbBlockTable::rxInit();
    AcDbBlockTableRecord::rxInit();
    AcDbRegAppTable::rxInit();
    AcDbRegAppTableRecord::rxInit();
    AcDbLinetypeTable::rxInit();
    AcDbLinetypeTableRecord::rxInit();
    static const auto ctors = makeCtors(std::make_index_sequence<std::size(kGeneric)>());
    for (std::size_t i = 0; i < std::size(kGeneric); ++i)
        newAcRxClass(kGeneric[i].name, kGeneric[i].parent, AcDb::kDHL_CURRENT, AcDb::kMReleaseCurrent, 0, ctors[i],
                     kGeneric[i].dxfName, L"ObjectDBX Classes");
    // The first class of a DXF name is the one a record of that name becomes.
    DxfIndex& idx = dxfIndex();
    AcRxClass* entity = AcDbEntity::desc();
    for (auto& [name, obj] : acrxClassDictionary()->entries()) {
        auto* cls = static_cast<AcRxClass*>(obj);
        if (!*cls->dxfName() || std::wstring(cls->dxfName()) == L"TABLE") continue;
        auto& map = cls->isDerivedFrom(entity) ? idx.entities : idx.objects;
        map.emplace(cls->dxfName(), cls);
    }
}

AcRxClass* acdbHostClassForDxfName(const std::wstring& dxfName, bool entity)
{
    acdbRegisterHostClasses();
    auto& map = entity ? dxfIndex().entities : dxfIndex().objects;
    auto it = map.find(dxfName);
    return it == map.end() ? nullptr : it->second;
}

// --- entities made by callers ---

static std::string num(double v) { return dxf::formatDouble(v); }

AcDbLine::AcDbLine(const AcGePoint3d& s, const AcGePoint3d& e)
{
    record_.assign({{0, "LINE"}, {100, "AcDbEntity"}, {8, "0"}, {100, "AcDbLine"},
                    {10, num(s.x)}, {20, num(s.y)}, {30, num(s.z)}, {11, num(e.x)}, {21, num(e.y)}, {31, num(e.z)}});
}

static AcGePoint3d pointAt(const TagRecord& rec, int code)
{
    AcGePoint3d p;
    std::string_view v;
    if (acdbHostBodyValue(rec, code, v)) dxf::parseDouble(v, p.x);
    if (acdbHostBodyValue(rec, code + 10, v)) dxf::parseDouble(v, p.y);
    if (acdbHostBodyValue(rec, code + 20, v)) dxf::parseDouble(v, p.z);
    return p;
}

static void setPointAt(DxfTags& tags, int code, const AcGePoint3d& p, const char* marker)
{
    acdbHostSetBodyValue(tags, code, num(p.x), marker);
    acdbHostSetBodyValue(tags, code + 10, num(p.y), marker);
    acdbHostSetBodyValue(tags, code + 20, num(p.z), marker);
}

AcGePoint3d AcDbLine::startPoint() const { assertReadEnabled(); return pointAt(record_, 10); }
AcGePoint3d AcDbLine::endPoint() const { assertReadEnabled(); return pointAt(record_, 11); }
Acad::ErrorStatus AcDbLine::setStartPoint(const AcGePoint3d& p)
{
    assertWriteEnabled();
    setPointAt(record_.mutableTags(), 10, p, "AcDbLine");
    return Acad::eOk;
}
Acad::ErrorStatus AcDbLine::setEndPoint(const AcGePoint3d& p)
{
    assertWriteEnabled();
    setPointAt(record_.mutableTags(), 11, p, "AcDbLine");
    return Acad::eOk;
}

AcDbCircle::AcDbCircle(const AcGePoint3d& c, double r)
{
    record_.assign({{0, "CIRCLE"}, {100, "AcDbEntity"}, {8, "0"}, {100, "AcDbCircle"},
                    {10, num(c.x)}, {20, num(c.y)}, {30, num(c.z)}, {40, num(r)}});
}
AcGePoint3d AcDbCircle::center() const { assertReadEnabled(); return pointAt(record_, 10); }
double AcDbCircle::radius() const
{
    assertReadEnabled();
    std::string_view v;
    double r = 0;
    if (acdbHostBodyValue(record_, 40, v)) dxf::parseDouble(v, r);
    return r;
}

AcDbText::AcDbText(const AcGePoint3d& p, const wchar_t* text, double height)
{
    record_.assign({{0, "TEXT"}, {100, "AcDbEntity"}, {8, "0"}, {100, "AcDbText"},
                    {10, num(p.x)}, {20, num(p.y)}, {30, num(p.z)}, {40, num(height)},
                    {1, dxf::toUtf8(text ? text : L"")}, {100, "AcDbText"}});
}
std::wstring AcDbText::textString() const
{
    assertReadEnabled();
    std::string_view v;
    if (!acdbHostBodyValue(record_, 1, v)) return L"";
    return database() ? database()->decode(v) : dxf::fromUtf8(v);
}
AcGePoint3d AcDbText::position() const { assertReadEnabled(); return pointAt(record_, 10); }

AcDbObjectId AcDbBlockReference::blockTableRecord() const
{
    assertReadEnabled();
    AcDbDatabase* db = database();
    std::string_view v;
    if (!db || !acdbHostBodyValue(record_, 2, v)) return {};
    auto* bt = AcDbSymbolTable::cast(db->blockTableId().object());
    return bt ? bt->hostLookup(db->decode(v)) : AcDbObjectId();
}
AcGePoint3d AcDbBlockReference::position() const { assertReadEnabled(); return pointAt(record_, 10); }

int AcDbViewport::number() const
{
    assertReadEnabled();
    std::string_view v;
    long long n = -1;
    if (acdbHostBodyValue(record_, 69, v)) dxf::parseInt(v, n);
    return int(n);
}

// --- Xrecord ---

AcDbXrecord::AcDbXrecord()
{
    // Cloning flag 1: keep existing data when a copy meets a record of the same key.
    record_.assign({{0, "XRECORD"}, {100, "AcDbXrecord"}, {280, "1"}});
}

namespace {

bool xrecordDataCode(short code)
{
    return code > 0 && code < 1000 && code != 5 && code != 100 && code != 102 && code != 105;
}

// Where the data starts: after the subclass marker and its cloning flag, or
// SIZE_MAX without a marker. Stops at the first marker, so only the head is read.
std::size_t xrecordDataBegin(const DxfTags& tags)
{
    bool inGroup = false;
    for (std::size_t i = 0; i < tags.size(); ++i) {
        int c = tags[i].code;
        if (c == 1001) break;
        if (c == 102) inGroup = !tags[i].value.empty() && tags[i].value[0] == '{';
        if (c == 100 && !inGroup) {
            if (tags[i].value != "AcDbXrecord") continue;
            std::size_t b = i + 1;
            if (b < tags.size() && tags[b].code == 280) ++b;
            return b;
        }
    }
    return SIZE_MAX;
}

// Makes the marker and flag when the record has none; returns where data starts.
std::size_t ensureXrecordMarker(DxfTags& tags)
{
    std::size_t b = xrecordDataBegin(tags);
    if (b != SIZE_MAX) return b;
    std::size_t at = layoutOf(tags).xdataBegin;
    tags.insert(tags.begin() + long(at), {{100, "AcDbXrecord"}, {280, "1"}});
    return at + 2;
}

}  // namespace

ResBufList AcDbXrecord::rbChain() const
{
    assertReadEnabled();
    DxfTags tags = record_.tags();
    std::size_t begin = xrecordDataBegin(tags);
    if (begin == SIZE_MAX) return {};
    return acdbHostTagsToItems(database(), tags, begin, layoutOf(tags).xdataBegin);
}

// The tags of data items, or false when an item's code has no place in an
// xrecord's data.
static bool xrecordDataTags(AcDbDatabase* db, const ResBufList& items, DxfTags& data)
{
    for (const ResBuf& item : items)
        if (!xrecordDataCode(item.restype)) return false;
    acdbHostItemsToTags(db, items, data);
    return true;
}

Acad::ErrorStatus AcDbXrecord::setFromRbChain(const ResBufList& items)
{
    assertWriteEnabled();
    DxfTags data;
    if (!xrecordDataTags(database(), items, data)) return Acad::eInvalidInput;
    DxfTags& tags = record_.mutableTags();
    std::size_t begin = ensureXrecordMarker(tags);
    std::size_t end = layoutOf(tags).xdataBegin;
    tags.erase(tags.begin() + long(begin), tags.begin() + long(end));
    tags.insert(tags.begin() + long(begin), data.begin(), data.end());
    return Acad::eOk;
}

// Inserts data items after the last one without reading the others.
static void appendXrecordData(TagRecord& record, DxfTags data)
{
    DxfTags& tags = record.mutableTags();
    ensureXrecordMarker(tags);
    // Extended data, when there is any, ends with a code of 1000 or more.
    std::size_t end = !tags.empty() && tags.back().code >= 1000 ? layoutOf(tags).xdataBegin : tags.size();
    tags.insert(tags.begin() + long(end), std::make_move_iterator(data.begin()), std::make_move_iterator(data.end()));
}

Acad::ErrorStatus AcDbXrecord::appendRbChain(const ResBufList& items)
{
    assertWriteEnabled();
    DxfTags data;
    if (!xrecordDataTags(database(), items, data)) return Acad::eInvalidInput;
    appendXrecordData(record_, std::move(data));
    return Acad::eOk;
}

Acad::ErrorStatus AcDbXrecord::hostAppendPointers(short code, const AcDbObjectIdArray& ids)
{
    assertWriteEnabled();
    if (code < 330 || code > 369) return Acad::eInvalidInput;
    DxfTags data;
    DxfTags& tags = record_.mutableTags();
    // Straight into the record when nothing follows the data, which is the
    // rule: a list of 100,000 entities is then held once, not twice.
    const bool atEnd = xrecordDataBegin(tags) != SIZE_MAX && (tags.empty() || tags.back().code < 1000);
    DxfTags& into = atEnd ? tags : data;
    into.reserve(into.size() + ids.size());
    for (const AcDbObjectId& id : ids) into.push_back({code, id.isNull() ? "0" : id.handle().str()});
    if (!atEnd) appendXrecordData(record_, std::move(data));
    return Acad::eOk;
}

std::wstring AcDbLayout::getLayoutName() const
{
    assertReadEnabled();
    // The 1 of the layout's own subclass, not the page setup name before it.
    bool inLayout = false;
    std::string_view name;
    bool found = false;
    record_.scan([&](int code, std::string_view v) {
        if (code == 100) inLayout = v == "AcDbLayout";
        else if (inLayout && code == 1) {
            name = v;
            found = true;
            return false;
        }
        return code < 1000;
    });
    return found && database() ? database()->decode(name) : L"";
}

AcDbObjectId AcDbLayout::getBlockTableRecordId() const
{
    assertReadEnabled();
    // The 330 of the layout's own subclass, not the owner in the head.
    bool inLayout = false;
    AcDbHandle h;
    record_.scan([&](int code, std::string_view v) {
        if (code == 100) inLayout = v == "AcDbLayout";
        else if (inLayout && code == 330) {
            AcDbHandle::parse(v, h);
            return false;
        }
        return code < 1000;
    });
    return database() && !h.isNull() ? database()->idOf(h) : AcDbObjectId();
}
