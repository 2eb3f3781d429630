// The editor reactor that collects the entities each command appends, and
// the database reactor that feeds it.
#pragma once

#include <vector>

#include "suite/zeftreactorbase.h"
#include "zeftlayermanager/zeftlayermanagerexports.h"

class ZEFT_LM_EXPORT ZEFTLayerManagerEditorReactor : public ZEFTEditorReactorBase {
public:
    explicit ZEFTLayerManagerEditorReactor(bool autoAttach);
    ZEFTLayerManagerEditorReactor(const ZEFTLayerManagerEditorReactor&) = default;
    ZEFTLayerManagerEditorReactor& operator=(const ZEFTLayerManagerEditorReactor&) = default;
    ~ZEFTLayerManagerEditorReactor() override;

    void databaseToBeDestroyed(AcDbDatabase* db) override;
    void endDeepClone(AcDbIdMapping& idMap) override;
    void commandWillStart(const wchar_t* commandName) override;
    void commandEnded(const wchar_t* commandName) override;
    void commandCancelled(const wchar_t* commandName) override;
    void commandFailed(const wchar_t* commandName) override;

    void addObjectToProcess(const AcDbObjectId& id);
    void addObjectsToProcess(const AcDbObjectIdArray& ids);
    void lock(const wchar_t* commandName);
    void unlock(const wchar_t* commandName, AcDbObjectId objectId);

    // What is collected now, for the database reactor and for tests.
    AcDbObjectIdArray m_objectsToProcess;
    AcDbObjectId m_currentObjectId;
    int m_lockCount = 0;
    std::vector<AcDbObjectIdArray> m_savedObjects;

private:
    bool filterCommandOut(const wchar_t* commandName);
    void process(const wchar_t* commandName, bool force);
};

class ZEFT_LM_EXPORT ZEFTLayerManagerDatabaseReactor : public ZEFTDatabaseReactorBase {
public:
    ZEFTLayerManagerDatabaseReactor() = default;
    ~ZEFTLayerManagerDatabaseReactor() override;
    void objectAppended(const AcDbDatabase* db, const AcDbObject* object) override;
};

// The one editor reactor, from module load to unload.
extern ZEFT_LM_EXPORT ZEFTLayerManagerEditorReactor* gpLayerManagerEditorReactor;
