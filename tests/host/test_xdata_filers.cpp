// Extended data, the binary and DXF filers, and copies made through them.
#include "host/filer.h"
#include "tests/host/builders.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using namespace Acad;
using AcDb::kForRead;
using AcDb::kForWrite;

ResBuf item(short code, std::int64_t integer, std::vector<std::uint8_t> binary = {}, AcDbHandle handle = {}) {
    ResBuf r;
    r.restype = code;
    r.integer = integer;
    r.binary = std::move(binary);
    r.handle = handle;
    return r;
}

ResBufList everyKind(AcDbHandle h) {
    return {ResBuf::text(1001, L"ZeftApp"),      ResBuf::text(1000, L"Mod\u00e8le \u4e2d"),
            ResBuf::text(1002, L"{"),            ResBuf::text(1003, L"0"),
            item(1004, 0, {0x00, 0x7F, 0xFF}),   item(1005, 0, {}, h),
            ResBuf::pt(1010, {1, 2, 3}),         ResBuf::pt(1011, {-1.5, 0, 1e-7}),
            ResBuf::pt(1012, {0.1, 0.2, 0}),     ResBuf::pt(1013, {4, 5, 6}),
            ResBuf::real64(1040, 0.1),           ResBuf::real64(1041, 2.5),
            ResBuf::real64(1042, -1e-9),         ResBuf::int16(1070, -2),
            ResBuf::int32(1071, 70000),          item(1070, 70000),  // 16 bits: filed as 4464
            ResBuf::text(1002, L"}")};
}

// An item as its code and the value its code carries, application names
// upper-cased: they compare without case.
std::string show(const ResBuf& r) {
    const std::string p = dxf::formatDouble(r.point.x) + "," + dxf::formatDouble(r.point.y) + "," +
                          dxf::formatDouble(r.point.z);
    switch (dxf::valueType(r.restype)) {
    case dxf::ValueType::Double: return r.restype % 1000 < 40 ? p : dxf::formatDouble(r.real);
    case dxf::ValueType::Binary: return std::string(r.binary.begin(), r.binary.end());
    case dxf::ValueType::Handle: return r.handle.str();
    case dxf::ValueType::String: return dxf::toUtf8(r.restype == 1001 ? acdbToUpper(r.str) : r.str);
    default: return std::to_string(r.integer);
    }
}

// Items as read back compare as given, 16-bit codes with 16 bits.
void expectSame(const ResBufList& got, const ResBufList& want) {
    std::vector<std::string> g, w;
    for (const ResBuf& r : got) g.push_back(std::to_string(r.restype) + " " + show(r));
    for (ResBuf r : want) {
        if (dxf::valueType(r.restype) == dxf::ValueType::Int16) r.integer = r.rint();
        w.push_back(std::to_string(r.restype) + " " + show(r));
    }
    EXPECT_EQ(g, w);
}

TEST(XData, EveryItemKindRoundTrips) {
    AcDbDatabase db;
    const AcDbObjectId id = addLine(db);
    const ResBufList items = everyKind(db.layerZero().handle());
    {
        AcDbEntityPointer line(id, kForWrite);
        ASSERT_EQ(line->setXData(items), eOk);
        for (const wchar_t* app : {L"ZeftApp", L"zeftapp", static_cast<const wchar_t*>(nullptr)})
            expectSame(app ? line->xData(app) : line->xData(), items);
        EXPECT_TRUE(line->xData(L"Other").empty());
        EXPECT_EQ(line->xData(L"ZeftApp")[14].rint(), 4464);
    }
    EXPECT_TRUE(AcDbObjectPointer<AcDbRegAppTable>(db.regAppTableId(), kForRead)->has(L"ZeftApp"));
    auto back = AcDbDatabase::readDxfBytes(db.dxfText(), "back.dxf");
    AcDbEntityPointer line(back->idOf(id.handle()), kForRead);
    ASSERT_EQ(line.openStatus(), eOk);
    expectSame(line->xData(L"ZeftApp"), items);
}

