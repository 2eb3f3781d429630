// Layer standard files: what is written byte for byte, what is read back,
// the reading rules that drop data on purpose, and copying into a drawing.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/database.h"
#include "host/dbdict.h"
#include "moduletestenv.h"
#include "suite/wybase.h"
#include "suite/wyprofile.h"
#include "zeftlayermanager/zeftfilerw.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleevaluator.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

namespace fs = std::filesystem;
using moduletest::enumeration;
using moduletest::Fields;
using moduletest::function;
using moduletest::Pairs;
using moduletest::pairsOf;
using moduletest::Strings;
using moduletest::valuesOf;

class FileRW : public moduletest::ModuleTest {
protected:
    void SetUp() override
    {
        std::string templ = ::testing::TempDir() + "zeftfilerw-XXXXXX";
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        dir_ = templ;
        // The folder's name is ASCII; the file's is not, and reaches the
        // file system as UTF-8.
        file_ = dir_ / "Mod\xC3\xA8le.std";
        path_ = std::wstring(templ.begin(), templ.end()) + L"/Mod\u00E8le.std";
        ModuleTest::SetUp();
    }
    void TearDown() override { fs::remove_all(dir_); }

    void putBytes(const std::string& bytes) const
    {
        std::ofstream(file_, std::ios::binary | std::ios::trunc) << bytes;
    }
    std::string bytes() const
    {
        std::ifstream in(file_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    fs::path dir_;
    fs::path file_;
    std::wstring path_;
};

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

TEST_F(FileRW, RoundTripKeepsTheWholeStandard)
{
    {
        // The writer keeps copies: the caller's objects may go first.
        ZEFTFileRW writer;
        {
            const Standard given;
            given.fill(writer, L". ");
            EXPECT_NE(writer.getFunctions()[0], given.f1.get());
        }
        writer.writeStandard(path_);
    }
    const Standard s;
    ZEFTFileRW reader;
    reader.readStandard(path_);
    EXPECT_EQ(reader.getName(), L"Mod\u00E8le b\u00E9ton");
    EXPECT_EQ(reader.getModelRule(), s.model);
    EXPECT_EQ(reader.getDraftRule(), s.draft);
    EXPECT_EQ(reader.getDocRule(), s.doc);
    ASSERT_EQ(reader.getFunctions().size(), 2u);
    EXPECT_EQ(reader.getFunctions()[0]->getName(), L"MATERIAL");
    EXPECT_EQ(reader.getFunctions()[0]->getDefaultValue(), L"Autre");
    EXPECT_EQ(pairsOf(*reader.getFunctions()[0]), pairsOf(*s.f1));
    EXPECT_EQ(reader.getFunctions()[1]->getDefaultValue(), L"");
    EXPECT_EQ(pairsOf(*reader.getFunctions()[1]), pairsOf(*s.f2));
    ASSERT_EQ(reader.getEnums().size(), 1u);
    EXPECT_EQ(reader.getEnums()[0]->getName(), L"Levels");
    EXPECT_EQ(valuesOf(*reader.getEnums()[0]), valuesOf(*s.e1));
    ASSERT_NE(reader.getException(), nullptr);
    EXPECT_EQ(pairsOf(*reader.getException()), pairsOf(*s.exception));
    EXPECT_EQ(reader.getSeparator(), L". ");
}

TEST_F(FileRW, WritesTheFileByteForByte)
{
    // Whatever was there goes, in whatever encoding it was.
    using namespace std::string_literals;
    putBytes("\xFF\xFE[\0O\0l\0d\0]\0"s);
    ZEFTFileRW rw;
    rw.setName(L"Mod\u00E8le");
    rw.setRules({{L"B\u00E2timent", L"=BUILDING()", true}}, {}, {{L"User", L"Plans", false}});
    const auto f = function(L"F", L"D", {{L"k", L"v"}});
    rw.setFunctions({f.get()});
    const auto e = enumeration(L"E", {L"a"});
    rw.setEnums({e.get()});
    ZEFTRuleException x;
    x.addPair(L"AcDbViewport", L"Frames");
    rw.setException(&x);
    rw.setSeparator(L".");
    rw.writeStandard(path_);
    EXPECT_EQ(bytes(),
              "[Layer_Standard]\r\nName=Mod\xE8le\n\r\n"
              "[Model_Rules]\r\nName_1 =B\xE2timent\r\nField_1 ==BUILDING()\n\r\n"
              "[Doc_Rules]\r\nName_1 =User\r\nField_1 =Plans\n\r\n"
              "[Function_1]\r\nName=F\r\nDefault=D\r\nKey_1=k\r\nValue_1=v\n\r\n"
              "[Enum_1]\r\nName=E\r\nValue_1=a\n\r\n"
              "[Exceptions]\r\nKey_1=AcDbViewport\r\nValue_1=Frames\r\n"
              "[Separator]\r\nValue=.\r\nWhiteSpaceAfter=0\r\n");
    // Rule keys end with a blank; asking for them without it finds them.
    EXPECT_EQ(wyGetProfileString(L"Model_Rules", L"Name_1", L"", path_), L"B\u00E2timent");
}

TEST_F(FileRW, ValuesComeBackCutTo99Characters)
{
    const std::wstring longText(150, L'\u00E9');
    const std::wstring cut(99, L'\u00E9');
    ZEFTFileRW writer;
    writer.setName(longText);
    writer.setRules({{longText, longText, false}}, {}, {});
    writer.setSeparator(longText + L' ');
    writer.writeStandard(path_);

    ZEFTFileRW reader;
    reader.readStandard(path_);
    EXPECT_EQ(reader.getName(), cut);
    EXPECT_EQ(reader.getModelRule(), (Fields{{cut, cut, false}}));
    EXPECT_EQ(reader.getSeparator(), cut + L' ');
}

TEST_F(FileRW, AFieldWithoutANameEndsTheRule)
{
    ZEFTFileRW writer;
    writer.setRules({{L"A", L"=BUILDING()", true}, {L"", L"lost", false}, {L"C", L"also lost", false}}, {}, {});
    writer.writeStandard(path_);
    ZEFTFileRW reader;
    reader.readStandard(path_);
    EXPECT_EQ(reader.getModelRule(), (Fields{{L"A", L"=BUILDING()", true}}));

    // Hand-written keys, in any case and spacing; a value that only looks
    // like a call is literal.
    putBytes("[model_rules]\r\nNAME_1 = A \r\nfield_1 = =X( \r\n  name_2=B\r\nFIELD_2==()\r\n");
    reader.readStandard(path_);
    EXPECT_EQ(reader.getModelRule(), (Fields{{L"A", L"=X(", false}, {L"B", L"=()", true}}));
}

TEST_F(FileRW, AFunctionOrEnumWithoutEntriesEndsTheList)
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
    writer.writeStandard(path_);
    EXPECT_EQ(wyGetProfileString(L"Function_3", L"Name", L"", path_), L"F3");

    ZEFTFileRW reader;
    reader.readStandard(path_);
    ASSERT_EQ(reader.getFunctions().size(), 1u);
    EXPECT_EQ(reader.getFunctions()[0]->getName(), L"F1");
    ASSERT_EQ(reader.getEnums().size(), 1u);
    EXPECT_EQ(reader.getEnums()[0]->getName(), L"E1");

    // A pair with an empty side ends the pairs; a section without a name gives nothing.
    putBytes("[Function_1]\r\nName=F\r\nKey_1=a\r\nValue_1=1\r\nKey_2=b\r\nValue_2=\r\nKey_3=c\r\nValue_3=3\r\n"
             "[Function_2]\r\nDefault=x\r\nKey_1=a\r\nValue_1=1\r\n"
             "[Exceptions]\r\nKey_1=AcDbLine\r\nValue_1=L\r\nValue_2=orphan\r\n");
    reader.readStandard(path_);
    ASSERT_EQ(reader.getFunctions().size(), 1u);
    EXPECT_EQ(reader.getFunctions()[0]->getDefaultValue(), L"");
    EXPECT_EQ(pairsOf(*reader.getFunctions()[0]), (Pairs{{L"a", L"1"}}));
    ASSERT_NE(reader.getException(), nullptr);
    EXPECT_EQ(pairsOf(*reader.getException()), (Pairs{{L"AcDbLine", L"L"}}));
}

TEST_F(FileRW, SeparatorTakesItsBlankFromWhiteSpaceAfter)
{
    ZEFTFileRW rw;
    rw.setSeparator(L"-");
    putBytes("[Layer_Standard]\r\nName=N\r\n");
    rw.readStandard(path_);
    EXPECT_EQ(rw.getSeparator(), L"-");

    const std::pair<const char*, const wchar_t*> cases[] = {
        {"Value=.\r\nWhiteSpaceAfter=0\r\n", L"."},
        {"Value=.\r\nWhiteSpaceAfter=1\r\n", L". "},
        {"Value=.\r\n", L"."},
        {"Value=\r\nWhiteSpaceAfter=1\r\n", L"."},
    };
    for (const auto& [text, expected] : cases) {
        putBytes(std::string("[Separator]\r\n") + text);
        rw.readStandard(path_);
        EXPECT_EQ(rw.getSeparator(), expected) << text;
    }
}

TEST_F(FileRW, AMissingFileReadsAsAnEmptyStandard)
{
    const Standard s;
    ZEFTFileRW rw;
    s.fill(rw, L"_");
    rw.readStandard(path_ + L".missing");
    EXPECT_EQ(rw.getName(), L"");
    EXPECT_TRUE(rw.getModelRule().empty());
    EXPECT_TRUE(rw.getDraftRule().empty());
    EXPECT_TRUE(rw.getDocRule().empty());
    EXPECT_TRUE(rw.getFunctions().empty());
    EXPECT_TRUE(rw.getEnums().empty());
    EXPECT_EQ(rw.getException(), nullptr);
    EXPECT_EQ(rw.getSeparator(), L"_");
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
        FileRW::TearDown();
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
    EXPECT_TRUE(rw.getFunctions().empty());
    EXPECT_TRUE(rw.getEnums().empty());
    EXPECT_EQ(rw.getException(), nullptr);
    EXPECT_EQ(dict_->numEntries(), 6);
    EXPECT_TRUE(rw.createException(dict_).isNull());

    // Each is closed and holds what the file gave.
    AcDbObjectPointer<ZEFTLayerRule> rule(draft, AcDb::kForRead);
    ASSERT_TRUE(rule);
    Fields fields;
    rule->getFields(fields);
    EXPECT_EQ(fields, s.draft);
    EXPECT_FALSE(model.isNull());
    ASSERT_EQ(functions.length(), 2);
    AcDbObjectPointer<ZEFTRuleFunction> f(functions.at(1), AcDb::kForRead);
    ASSERT_TRUE(f);
    EXPECT_EQ(f->getName(), L"VIEW TYPE");
    ASSERT_EQ(enums.length(), 1);
    AcDbObjectPointer<ZEFTRuleEnum> e(enums.at(0), AcDb::kForRead);
    ASSERT_TRUE(e);
    EXPECT_EQ(valuesOf(*e.object()), (Strings{L"RDC", L"R+1"}));
    AcDbObjectPointer<ZEFTRuleException> x(exception, AcDb::kForRead);
    ASSERT_TRUE(x);
    EXPECT_EQ(pairsOf(*x.object()), pairsOf(*s.exception));
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

TEST(RuleEvaluatorIsFunction, WantsEqualsFirstAndParenthesesLast)
{
    std::wstring name = L"unchanged";
    EXPECT_TRUE(ZEFTRuleEvaluator::isFunction(L"=LEVEL/VIEW()", &name));
    EXPECT_EQ(name, L"LEVEL/VIEW");
    EXPECT_TRUE(ZEFTRuleEvaluator::isFunction(L"=()", &name));
    EXPECT_EQ(name, L"");
    EXPECT_TRUE(ZEFTRuleEvaluator::isFunction(L"==()", nullptr));
    name = L"unchanged";
    for (const wchar_t* literal : {L"", L"=", L"()", L"=(", L"=X(", L"X()", L"=X( )", L"=X)(", L" =X()"}) {
        EXPECT_FALSE(ZEFTRuleEvaluator::isFunction(literal, &name)) << literal;
        EXPECT_EQ(name, L"unchanged");
    }
}

}  // namespace
