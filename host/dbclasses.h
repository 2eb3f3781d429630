// The host's own classes beyond the object base: entities and objects that
// callers test for by class, and the registration of every class name that
// DXF uses. All of them keep their data as the tags of their record.
#pragma once

#include "host/dbobject.h"

class AcDbCurve : public AcDbEntity {
    ACRX_DECLARE_MEMBERS(AcDbCurve);
};

class AcDbLine : public AcDbCurve {
    ACRX_DECLARE_MEMBERS(AcDbLine);

public:
    AcDbLine() = default;
    AcDbLine(const AcGePoint3d& start, const AcGePoint3d& end);
    AcGePoint3d startPoint() const;
    AcGePoint3d endPoint() const;
    Acad::ErrorStatus setStartPoint(const AcGePoint3d& p);
    Acad::ErrorStatus setEndPoint(const AcGePoint3d& p);
};

class AcDbCircle : public AcDbCurve {
    ACRX_DECLARE_MEMBERS(AcDbCircle);

public:
    AcDbCircle() = default;
    AcDbCircle(const AcGePoint3d& center, double radius);
    AcGePoint3d center() const;
    double radius() const;
};

class AcDbText : public AcDbEntity {
    ACRX_DECLARE_MEMBERS(AcDbText);

public:
    AcDbText() = default;
    AcDbText(const AcGePoint3d& position, const wchar_t* text, double height = 2.5);
    std::wstring textString() const;
    AcGePoint3d position() const;
};

class AcDbBlockReference : public AcDbEntity {
    ACRX_DECLARE_MEMBERS(AcDbBlockReference);

public:
    AcDbBlockReference() = default;
    AcDbObjectId blockTableRecord() const;
    AcGePoint3d position() const;
};

class AcDbViewport : public AcDbEntity {
    ACRX_DECLARE_MEMBERS(AcDbViewport);

public:
    AcDbViewport() = default;
    // The viewport's number (group 69); 1 is the overall paper-space viewport.
    int number() const;
};

class AcDbRasterImage : public AcDbEntity {
    ACRX_DECLARE_MEMBERS(AcDbRasterImage);
};

class AcDbXrecord : public AcDbObject {
    ACRX_DECLARE_MEMBERS(AcDbXrecord);

public:
    AcDbXrecord();
    // The data items: everything after the subclass marker and its cloning
    // flag (280), up to the extended data. Points come as one item; pointer
    // codes (330-369) carry their handle and, when the drawing has it, its id.
    ResBufList rbChain() const;
    // Replaces the data items; the head and the extended data stay. Codes 0,
    // 5, 100, 102, 105 and from 1000 on cannot be data (eInvalidInput).
    Acad::ErrorStatus setFromRbChain(const ResBufList& items);
    // Appends items after the last one without reading the others, so that
    // records that only grow stay linear to build.
    Acad::ErrorStatus appendRbChain(const ResBufList& items);
    // Appends one pointer item of `code` (330-369) per id, as appendRbChain
    // would, without a result buffer per id: records that list entities.
    Acad::ErrorStatus hostAppendPointers(short code, const AcDbObjectIdArray& ids);
};

class AcDbLayout : public AcDbObject {
    ACRX_DECLARE_MEMBERS(AcDbLayout);

public:
    std::wstring getLayoutName() const;
    AcDbObjectId getBlockTableRecordId() const;
};

class AcDbProxyEntity : public AcDbEntity {
    ACRX_DECLARE_MEMBERS(AcDbProxyEntity);
};
class AcDbProxyObject : public AcDbObject {
    ACRX_DECLARE_MEMBERS(AcDbProxyObject);
};

// Registers every host class once; idempotent.
void acdbRegisterHostClasses();
// The class a DXF record name stands for in the host's table, or null.
AcRxClass* acdbHostClassForDxfName(const std::wstring& dxfName, bool entity);