TEST(XData, ReplacesOnlyTheGroupsOfTheApplicationsGiven) {
    AcDbDatabase db;
    AcDbEntityPointer line(addLine(db), kForWrite);
    auto t = [](short code, const wchar_t* s) { return ResBuf::text(code, s); };
    ASSERT_EQ(line->setXData({t(1001, L"AppA"), t(1000, L"a1"), t(1001, L"AppB"), t(1000, L"b1")}), eOk);
    ASSERT_EQ(line->setXData({t(1001, L"appb"), t(1000, L"b2")}), eOk);
    expectSame(line->xData(), {t(1001, L"AppA"), t(1000, L"a1"), t(1001, L"AppB"), t(1000, L"b2")});
    // Of two groups of one application the last wins.
    ASSERT_EQ(line->setXData({t(1001, L"AppA"), t(1000, L"first"), t(1001, L"AppC"), t(1000, L"c1"), t(1001, L"AppA"),
                              t(1000, L"second")}),
              eOk);
    expectSame(line->xData(L"AppA"), {t(1001, L"AppA"), t(1000, L"second")});
    // A group with only its name removes it.
    ASSERT_EQ(line->setXData({t(1001, L"AppA")}), eOk);
    const ResBufList kept = {t(1001, L"AppB"), t(1000, L"b2"), t(1001, L"AppC"), t(1000, L"c1")};
    expectSame(line->xData(), kept);
    // Lists that do not start with an application, hold other codes or name a bad application change nothing.
    EXPECT_EQ(line->setXData({t(1000, L"orphan")}), eInvalidInput);
    EXPECT_EQ(line->setXData({t(1001, L"AppB"), item(62, 1)}), eInvalidInput);
    EXPECT_EQ(line->setXData({t(1001, L"bad|app"), t(1000, L"x")}), eInvalidInput);
    expectSame(line->xData(), kept);
}

TEST(MemoryFiler, ValuesRoundTripAndReadsPastTheEndGiveZeros) {
    AcDbDatabase db, other;
    const AcDbObjectId zero = db.layerZero(), ms = db.modelSpaceId();
    AcDbMemoryFiler f(&db);
    f.writeInt16(-12345);
    f.writeUInt16(65535);
    f.writeInt32(INT32_MIN);
    f.writeUInt32(0xDEADBEEF);
    f.writeBool(true);
    f.writeDouble(-0.1);
    f.writeString(L"Fa\u00e7ade \U0001F600");
    f.writeBytes({0, 1, 255});
    f.writeHardPointerId(zero);
    f.writeSoftPointerId(ms);
    f.writeHardOwnershipId(AcDbObjectId());
    ASSERT_EQ(f.filerStatus(), eOk);
    f.rewind();
    std::int16_t i16 = 0;
    std::uint16_t u16 = 0;
    std::int32_t i32 = 0;
    std::uint32_t u32 = 0;
    bool b = false;
    double d = 0;
    std::wstring s;
    std::vector<std::uint8_t> bytes;
    AcDbObjectId hard, soft, owner = ms;
    for (ErrorStatus es : {f.readInt16(&i16), f.readUInt16(&u16), f.readInt32(&i32), f.readUInt32(&u32), f.readBool(&b),
                           f.readDouble(&d), f.readString(s), f.readBytes(bytes), f.readHardPointerId(&hard),
                           f.readSoftPointerId(&soft), f.readHardOwnershipId(&owner)})
        EXPECT_EQ(es, eOk);  // read in order: a braced list is evaluated left to right
    EXPECT_TRUE(i16 == -12345 && u16 == 65535 && i32 == INT32_MIN && u32 == 0xDEADBEEFu && b && d == -0.1);
    EXPECT_EQ(s, L"Fa\u00e7ade \U0001F600");
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{0, 1, 255}));
    EXPECT_TRUE(hard == zero && soft == ms && owner.isNull());

    for (ErrorStatus es : {f.readInt32(&i32), f.readDouble(&d), f.readString(s), f.readHardPointerId(&hard)})
        EXPECT_EQ(es, eEndOfFile);
    EXPECT_TRUE(i32 == 0 && d == 0 && s.empty() && hard.isNull());
    EXPECT_EQ(f.filerStatus(), eEndOfFile);

    // Ids are read as handles of the reading filer's database, or null without one.
    AcDbMemoryFiler ids, there(&other), nowhere;
    ids.writeHardPointerId(zero);
    there.setBytes(ids.bytes());
    nowhere.setBytes(ids.bytes());
    EXPECT_EQ(there.readHardPointerId(&hard), eOk);
    EXPECT_EQ(hard, other.idOf(zero.handle()));
    EXPECT_EQ(nowhere.readHardPointerId(&hard), eOk);
    EXPECT_TRUE(hard.isNull());
    there.rewind();
    EXPECT_EQ(there.readSoftPointerId(&soft), eFilerError);  // filed as another kind
}

