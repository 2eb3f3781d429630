// standard_drawing: a drawing with a layer standard, for the end-to-end
// checks (test_module_objects.py). It links the module's classes directly.
//
//   standard_drawing write OUT.dxf   a new drawing holding the standard
//                                    "Modèle test" (below), written to OUT
//   standard_drawing dump IN.dxf     the layer standard of IN as JSON on
//                                    standard output; the drawing's read
//                                    warnings go to standard error
//
// Exit status: 0 done, 1 failure or no layer standard in IN (message on
// stderr), 2 usage.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "apps/zeftlayer/commands.h"
#include "host/database.h"
#include "host/dbdict.h"
#include "zeftlayermanager/zeftfiling.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

const wchar_t* const kDictionary = L"ZEFT_LAYER_MANAGER";

struct Failure {
    std::string what;
};

void check(Acad::ErrorStatus es, const char* what)
{
    if (es != Acad::eOk) throw Failure{std::string(what) + ": " + Acad::errorName(es)};
}

// --- write ---

AcDbObjectId add(AcDbDictionary* dict, const wchar_t* key, AcDbObject* obj)
{
    AcDbObjectId id;
    if (Acad::ErrorStatus es = dict->setAt(key, obj, id); es != Acad::eOk) {
        delete obj;
        check(es, "add to the layer manager dictionary");
    }
    return id;
}

AcDbObjectId addRule(AcDbDictionary* dict, const std::vector<RuleField>& fields)
{
    auto* rule = new ZEFTLayerRule;
    for (const RuleField& f : fields) rule->addRule(f);
    AcDbObjectId id = add(dict, nullptr, rule);
    rule->close();
    return id;
}

void addFunction(AcDbDictionary* dict, const wchar_t* name, const wchar_t* defaultValue,
                 const std::vector<std::pair<std::wstring, std::wstring>>& pairs)
{
    auto* function = new ZEFTRuleFunction;
    function->setName(name);
    function->setDefaultValue(defaultValue);
    for (const auto& [key, value] : pairs) function->addPair(key, value);
    add(dict, nullptr, function);
    function->close();
}

void addEnum(AcDbDictionary* dict, const wchar_t* name, const std::vector<std::wstring>& values)
{
    auto* enumeration = new ZEFTRuleEnum;
    enumeration->setName(name);
    for (const std::wstring& v : values) enumeration->addValue(v);
    add(dict, nullptr, enumeration);
    enumeration->close();
}

void write(const std::string& path)
{
    AcDbDatabase db;
    AcDbObjectPointer<AcDbDictionary> nod(db.namedObjectsDictionaryId(), AcDb::kForWrite);
    check(nod.openStatus(), "open the named-object dictionary");
    auto* dict = new AcDbDictionary;
    AcDbObjectId dictId;
    if (Acad::ErrorStatus es = nod->setAt(kDictionary, dict, dictId); es != Acad::eOk) {
        delete dict;
        check(es, "add the layer manager dictionary");
    }
    nod.close();

    // The standard first, under its key, the rest under generated keys.
    auto* standard = new ZEFTLayerStandard;
    add(dict, kDictionary, standard);
    const AcDbObjectId model = addRule(dict, {{L"Building Name", L"=BUILDING()", true},
                                              {L"User defined", L"Vues calcul\u00e9es", false},
                                              {L"Level / View name", L"=LEVEL/VIEW()", true}});
    const AcDbObjectId draft =
        addRule(dict, {{L"User defined", L"Vues calcul\u00e9es", false}, {L"Element Type", L"=GENERAL TYPE()", true}});
    const AcDbObjectId doc = addRule(dict, {{L"User defined", L"Documents", false}});
    addFunction(dict, L"MATERIAL", L"Autre", {{L"AcDbLine", L"B\u00e9ton"}, {L"AcDbCircle", L"Acier"}});
    addFunction(dict, L"ZONE", L"Z0", {{L"AcDbText", L"\u00c9tiquettes"}});
    addEnum(dict, L"Niveaux", {L"RDC", L"R+1", L"R+2"});
    addEnum(dict, L"B\u00e2timents", {L"A", L"B"});
    auto* exception = new ZEFTRuleException;
    exception->addPair(L"AcDbViewport", L"Frames");
    exception->addPair(L"AcDbText", L"Auto...");
    add(dict, nullptr, exception);
    exception->close();

    standard->setName(L"Mod\u00e8le test");
    standard->setFileName(L"Beltrix.std");
    standard->setSeparator(L"_ ");
    standard->setModelRule(model);
    standard->setDraftRule(draft);
    standard->setDocRule(doc);
    standard->close();
    dict->close();
    db.writeDxf(path);
}

// --- dump ---

using zeftlayer::jsonString;

std::string jsonPairs(const std::vector<std::pair<std::wstring, std::wstring>>& pairs)
{
    std::string out = "[";
    for (std::size_t i = 0; i < pairs.size(); ++i)
        out += (i ? ", [" : "[") + jsonString(pairs[i].first) + ", " + jsonString(pairs[i].second) + "]";
    return out + "]";
}

