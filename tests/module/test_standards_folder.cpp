// The standards folder and installing a standard into a drawing: the
// listing and its default file, which names are files of the folder,
// copying a standard into a drawing, swapping it for a preview and back,
// and replacing it.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dbdict.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "suite/zeftdatabasetools.h"
#include "suite/zeftregistrytools.h"
#include "zeftlayermanager/zeftfilerw.h"
#include "zeftlayermanager/zeftfiling.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

namespace fs = std::filesystem;
using Util = ZEFTLayerManagerUtil;
using Strings = std::vector<std::wstring>;
using Fields = std::vector<RuleField>;
using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

const char kDefaultText[] =
    "[Layer_Standard]\r\nName=Beltrix\r\n\r\n"
    "[Model_Rules]\r\nName_1=Building Name\r\nField_1==BUILDING()\r\nName_2=Level / View name\r\n"
    "Field_2==LEVEL/VIEW()\r\n"
    "[Draft_Rules]\r\nName_1=Building Name\r\nField_1==BUILDING()\r\nName_2=Level / View name\r\n"
    "Field_2==LEVEL/VIEW()\r\nName_3=Element Type\r\nField_3==GENERAL TYPE()\r\n\r\n"
    "[Doc_Rules]\r\nName_1=User defined\r\nField_1=CalquePlans\r\n\r\n"
    "[Exceptions]\r\nKey_1=ZEFTGridRectangularE\r\nValue_1=Trame\r\nKey_2=AcDbViewport\r\nValue_2=Frames\r\n"
    "[Separator]\r\nValue=. \r\nWhiteSpaceAfter=1\r\n";

// A standard with one of everything, in Windows-1252.
const char kFullText[] =
    "[Layer_Standard]\r\nName=Mod\xE8le\r\n[Model_Rules]\r\nName_1=Vues calcul\xE9\x65s\r\nField_1==BUILDING()\r\n"
    "[Function_1]\r\nName=MATERIAL\r\nDefault=Autre\r\nKey_1=AcDbLine\r\nValue_1=B\xE9ton\r\n"
    "[Enum_1]\r\nName=Niveaux\r\nValue_1=RDC\r\n[Exceptions]\r\nKey_1=AcDbViewport\r\nValue_1=Cadres\r\n"
    "[Separator]\r\nValue=-\r\nWhiteSpaceAfter=0\r\n";

class StandardsFolder : public ::testing::Test {
protected:
    void SetUp() override
    {
        zeft_filing::registerClasses();
        std::string templ = ::testing::TempDir() + "zeftstd-XXXXXX";
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        data_ = templ;
        folder_ = data_ / "Support" / "Layer Standards";
        ZEFTRegistryTools::SetBeltrixDataPath(data_.wstring());
        Util::m_gbUseRuleFromDictionaryIngetEntityLayerName = false;
    }
    void TearDown() override
    {
        for (AcApDocument* d : docs_) acDocManager->close(d);
        Util::m_gbUseRuleFromDictionaryIngetEntityLayerName = false;
        ZEFTRegistryTools::SetBeltrixDataPath(L"");
        fs::remove_all(data_);
    }

