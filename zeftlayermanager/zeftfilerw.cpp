#include "zeftlayermanager/zeftfilerw.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <cstdio>
#include <memory>

#include "host/dbdict.h"
#include "host/dxf/codec.h"
#include "suite/wybase.h"
#include "suite/wyprofile.h"
#include "suite/zeftregistrytools.h"
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftruleenum.h"
#include "zeftlayermanager/zeftruleevaluator.h"
#include "zeftlayermanager/zeftruleexception.h"
#include "zeftlayermanager/zeftrulefunction.h"

namespace {

const wchar_t kStandardSection[] = L"Layer_Standard";
const wchar_t kModelSection[] = L"Model_Rules";
const wchar_t kDraftSection[] = L"Draft_Rules";
const wchar_t kDocSection[] = L"Doc_Rules";
const wchar_t kExceptionSection[] = L"Exceptions";
const wchar_t kSeparatorSection[] = L"Separator";

// Files written by earlier versions were read through a buffer of 101
// characters declared as 100: values keep at most 99 characters, and
// files exchanged between versions must read the same.
std::wstring readValue(const std::wstring& section, const std::wstring& key, const std::wstring& path)
{
    wchar_t buffer[101] = {};
    const DWORD n = GetPrivateProfileStringW(section.c_str(), key.c_str(), L"", buffer, 100, path.c_str());
    return std::wstring(buffer, std::min<DWORD>(n, 100));
}

bool writeValue(const std::wstring& section, const std::wstring& key, const std::wstring& value,
                const std::wstring& path)
{
    return WritePrivateProfileStringW(section.c_str(), key.c_str(), value.c_str(), path.c_str()) != FALSE;
}

// "%s_%d": base word, underscore, number.
std::wstring numbered(const wchar_t* base, std::size_t n) { return base + (L"_" + std::to_wstring(n)); }

std::unique_ptr<ZEFTRuleFunction> copyOf(const ZEFTRuleFunction& from)
{
    auto to = std::make_unique<ZEFTRuleFunction>();
    to->setName(from.getName());
    to->setDefaultValue(from.getDefaultValue());
    for (int i = 0, n = from.getPairsNumber(); i < n; ++i) {
        std::wstring key, value;
        from.getPair(unsigned(i), key, value);
        to->addPair(key, value);
    }
    return to;
}

std::unique_ptr<ZEFTRuleEnum> copyOf(const ZEFTRuleEnum& from)
{
    auto to = std::make_unique<ZEFTRuleEnum>();
    to->setName(from.getName());
    std::vector<std::wstring> values;
    from.getValues(values);
    for (const std::wstring& v : values) to->addValue(v);
    return to;
}

std::unique_ptr<ZEFTRuleException> copyOf(const ZEFTRuleException& from)
{
    auto to = std::make_unique<ZEFTRuleException>();
    for (int i = 0, n = from.getPairsNumber(); i < n; ++i) {
        std::wstring key, value;
        from.getPair(unsigned(i), key, value);
        to->addPair(key, value);
    }
    return to;
}

template <class T>
void replaceAll(std::vector<T*>& held, const std::vector<T*>& given)
{
    std::vector<std::unique_ptr<T>> copies;
    copies.reserve(given.size());
    for (const T* object : given)
        if (object) copies.push_back(copyOf(*object));
    for (T* object : held) delete object;
    held.clear();
    held.reserve(copies.size());
    for (auto& copy : copies) held.push_back(copy.release());
}

// Adds a new object under a generated key and closes it. Once it is in the
// drawing the drawing owns it, and the caller's pointer is cleared (even if
// adding then fails); a refused object stays the caller's.
template <class T>
AcDbObjectId addToDictionary(AcDbDictionary* dictionary, T*& owned)
{
    struct Handover {
        T*& object;
        ~Handover()
        {
            if (object && object->isDatabaseResident()) object = nullptr;
        }
    } handover{owned};
    T* object = owned;
    AcDbObjectId id;
    if (dictionary->setAt(nullptr, object, id) != Acad::eOk || !object->isDatabaseResident()) return AcDbObjectId();
    object->close();
    return id;
}

// Hands each held object over to the dictionary; those it refuses stay held.
template <class T>
AcDbObjectIdArray addAll(std::vector<T*>& held, AcDbDictionary* dictionary)
{
    // Handed-over objects leave the list even when a later one throws.
    struct Compact {
        std::vector<T*>& list;
        ~Compact() { std::erase(list, nullptr); }
    } compact{held};
    AcDbObjectIdArray ids;
    for (T*& object : held) {
        if (!object) continue;
        const AcDbObjectId id = addToDictionary(dictionary, object);
        if (!id.isNull()) ids.append(id);
    }
    return ids;
}

}  // namespace

