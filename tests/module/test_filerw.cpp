// Layer standard files: what is written byte for byte, what is read back,
// the reading rules that drop data on purpose, and copying into a drawing.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "moduletestenv.h"
#include "suite/wyprofile.h"
#include "zeftlayermanager/zeftfilerw.h"

namespace {

using moduletest::describe;
using moduletest::enumeration;
using moduletest::Fields;
using moduletest::function;

class FileRW : public moduletest::ModuleTest {
protected:
    void putBytes(const std::string& bytes) const { moduletest::writeFile(file_, bytes); }

    const moduletest::TempFolder folder_{"zeftfilerw"};
    // The folder's name is ASCII; the file's is not, and reaches the file
    // system as UTF-8.
    const moduletest::fs::path file_ = folder_.path / "Mod\xC3\xA8le.std";
    const std::wstring path_ = folder_.path.wstring() + L"/Mod\u00E8le.std";
};

// Everything a reader or writer holds, on one line.
std::wstring dump(const ZEFTFileRW& rw)
{
    std::wstring out = rw.getName() + L" / model" + describe(rw.getModelRule()) + L" / draft" +
                       describe(rw.getDraftRule()) + L" / doc" + describe(rw.getDocRule());
    for (const ZEFTRuleFunction* f : rw.getFunctions()) out += L" / " + describe(*f);
    for (const ZEFTRuleEnum* e : rw.getEnums()) out += L" / " + describe(*e);
    if (rw.getException()) out += L" / " + describe(*rw.getException());
    return out + L" / sep [" + rw.getSeparator() + L"]";
}

// A small standard as the editor hands it over; the objects stay the caller's.
struct Standard {
    Fields model{{L"B\u00E2timent", L"=BUILDING()", true}, {L"Niveau", L"=LEVEL/VIEW()", true}};
    Fields draft{{L"B\u00E2timent", L"=BUILDING()", true}, {L"Vue", L"=LEVEL/VIEW()", true},
                 {L"Type", L"Vues calcul\u00E9es", false}};
    Fields doc{{L"User defined", L"CalquePlans", false}};
    std::unique_ptr<ZEFTRuleFunction> f1 = function(L"MATERIAL", L"Autre", {{L"AcDbLine", L"B\u00E9ton"}, {L"AcDbArc", L"Acier"}});
    std::unique_ptr<ZEFTRuleFunction> f2 = function(L"VIEW TYPE", L"", {{L"AcDbViewport", L"Coupe"}});
    std::unique_ptr<ZEFTRuleEnum> e1 = enumeration(L"Levels", {L"RDC", L"R+1"});
    std::unique_ptr<ZEFTRuleException> exception = std::make_unique<ZEFTRuleException>();

