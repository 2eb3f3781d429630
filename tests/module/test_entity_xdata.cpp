// An entity's own layer rule and type code in its extended data: layout,
// partial groups, the 16-bit views, other applications' data, open states.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dbsymtb.h"
#include "moduletestenv.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

using Acad::eOk;
using Util = ZEFTLayerManagerUtil;
using moduletest::Fields;
using Codes = std::vector<short>;

const wchar_t* const kApp = L"BELTRIX_LAYER_MANAGER";

class EntityXData : public moduletest::ModuleTest {
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        AcDbObjectPointer<AcDbBlockTableRecord> ms(db.modelSpaceId(), AcDb::kForWrite);
        auto* line = new AcDbLine({0, 0, 0}, {1, 1, 0});
        ASSERT_EQ(ms->appendAcDbEntity(id, line), eOk);
        line->close();
    }

    // Sets extended data as another module (or an older writer) would.
    void setXData(const ResBufList& items)
    {
        AcDbObjectPointer<AcDbObject> obj(id, AcDb::kForWrite);
        ASSERT_EQ(obj->setXData(items), eOk);
    }

    ResBufList xdata(const wchar_t* app = kApp) const
    {
        AcDbObjectPointer<AcDbObject> obj(id, AcDb::kForRead);
        return obj->xData(app);
    }

    static Codes codesOf(const ResBufList& items)
    {
        Codes codes;
        for (const auto& item : items) codes.push_back(item.restype);
        return codes;
    }

    AcDbDatabase db;
    AcDbObjectId id;
};

// A group with the head of ours and the given rest.
ResBufList group(std::int32_t type, std::int32_t count, const ResBufList& rest = {})
{
    ResBufList items{ResBuf::text(1001, kApp), ResBuf::int16(1070, 1), ResBuf::int32(1071, type),
                     ResBuf::int32(1071, count)};
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
        else s += std::string(r.str.begin(), r.str.end());
        out.push_back(s);
    }
    return out;
}

const ResBufList kSurvey{ResBuf::text(1001, L"SURVEY"),   ResBuf::text(1000, L"Point 12"),
                         ResBuf::text(1002, L"{"),        ResBuf::int16(1070, 3),
                         ResBuf::real64(1040, 2.5),       ResBuf::pt(1010, {1, 2, 3}),
                         ResBuf::int32(1071, 70000),      ResBuf::text(1002, L"}")};

TEST_F(EntityXData, TypeAloneMakesAPartialGroupAndNoFieldsAFullOne)
{
    ASSERT_TRUE(Util::writeXDataEntityType(id, 7));
    const ResBufList g = xdata();
    EXPECT_EQ(codesOf(g), (Codes{1001, 1070, 1071}));
    EXPECT_EQ(g[1].integer, 1);

    EXPECT_TRUE(Util::hasXDataLayerRule(id));
    EXPECT_FALSE(Util::hasFullXDataLayerRule(id));
    int type = -1;
    EXPECT_TRUE(Util::readXDataEntityType(id, type));
    EXPECT_EQ(type, 7);
    Fields fields;
    type = -1;
    EXPECT_FALSE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_EQ(type, -1);

    // With a count of 0 behind the type, the rule is full and empty.
    ASSERT_TRUE(Util::writeXDataLayerRule(id, {}, 3));
    EXPECT_EQ(codesOf(xdata()), (Codes{1001, 1070, 1071, 1071}));
    EXPECT_TRUE(Util::hasFullXDataLayerRule(id));
    EXPECT_TRUE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_TRUE(fields.empty());
    EXPECT_EQ(type, 3);
}

TEST_F(EntityXData, FieldsRoundTripWithoutTheirNames)
{
    const Fields written{{L"Building Name", L"=BUILDING()", true}, {L"Sep", L"", false}, {L"", L"Béton armé", false}};
    ASSERT_TRUE(Util::writeXDataLayerRule(id, written, 1));
    const ResBufList g = xdata();
    EXPECT_EQ(codesOf(g), (Codes{1001, 1070, 1071, 1071, 1000, 1070, 1000, 1070, 1000, 1070}));
    EXPECT_EQ(g[3].integer, 3);

    Fields fields;
    int type = -1;
    ASSERT_TRUE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_EQ(type, 1);
    EXPECT_EQ(fields, (Fields{{L"", L"=BUILDING()", true}, {L"", L"", false}, {L"", L"Béton armé", false}}));

    // A second rule replaces the first: one group of ours, the new fields.
    ASSERT_TRUE(Util::writeXDataLayerRule(id, {{L"x", L"Only", false}}, 0));
    fields.clear();
    ASSERT_TRUE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_EQ(fields, (Fields{{L"", L"Only", false}}));
    EXPECT_EQ(type, 0);
    int groups = 0;
    for (const auto& item : xdata(nullptr)) groups += item.restype == 1001;
    EXPECT_EQ(groups, 1);
}