ZEFTFileRW::ZEFTFileRW()
{
    ZEFT_GUARD_VOID("ZEFTFileRW::ZEFTFileRW", {});
}

ZEFTFileRW::~ZEFTFileRW()
{
    ZEFT_GUARD_VOID("ZEFTFileRW::~ZEFTFileRW", { clearObjects(); });
}

void ZEFTFileRW::clearObjects()
{
    for (ZEFTRuleFunction* function : m_functions) delete function;
    m_functions.clear();
    for (ZEFTRuleEnum* ruleEnum : m_enums) delete ruleEnum;
    m_enums.clear();
    delete m_exception;
    m_exception = nullptr;
}

// --- reading -------------------------------------------------------------------

void ZEFTFileRW::readStandard(const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::readStandard", {
        clearObjects();
        m_modelRule.clear();
        m_draftRule.clear();
        m_docRule.clear();
        m_name = readValue(kStandardSection, L"Name", path);
        readRule(kModelSection, m_modelRule, path);
        readRule(kDraftSection, m_draftRule, path);
        readRule(kDocSection, m_docRule, path);
        readFunctions(path);
        readEnums(path);
        readException(kExceptionSection, m_exception, path);
        readSeparator(kSeparatorSection, m_separator, path);
    });
}

void ZEFTFileRW::readRule(const std::wstring& section, std::vector<RuleField>& fields, const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::readRule", {
        // A field without a name ends the rule, whatever follows it.
        for (std::size_t i = 1;; ++i) {
            RuleField field;
            field.name = readValue(section, numbered(L"Name", i), path);
            field.value = readValue(section, numbered(L"Field", i), path);
            field.isFunction = ZEFTRuleEvaluator::isFunction(field.value, nullptr);
            if (field.name.empty()) break;
            fields.push_back(std::move(field));
        }
    });
}

void ZEFTFileRW::readFunctions(const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::readFunctions", {
        for (std::size_t i = 1;; ++i) {
            ZEFTRuleFunction* function = nullptr;
            if (!readFunction(numbered(L"Function", i), function, path)) break;
            std::unique_ptr<ZEFTRuleFunction> owned(function);
            m_functions.push_back(owned.get());
            owned.release();
        }
    });
}

bool ZEFTFileRW::readFunction(const std::wstring& section, ZEFTRuleFunction*& function, const std::wstring& path)
{
    ZEFT_GUARD("ZEFTFileRW::readFunction", false, {
        const std::wstring name = readValue(section, L"Name", path);
        if (name.empty()) return false;
        const std::wstring defaultValue = readValue(section, L"Default", path);
        // Made on the first complete pair: a function without pairs is not
        // read, and neither are the functions after it.
        std::unique_ptr<ZEFTRuleFunction> made;
        for (std::size_t j = 1;; ++j) {
            const std::wstring key = readValue(section, numbered(L"Key", j), path);
            const std::wstring value = readValue(section, numbered(L"Value", j), path);
            if (key.empty() || value.empty()) break;
            if (!made) {
                made = std::make_unique<ZEFTRuleFunction>();
                made->setName(name);
                made->setDefaultValue(defaultValue);
            }
            made->addPair(key, value);
        }
        if (!made) return false;
        function = made.release();
        return true;
    });
}

void ZEFTFileRW::readEnums(const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::readEnums", {
        for (std::size_t i = 1;; ++i) {
            ZEFTRuleEnum* ruleEnum = nullptr;
            if (!readEnum(numbered(L"Enum", i), ruleEnum, path)) break;
            std::unique_ptr<ZEFTRuleEnum> owned(ruleEnum);
            m_enums.push_back(owned.get());
            owned.release();
        }
    });
}