TEST(MemoryFiler, TruncatedRecordsAreRefused) {
    AcDbDatabase db;
    AcDbMemoryFiler good(&db);
    {
        AcDbEntityPointer line(addLine(db), kForWrite);
        ASSERT_EQ(line->setXData({ResBuf::text(1001, L"ZeftApp"), ResBuf::text(1000, L"x")}), eOk);
        ASSERT_EQ(line->dwgOutFields(&good), eOk);
    }
    const std::vector<std::uint8_t> full = good.bytes();
    for (std::size_t n = 0; n < full.size(); ++n) {
        AcDbMemoryFiler cut(&db);
        cut.setBytes(std::vector<std::uint8_t>(full.begin(), full.begin() + long(n)));
        AcDbLine line;
        EXPECT_NE(line.dwgInFields(&cut), eOk) << n;
    }
    // Random bytes are fuzz_binary_filer's.
}

TEST(Clone, CopiesTagsAndXDataOutsideTheDatabase) {
    AcDbDatabase db;
    const ResBufList xdata = {ResBuf::text(1001, L"ZeftApp"), ResBuf::int32(1071, 70000)};
    AcDbEntityPointer line(addLine(db), kForWrite);
    ASSERT_EQ(line->setXData(xdata), eOk);
    std::unique_ptr<AcDbObject> copy(AcDbObject::cast(line->clone()));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->isA(), AcDbLine::desc());
    EXPECT_TRUE(!copy->isDatabaseResident() && copy->ownerId().isNull() && copy->isWriteEnabled());
    EXPECT_EQ(copy->record().tags(), line->record().tags());
    expectSame(copy->xData(L"ZeftApp"), xdata);
    AcDbLine::cast(copy.get())->setStartPoint({9, 9, 9});
    EXPECT_EQ(AcDbLine::cast(line.object())->startPoint(), (AcGePoint3d{0, 0, 0}));
    line.close();

    AcDbObjectPointer<AcDbDictionary> dict(addNamedObject(db, L"ZEFT"), kForWrite);
    AcDbObjectId entry;
    auto* rec = new AcDbXrecord;
    ASSERT_EQ(dict->setAt(L"alpha", rec, entry), eOk);
    rec->close();
    ASSERT_EQ(dict->setXData(xdata), eOk);
    std::unique_ptr<AcDbDictionary> dictCopy(AcDbDictionary::cast(dict->clone()));
    ASSERT_NE(dictCopy, nullptr);
    EXPECT_FALSE(dictCopy->isDatabaseResident());
    EXPECT_EQ(dictCopy->record().tags(), dict->record().tags());
    EXPECT_TRUE(dictCopy->numEntries() == 1 && dictCopy->has(L"ALPHA"));
    expectSame(dictCopy->xData(L"ZeftApp"), xdata);
    AcDbDictionary* closed = dict.object();
    dict.close();
    EXPECT_THROW(delete closed->clone(), AcDbStatusError);
}

