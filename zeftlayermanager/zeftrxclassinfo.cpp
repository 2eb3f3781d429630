#include "zeftlayermanager/zeftrxclassinfo.h"

#include <map>
#include <memory>
#include <set>

#include "host/dbobject.h"
#include "host/rxobject.h"
#include "suite/wybase.h"

namespace {

// Helper classes of the suite that nobody puts on a layer of their own.
const std::set<std::wstring> kHiddenClasses = {L"ZEFTMeshOutline", L"ZEFTFormwork", L"ZEFTImageEntity",
                                               L"ZEFTObjectViewE", L"ZEFTDimLeader", L"ZEFTLeader"};

// Names a person reads in the exception list.
const std::map<std::wstring, std::wstring>& displayNames()
{
    static const std::map<std::wstring, std::wstring> names = {
        {L"AcDbLine", L"Line"},
        {L"AcDbCircle", L"Circle"},
        {L"AcDbArc", L"Arc"},
        {L"AcDbEllipse", L"Ellipse"},
        {L"AcDbSpline", L"Spline"},
        {L"AcDbHelix", L"Helix"},
        {L"AcDbPolyline", L"Polyline"},
        {L"AcDb2dPolyline", L"2D Polyline"},
        {L"AcDb3dPolyline", L"3D Polyline"},
        {L"AcDbPolyFaceMesh", L"Polyface Mesh"},
        {L"AcDbPolygonMesh", L"Polygon Mesh"},
        {L"AcDbText", L"Text"},
        {L"AcDbMText", L"MText"},
        {L"AcDbAttributeDefinition", L"Attribute Definition"},
        {L"AcDbAttribute", L"Attribute"},
        {L"AcDbBlockReference", L"Block Reference"},
        {L"AcDbMInsertBlock", L"Multiple Block Reference"},
        {L"AcDbViewport", L"Viewport"},
        {L"AcDbRasterImage", L"Raster Image"},
        {L"AcDbWipeout", L"Wipeout"},
        {L"AcDbPoint", L"Point"},
        {L"AcDbSolid", L"2D Solid"},
        {L"AcDbTrace", L"Trace"},
        {L"AcDbFace", L"3D Face"},
        {L"AcDbShape", L"Shape"},
        {L"AcDbHatch", L"Hatch"},
        {L"AcDbDimension", L"Dimension"},
        {L"AcDbRotatedDimension", L"Rotated Dimension"},
        {L"AcDbAlignedDimension", L"Aligned Dimension"},
        {L"AcDb2LineAngularDimension", L"Angular Dimension (2 lines)"},
        {L"AcDb3PointAngularDimension", L"Angular Dimension (3 points)"},
        {L"AcDbDiametricDimension", L"Diametric Dimension"},
        {L"AcDbRadialDimension", L"Radial Dimension"},
        {L"AcDbOrdinateDimension", L"Ordinate Dimension"},
        {L"AcDbArcDimension", L"Arc Length Dimension"},
        {L"AcDbRadialDimensionLarge", L"Jogged Radial Dimension"},
        {L"AcDbLeader", L"Leader"},
        {L"AcDbMLeader", L"Multileader"},
        {L"AcDbMline", L"Multiline"},
        {L"AcDbXline", L"Construction Line"},
        {L"AcDbRay", L"Ray"},
        {L"AcDbRegion", L"Region"},
        {L"AcDb3dSolid", L"3D Solid"},
        {L"AcDbBody", L"Body"},
        {L"AcDbSurface", L"Surface"},
        {L"AcDbSubDMesh", L"Mesh"},
        {L"AcDbFcf", L"Tolerance"},
        {L"AcDbOle2Frame", L"OLE Object"},
        {L"AcDbTable", L"Table"},
        {L"AcDbLight", L"Light"},
        {L"AcDbPdfReference", L"PDF Underlay"},
        {L"AcDbDwfReference", L"DWF Underlay"},
        {L"AcDbDgnReference", L"DGN Underlay"},
        {L"ZEFTGridRectangularE", L"Rectangular Grid"},
        {L"ZEFTMeshCut", L"Mesh Cut"},
        {L"ZEFTMeshCutSymbol", L"Mesh Cut Symbol"},
    };
    return names;
}

bool keeps(const AcRxClass* cls)
{
    return cls && cls->isDerivedFrom(AcDbEntity::desc()) && cls->dxfName()[0] != L'\0' &&
           !kHiddenClasses.count(cls->name());
}

ZEFTEntityClassInfo describe(const AcRxClass* cls)
{
    ZEFTEntityClassInfo info;
    info.dxfName = cls->dxfName();
    info.className = cls->name();
    info.appName = info.dxfName.find(L"ZEFT") != std::wstring::npos ? L"Beltrix" : cls->appName();
    info.displayName = ZEFTRxClassInfo::displayNameOf(info.className, info.dxfName);
    return info;
}

}  // namespace

std::wstring ZEFTRxClassInfo::displayNameOf(const std::wstring& className, const std::wstring& dxfName)
{
    const auto& names = displayNames();
    const auto it = names.find(className);
    return it != names.end() ? it->second : dxfName;
}

void ZEFTRxClassInfo::GetEntitiesClassInfo(std::vector<ZEFTEntityClassInfo>& classes)
{
    ZEFT_GUARD_VOID("ZEFTRxClassInfo::GetEntitiesClassInfo", {
        classes.clear();
        auto* dictionary = dynamic_cast<AcRxDictionary*>(acrxSysRegistry()->at(L"ClassDictionary"));
        if (!dictionary) return;
        std::set<std::wstring> seen;
        for (const auto& [name, object] : dictionary->entries()) {
            const auto* cls = dynamic_cast<const AcRxClass*>(object);
            if (!keeps(cls)) continue;
            // A class that cannot make an instance offers nothing to place.
            std::unique_ptr<AcRxObject> probe(cls->create());
            if (!probe) continue;
            classes.push_back(describe(cls));
            seen.insert(cls->name());
        }
        // Classes of drawings read without their code: still named in lists.
        for (const AcRxClass* cls : acrxProxyClasses()) {
            if (!keeps(cls) || !seen.insert(cls->name()).second) continue;
            classes.push_back(describe(cls));
        }
    });
}

std::wstring ZEFTRxClassInfo::GetEntityDisplayName(const std::vector<ZEFTEntityClassInfo>& classes,
                                                   const std::wstring& className)
{
    ZEFT_GUARD("ZEFTRxClassInfo::GetEntityDisplayName", std::wstring(), {
        for (const auto& info : classes)
            if (info.className == className) return info.displayName;
        return std::wstring();
    });
}

std::wstring ZEFTRxClassInfo::GetEntityClassName(const std::vector<ZEFTEntityClassInfo>& classes,
                                                 const std::wstring& displayName)
{
    ZEFT_GUARD("ZEFTRxClassInfo::GetEntityClassName", std::wstring(), {
        for (const auto& info : classes)
            if (info.displayName == displayName) return info.className;
        return std::wstring();
    });
}