    void put(const fs::path& relative, const std::string& bytes) const
    {
        fs::create_directories((folder_ / relative).parent_path());
        std::ofstream(folder_ / relative, std::ios::binary | std::ios::trunc) << bytes;
    }
    std::string bytes(const fs::path& relative) const
    {
        std::ifstream in(folder_ / relative, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    // (file, name) pairs; the folder must come back with its final slash.
    Pairs listed() const
    {
        Strings files{L"stale"}, names{L"stale"};
        std::wstring folder;
        Util::getAvailableStandards(files, names, folder);
        EXPECT_EQ(folder, folder_.wstring() + L"/");
        EXPECT_EQ(files.size(), names.size());
        Pairs out;
        for (std::size_t i = 0; i < std::min(files.size(), names.size()); ++i) out.emplace_back(files[i], names[i]);
        return out;
    }
    AcApDocument* newDocument()
    {
        docs_.push_back(acDocManager->open(std::make_unique<AcDbDatabase>()));
        return docs_.back();
    }

    fs::path data_, folder_;
    std::vector<AcApDocument*> docs_;
};

// The layer manager dictionary's entries: key and class, in order.
Pairs entries(AcDbDatabase* db)
{
    Pairs out;
    AcDbDictionary* dict = ZEFTDatabaseTools::openDictionary(Util::kDictionaryName, AcDb::kForRead, db);
    if (!dict) return out;
    const std::vector<AcDbDictionary::Entry> all = dict->entries();
    dict->close();
    for (const AcDbDictionary::Entry& e : all) {
        AcDbObjectPointer<AcDbObject> obj(e.id, AcDb::kForRead);
        out.emplace_back(e.key, obj ? obj->isA()->name() : L"?");
    }
    return out;
}

Strings classes(AcDbDatabase* db)
{
    Strings out;
    for (const auto& e : entries(db)) out.push_back(e.second);
    return out;
}

Strings keys(AcDbDatabase* db)
{
    Strings out;
    for (const auto& e : entries(db)) out.push_back(e.first);
    return out;
}

Fields fieldsOf(AcDbObjectId ruleId)
{
    Fields fields;
    AcDbObjectPointer<ZEFTLayerRule> rule(ruleId, AcDb::kForRead);
    EXPECT_TRUE(rule);
    if (rule) rule->getFields(fields);
    return fields;
}

struct StandardTexts {
    std::wstring name, file, separator;
    Fields model, draft, doc;
};

StandardTexts standardOf(AcDbDatabase* db)
{
    StandardTexts s;
    AcDbObjectPointer<ZEFTLayerStandard> standard(Util::getStandardFromDictionary(db), AcDb::kForRead);
    EXPECT_TRUE(standard);
    if (!standard) return s;
    s.name = standard->getName();
    s.file = standard->getFileName();
    s.separator = standard->getSeparator();
    const AcDbObjectId ids[3] = {standard->getModelRule(), standard->getDraftRule(), standard->getDocRule()};
    standard.close();
    s.model = fieldsOf(ids[0]);
    s.draft = fieldsOf(ids[1]);
    s.doc = fieldsOf(ids[2]);
    return s;
}

const Strings kStandardAndRules{L"ZEFTLayerStandard", L"ZEFTLayerRule", L"ZEFTLayerRule", L"ZEFTLayerRule"};

Strings plus(Strings a, const Strings& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// ---------------------------------------------------------------------------
// The folder

TEST_F(StandardsFolder, AMissingOrEmptyFolderReceivesTheDefault)
{
    const Pairs reported{{L"Beltrix_backup.std", L"Beltrix"}};
    ASSERT_FALSE(fs::exists(folder_));
    EXPECT_EQ(listed(), reported);
    EXPECT_EQ(bytes("Beltrix.std"), kDefaultText);
    // Once written, the default is an ordinary file of the folder.
    EXPECT_EQ(listed(), (Pairs{{L"Beltrix.std", L"Beltrix"}}));

    // Other files and folders do not count: the folder is empty of standards.
    fs::remove(folder_ / "Beltrix.std");
    put("notes.txt", "[Layer_Standard]\r\nName=Notes\r\n");
    put("old.std.bak", "[Layer_Standard]\r\nName=Old\r\n");
    put("deeper/inner.std", "[Layer_Standard]\r\nName=Inner\r\n");
    fs::create_directory(folder_ / "folder.std");
    EXPECT_EQ(listed(), reported);
    EXPECT_EQ(bytes("Beltrix.std"), kDefaultText);
}

TEST_F(StandardsFolder, FilesWithoutANameAreLeftOutAndKeepTheDefaultAway)
{
    put("untitled.std", "[Layer_Standard]\r\nTitle=Mine\r\n[Doc_Rules]\r\nName_1=Doc\r\nField_1=Plans\r\n");
    put("empty.std", "");
    put("blank.std", "[Layer_Standard]\r\nName=   \r\n");
    EXPECT_EQ(listed(), Pairs{});
    EXPECT_FALSE(fs::exists(folder_ / "Beltrix.std"));
}

TEST_F(StandardsFolder, EveryNamedFileIsListedUnderItsStandardsName)
{
    put("a.std", "[Layer_Standard]\r\nName=Same\r\n");
    put("b.std", "[layer_standard]\r\n  name  =  Same  \r\n");
    put("C.STD", std::string("[Layer_Standard]\r\nName=Mod\xE8le\r\n"));
    put("long.std", "[Layer_Standard]\r\nName=" + std::string(150, 'n') + "\r\n");
    put("readme.txt", "[Layer_Standard]\r\nName=Readme\r\n");
    Pairs got = listed();
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (Pairs{{L"C.STD", L"Mod\u00E8le"},
                          {L"a.std", L"Same"},
                          {L"b.std", L"Same"},
                          {L"long.std", std::wstring(99, L'n')}}));

    ZEFTFileRW rw;
    std::wstring name;
    EXPECT_TRUE(rw.getStandardName(L"b.std", name));
    EXPECT_EQ(name, L"Same");
    EXPECT_FALSE(rw.getStandardName(L"readme", name));
    // Only files of the folder are read.
    put("../outside.std", "[Layer_Standard]\r\nName=Outside\r\n");
    name.clear();
    EXPECT_FALSE(rw.getStandardName(L"../outside.std", name));
    EXPECT_EQ(name, L"");
}

TEST_F(StandardsFolder, AValidFileIsAReadableFileOfTheFolder)
{
    put("mine.std", "[Layer_Standard]\r\nName=Mine\r\n");
    put("a/b.std", "[Layer_Standard]\r\nName=Deep\r\n");
    put("../x.std", "[Layer_Standard]\r\nName=Outside\r\n");
    fs::create_directory(folder_ / "folder.std");
    EXPECT_TRUE(Util::isValidLayerStandardFile(L"mine.std"));
    for (const wchar_t* name : {L"missing.std", L"../x.std", L"/etc/passwd", L"a/b.std", L"a\\b.std", L"", L".",
                                L"..", L"folder.std", L"a"})
        EXPECT_FALSE(Util::isValidLayerStandardFile(name)) << dxf::toUtf8(name);
}

// ---------------------------------------------------------------------------
// Installing into a drawing

TEST_F(StandardsFolder, AFileOfRulesAloneGivesTheStandardAndItsThreeRules)
{
    put("rules.std", "[Layer_Standard]\r\nName=Rules\r\n[Doc_Rules]\r\nName_1=Doc\r\nField_1=Plans\r\n");
    put("full.std", kFullText);
    put("../outside.std", kFullText);
    AcApDocument* doc = newDocument();
    AcDbDatabase* db = doc->database();
    Util::createLayerStandardDictionary(doc, L"../outside.std");
    EXPECT_TRUE(Util::getStandardFromDictionary(db).isNull()) << "a name outside the folder installs nothing";

    // The default's contents installed are checked by the command line's tests.
    Util::createLayerStandardDictionary(doc, L"rules.std");
    EXPECT_EQ(keys(db).front(), L"ZEFT_LAYER_MANAGER");
    EXPECT_EQ(classes(db), kStandardAndRules);
    const StandardTexts s = standardOf(db);
    EXPECT_EQ(s.name, L"Rules");
    EXPECT_TRUE(s.model.empty());
    EXPECT_TRUE(s.draft.empty());
    EXPECT_EQ(s.doc, (Fields{{L"Doc", L"Plans", false}}));

    // Rules, functions, enums, exception, in that order, and accents intact.
    AcDbDatabase* other = newDocument()->database();
    Util::createLayerStandardDictionary(acDocManager->documentOf(other), L"full.std");
    EXPECT_EQ(classes(other), plus(kStandardAndRules, {L"ZEFTRuleFunction", L"ZEFTRuleEnum", L"ZEFTRuleException"}));
    const StandardTexts full = standardOf(other);
    EXPECT_EQ(full.name, L"Mod\u00E8le");
    EXPECT_EQ(full.separator, L"-");
    EXPECT_EQ(full.model, (Fields{{L"Vues calcul\u00E9es", L"=BUILDING()", true}}));
    EXPECT_FALSE(Util::getFunctionFromDictionary(other, L"MATERIAL").isNull());
    EXPECT_EQ(classes(db), kStandardAndRules) << "the first drawing is untouched";
}

TEST_F(StandardsFolder, APreviewStandardIsSwappedInAndOutAgain)
{
    put("own.std", kDefaultText);
    put("full.std", kFullText);
    AcApDocument* doc = newDocument();
    AcDbDatabase* db = doc->database();
    Util::createLayerStandardDictionary(doc, L"own.std");
    const AcDbObjectId own = Util::getStandardFromDictionary(db);
    const Strings before = keys(db);

    Util::changeLayerStandard(L"full.std", true);
    EXPECT_TRUE(Util::m_gbUseRuleFromDictionaryIngetEntityLayerName);
    EXPECT_EQ(standardOf(db).name, L"Mod\u00E8le");
    AcDbObjectId old;
    EXPECT_EQ(ZEFTDatabaseTools::getFromDictionary(Util::kDictionaryName, L"ZEFT_LAYER_MANAGER_OLD", old, db), 0);
    EXPECT_EQ(old, own);
    const AcDbObjectId preview = Util::getStandardFromDictionary(db);

    Util::changeLayerStandard(L"full.std", false);
    EXPECT_FALSE(Util::m_gbUseRuleFromDictionaryIngetEntityLayerName);
    EXPECT_EQ(Util::getStandardFromDictionary(db), own);
    EXPECT_EQ(keys(db), before) << "the preview leaves nothing behind";
    EXPECT_EQ(standardOf(db).name, L"Beltrix");
    EXPECT_TRUE(Util::getFunctionFromDictionary(db, L"MATERIAL").isNull());
    // The preview standard goes too: a saved drawing holds nothing pointing at the erased rules.
    EXPECT_TRUE(preview.isErased());
    EXPECT_EQ(db->dxfText().find("Mod\xC3\xA8le"), std::string::npos);
}

TEST_F(StandardsFolder, ReinstallingAfterRemovingLeavesOneStandard)
{
    put("full.std", kFullText);
    put("Beltrix.std", kDefaultText);
    AcApDocument* doc = newDocument();
    AcDbDatabase* db = doc->database();
    const std::wstring dir = folder_.wstring() + L"/";
    ASSERT_TRUE(Util::installStandardFromPath(db, dir + L"full.std", L"full.std"));
    const AcDbObjectId first = Util::getStandardFromDictionary(db);
    ASSERT_TRUE(Util::removeLayerStandard(db));
    EXPECT_EQ(entries(db), Pairs{});
    ASSERT_TRUE(Util::installStandardFromPath(db, dir + L"full.std", L"full.std"));
    EXPECT_EQ(classes(db), plus(kStandardAndRules, {L"ZEFTRuleFunction", L"ZEFTRuleEnum", L"ZEFTRuleException"}));
    EXPECT_NE(Util::getStandardFromDictionary(db), first);
    ASSERT_TRUE(Util::removeLayerStandard(db));
    ASSERT_TRUE(Util::installStandardFromPath(db, dir + L"Beltrix.std", L"Beltrix.std"));
    EXPECT_EQ(classes(db), plus(kStandardAndRules, {L"ZEFTRuleException"}));
    EXPECT_EQ(standardOf(db).file, L"Beltrix.std");
}

TEST_F(StandardsFolder, InstallingGoesIntoTheDrawingGivenNotTheCurrentOne)
{
    listed();
    const std::wstring path = folder_.wstring() + L"/Beltrix.std";
    AcDbDatabase* current = newDocument()->database();
    AcDbDatabase loose;  // not open as a document
    ASSERT_TRUE(Util::installStandardFromPath(&loose, path, L"Beltrix.std"));
    EXPECT_EQ(classes(&loose), plus(kStandardAndRules, {L"ZEFTRuleException"}));
    EXPECT_EQ(entries(current), Pairs{});
    EXPECT_EQ(acDocManager->curDocument()->database(), current);

    // A drawing that cannot hold dictionaries is refused and left as it was.
    const fs::path r12 = fs::path(ZEFT_SOURCE_DIR) / "../shared/corpus/dxf/ezdxf/integration_tests/data/cc_dxflib.dxf";
    if (!fs::exists(r12)) GTEST_SKIP() << r12 << " is missing";
    std::unique_ptr<AcDbDatabase> old = AcDbDatabase::readDxf(r12.string());
    ASSERT_TRUE(old->isR12OrOlder());
    EXPECT_FALSE(Util::installStandardFromPath(old.get(), path, L"Beltrix.std"));
    EXPECT_TRUE(Util::getStandardFromDictionary(old.get()).isNull());
    EXPECT_EQ(entries(current), Pairs{});
}

}  // namespace
