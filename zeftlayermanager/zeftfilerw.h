// Reads and writes a layer standard as a ".std" profile file, and copies
// what it read into a drawing's layer manager dictionary.
#pragma once

#include <string>
#include <vector>

#include "host/dbobject.h"
#include "zeftlayermanager/rulefield.h"
#include "zeftlayermanager/zeftlayermanagerexports.h"

class AcDbDictionary;
class ZEFTRuleEnum;
class ZEFTRuleException;
class ZEFTRuleFunction;

class ZEFT_LM_EXPORT ZEFTFileRW {
public:
    ZEFTFileRW();
    // Deletes the functions, enums and exception list it still owns.
    ~ZEFTFileRW();
    ZEFTFileRW(const ZEFTFileRW&) = delete;
    ZEFTFileRW& operator=(const ZEFTFileRW&) = delete;

    // Reading. Every value is cut to 99 characters. readStandard replaces
    // what the instance holds, except the separator when the file has none.
    void readStandard(const std::wstring& path);
    // Appends the fields up to the first one without a name.
    void readRule(const std::wstring& section, std::vector<RuleField>& fields, const std::wstring& path);
    // Appends Function_1, Function_2, ... up to the first that gives none.
    void readFunctions(const std::wstring& path);
    // A new function, owned by the caller, when the section has a name and at
    // least one complete key/value pair; false otherwise.
    bool readFunction(const std::wstring& section, ZEFTRuleFunction*& function, const std::wstring& path);
    void readEnums(const std::wstring& path);
    // A new enum, owned by the caller, when the section has a name and a value.
    bool readEnum(const std::wstring& section, ZEFTRuleEnum*& ruleEnum, const std::wstring& path);
    // Adds the section's pairs to exception, created (and then owned by the
    // caller) on the first pair when null.
    void readException(const std::wstring& section, ZEFTRuleException*& exception, const std::wstring& path);
    // Changes separator only when the section has a value.
    void readSeparator(const std::wstring& section, std::wstring& separator, const std::wstring& path);

    // Writing: the whole file, from what the instance holds.
    void writeStandard(const std::wstring& path);
    // writeStandard into a new file beside `path`, then renamed over it: a
    // failure leaves no half-written standard and the old file as it was.
    // Empty when it succeeded, else why it failed.
    std::string writeStandardReplacing(const std::wstring& path);
    // Creates the file or empties it.
    void clearFile(const std::wstring& path);
    void writeRule(const std::wstring& section, const std::vector<RuleField>& fields, const std::wstring& path);
    void writeFunctions(const std::wstring& path);
    void writeFunction(const std::wstring& section, const ZEFTRuleFunction* function, const std::wstring& path);
    void writeEnums(const std::wstring& path);
    void writeEnum(const std::wstring& section, const ZEFTRuleEnum* ruleEnum, const std::wstring& path);
    void writeException(const std::wstring& section, const ZEFTRuleException* exception, const std::wstring& path);
    void writeSeparator(const std::wstring& section, const std::wstring& separator, const std::wstring& path);

    // The standards folder ("<data>/Support/Layer Standards/").
    // The ".std" files of the folder, by name, without folders.
    void getAllFiles(std::vector<std::wstring>& files);
    // Parallel lists of file names and standard names of the folder; an
    // empty folder first receives the default standard.
    void getAvailableStandards(std::vector<std::wstring>& files, std::vector<std::wstring>& names,
                               std::wstring& folder);
    // The "Name" of "Layer_Standard" of a file of the folder; true when not empty.
    bool getStandardName(const std::wstring& fileName, std::wstring& name);

    // Filling before writeStandard. The objects given are copied: the caller
    // keeps and deletes its own. A null exception means none.
    void setName(const std::wstring& name);
    void setRules(const std::vector<RuleField>& model, const std::vector<RuleField>& draft,
                  const std::vector<RuleField>& doc);
    void setFunctions(const std::vector<ZEFTRuleFunction*>& functions);
    void setEnums(const std::vector<ZEFTRuleEnum*>& enums);
    void setException(const ZEFTRuleException* exception);
    void setSeparator(const std::wstring& separator);

    // What the instance holds; the objects stay its own.
    const std::wstring& getName() const { return m_name; }
    const std::vector<RuleField>& getModelRule() const { return m_modelRule; }
    const std::vector<RuleField>& getDraftRule() const { return m_draftRule; }
    const std::vector<RuleField>& getDocRule() const { return m_docRule; }
    const std::vector<ZEFTRuleFunction*>& getFunctions() const { return m_functions; }
    const std::vector<ZEFTRuleEnum*>& getEnums() const { return m_enums; }
    const ZEFTRuleException* getException() const { return m_exception; }
    const std::wstring& getSeparator() const { return m_separator; }

    // Copying into a drawing: each adds objects to the layer manager
    // dictionary, opened for write by the caller, under generated keys, and
    // closes them. Added objects belong to the drawing from then on; one that
    // cannot be added stays with the instance. Null ids when nothing was added.
    AcDbObjectId createRule(const std::vector<RuleField>& fields, AcDbDictionary* dictionary);
    AcDbObjectIdArray createFunctions(AcDbDictionary* dictionary);
    AcDbObjectIdArray createEnums(AcDbDictionary* dictionary);
    AcDbObjectId createException(AcDbDictionary* dictionary);

private:
    void clearObjects();

    std::wstring m_name;
    std::vector<RuleField> m_modelRule;
    std::vector<RuleField> m_draftRule;
    std::vector<RuleField> m_docRule;
    std::vector<ZEFTRuleFunction*> m_functions;
    std::vector<ZEFTRuleEnum*> m_enums;
    ZEFTRuleException* m_exception = nullptr;
    std::wstring m_separator;
};
