// What the module's tests share: a fixture that registers the five
// persistent classes and the prompt table as the module's start does,
// builders of functions, enumerations, entities and installed standards,
// temporary folders, the data files, and readers of the objects' values.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/database.h"
#include "host/dbclasses.h"
#include "host/dbdict.h"
#include "host/document.h"
#include "host/dxf/codec.h"
#include "suite/wybase.h"
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"
#include "zeftlayermanager/rulefield.h"
#include "zeftlayermanager/zeftfiling.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace moduletest {

namespace fs = std::filesystem;
using Fields = std::vector<RuleField>;
using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
using Strings = std::vector<std::wstring>;

class ModuleTest : public ::testing::Test {
protected:
    // Registration is idempotent: per test, so that a test elsewhere in the
    // binary that unregisters the classes cannot leave these without them.
    void SetUp() override
    {
        zeft_filing::registerClasses();
        WyPrompts::registerTable(L"ZEFTLAYERMANAGER", &zeftLayerManagerPrompts());
    }
};

inline std::string readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void writeFile(const fs::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// A file of tests/data.
inline std::string dataFile(const std::string& name) { return readFile(fs::path(ZEFT_SOURCE_DIR) / "tests/data" / name); }

// A new folder of its own, gone with the object.
struct TempFolder {
    explicit TempFolder(const std::string& prefix)
    {
        std::string templ = ::testing::TempDir() + prefix + "-XXXXXX";
        EXPECT_NE(::mkdtemp(templ.data()), nullptr);
        path = templ;
    }
    ~TempFolder() { fs::remove_all(path); }
    fs::path path;
};

// Installs a standard given as .std text, through a file as a user would.
inline bool installStandardText(AcDbDatabase* db, const std::string& text, const std::wstring& fileName)
{
    const TempFolder folder("standard");
    const fs::path path = folder.path / "standard.std";
    writeFile(path, text);
    return ZEFTLayerManagerUtil::installStandardFromPath(db, path.wstring(), fileName);
}

inline AcDbObjectIdArray ids(std::initializer_list<AcDbObjectId> list)
{
    AcDbObjectIdArray out;
    for (const AcDbObjectId& id : list) out.append(id);
    return out;
}

// Appends to model space (or `owner`) and closes the entity.
inline AcDbObjectId addEntity(AcDbDatabase* db, AcDbEntity* entity, AcDbObjectId owner = {})
{
    AcDbObjectPointer<AcDbBlockTableRecord> space(owner.isNull() ? db->modelSpaceId() : owner, AcDb::kForWrite);
    AcDbObjectId id;
    EXPECT_EQ(space->appendAcDbEntity(id, entity), Acad::eOk);
    entity->close();
    return id;
}

inline AcDbObjectId addLine(AcDbDatabase* db, double x = 0)
{
    return addEntity(db, new AcDbLine({x, 0, 0}, {x + 1, 1, 0}));
}

inline std::unique_ptr<ZEFTRuleFunction> function(const std::wstring& name, const std::wstring& def,
                                                  const Pairs& pairs = {})
{
    auto f = std::make_unique<ZEFTRuleFunction>();
    f->setName(name);
    f->setDefaultValue(def);
    for (const auto& [k, v] : pairs) f->addPair(k, v);
    return f;
}

inline std::unique_ptr<ZEFTRuleEnum> enumeration(const std::wstring& name, const Strings& values)
{
    auto e = std::make_unique<ZEFTRuleEnum>();
    e->setName(name);
    for (const auto& v : values) e->addValue(v);
    return e;
}

// The pairs of a rule function or exception list, in order.
template <class T>
Pairs pairsOf(const T& object)
{
    Pairs pairs;
    for (int i = 0; i < object.getPairsNumber(); ++i) {
        std::wstring k, v;
        object.getPair(unsigned(i), k, v);
        pairs.emplace_back(k, v);
    }
    return pairs;
}

inline Fields fieldsOf(const ZEFTLayerRule& rule)
{
    Fields fields;
    rule.getFields(fields);
    return fields;
}

inline Fields fieldsOf(AcDbObjectId ruleId)
{
    AcDbObjectPointer<ZEFTLayerRule> rule(ruleId, AcDb::kForRead);
    EXPECT_EQ(rule.openStatus(), Acad::eOk);
    return rule ? fieldsOf(*rule.object()) : Fields{};
}

inline std::wstring describe(const Fields& fields)
{
    std::wstring out;
    for (const RuleField& f : fields) out += L" [" + f.name + L"|" + f.value + (f.isFunction ? L"|f]" : L"]");
    return out;
}

// Every value of one of the five objects, as text, for comparing objects
// whole; ids show as handles.
inline std::wstring describe(const AcDbObject& object)
{
    auto handle = [](AcDbObjectId id) {
        const std::string h = id.isNull() ? "null" : id.handle().str();
        return std::wstring(h.begin(), h.end());
    };
    auto pairs = [](const Pairs& list) {
        std::wstring out;
        for (const auto& [k, v] : list) out += L" " + k + L"=" + v;
        return out;
    };
    if (const auto* rule = ZEFTLayerRule::cast(&object)) return L"rule" + describe(fieldsOf(*rule));
    if (const auto* s = ZEFTLayerStandard::cast(&object))
        return L"standard " + s->getName() + L"|" + s->getFileName() + L"|" + s->getSeparator() + L" rules " +
               handle(s->getModelRule()) + L"," + handle(s->getDraftRule()) + L"," + handle(s->getDocRule());
    if (const auto* e = ZEFTRuleEnum::cast(&object)) {
        Strings values;
        e->getValues(values);
        std::wstring out = L"enum " + e->getName() + L":";
        for (const std::wstring& v : values) out += L" " + v;
        return out;
    }
    if (const auto* f = ZEFTRuleFunction::cast(&object))
        return L"function " + f->getName() + L"|" + f->getDefaultValue() + L":" + pairs(pairsOf(*f));
    if (const auto* x = ZEFTRuleException::cast(&object)) return L"exception:" + pairs(pairsOf(*x));
    return L"?";
}

}  // namespace moduletest
