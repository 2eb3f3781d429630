// The layer manager module loaded into the host as the CAD host loads it:
// through the dynamic linker, from its built file. This executable does not
// link the module's code; everything it sees of the module comes through
// the class dictionary, the command stack, the editor and the drawings.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "host/editor.h"
#include "host/rxmodule.h"
#include "suite/wybase.h"
#include "tests/host/builders.h"
// For the type of the exported reactor pointer only: its members are read
// through the pointer the module exports.
#include "zeftlayermanager/zeftlayermanagereditorreactor.h"

namespace {

const std::string kModuleFile = ZEFT_MODULE_FILE;
const std::string kModule = "zeftlayermanager";
const wchar_t* const kGroup = L"ZEFTLAYERMANAGER";

// In the order the module registers them; their DXF names are these in capitals.
const wchar_t* const kClasses[] = {L"ZEFTLayerStandard", L"ZEFTLayerRule", L"ZEFTRuleFunction", L"ZEFTRuleEnum",
                                   L"ZEFTRuleException"};

// The objects of tests/data/module-objects.dxf: named-object dictionary C,
// layer manager dictionary 20, the standard 21, rules 22-24, function 25,
// enumeration 26 (with extended data, which goes with the object whichever
// class reads it), exception 27.
const std::pair<const char*, const wchar_t*> kObjects[] = {
    {"21", L"ZEFTLayerStandard"}, {"22", L"ZEFTLayerRule"}, {"23", L"ZEFTLayerRule"}, {"24", L"ZEFTLayerRule"},
    {"25", L"ZEFTRuleFunction"},  {"26", L"ZEFTRuleEnum"},  {"27", L"ZEFTRuleException"},
};

std::string standardDrawing() { return readFile(ZEFT_SOURCE_DIR "/tests/data/module-objects.dxf"); }

// --- the command the tests run around the module ---

// Drawings the test command appends a line to, and what the module's
// collector held right after each append.
std::vector<AcDbDatabase*> gDrawings;
std::vector<bool> gCollected;
ZEFTLayerManagerEditorReactor** gExportedReactor = nullptr;

void appendLines()
{
    for (AcDbDatabase* db : gDrawings) {
        const AcDbObjectId id = addLine(*db, {0, 0, 0}, {10, 5, 0});
        ZEFTLayerManagerEditorReactor* r = gExportedReactor ? *gExportedReactor : nullptr;
        gCollected.push_back(r && r->m_objectsToProcess.contains(id));
    }
}

class ModuleLoading : public ::testing::Test {
protected:
    static void SetUpTestSuite() { acedRegCmds->addCommand(L"ZEFTMODLOADTESTS", L"zefttestappendlines", nullptr, 0, &appendLines); }

    void SetUp() override
    {
        ASSERT_FALSE(acrxDynamicLinker->isLoaded(kModule));
        reactorsBefore_ = acedEditor->reactors().size();
        acdbRegisterHostClasses();
        classesBefore_ = acrxClassDictionary()->numEntries();
        gDrawings.clear();
        gCollected.clear();
        gExportedReactor = nullptr;
    }

    void TearDown() override
    {
        if (acrxDynamicLinker->isLoaded(kModule)) acrxDynamicLinker->unloadModule(kModule);
        acutSetPrintSink(nullptr);
        gDrawings.clear();
        gExportedReactor = nullptr;
    }

    static void load()
    {
        std::string error;
        ASSERT_TRUE(acrxDynamicLinker->loadModule(kModuleFile, &error)) << error;
    }
    static void unload()
    {
        std::string error;
        ASSERT_TRUE(acrxDynamicLinker->unloadModule(kModule, &error)) << error;
    }