bool ZEFTFileRW::readEnum(const std::wstring& section, ZEFTRuleEnum*& ruleEnum, const std::wstring& path)
{
    ZEFT_GUARD("ZEFTFileRW::readEnum", false, {
        const std::wstring name = readValue(section, L"Name", path);
        if (name.empty()) return false;
        std::unique_ptr<ZEFTRuleEnum> made;
        for (std::size_t j = 1;; ++j) {
            const std::wstring value = readValue(section, numbered(L"Value", j), path);
            if (value.empty()) break;
            if (!made) {
                made = std::make_unique<ZEFTRuleEnum>();
                made->setName(name);
            }
            made->addValue(value);
        }
        if (!made) return false;
        ruleEnum = made.release();
        return true;
    });
}

void ZEFTFileRW::readException(const std::wstring& section, ZEFTRuleException*& exception,
                               const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::readException", {
        ZEFTRuleException* target = exception;
        std::unique_ptr<ZEFTRuleException> made;
        for (std::size_t j = 1;; ++j) {
            const std::wstring key = readValue(section, numbered(L"Key", j), path);
            const std::wstring value = readValue(section, numbered(L"Value", j), path);
            if (key.empty() || value.empty()) break;
            if (!target) {
                made = std::make_unique<ZEFTRuleException>();
                target = made.get();
            }
            target->addPair(key, value);
        }
        if (made) exception = made.release();
    });
}

void ZEFTFileRW::readSeparator(const std::wstring& section, std::wstring& separator, const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::readSeparator", {
        // The file drops blanks around values: a trailing blank is carried
        // by WhiteSpaceAfter.
        std::wstring value = readValue(section, L"Value", path);
        if (value.empty()) return;
        if (readValue(section, L"WhiteSpaceAfter", path) == L"1") value += L' ';
        separator = value;
    });
}

// --- writing -------------------------------------------------------------------

std::string ZEFTFileRW::writeStandardReplacing(const std::wstring& path)
{
    namespace fs = std::filesystem;
    const fs::path target(dxf::toUtf8(path));
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    std::string temp = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) return std::strerror(errno);
    ::close(fd);
    writeStandard(dxf::fromUtf8(temp));
    std::error_code error;
    // The profile writer says nothing when it cannot write: an empty file tells.
    const std::uintmax_t size = fs::file_size(temp, error);
    std::string why = error ? error.message() : size == 0 ? std::strerror(EIO) : std::string();
    if (why.empty()) {
        fs::rename(temp, target, error);
        if (error) why = error.message();
    }
    if (!why.empty()) fs::remove(temp, error);
    return why;
}

void ZEFTFileRW::writeStandard(const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeStandard", {
        clearFile(path);
        // The line feeds leave a blank line after the sections that end
        // with them, which makes the file easier to read.
        writeValue(kStandardSection, L"Name", m_name + L'\n', path);
        writeRule(kModelSection, m_modelRule, path);
        writeRule(kDraftSection, m_draftRule, path);
        writeRule(kDocSection, m_docRule, path);
        writeFunctions(path);
        writeEnums(path);
        writeException(kExceptionSection, m_exception, path);
        writeSeparator(kSeparatorSection, m_separator, path);
    });
}

void ZEFTFileRW::clearFile(const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::clearFile", {
        if (std::FILE* file = std::fopen(dxf::toUtf8(path).c_str(), "wb")) std::fclose(file);
    });
}

void ZEFTFileRW::writeRule(const std::wstring& section, const std::vector<RuleField>& fields,
                           const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeRule", {
        // Rule keys carry a trailing blank ("Name_1 "); readers ignore it.
        for (std::size_t i = 0; i < fields.size(); ++i) {
            writeValue(section, numbered(L"Name", i + 1) + L' ', fields[i].name, path);
            std::wstring value = fields[i].value;
            if (i + 1 == fields.size()) value += L'\n';
            writeValue(section, numbered(L"Field", i + 1) + L' ', value, path);
        }
    });
}

void ZEFTFileRW::writeFunctions(const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeFunctions", {
        for (std::size_t i = 0; i < m_functions.size(); ++i)
            writeFunction(numbered(L"Function", i + 1), m_functions[i], path);
    });
}

