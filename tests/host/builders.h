// Builders of test drawings shared by the host's tests.
#pragma once

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dxf/dxftext.h"

// DXF text of tags.
inline std::string tagText(std::initializer_list<std::pair<int, std::string>> tags)
{
    std::string out;
    for (auto& [code, value] : tags) dxf::appendTag(out, code, value, "\n");
    return out;
}

// A drawing's text (the new-drawing text unless given) with CLASS records,
// and records at the end of a section.
inline std::string drawingWith(const std::string& classes, const std::string& section, const std::string& records,
                               std::string text = AcDbDatabase().dxfText())
{
    text.insert(text.find("  0\nENDSEC\n", text.find("  2\n" + section + "\n")), records);
    const std::string head = "  2\nCLASSES\n";
    return text.insert(text.find(head) + head.size(), classes);
}

// A line appended to model space or the given block record.
inline AcDbObjectId addLine(AcDbDatabase& db, AcGePoint3d a = {}, AcGePoint3d b = {1, 1, 0}, AcDbObjectId space = {})
{
    AcDbObjectPointer<AcDbBlockTableRecord> btr(space.isNull() ? db.modelSpaceId() : space, AcDb::kForWrite);
    AcDbObjectId id;
    auto* line = new AcDbLine(a, b);
    EXPECT_EQ(btr->appendAcDbEntity(id, line), Acad::eOk);
    line->close();
    return id;
}