TEST_F(EntityXData, TypeWriteKeepsTheRuleAndTheHighBits)
{
    ASSERT_TRUE(Util::writeXDataLayerRule(id, {{L"n", L"=LEVEL()", true}, {L"n", L"B", false}}, 0x12345));
    ASSERT_TRUE(Util::writeXDataEntityType(id, 5));
    const ResBufList g = xdata();
    EXPECT_EQ(codesOf(g), (Codes{1001, 1070, 1071, 1071, 1000, 1070, 1000, 1070}));
    // Only the low 16 bits of the stored code are replaced.
    EXPECT_EQ(g[2].rlong(), 0x10005);
    int type = -1;
    ASSERT_TRUE(Util::readXDataEntityType(id, type));
    EXPECT_EQ(type, 5);
    Fields fields;
    ASSERT_TRUE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_EQ(type, 5);
    EXPECT_EQ(fields, (Fields{{L"", L"=LEVEL()", true}, {L"", L"B", false}}));
}

TEST_F(EntityXData, TypeAndCountAreReadAsSixteenBitValues)
{
    // 65537 fields announced, one present: read as a count of 1.
    setXData(group(-2, 0x10001, {ResBuf::text(1000, L"A"), ResBuf::int16(1070, 2)}));
    Fields fields;
    int type = 0;
    ASSERT_TRUE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_EQ(type, -2);
    EXPECT_EQ(fields, (Fields{{L"", L"A", true}}));
    ASSERT_TRUE(Util::readXDataEntityType(id, type));
    EXPECT_EQ(type, -2);

    setXData(group(0x18000, 0));
    ASSERT_TRUE(Util::readXDataEntityType(id, type));
    EXPECT_EQ(type, -32768);
}

TEST_F(EntityXData, ReadFailureKeepsWhatWasRead)
{
    setXData(group(4, 3, {ResBuf::text(1000, L"First"), ResBuf::int16(1070, 0), ResBuf::int16(1070, 1)}));
    Fields fields{{L"caller", L"own", false}};
    int type = -1;
    EXPECT_TRUE(Util::hasFullXDataLayerRule(id));
    EXPECT_FALSE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_EQ(fields, (Fields{{L"caller", L"own", false}, {L"", L"First", false}}));
    EXPECT_EQ(type, -1);

    // A count of the wrong width is no count.
    setXData({ResBuf::text(1001, kApp), ResBuf::int16(1070, 1), ResBuf::int32(1071, 4), ResBuf::int16(1070, 0)});
    EXPECT_TRUE(Util::hasFullXDataLayerRule(id));
    EXPECT_FALSE(Util::readXDataLayerRule(id, fields, type));
    EXPECT_TRUE(Util::readXDataEntityType(id, type));
    EXPECT_EQ(type, 4);

    // A type of the wrong width: nothing of ours reads, and the type is not
    // written into it.
    setXData({ResBuf::text(1001, kApp), ResBuf::int16(1070, 1), ResBuf::int16(1070, 4), ResBuf::int32(1071, 0)});
    EXPECT_TRUE(Util::hasXDataLayerRule(id));
    EXPECT_FALSE(Util::hasFullXDataLayerRule(id));
    EXPECT_FALSE(Util::readXDataEntityType(id, type));
    EXPECT_FALSE(Util::writeXDataEntityType(id, 9));
    EXPECT_EQ(xdata()[2].integer, 4);
}

TEST_F(EntityXData, OtherApplicationsSurviveBothWritersAndTheFile)
{
    setXData(kSurvey);
    ASSERT_TRUE(Util::writeXDataEntityType(id, 2));
    EXPECT_EQ(describe(xdata(L"SURVEY")), describe(kSurvey));
    ASSERT_TRUE(Util::writeXDataLayerRule(id, {{L"n", L"=VIEW()", true}}, 1));
    EXPECT_EQ(describe(xdata(L"SURVEY")), describe(kSurvey));
    ASSERT_TRUE(Util::writeXDataEntityType(id, 3));
    EXPECT_EQ(describe(xdata(L"SURVEY")), describe(kSurvey));
    EXPECT_EQ(codesOf(xdata(nullptr)).size(), kSurvey.size() + 6);

    const std::string text = db.dxfText();
    const auto back = AcDbDatabase::readDxfBytes(text, "xdata.dxf");
    const AcDbObjectId same = back->idOf(id.handle());
    {
        AcDbObjectPointer<AcDbObject> obj(same, AcDb::kForRead);
        ASSERT_EQ(obj.openStatus(), eOk);
        EXPECT_EQ(describe(obj->xData(L"SURVEY")), describe(kSurvey));
    }
    Fields fields;
    int type = -1;
    ASSERT_TRUE(Util::readXDataLayerRule(same, fields, type));
    EXPECT_EQ(fields, (Fields{{L"", L"=VIEW()", true}}));
    EXPECT_EQ(type, 3);
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