void ZEFTFileRW::writeFunction(const std::wstring& section, const ZEFTRuleFunction* function,
                               const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeFunction", {
        if (!function) return;
        if (!writeValue(section, L"Name", function->getName(), path)) return;
        if (!writeValue(section, L"Default", function->getDefaultValue(), path)) return;
        const int count = function->getPairsNumber();
        for (int j = 0; j < count; ++j) {
            std::wstring key, value;
            function->getPair(unsigned(j), key, value);
            if (j + 1 == count) value += L'\n';
            writeValue(section, numbered(L"Key", std::size_t(j) + 1), key, path);
            writeValue(section, numbered(L"Value", std::size_t(j) + 1), value, path);
        }
    });
}

void ZEFTFileRW::writeEnums(const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeEnums", {
        for (std::size_t i = 0; i < m_enums.size(); ++i) writeEnum(numbered(L"Enum", i + 1), m_enums[i], path);
    });
}

void ZEFTFileRW::writeEnum(const std::wstring& section, const ZEFTRuleEnum* ruleEnum, const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeEnum", {
        if (!ruleEnum) return;
        if (!writeValue(section, L"Name", ruleEnum->getName(), path)) return;
        std::vector<std::wstring> values;
        ruleEnum->getValues(values);
        for (std::size_t j = 0; j < values.size(); ++j) {
            if (j + 1 == values.size()) values[j] += L'\n';
            writeValue(section, numbered(L"Value", j + 1), values[j], path);
        }
    });
}

void ZEFTFileRW::writeException(const std::wstring& section, const ZEFTRuleException* exception,
                                const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeException", {
        if (!exception) return;
        for (int j = 0, n = exception->getPairsNumber(); j < n; ++j) {
            std::wstring key, value;
            exception->getPair(unsigned(j), key, value);
            writeValue(section, numbered(L"Key", std::size_t(j) + 1), key, path);
            writeValue(section, numbered(L"Value", std::size_t(j) + 1), value, path);
        }
    });
}

void ZEFTFileRW::writeSeparator(const std::wstring& section, const std::wstring& separator,
                                const std::wstring& path)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::writeSeparator", {
        writeValue(section, L"Value", separator, path);
        const bool blankAfter = !separator.empty() && separator.back() == L' ';
        writeValue(section, L"WhiteSpaceAfter", blankAfter ? L"1" : L"0", path);
    });
}

// --- filling -------------------------------------------------------------------

void ZEFTFileRW::setName(const std::wstring& name)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::setName", { m_name = name; });
}

void ZEFTFileRW::setRules(const std::vector<RuleField>& model, const std::vector<RuleField>& draft,
                          const std::vector<RuleField>& doc)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::setRules", {
        m_modelRule = model;
        m_draftRule = draft;
        m_docRule = doc;
    });
}

void ZEFTFileRW::setFunctions(const std::vector<ZEFTRuleFunction*>& functions)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::setFunctions", { replaceAll(m_functions, functions); });
}

void ZEFTFileRW::setEnums(const std::vector<ZEFTRuleEnum*>& enums)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::setEnums", { replaceAll(m_enums, enums); });
}

void ZEFTFileRW::setException(const ZEFTRuleException* exception)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::setException", {
        std::unique_ptr<ZEFTRuleException> copy = exception ? copyOf(*exception) : nullptr;
        delete m_exception;
        m_exception = copy.release();
    });
}

void ZEFTFileRW::setSeparator(const std::wstring& separator)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::setSeparator", { m_separator = separator; });
}

// --- copying into a drawing ------------------------------------------------------

AcDbObjectId ZEFTFileRW::createRule(const std::vector<RuleField>& fields, AcDbDictionary* dictionary)
{
    ZEFT_GUARD("ZEFTFileRW::createRule", AcDbObjectId(), {
        if (!dictionary) return AcDbObjectId();
        auto made = std::make_unique<ZEFTLayerRule>();
        for (const RuleField& field : fields) made->addRule(field);
        ZEFTLayerRule* rule = made.release();
        struct DeleteUnlessAdded {
            ZEFTLayerRule*& rule;
            ~DeleteUnlessAdded() { delete rule; }
        } cleanup{rule};
        return addToDictionary(dictionary, rule);
    });
}

