// An entity's own layer rule and type code in its extended data: layout,
// partial groups, the 16-bit views, other applications' data, open states.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "moduletestenv.h"

namespace {

using Acad::eOk;
using Util = ZEFTLayerManagerUtil;
using moduletest::Fields;

const wchar_t* const kApp = L"BELTRIX_LAYER_MANAGER";

// A group with the head of ours and the given rest.
ResBufList group(std::int32_t type, const ResBufList& rest = {})
{
    ResBufList items{ResBuf::text(1001, kApp), ResBuf::int16(1070, 1), ResBuf::int32(1071, type)};
    items.insert(items.end(), rest.begin(), rest.end());
    return items;
}

// Items as text, by what their code carries (a real also shows in the
// point's x, as the host's result buffers overlay them).
std::vector<std::string> describe(const ResBufList& items)
{
    std::vector<std::string> out;
    for (const ResBuf& r : items) {
        std::string s = std::to_string(r.restype) + ":";
        if (r.restype == 1010)
            s += std::to_string(r.point.x) + "," + std::to_string(r.point.y) + "," + std::to_string(r.point.z);
        else if (r.restype == 1040) s += std::to_string(r.real);
        else if (r.restype >= 1060) s += std::to_string(r.integer);
        else s += dxf::toUtf8(r.str);
        out.push_back(s);
    }
    return out;
}

const ResBufList kSurvey{ResBuf::text(1001, L"SURVEY"),   ResBuf::text(1000, L"Point 12"),
                         ResBuf::text(1002, L"{"),        ResBuf::int16(1070, 3),
                         ResBuf::real64(1040, 2.5),       ResBuf::pt(1010, {1, 2, 3}),
                         ResBuf::int32(1071, 70000),      ResBuf::text(1002, L"}")};

class EntityXData : public moduletest::ModuleTest {
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        id = moduletest::addLine(&db);
    }
    // Sets extended data as another module (or an older writer) would.
    bool setXData(const ResBufList& items)
    {
        AcDbObjectPointer<AcDbObject> obj(id, AcDb::kForWrite);
        return obj->setXData(items) == eOk;
    }
    ResBufList xdata(const wchar_t* app = kApp) const
    {
        AcDbObjectPointer<AcDbObject> obj(id, AcDb::kForRead);
        return obj->xData(app);
    }
    // What every reader makes of the entity; the rule reader appends to the
    // caller's fields.
    std::wstring readings() const
    {
        Fields fields{{L"", L"mine", false}};
        int type = -1, typeAlone = -1;
        const bool rule = Util::readXDataLayerRule(id, fields, type);
        const bool typed = Util::readXDataEntityType(id, typeAlone);
        return std::wstring(Util::hasXDataLayerRule(id) ? L"ours" : L"none") +
               (Util::hasFullXDataLayerRule(id) ? L" full" : L"") + (rule ? L" | rule" : L" | no rule") +
               moduletest::describe(fields) + L" type " + std::to_wstring(type) + L" | type " +
               (typed ? std::to_wstring(typeAlone) : L"none");
    }

    AcDbDatabase db;
    AcDbObjectId id;
};

