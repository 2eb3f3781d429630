// Builders of test drawings and helpers shared by the host's tests.
#pragma once

#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/document.h"
#include "host/dxf/dxftext.h"

using Tags = std::vector<std::pair<int, std::string>>;

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::vector<std::string> split(const std::string& s, char sep)
{
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string part; std::getline(in, part, sep);) out.push_back(part);
    return out;
}

// The rows of a table file, as cells between tabs; blank lines and "#" comments are skipped.
inline std::vector<std::vector<std::string>> tableRows(const std::string& path)
{
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : split(readFile(path), '\n'))
        if (!line.empty() && line[0] != '#') rows.push_back(split(line + "\t", '\t'));
    EXPECT_FALSE(rows.empty()) << path;
    return rows;
}

// A system variable of the current document as an integer; -99 when there is none.
inline int var(const wchar_t* name)
{
    ResBuf v;
    return acedGetVar(name, v) ? int(v.rint()) : -99;
}

// A class and its parents, as "Leaf < Parent < ... < AcRxObject".
inline std::string lineage(const AcRxClass* c)
{
    std::string out;
    for (; c; c = c->myParent()) out += (out.empty() ? "" : " < ") + dxf::toUtf8(c->name());
    return out;
}

inline std::string sampleText() { return readFile(ZEFT_SOURCE_DIR "/examples/sample.dxf"); }
inline std::unique_ptr<AcDbDatabase> sample() { return AcDbDatabase::readDxfBytes(sampleText(), "sample.dxf"); }

inline std::string withCrlf(const std::string& lf)
{
    std::string out;
    for (char c : lf) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return out;
}

// The tags of a drawing's text, and where each starts when asked.
inline Tags tagsOf(const dxf::DrawingText& d, std::vector<std::size_t>* offsets = nullptr)
{
    Tags out;
    dxf::Tokenizer tok(d);
    for (dxf::TagView t; tok.next(t);) {
        out.emplace_back(t.code, std::string(t.value));
        if (offsets) offsets->push_back(t.offset);
    }
    return out;
}

// The message of the exception of type E that `f` throws, or "" when it does not throw.
template <class E = dxf::ParseError, class F>
std::string errorOf(F&& f)
{
    try {
        f();
    } catch (const E& e) {
        return e.what();
    }
    return "";
}

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

// A suite entity of a class no code registers (handle 9A0, in the model
// space of `text`), with extended data when asked; its class record.
inline std::string gridClass()
{
    return tagText({{0, "CLASS"}, {1, "ZEFTGRIDRECTE"}, {2, "ZEFTGridRectangularE"}, {3, "ZeftApp"}, {90, "1151"},
                    {91, "1"}, {280, "0"}, {281, "1"}});
}
inline std::string gridEntity(const std::string& modelSpace, bool xdata)
{
    return tagText({{0, "ZEFTGRIDRECTE"}, {5, "9A0"}, {330, modelSpace}, {100, "AcDbEntity"}, {8, "0"},
                    {100, "ZEFTGridBase"}, {100, "ZEFTGridRectangularE"}, {10, "1.5"}, {20, "2.5"}, {30, "0.0"}}) +
           (xdata ? tagText({{1001, "ZeftApp"}, {1000, "grid"}}) : "");
}

// The record of `handle` in written text, up to the next record.
inline std::string recordOf(const std::string& text, const std::string& handle)
{
    const std::size_t at = text.find("  5\n" + handle + "\n");
    return at == std::string::npos ? "" : text.substr(at, text.find("  0\n", at) - at);
}

inline AcDbObjectId idAt(const AcDbDatabase& db, const char* handle)
{
    AcDbHandle h;
    AcDbHandle::parse(handle, h);
    return db.idOf(h);
}

// An object (a new record unless given) added under `key` of a dictionary
// (null: a generated key), and closed.
inline AcDbObjectId addEntry(AcDbDictionary* dict, const wchar_t* key, AcDbObject* object = nullptr)
{
    if (!object) object = new AcDbXrecord;
    AcDbObjectId id;
    EXPECT_EQ(dict->setAt(key, object, id), Acad::eOk);
    object->close();
    return id;
}

// A new dictionary added under `key` of the named-objects dictionary, and closed.
inline AcDbObjectId addNamedObject(AcDbDatabase& db, const wchar_t* key)
{
    AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), AcDb::kForWrite);
    return addEntry(nod.object(), key, new AcDbDictionary);
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