TEST(Xrecord, DataBetweenHeadAndXDataRoundTripsThroughDxf) {
    AcDbDatabase db;
    const AcDbObjectId zero = db.layerZero();
    const AcDbHandle dangling(0xFFFF0);
    const ResBufList data = {ResBuf::int16(70, -2), ResBuf::text(300, L"B\u00e2timent \u4e2d"),
                             ResBuf::int32(90, 70000), ResBuf::real64(40, 0.25), ResBuf::pt(10, {1, 2, 3}),
                             ResBuf::int16(290, 1), ResBuf::objectId(340, zero), item(341, 0, {}, dangling)};
    const ResBufList xdata = {ResBuf::text(1001, L"ZeftApp"), ResBuf::text(1000, L"kept")};
    ResBufList more = data;
    more.push_back(ResBuf::text(1, L"more"));
    auto check = [&](const AcDbXrecord* rec, const ResBufList& want) {
        const ResBufList got = rec->rbChain();
        expectSame(got, want);
        ASSERT_GE(got.size(), 8u);
        EXPECT_EQ(rec->database()->idOf(zero.handle()), got[6].id);
        EXPECT_TRUE(got[7].id.isNull());
        expectSame(rec->xData(L"ZeftApp"), xdata);
    };
    const AcDbObjectId dictId = addNamedObject(db, L"ZEFT");
    {
        AcDbObjectPointer<AcDbDictionary> dict(dictId, kForWrite);
        EXPECT_TRUE(dict->firstEntryId().isNull());
        AcDbObjectPointer<AcDbXrecord> rec(new AcDbXrecord);
        EXPECT_TRUE(rec->rbChain().empty());
        ASSERT_EQ(rec->setFromRbChain(data), eOk);  // before it joins: texts are kept as UTF-8 until then
        AcDbObjectId recId, secondId;
        ASSERT_EQ(dict->setAt(L"first", rec.object(), recId), eOk);
        ASSERT_EQ(rec->setXData(xdata), eOk);
        for (short bad : {0, 5, 100, 102, 105, 1000, 1071})
            EXPECT_EQ(rec->setFromRbChain({ResBuf::text(bad, L"x")}), eInvalidInput) << bad;
        EXPECT_EQ(rec->appendRbChain({ResBuf::text(1001, L"x")}), eInvalidInput);
        ASSERT_EQ(rec->appendRbChain({ResBuf::text(1, L"more")}), eOk);  // before the extended data
        check(rec.object(), more);
        EXPECT_TRUE(db.idOf(dangling).isNull());  // reading made no object for it
        AcDbObjectPointer<AcDbXrecord> second(new AcDbXrecord);
        ASSERT_EQ(dict->setAt(L"second", second.object(), secondId), eOk);
        EXPECT_EQ(dict->firstEntryId(), recId);
    }
    auto back = AcDbDatabase::readDxfBytes(db.dxfText(), "back.dxf");
    AcDbObjectPointer<AcDbDictionary> nod(back->namedObjectsDictionaryId(), kForRead);
    AcDbObject* found = nullptr;
    ASSERT_EQ(nod->getAt(L"ZEFT", found, kForRead), eOk);
    AcDbObjectPointer<AcDbDictionary> dict(found->objectId(), kForRead);
    found->close();
    ASSERT_TRUE(dict);
    AcDbObjectPointer<AcDbXrecord> rec(dict->firstEntryId(), kForWrite);
    ASSERT_TRUE(rec);
    check(rec.object(), more);
    ASSERT_EQ(rec->setFromRbChain(data), eOk);
    check(rec.object(), data);
    EXPECT_EQ(rec->record().tags()[0].value, "XRECORD");
}

