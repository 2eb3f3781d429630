// The standards folder and installing a standard into a drawing: the
// listing and its default file, which names are files of the folder,
// copying a standard into a drawing, and swapping it for a preview and back.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "moduletestenv.h"
#include "suite/zeftdatabasetools.h"
#include "suite/zeftregistrytools.h"
#include "zeftlayermanager/zeftfilerw.h"

namespace {

namespace fs = std::filesystem;
using Util = ZEFTLayerManagerUtil;
using moduletest::describe;
using moduletest::Pairs;
using moduletest::Strings;

class StandardsFolder : public moduletest::ModuleTest {
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        ZEFTRegistryTools::SetBeltrixDataPath(data_.path.wstring());
        Util::m_gbUseRuleFromDictionaryIngetEntityLayerName = false;
    }
    void TearDown() override
    {
        for (AcApDocument* d : docs_) acDocManager->close(d);
        Util::m_gbUseRuleFromDictionaryIngetEntityLayerName = false;
        ZEFTRegistryTools::SetBeltrixDataPath(L"");
    }

    void put(const fs::path& relative, const std::string& bytes) const
    {
        fs::create_directories((folder_ / relative).parent_path());
        moduletest::writeFile(folder_ / relative, bytes);
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
        std::sort(out.begin(), out.end());
        return out;
    }
    AcApDocument* newDocument()
    {
        docs_.push_back(acDocManager->open(std::make_unique<AcDbDatabase>()));
        return docs_.back();
    }

    const moduletest::TempFolder data_{"zeftstd"};
    const fs::path folder_ = data_.path / "Support" / "Layer Standards";
    std::vector<AcApDocument*> docs_;
};

const std::string kDefault = moduletest::dataFile("module-default.std");
// One of everything, in Windows-1252.
const std::string kFull = moduletest::dataFile("module-full.std");
const std::wstring kFullInstalled = L"Mod\u00E8le|full.std|- / [Vues calcul\u00E9es|=BUILDING()|f] / /";

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

// The classes of the entries after the standard and its three rules.
Strings extras(AcDbDatabase* db)
{
    Strings out;
    for (const auto& [key, cls] : entries(db)) out.push_back(cls);
    const Strings head{L"ZEFTLayerStandard", L"ZEFTLayerRule", L"ZEFTLayerRule", L"ZEFTLayerRule"};
    EXPECT_TRUE(out.size() >= 4 && Strings(out.begin(), out.begin() + 4) == head);
    return out.size() < 4 ? out : Strings(out.begin() + 4, out.end());
}

// The installed standard's texts and its three rules.
std::wstring standardOf(AcDbDatabase* db)
{
    AcDbObjectPointer<ZEFTLayerStandard> s(Util::getStandardFromDictionary(db), AcDb::kForRead);
    if (!s) return L"none";
    std::wstring out = s->getName() + L"|" + s->getFileName() + L"|" + s->getSeparator();
    const AcDbObjectId rules[] = {s->getModelRule(), s->getDraftRule(), s->getDocRule()};
    s.close();
    for (AcDbObjectId id : rules) out += L" /" + describe(moduletest::fieldsOf(id));
    return out;
}

TEST_F(StandardsFolder, AFolderWithoutStandardsReceivesTheDefault)
{
    const Pairs reported{{L"Beltrix_backup.std", L"Beltrix"}};
    ASSERT_FALSE(fs::exists(folder_));
    EXPECT_EQ(listed(), reported);
    EXPECT_EQ(moduletest::readFile(folder_ / "Beltrix.std"), kDefault);
    // Once written, the default is an ordinary file of the folder.
    EXPECT_EQ(listed(), (Pairs{{L"Beltrix.std", L"Beltrix"}}));

    // Standards without a name are left out, yet keep the default away.
    fs::remove(folder_ / "Beltrix.std");
    put("untitled.std", "[Layer_Standard]\r\nTitle=Mine\r\n[Doc_Rules]\r\nName_1=Doc\r\nField_1=Plans\r\n");
    put("empty.std", "");
    put("blank.std", "[Layer_Standard]\r\nName=   \r\n");
    EXPECT_EQ(listed(), Pairs{});
    EXPECT_FALSE(fs::exists(folder_ / "Beltrix.std"));
}