std::string jsonRule(AcDbObjectId id)
{
    AcDbObjectPointer<ZEFTLayerRule> rule(id, AcDb::kForRead);
    if (rule.openStatus() != Acad::eOk) return "null";
    std::vector<RuleField> fields;
    rule->getFields(fields);
    std::string out = "[";
    for (std::size_t i = 0; i < fields.size(); ++i)
        out += std::string(i ? ", " : "") + "{\"name\": " + jsonString(fields[i].name) + ", \"value\": " +
               jsonString(fields[i].value) + ", \"isFunction\": " + (fields[i].isFunction ? "true" : "false") + "}";
    return out + "]";
}

int dump(const std::string& path)
{
    auto db = AcDbDatabase::readDxf(path);
    for (const std::string& w : db->readWarnings()) std::fprintf(stderr, "standard_drawing: warning: %s\n", w.c_str());

    AcDbObjectPointer<AcDbDictionary> nod(db->namedObjectsDictionaryId(), AcDb::kForRead);
    check(nod.openStatus(), "open the named-object dictionary");
    AcDbObjectId dictId;
    if (nod->getAt(kDictionary, dictId) != Acad::eOk) throw Failure{"no dictionary ZEFT_LAYER_MANAGER"};
    nod.close();
    AcDbObjectPointer<AcDbDictionary> dict(dictId, AcDb::kForRead);
    check(dict.openStatus(), "open the layer manager dictionary");
    AcDbObjectId standardId;
    if (dict->getAt(kDictionary, standardId) != Acad::eOk) throw Failure{"no layer standard in the dictionary"};
    const std::vector<AcDbDictionary::Entry> entries = dict->entries();
    dict.close();

    AcDbObjectPointer<ZEFTLayerStandard> standard(standardId, AcDb::kForRead);
    if (standard.openStatus() != Acad::eOk) throw Failure{"the layer standard cannot be read"};
    std::string out = "{\n  \"standard\": {\"name\": " + jsonString(standard->getName()) +
                      ", \"fileName\": " + jsonString(standard->getFileName()) +
                      ", \"separator\": " + jsonString(standard->getSeparator()) + "},\n";
    out += "  \"rules\": {\n    \"model\": " + jsonRule(standard->getModelRule()) + ",\n    \"draft\": " +
           jsonRule(standard->getDraftRule()) + ",\n    \"doc\": " + jsonRule(standard->getDocRule()) + "\n  },\n";
    standard.close();

    // The other objects, told apart by class, in dictionary order.
    std::vector<std::string> functions, enums, exceptions;
    for (const AcDbDictionary::Entry& e : entries) {
        if (e.id == standardId) continue;
        AcDbObject* obj = nullptr;
        if (acdbOpenObject(obj, e.id, AcDb::kForRead) != Acad::eOk) continue;
        if (auto* f = ZEFTRuleFunction::cast(obj)) {
            std::vector<std::pair<std::wstring, std::wstring>> pairs(std::size_t(f->getPairsNumber()));
            for (std::size_t i = 0; i < pairs.size(); ++i) f->getPair(unsigned(i), pairs[i].first, pairs[i].second);
            functions.push_back("{\"name\": " + jsonString(f->getName()) + ", \"default\": " + jsonString(f->getDefaultValue()) +
                                ", \"pairs\": " + jsonPairs(pairs) + "}");
        } else if (auto* en = ZEFTRuleEnum::cast(obj)) {
            std::vector<std::wstring> values;
            en->getValues(values);
            std::string v = "[";
            for (std::size_t i = 0; i < values.size(); ++i) v += (i ? ", " : "") + jsonString(values[i]);
            enums.push_back("{\"name\": " + jsonString(en->getName()) + ", \"values\": " + v + "]}");
        } else if (auto* ex = ZEFTRuleException::cast(obj)) {
            std::vector<std::pair<std::wstring, std::wstring>> pairs(std::size_t(ex->getPairsNumber()));
            for (std::size_t i = 0; i < pairs.size(); ++i) ex->getPair(unsigned(i), pairs[i].first, pairs[i].second);
            exceptions.push_back(jsonPairs(pairs));
        }
        obj->close();
    }
    auto list = [](const std::vector<std::string>& items) {
        std::string s = "[";
        for (std::size_t i = 0; i < items.size(); ++i) s += (i ? ",\n    " : "\n    ") + items[i];
        return s + (items.empty() ? "]" : "\n  ]");
    };
    out += "  \"functions\": " + list(functions) + ",\n";
    out += "  \"enums\": " + list(enums) + ",\n";
    out += "  \"exceptions\": " + (exceptions.empty() ? std::string("null") : exceptions.front()) + "\n}\n";
    std::fwrite(out.data(), 1, out.size(), stdout);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (!((mode == "write" || mode == "dump") && argc == 3)) {
        std::fprintf(stderr, "usage: standard_drawing write OUT.dxf | dump IN.dxf\n");
        return 2;
    }
    zeft_filing::registerClasses();
    try {
        if (mode == "write") write(argv[2]);
        else return dump(argv[2]);
    } catch (const Failure& f) {
        std::fprintf(stderr, "standard_drawing: %s: %s\n", argv[2], f.what.c_str());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "standard_drawing: %s\n", e.what());
        return 1;
    }
    return 0;
}