    // The module's symbol, looked up in the copy the linker loaded.
    template <class T>
    static T* moduleSymbol(const char* name)
    {
        void* handle = ::dlopen(kModuleFile.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (!handle) return nullptr;
        void* sym = ::dlsym(handle, name);
        ::dlclose(handle);  // the linker's reference keeps it loaded
        return reinterpret_cast<T*>(sym);
    }
    static bool moduleMapped()
    {
        void* handle = ::dlopen(kModuleFile.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle) ::dlclose(handle);
        return handle != nullptr;
    }

    // One of each: command group, editor reactor, the five classes; or none.
    void expectRegistered(bool loaded)
    {
        int groups = 0;
        for (const std::wstring& g : acedRegCmds->groups()) groups += g == kGroup;
        EXPECT_EQ(groups, loaded ? 1 : 0);
        EXPECT_EQ(acedRegCmds->commands(kGroup).size(), loaded ? 1u : 0u);
        EXPECT_EQ(g_mapRegisteredCommandGroups.count(L"ZEFTLAYERMANAGER"), loaded ? 1u : 0u);
        EXPECT_EQ(acedEditor->reactors().size(), reactorsBefore_ + (loaded ? 1 : 0));
        EXPECT_EQ(acrxClassDictionary()->numEntries(), classesBefore_ + (loaded ? 5 : 0));
        for (const wchar_t* c : kClasses) EXPECT_EQ(acrxFindClass(c) != nullptr, loaded);
    }

    std::size_t reactorsBefore_ = 0;
    std::size_t classesBefore_ = 0;
};

TEST_F(ModuleLoading, RegistersItsClassesCommandAndReactor)
{
    ASSERT_FALSE(moduleMapped()) << "the test must not link the module";
    load();
    ASSERT_TRUE(acrxDynamicLinker->isLoaded(kModule));
    expectRegistered(true);

    // The five classes, after everything that was there, in registration order.
    const auto& entries = acrxClassDictionary()->entries();
    ASSERT_EQ(entries.size(), classesBefore_ + 5);
    for (std::size_t i = 0; i < 5; ++i) {
        SCOPED_TRACE(testing::Message() << "class " << i);
        EXPECT_EQ(entries[classesBefore_ + i].first, kClasses[i]);
        auto* cls = static_cast<AcRxClass*>(entries[classesBefore_ + i].second);
        ASSERT_EQ(cls, acrxFindClass(kClasses[i]));
        EXPECT_EQ(cls->myParent(), AcDbObject::desc());
        EXPECT_EQ(cls->dxfName(), acdbToUpper(kClasses[i]));
        EXPECT_STREQ(cls->appName(), L"ZEFTLayerManager");
        EXPECT_FALSE(cls->isProxyClass());
    }

    // The command, in its group, found by both names.
    const std::vector<AcEdCommand> commands = acedRegCmds->commands(kGroup);
    ASSERT_EQ(commands.size(), 1u);
    EXPECT_EQ(commands[0].globalName, L"zeftlayerstandard");
    EXPECT_EQ(commands[0].localName, L"zeftstandardcalque");
    EXPECT_EQ(commands[0].flags, ACRX_CMD_MODAL | ACRX_CMD_USEPICKSET);
    EXPECT_EQ(acedRegCmds->lookupCmd(L"ZEFTSTANDARDCALQUE"), acedRegCmds->lookupCmd(L"zeftlayerstandard"));
    EXPECT_EQ(g_mapRegisteredCommandGroups[L"ZEFTLAYERMANAGER"], 1);

    // One editor reactor, the one the module exports.
    auto* exported = moduleSymbol<ZEFTLayerManagerEditorReactor*>("gpLayerManagerEditorReactor");
    ASSERT_TRUE(exported && *exported);
    EXPECT_EQ(acedEditor->reactors().back(), static_cast<AcEditorReactor*>(*exported));
    using PromptsProject = const wchar_t* (*)();
    auto project = reinterpret_cast<PromptsProject>(moduleSymbol<void>("getModulePromptsProjectName"));
    ASSERT_NE(project, nullptr);
    EXPECT_STREQ(project(), L"ZEFTLAYERMANAGER");

    // Loading what is loaded changes nothing.
    load();
    expectRegistered(true);

    // Unloading removes all of it, and loading again brings one of each back;
    // the command says by either name that its editor is not in this build.
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        if (round > 0) {
            load();
            expectRegistered(true);
            for (const wchar_t* name : {L"zeftlayerstandard", L"zeftstandardcalque"}) {
                std::wstring printed;
                acutSetPrintSink([&](const std::wstring& s) { printed += s; });
                EXPECT_EQ(acedEditor->runCommand(name), AcEditor::Result::Ended) << acedEditor->lastError();
                EXPECT_NE(printed.find(L"run the command in zeftcad"), std::wstring::npos) << dxf::toUtf8(printed);
                acutSetPrintSink(nullptr);
            }
        }
        unload();
        EXPECT_FALSE(acrxDynamicLinker->isLoaded(kModule));
        expectRegistered(false);
        EXPECT_EQ(acedRegCmds->lookupCmd(L"zeftlayerstandard"), nullptr);
        EXPECT_FALSE(moduleMapped()) << "the module stays in the process after unloading";
    }
}

TEST_F(ModuleLoading, FoundByNameInTheSearchPath)
{
    acrxDynamicLinker->setSearchPath({std::filesystem::path(kModuleFile).parent_path().string()});
    std::string error;
    const bool loaded = acrxDynamicLinker->loadModule(kModule, &error);
    acrxDynamicLinker->setSearchPath({});
    ASSERT_TRUE(loaded) << error;
    EXPECT_EQ(std::filesystem::canonical(acrxDynamicLinker->modulePath(kModule)), std::filesystem::canonical(kModuleFile));
    EXPECT_NE(acrxFindClass(L"ZEFTLayerStandard"), nullptr);
}

TEST_F(ModuleLoading, RefusesWhatIsNotAModule)
{
    const std::size_t groups = acedRegCmds->groups().size();
    const auto text = std::filesystem::path(::testing::TempDir()) / "zeftnotamodule.so";
    std::ofstream(text) << "0\nSECTION\n";
    const std::pair<std::string, const char*> cases[] = {
        {ZEFT_HOST_LIBRARY, "not a module"},
        {text.string(), "cannot load"},
        {"zeftnosuchmodule", "not found"},
        {"/nonexistent/zeftlayermanager.so", ""},
    };
    for (const auto& [path, why] : cases) {
        std::string error;
        EXPECT_FALSE(acrxDynamicLinker->loadModule(path, &error)) << path;
        EXPECT_TRUE(!error.empty() && error.find(why) != std::string::npos) << path << ": " << error;
    }
    std::filesystem::remove(text);
    std::string error;
    EXPECT_FALSE(acrxDynamicLinker->unloadModule(kModule, &error));
    EXPECT_NE(error.find("not loaded"), std::string::npos) << error;

    EXPECT_TRUE(acrxDynamicLinker->loadedModules().empty());
    EXPECT_EQ(acedRegCmds->groups().size(), groups);
    expectRegistered(false);
}

// The reactors reach drawings open before the load and drawings made after
// it; after unloading nothing of the module is called: commands run and
// drawings are destroyed without it.
TEST_F(ModuleLoading, ReactorsComeAndGoWithTheModule)
{
    auto before = std::make_unique<AcDbDatabase>();
    load();
    auto after = std::make_unique<AcDbDatabase>();
    auto read = AcDbDatabase::readDxfBytes(standardDrawing(), "standard.dxf");
    gExportedReactor = moduleSymbol<ZEFTLayerManagerEditorReactor*>("gpLayerManagerEditorReactor");
    ASSERT_NE(gExportedReactor, nullptr);
    gDrawings = {before.get(), after.get()};
    ASSERT_EQ(acedEditor->runCommand(L"zefttestappendlines"), AcEditor::Result::Ended) << acedEditor->lastError();
    EXPECT_EQ(gCollected, (std::vector<bool>{true, true}));
    // The command's end closed the collection.
    EXPECT_TRUE((*gExportedReactor)->m_objectsToProcess.isEmpty());

    std::make_unique<AcDbDatabase>().reset();  // a drawing dropped while the module is loaded
    unload();
    gExportedReactor = nullptr;

    auto late = std::make_unique<AcDbDatabase>();
    gDrawings = {before.get(), after.get(), late.get()};
    gCollected.clear();
    EXPECT_EQ(acedEditor->runCommand(L"zefttestappendlines"), AcEditor::Result::Ended) << acedEditor->lastError();
    EXPECT_EQ(acedEditor->runCommand(L"zeftlayerstandard"), AcEditor::Result::Unknown);
    gDrawings.clear();
}

// Read without the module, the objects are proxies that keep their tags,
// and stay so when the module loads later; read with it, they are its own;
// unloading turns them back into proxies that write the same text.
TEST_F(ModuleLoading, ObjectsAreProxiesExceptWhileTheModuleIsLoaded)
{
    const std::string text = standardDrawing();
    auto db = AcDbDatabase::readDxfBytes(text, "standard.dxf");
    EXPECT_TRUE(db->readWarnings().empty());
    auto expectObjects = [&](const AcDbDatabase& d, bool proxies) {
        for (const auto& [handle, cls] : kObjects) {
            SCOPED_TRACE(handle);
            AcDbObject* o = idAt(d, handle).object();
            ASSERT_TRUE(o && o->isA());
            EXPECT_EQ(o->isAProxy(), proxies);
            EXPECT_EQ(o->filesItself(), !proxies);
            EXPECT_EQ(o->isA()->isProxyClass(), proxies);
            EXPECT_STREQ(o->isA()->name(), cls);
            EXPECT_EQ(o->isA()->dxfName(), acdbToUpper(cls));
            EXPECT_STREQ(o->isA()->appName(), L"ZEFTLayerManager");
            EXPECT_TRUE(o->isKindOf(AcDbObject::desc()));
        }
    };
    expectObjects(*db, true);
    {
        AcDbObjectPointer<AcDbDictionary> nod(db->namedObjectsDictionaryId(), AcDb::kForRead);
        AcDbObject* manager = nullptr;
        ASSERT_EQ(nod->getAt(L"ZEFT_LAYER_MANAGER", manager, AcDb::kForRead), Acad::eOk);
        auto* dict = AcDbDictionary::cast(manager);
        ASSERT_NE(dict, nullptr);
        AcDbObjectId standard;
        EXPECT_EQ(dict->getAt(L"ZEFT_LAYER_MANAGER", standard), Acad::eOk);
        EXPECT_EQ(standard, idAt(*db, "21"));
        EXPECT_EQ(dict->numEntries(), 7);
        manager->close();
    }
    EXPECT_EQ(db->dxfText(), text);

    load();
    expectObjects(*db, true);  // a drawing that is open does not change
    EXPECT_EQ(db->dxfText(), text);
    auto native = AcDbDatabase::readDxfBytes(text, "native.dxf");
    EXPECT_TRUE(native->readWarnings().empty()) << native->readWarnings().front();
    expectObjects(*native, false);
    for (const auto& [handle, cls] : kObjects) EXPECT_EQ(idAt(*native, handle).object()->isA(), acrxFindClass(cls));
    // Written by the module's own filing: the same tags.
    EXPECT_EQ(native->dxfText(), text);

    unload();
    expectObjects(*native, true);
    EXPECT_EQ(native->dxfText(), text);
    // And the drawing reads as it did before the module came.
    expectObjects(*AcDbDatabase::readDxfBytes(native->dxfText(), "again.dxf"), true);
}

// A drawing that got the module's objects in this session (no file behind
// them) keeps them, and their classes, once the module is gone.
TEST_F(ModuleLoading, UnloadingKeepsObjectsMadeInTheSession)
{
    load();
    AcDbDatabase db;
    {
        AcDbObjectPointer<AcDbDictionary> dict(addNamedObject(db, L"ZEFT_LAYER_MANAGER"), AcDb::kForWrite);
        ASSERT_EQ(dict.openStatus(), Acad::eOk);
        AcDbObject* made = AcDbObject::cast(acrxFindClass(L"ZEFTRuleEnum")->create());
        ASSERT_NE(made, nullptr);
        AcDbObjectId id;
        ASSERT_EQ(dict->setAt(nullptr, made, id), Acad::eOk);
        made->close();
    }
    const std::string written = db.dxfText();
    const std::size_t begin = written.find("  0\nZEFTRULEENUM\n");
    ASSERT_NE(begin, std::string::npos);
    const std::string record = written.substr(begin, written.find("  0\n", begin + 1) - begin);
    ASSERT_NE(record.find("100\nZEFTRuleEnum\n 70\n1\n  1\n\n 90\n0\n"), std::string::npos) << record;
    unload();

    const std::string after = db.dxfText();
    EXPECT_NE(after.find(record), std::string::npos);
    // Its class is still listed, now as one that was not loaded.
    EXPECT_NE(after.find("  0\nCLASS\n  1\nZEFTRULEENUM\n  2\nZEFTRuleEnum\n  3\nZEFTLayerManager\n 90\n0\n 91\n0\n280\n1\n"),
              std::string::npos);
    EXPECT_EQ(AcDbDatabase::readDxfBytes(after, "session.dxf")->dxfText(), after);
}

}  // namespace