TEST(DxfFiler, ReadingItems) {
    AcDbDatabase db;
    const AcDbObjectId zero = db.layerZero();
    AcDbDxfFiler f(&db, {{100, "AcDbEntity"}, {8, "Fa\xc3\xa7" "ade"}, {100, "ZtThing"}, {10, "1"}, {20, "2"},
                         {30, "3"}, {90, "65537"}, {90, "40000"}, {70, "-2"}, {40, "0.5"},
                         {330, zero.handle().str()}, {1001, "ZeftApp"}});
    ResBuf rb;
    EXPECT_EQ(f.pushBackItem(), eInvalidInput);  // nothing read yet
    EXPECT_TRUE(f.atSubClassData(L"AcDbEntity"));
    ASSERT_EQ(f.readItem(rb), eOk);
    EXPECT_EQ(rb.str, L"Fa\u00e7ade");
    EXPECT_EQ(f.pushBackItem(), eOk);
    EXPECT_EQ(f.pushBackItem(), eInvalidInput);
    ASSERT_EQ(f.readItem(rb), eOk);
    EXPECT_EQ(rb.restype, 8);
    EXPECT_FALSE(f.atSubClassData(L"Other"));
    EXPECT_EQ(f.filerStatus(), eBadDxfSequence);
    EXPECT_NE(f.errorMessage().find(L"Other"), std::wstring::npos);
    f.resetFilerStatus();
    EXPECT_TRUE(f.atSubClassData(L"ZtThing"));
    // Each item as its code's type reads it; 16-bit reads of 32-bit values wrap.
    ResBufList items(6);
    for (ResBuf& r : items) ASSERT_EQ(f.readItem(r), eOk);
    expectSame(items, {ResBuf::pt(10, {1, 2, 3}), ResBuf::int32(90, 65537), ResBuf::int32(90, 40000),
                       ResBuf::int16(70, -2), ResBuf::real64(40, 0.5), ResBuf::objectId(330, zero)});
    EXPECT_TRUE(items[2].rint() == -25536 && items[5].id == zero);
    EXPECT_TRUE(f.atExtendedData());
    ASSERT_EQ(f.readItem(rb), eOk);
    EXPECT_TRUE(f.atEOF());
    EXPECT_TRUE(f.readItem(rb) == eEndOfObject && rb.restype == 0);
    EXPECT_EQ(f.pushBackItem(), eInvalidInput);
}

TEST(DxfFiler, ErrorsAndWritingInTheDrawingsEncoding) {
    AcDbDxfFiler f(nullptr);
    EXPECT_EQ(f.setError(eInvalidDxfCode, L"\nError: expected group code %d", 70), eInvalidDxfCode);
    EXPECT_EQ(f.errorMessage(), L"\nError: expected group code 70");
    EXPECT_EQ(f.setError(L"then %ls", L"more"), eInvalidDxfCode);  // the first status stays
    EXPECT_EQ(f.errorMessage(), L"then more");
    f.resetFilerStatus();
    EXPECT_TRUE(f.filerStatus() == eOk && f.errorMessage().empty());
    EXPECT_EQ(f.setError(L"plain"), eFilerError);

    auto db = AcDbDatabase::readDxfBytes("  0\nSECTION\n  2\nHEADER\n  9\n$ACADVER\n  1\nAC1015\n  9\n$DWGCODEPAGE\n"
                                         "  3\nANSI_1252\n  0\nENDSEC\n  0\nEOF\n",
                                         "r2000.dxf");
    AcDbDxfFiler out(db.get());
    out.writeString(1, L"Fa\u00e7ade");
    out.writeInt16(70, -2);
    out.writeUInt16(70, 65535);
    out.writeInt32(90, 70000);
    out.writeInt32(70, 70000);
    out.writeBool(290, true);
    out.writeDouble(40, 0.1);
    out.writePoint3d(10, {1, 2, 3});
    out.writeObjectId(340, AcDbObjectId());
    out.writeItem(item(1004, 0, {0x00, 0xAB}));
    const DxfTags want = {{1, "Fa\xe7" "ade"}, {70, "-2"}, {70, "-1"}, {90, "70000"}, {70, "4464"}, {290, "1"},
                          {40, "0.1"}, {10, "1.0"}, {20, "2.0"}, {30, "3.0"}, {340, "0"}, {1004, "00AB"}};
    EXPECT_EQ(out.tags(), want);
}

}  // namespace