AcDbObjectIdArray ZEFTFileRW::createFunctions(AcDbDictionary* dictionary)
{
    ZEFT_GUARD("ZEFTFileRW::createFunctions", AcDbObjectIdArray(), {
        if (!dictionary) return AcDbObjectIdArray();
        return addAll(m_functions, dictionary);
    });
}

AcDbObjectIdArray ZEFTFileRW::createEnums(AcDbDictionary* dictionary)
{
    ZEFT_GUARD("ZEFTFileRW::createEnums", AcDbObjectIdArray(), {
        if (!dictionary) return AcDbObjectIdArray();
        return addAll(m_enums, dictionary);
    });
}

AcDbObjectId ZEFTFileRW::createException(AcDbDictionary* dictionary)
{
    ZEFT_GUARD("ZEFTFileRW::createException", AcDbObjectId(), {
        if (!dictionary || !m_exception) return AcDbObjectId();
        return addToDictionary(dictionary, m_exception);
    });
}

// --- the standards folder ---

namespace {


// The folder, always ending with '/'; empty when the data folder is unknown.
std::wstring standardsFolder()
{
    std::wstring folder;
    ZEFTRegistryTools::GetLayerStandardsPath(folder);
    return folder;
}

}  // namespace

void ZEFTFileRW::getAllFiles(std::vector<std::wstring>& files)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::getAllFiles", {
        namespace fs = std::filesystem;
        std::wstring folder = standardsFolder();
        if (folder.empty()) return;
        std::error_code ec;
        std::vector<std::wstring> found;
        for (fs::directory_iterator it(dxf::toUtf8(folder), ec), end; !ec && it != end; it.increment(ec)) {
            std::error_code fec;
            if (!it->is_regular_file(fec)) continue;
            std::wstring name = dxf::fromUtf8(it->path().filename().string());
            // "*.std", matched without regard to case as the suite's file search does.
            if (name.size() > 4 && acdbToLower(name.substr(name.size() - 4)) == L".std") found.push_back(name);
        }
        // Alphabetical: the order a person expects, and the same on every run.
        std::sort(found.begin(), found.end(), [](const std::wstring& a, const std::wstring& b) { return acdbToLower(a) < acdbToLower(b); });
        files.insert(files.end(), found.begin(), found.end());
    });
}

void ZEFTFileRW::getAvailableStandards(std::vector<std::wstring>& files, std::vector<std::wstring>& names,
                                       std::wstring& folder)
{
    ZEFT_GUARD_VOID("ZEFTFileRW::getAvailableStandards", {
        std::vector<std::wstring> all;
        getAllFiles(all);
        files.clear();
        names.clear();
        folder = standardsFolder();
        if (folder.empty()) return;
        if (all.empty()) {
            namespace fs = std::filesystem;
            std::error_code ec;
            fs::create_directories(dxf::toUtf8(folder), ec);
            // The default standard, written as a text file: CR LF line ends.
            std::wstring text = WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17714);
            if (text.empty()) {
                auto it = zeftLayerManagerPrompts().find(17714);
                if (it != zeftLayerManagerPrompts().end()) text = it->second;
            }
            std::string bytes;
            for (wchar_t c : text) {
                if (c == L'\n') bytes += "\r\n";
                else bytes += char(c < 0x100 ? c : '?');
            }
            std::ofstream out(dxf::toUtf8(folder + L"Beltrix.std"), std::ios::binary | std::ios::trunc);
            out.write(bytes.data(), std::streamsize(bytes.size()));
            out.close();
            // The pair reported for the fresh default is kept as callers know it.
            files.push_back(L"Beltrix_backup.std");
            names.push_back(L"Beltrix");
            return;
        }
        for (const std::wstring& file : all) {
            std::wstring name = wyGetProfileString(L"Layer_Standard", L"Name", L"", folder + file, 100);
            if (name.empty()) continue;
            files.push_back(file);
            names.push_back(name);
        }
    });
}

bool ZEFTFileRW::getStandardName(const std::wstring& fileName, std::wstring& name)
{
    ZEFT_GUARD("ZEFTFileRW::getStandardName", false, {
        std::wstring folder = standardsFolder();
        if (folder.empty() || !ZEFTLayerManagerUtil::isStandardsFolderFileName(fileName)) return false;
        name = wyGetProfileString(L"Layer_Standard", L"Name", L"", folder + fileName, 100);
        return !name.empty();
    });
}