TEST_F(StandardsFolder, EveryNamedFileOfTheFolderIsListedUnderItsStandardsName)
{
    put("a.std", "[Layer_Standard]\r\nName=Same\r\n");
    put("b.std", "[layer_standard]\r\n  name  =  Same  \r\n");
    put("C.STD", std::string("[Layer_Standard]\r\nName=Mod\xE8le\r\n"));
    put("long.std", "[Layer_Standard]\r\nName=" + std::string(150, 'n') + "\r\n");
    put("readme.txt", "[Layer_Standard]\r\nName=Readme\r\n");
    put("old.std.bak", "[Layer_Standard]\r\nName=Old\r\n");
    put("a/b.std", "[Layer_Standard]\r\nName=Deep\r\n");
    put("../outside.std", "[Layer_Standard]\r\nName=Outside\r\n");
    fs::create_directory(folder_ / "folder.std");
    EXPECT_EQ(listed(), (Pairs{{L"C.STD", L"Mod\u00E8le"},
                               {L"a.std", L"Same"},
                               {L"b.std", L"Same"},
                               {L"long.std", std::wstring(99, L'n')}}));

    ZEFTFileRW rw;
    std::wstring name;
    EXPECT_TRUE(rw.getStandardName(L"b.std", name));
    EXPECT_EQ(name, L"Same");
    EXPECT_FALSE(rw.getStandardName(L"readme", name));
    // Only files of the folder are read or valid.
    name.clear();
    EXPECT_FALSE(rw.getStandardName(L"../outside.std", name));
    EXPECT_EQ(name, L"");
    EXPECT_TRUE(Util::isValidLayerStandardFile(L"a.std"));
    for (const wchar_t* file : {L"missing.std", L"../outside.std", L"/etc/passwd", L"a/b.std", L"a\\b.std", L"", L".",
                                L"..", L"folder.std", L"a"})
        EXPECT_FALSE(Util::isValidLayerStandardFile(file)) << dxf::toUtf8(file);
}

TEST_F(StandardsFolder, InstallingGivesTheDrawingGivenTheStandardItsRulesAndTheRestInOrder)
{
    put("rules.std",
        "[Layer_Standard]\r\nName=Rules\r\n[Doc_Rules]\r\nName_1=Doc\r\nField_1=Plans\r\n[Separator]\r\nValue=+\r\n");
    put("full.std", kFull);
    put("../outside.std", kFull);
    AcApDocument* doc = newDocument();
    AcDbDatabase* db = doc->database();
    AcDbDatabase* current = newDocument()->database();
    Util::createLayerStandardDictionary(doc, L"../outside.std");
    EXPECT_TRUE(Util::getStandardFromDictionary(db).isNull()) << "a name outside the folder installs nothing";

    // The default's contents installed are checked by the command line's tests.
    Util::createLayerStandardDictionary(doc, L"rules.std");
    EXPECT_EQ(extras(db), Strings{});
    EXPECT_EQ(standardOf(db), L"Rules|rules.std|+ / / / [Doc|Plans]");

    // Rules, functions, enums, exception, in that order, and accents intact,
    // in a drawing that is not open as a document.
    AcDbDatabase loose;
    ASSERT_TRUE(Util::installStandardFromPath(&loose, folder_.wstring() + L"/full.std", L"full.std"));
    EXPECT_EQ(extras(&loose), (Strings{L"ZEFTRuleFunction", L"ZEFTRuleEnum", L"ZEFTRuleException"}));
    EXPECT_EQ(standardOf(&loose), kFullInstalled);
    EXPECT_EQ(extras(db), Strings{}) << "the first drawing is untouched";
    EXPECT_EQ(entries(current), Pairs{}) << "and so is the current one";
    EXPECT_EQ(acDocManager->curDocument()->database(), current);
}

TEST_F(StandardsFolder, APreviewStandardIsSwappedInAndOutAgain)
{
    put("own.std", kDefault);
    put("full.std", kFull);
    AcApDocument* doc = newDocument();
    AcDbDatabase* db = doc->database();
    Util::createLayerStandardDictionary(doc, L"own.std");
    const AcDbObjectId own = Util::getStandardFromDictionary(db);
    const Pairs before = entries(db);
    const std::wstring ownTexts = standardOf(db);

    Util::changeLayerStandard(L"full.std", true);
    EXPECT_TRUE(Util::m_gbUseRuleFromDictionaryIngetEntityLayerName);
    EXPECT_EQ(standardOf(db), kFullInstalled);
    AcDbObjectId old;
    EXPECT_EQ(ZEFTDatabaseTools::getFromDictionary(Util::kDictionaryName, L"ZEFT_LAYER_MANAGER_OLD", old, db), 0);
    EXPECT_EQ(old, own);
    const AcDbObjectId preview = Util::getStandardFromDictionary(db);

    Util::changeLayerStandard(L"full.std", false);
    EXPECT_FALSE(Util::m_gbUseRuleFromDictionaryIngetEntityLayerName);
    EXPECT_EQ(Util::getStandardFromDictionary(db), own);
    EXPECT_EQ(entries(db), before) << "the preview leaves nothing behind";
    EXPECT_EQ(standardOf(db), ownTexts);
    // The preview standard goes too: a saved drawing holds nothing pointing at the erased rules.
    EXPECT_TRUE(preview.isErased());
    EXPECT_EQ(db->dxfText().find("Mod\xC3\xA8le"), std::string::npos);
}

}  // namespace