    Standard()
    {
        exception->addPair(L"ZEFTGridRectangularE", L"Trame");
        exception->addPair(L"AcDbViewport", L"Frames");
    }
    void fill(ZEFTFileRW& rw, const std::wstring& separator) const
    {
        rw.setName(L"Mod\u00E8le b\u00E9ton");
        rw.setRules(model, draft, doc);
        rw.setFunctions({f1.get(), f2.get()});
        rw.setEnums({e1.get()});
        rw.setException(exception.get());
        rw.setSeparator(separator);
    }
};

TEST_F(FileRW, WritesTheFileByteForByteAndReadsItBack)
{
    // Whatever was there goes, in whatever encoding it was.
    using namespace std::string_literals;
    putBytes("\xFF\xFE[\0O\0l\0d\0]\0"s);
    ZEFTFileRW expected;
    {
        // The writer keeps copies: the caller's objects may go first.
        ZEFTFileRW writer;
        {
            const Standard given;
            given.fill(writer, L". ");
            given.fill(expected, L". ");
            EXPECT_NE(writer.getFunctions()[0], given.f1.get());
        }
        writer.writeStandard(path_);
    }
    // Rule keys end with a blank, which the reader does not ask for.
    EXPECT_EQ(moduletest::readFile(file_), moduletest::dataFile("module-written.std"));
    ZEFTFileRW reader;
    reader.readStandard(path_);
    EXPECT_EQ(dump(reader), dump(expected));
}

TEST_F(FileRW, ReadingReplacesEverythingButASeparatorTheFileLacks)
{
    const std::string e150(150, '\xE9');
    const std::wstring e99(99, L'\u00E9');
    const std::string longFile = "[Layer_Standard]\r\nName=" + e150 + "\r\n[Model_Rules]\r\nName_1=" + e150 +
                                 "\r\nField_1=" + e150 + "\r\n[Separator]\r\nValue=" + e150 + "\r\nWhiteSpaceAfter=1\r\n";
    struct Case {
        const char* what;
        std::optional<std::string> file;  // none: no file
        std::wstring expected;
    };
    const Case cases[] = {
        {"a missing file is an empty standard", std::nullopt, L" / model / draft / doc / sep [-]"},
        {"values are cut to 99 characters", longFile,
         e99 + L" / model [" + e99 + L"|" + e99 + L"] / draft / doc / sep [" + e99 + L" ]"},
        {"a field without a name ends the rule",
         "[Model_Rules]\r\nName_1=A\r\nField_1==BUILDING()\r\nName_2=\r\nField_2=lost\r\nName_3=C\r\nField_3=lost\r\n",
         L" / model [A|=BUILDING()|f] / draft / doc / sep [-]"},
        // A pair with an empty side ends the pairs; a section without a name gives nothing.
        {"incomplete entries",
         "[Function_1]\r\nName=F\r\nKey_1=a\r\nValue_1=1\r\nKey_2=b\r\nValue_2=\r\nKey_3=c\r\nValue_3=3\r\n"
         "[Function_2]\r\nDefault=x\r\nKey_1=a\r\nValue_1=1\r\n"
         "[Exceptions]\r\nKey_1=AcDbLine\r\nValue_1=L\r\nValue_2=orphan\r\n",
         L" / model / draft / doc / function F|: a=1 / exception: AcDbLine=L / sep [-]"},
        {"no blank after", "[Separator]\r\nValue=.\r\nWhiteSpaceAfter=0\r\n", L" / model / draft / doc / sep [.]"},
        {"a blank after", "[Separator]\r\nValue=.\r\nWhiteSpaceAfter=1\r\n", L" / model / draft / doc / sep [. ]"},
        {"no WhiteSpaceAfter", "[Separator]\r\nValue=.\r\n", L" / model / draft / doc / sep [.]"},
        {"an empty separator", "[Separator]\r\nValue=\r\nWhiteSpaceAfter=1\r\n", L" / model / draft / doc / sep [-]"},
    };
    const Standard s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ZEFTFileRW rw;
        s.fill(rw, L"-");
        if (c.file) putBytes(*c.file);
        rw.readStandard(c.file ? path_ : path_ + L".missing");
        EXPECT_EQ(dump(rw), c.expected);
    }
}

TEST_F(FileRW, AFunctionOrEnumWithoutEntriesEndsTheListItIsWrittenIn)
{
    const auto f1 = function(L"F1", L"d", {{L"k", L"v"}});
    const auto f2 = function(L"F2", L"d", {});
    const auto f3 = function(L"F3", L"d", {{L"k", L"v"}});
    const auto e1 = enumeration(L"E1", {L"a"});
    const auto e2 = enumeration(L"E2", {});
    const auto e3 = enumeration(L"E3", {L"c"});
    ZEFTFileRW writer;
    writer.setFunctions({f1.get(), f2.get(), f3.get()});
    writer.setEnums({e1.get(), e2.get(), e3.get()});
    writer.setSeparator(L".");  // written without a blank after
    writer.writeStandard(path_);
    EXPECT_EQ(wyGetProfileString(L"Function_3", L"Name", L"", path_), L"F3");
    ZEFTFileRW reader;
    reader.readStandard(path_);
    EXPECT_EQ(dump(reader), L" / model / draft / doc / function F1|d: k=v / enum E1: a / sep [.]");
}