TEST_F(EntityXData, WritersLayOutTheGroupAndReadersTakeTheirSixteenBitViews)
{
    ASSERT_TRUE(setXData(kSurvey));
    struct Step {
        const char* what;
        std::function<bool()> change;
        bool changed;
        ResBufList group;  // ours afterwards
        std::wstring readings;
    };
    const Fields named{{L"Building Name", L"=BUILDING()", true}, {L"Sep", L"", false}, {L"", L"B\u00E9ton", false}};
    auto i16 = [](int v) { return ResBuf::int16(1070, std::int16_t(v)); };
    auto i32 = [](int v) { return ResBuf::int32(1071, v); };
    auto text = [](const wchar_t* v) { return ResBuf::text(1000, v); };
    const Step steps[] = {
        {"the type alone makes a partial group", [&] { return Util::writeXDataEntityType(id, 7); }, true, group(7),
         L"ours | no rule [|mine] type -1 | type 7"},
        {"no fields make a full, empty rule", [&] { return Util::writeXDataLayerRule(id, {}, 3); }, true,
         group(3, {i32(0)}), L"ours full | rule [|mine] type 3 | type 3"},
        {"fields go without their names", [&] { return Util::writeXDataLayerRule(id, named, 1); }, true,
         group(1, {i32(3), text(L"=BUILDING()"), i16(1), text(L""), i16(0), text(L"B\u00E9ton"), i16(0)}),
         L"ours full | rule [|mine] [|=BUILDING()|f] [|] [|B\u00E9ton] type 1 | type 1"},
        {"a second rule replaces the first", [&] { return Util::writeXDataLayerRule(id, {{L"x", L"Only", false}}, 0x12345); },
         true, group(0x12345, {i32(1), text(L"Only"), i16(0)}), L"ours full | rule [|mine] [|Only] type 9029 | type 9029"},
        {"a type replaces only the low 16 bits", [&] { return Util::writeXDataEntityType(id, 5); }, true,
         group(0x10005, {i32(1), text(L"Only"), i16(0)}), L"ours full | rule [|mine] [|Only] type 5 | type 5"},
        {"65537 fields announced, one present: a count of 1", [&] { return setXData(group(-2, {i32(0x10001), text(L"A"), i16(2)})); },
         true, group(-2, {i32(0x10001), text(L"A"), i16(2)}), L"ours full | rule [|mine] [|A|f] type -2 | type -2"},
        {"type 0x18000 is -32768", [&] { return setXData(group(0x18000, {i32(0)})); }, true, group(0x18000, {i32(0)}),
         L"ours full | rule [|mine] type -32768 | type -32768"},
        {"a field short: what was read stays", [&] { return setXData(group(4, {i32(3), text(L"First"), i16(0), i16(1)})); },
         true, group(4, {i32(3), text(L"First"), i16(0), i16(1)}), L"ours full | no rule [|mine] [|First] type -1 | type 4"},
        {"a count of the wrong width is no count", [&] { return setXData(group(4, {i16(0)})); }, true, group(4, {i16(0)}),
         L"ours full | no rule [|mine] type -1 | type 4"},
        {"a type of the wrong width", [&] { return setXData({ResBuf::text(1001, kApp), i16(1), i16(4), i32(0)}); }, true,
         {ResBuf::text(1001, kApp), i16(1), i16(4), i32(0)}, L"ours | no rule [|mine] type -1 | type none"},
        {"is not repaired by a type write", [&] { return Util::writeXDataEntityType(id, 9); }, false,
         {ResBuf::text(1001, kApp), i16(1), i16(4), i32(0)}, L"ours | no rule [|mine] type -1 | type none"},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.what);
        EXPECT_EQ(s.change(), s.changed);
        EXPECT_EQ(describe(xdata()), describe(s.group));
        EXPECT_EQ(readings(), s.readings);
        EXPECT_EQ(describe(xdata(L"SURVEY")), describe(kSurvey)) << "another application's data";
    }
    int groups = 0;
    for (const auto& item : xdata(nullptr)) groups += item.restype == 1001;
    EXPECT_EQ(groups, 2);
    // Both groups survive the file.
    ASSERT_TRUE(Util::writeXDataLayerRule(id, {{L"n", L"=VIEW()", true}}, 3));
    const auto back = AcDbDatabase::readDxfBytes(db.dxfText(), "xdata.dxf");
    AcDbObjectPointer<AcDbObject> read(back->idOf(id.handle()), AcDb::kForRead);
    ASSERT_EQ(read.openStatus(), eOk);
    EXPECT_EQ(describe(read->xData(nullptr)), describe(xdata(nullptr)));
}

TEST_F(EntityXData, WritersNeedWriteAndRuleReadersNeedRead)
{
    {
        AcDbObjectPointer<AcDbObject> reading(id, AcDb::kForRead);
        EXPECT_FALSE(Util::writeXDataLayerRule(reading.object(), {{L"", L"A", false}}, 0));
        EXPECT_FALSE(Util::writeXDataEntityType(reading.object(), 1));
        // By id the writers need the object for write, which a reader holds.
        EXPECT_FALSE(Util::writeXDataLayerRule(id, {}, 0));
        EXPECT_FALSE(Util::writeXDataEntityType(id, 1));
    }
    EXPECT_FALSE(Util::hasXDataLayerRule(id));

    ASSERT_TRUE(Util::writeXDataLayerRule(id, {{L"", L"A", false}}, 0));
    // The closed object itself: the readers that need it open say no.
    AcDbObject* closed = id.object();
    Fields fields;
    int type = -1;
    EXPECT_FALSE(Util::hasFullXDataLayerRule(closed));
    EXPECT_FALSE(Util::readXDataLayerRule(closed, fields, type));
    EXPECT_FALSE(Util::writeXDataLayerRule(AcDbObjectId(), {}, 1));
}

}  // namespace