class FileRWDrawing : public FileRW {
protected:
    void SetUp() override
    {
        FileRW::SetUp();
        AcDbObjectPointer<AcDbDictionary> nod(db_.namedObjectsDictionaryId(), AcDb::kForWrite);
        ASSERT_TRUE(nod);
        dict_ = new AcDbDictionary;
        ASSERT_EQ(nod->setAt(L"ZEFT_LAYER_MANAGER", dict_, dictId_), Acad::eOk);
    }
    void TearDown() override
    {
        if (dict_) dict_->close();
    }

    AcDbDatabase db_;
    AcDbDictionary* dict_ = nullptr;  // open for write
    AcDbObjectId dictId_;
};

TEST_F(FileRWDrawing, CreateHandsTheObjectsToTheDrawing)
{
    const Standard s;
    ZEFTFileRW rw;
    s.fill(rw, L".");
    const AcDbObjectId model = rw.createRule(rw.getModelRule(), dict_);
    const AcDbObjectId draft = rw.createRule(rw.getDraftRule(), dict_);
    const AcDbObjectIdArray functions = rw.createFunctions(dict_);
    const AcDbObjectIdArray enums = rw.createEnums(dict_);
    const AcDbObjectId exception = rw.createException(dict_);
    EXPECT_EQ(dump(rw), L"Mod\u00E8le b\u00E9ton / model" + describe(s.model) + L" / draft" + describe(s.draft) +
                            L" / doc" + describe(s.doc) + L" / sep [.]")
        << "the objects went to the drawing";
    EXPECT_EQ(dict_->numEntries(), 6);
    EXPECT_TRUE(rw.createException(dict_).isNull());

    // Each is closed and holds what the file gave.
    EXPECT_EQ(moduletest::fieldsOf(draft), s.draft);
    EXPECT_EQ(moduletest::fieldsOf(model), s.model);
    ASSERT_EQ(functions.length(), 2);
    ASSERT_EQ(enums.length(), 1);
    const std::pair<AcDbObjectId, const AcDbObject*> made[] = {
        {functions.at(0), s.f1.get()}, {functions.at(1), s.f2.get()}, {enums.at(0), s.e1.get()},
        {exception, s.exception.get()}};
    for (const auto& [id, given] : made) {
        AcDbObjectPointer<AcDbObject> obj(id, AcDb::kForRead);
        ASSERT_TRUE(obj);
        EXPECT_EQ(describe(*obj.object()), describe(*given));
    }
}

TEST_F(FileRWDrawing, AFailureIsReportedAsThisFileAndLosesNothing)
{
    std::vector<WyCrashReport> reports;
    wySetCrashSink([&](const WyCrashReport& r) { reports.push_back(r); });
    dict_->close();
    AcDbDictionary* closed = dict_;
    dict_ = nullptr;

    const Standard s;
    ZEFTFileRW rw;
    s.fill(rw, L".");
    EXPECT_TRUE(rw.createRule(s.model, closed).isNull());
    EXPECT_TRUE(rw.createFunctions(closed).isEmpty());
    EXPECT_TRUE(rw.createException(closed).isNull());
    wySetCrashSink(nullptr);

    ASSERT_EQ(reports.size(), 3u);
    for (const WyCrashReport& r : reports) EXPECT_EQ(r.file, "zeftfilerw");
    EXPECT_EQ(rw.getFunctions().size(), 2u);
    EXPECT_NE(rw.getException(), nullptr);
    AcDbObjectPointer<AcDbDictionary> dict(dictId_, AcDb::kForRead);
    ASSERT_TRUE(dict);
    EXPECT_EQ(dict->numEntries(), 0);
}

}  // namespace
