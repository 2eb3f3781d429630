#include "zeftlayermanager/zeftlayermanagereditorreactor.h"

#include <algorithm>
#include <optional>
#include <cwctype>

#include "host/document.h"
#include "suite/wybase.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftresolutionbatch.h"
#include "zeftlayermanager/zeftsmartunlocklayers.h"

ZEFTLayerManagerEditorReactor* gpLayerManagerEditorReactor = nullptr;

ZEFTLayerManagerEditorReactor::ZEFTLayerManagerEditorReactor(bool autoAttach) : ZEFTEditorReactorBase(autoAttach) {}

ZEFTLayerManagerEditorReactor::~ZEFTLayerManagerEditorReactor() = default;

void ZEFTLayerManagerEditorReactor::addObjectToProcess(const AcDbObjectId& id)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::addObjectToProcess", {
        if (!m_objectsToProcess.contains(id)) m_objectsToProcess.append(id);
        // Handed in explicitly: processed with the current collection, never again from a saved one.
        for (AcDbObjectIdArray& saved : m_savedObjects) saved.remove(id);
    });
}

void ZEFTLayerManagerEditorReactor::addObjectsToProcess(const AcDbObjectIdArray& ids)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::addObjectsToProcess", { m_objectsToProcess.append(ids); });
}

void ZEFTLayerManagerEditorReactor::commandWillStart(const wchar_t*)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::commandWillStart", {
        if (m_lockCount == 0) m_objectsToProcess.setLogicalLength(0);
        m_currentObjectId.setNull();
    });
}

void ZEFTLayerManagerEditorReactor::commandEnded(const wchar_t* commandName)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::commandEnded", { process(commandName, false); });
}

void ZEFTLayerManagerEditorReactor::commandCancelled(const wchar_t* commandName)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::commandCancelled", { process(commandName, false); });
}

void ZEFTLayerManagerEditorReactor::commandFailed(const wchar_t* commandName)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::commandFailed", { process(commandName, false); });
}

void ZEFTLayerManagerEditorReactor::endDeepClone(AcDbIdMapping& idMap)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::endDeepClone", {
        ResBuf tilemode, cvport;
        if (!ZEFTAcadSystemTools::getSysVar(L"TILEMODE", tilemode) ||
            !ZEFTAcadSystemTools::getSysVar(L"CVPORT", cvport))
            return;
        if (tilemode.rint() != 0 || cvport.rint() == 1) return;
        // Copies made through a floating viewport keep the layers of their sources.
        AcDbIdMappingIter it(idMap);
        for (it.start(); !it.done(); it.next()) {
            AcDbIdMapping::Pair pair;
            if (it.getMap(pair)) m_objectsToProcess.remove(pair.value);
        }
    });
}

void ZEFTLayerManagerEditorReactor::databaseToBeDestroyed(AcDbDatabase* db)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::databaseToBeDestroyed", {
        auto drop = [db](AcDbObjectIdArray& ids) { std::erase_if(ids, [db](const AcDbObjectId& id) { return id.database() == db; }); };
        drop(m_objectsToProcess);
        for (AcDbObjectIdArray& saved : m_savedObjects) drop(saved);
    });
}

void ZEFTLayerManagerEditorReactor::lock(const wchar_t*)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::lock", {
        m_savedObjects.push_back(m_objectsToProcess);
        m_objectsToProcess.setLogicalLength(0);
        m_currentObjectId.setNull();
        ++m_lockCount;
    });
}

void ZEFTLayerManagerEditorReactor::unlock(const wchar_t* commandName, AcDbObjectId objectId)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::unlock", {
        --m_lockCount;
        if (objectId.isValid()) m_currentObjectId = objectId;
        process(commandName, true);
        if (m_lockCount >= 0 && m_savedObjects.size() > std::size_t(m_lockCount)) {
            m_objectsToProcess = m_savedObjects[std::size_t(m_lockCount)];
            m_savedObjects.pop_back();
        }
    });
}

bool ZEFTLayerManagerEditorReactor::filterCommandOut(const wchar_t* commandName)
{
    ZEFT_GUARD("ZEFTLayerManagerEditorReactor::filterCommandOut", false, {
        // Commands whose results keep their layers: undoing, exploding,
        // saving, exporting, editing blocks and references.
        static const wchar_t* const kBefore[] = {L"U",        L"UNDO",  L"EXPLODE", L"ZEFTDEXPORT",
                                                 L"ZEFTPEXPORT", L"COPYCLIP", L"BREAK", L"BEDIT",
                                                 L"REFEDIT",  L"QSAVE", L"SAVE"};
        static const wchar_t* const kAfter[] = {L"ZEFTDBCONNECT", L"zeftcreatedrawingset"};
        for (const wchar_t* c : kBefore)
            if (ZEFTAcadSystemTools::isCommand(commandName, c)) return true;
        if (WyAutoTestUtils::IsATExport()) return true;
        for (const wchar_t* c : kAfter)
            if (ZEFTAcadSystemTools::isCommand(commandName, c)) return true;
        return false;
    });
}

void ZEFTLayerManagerEditorReactor::process(const wchar_t* commandName, bool force)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerEditorReactor::process", {
        if (!force && m_lockCount > 0) return;
        if (m_objectsToProcess.isEmpty()) {
            m_currentObjectId.setNull();
            return;
        }
        if (filterCommandOut(commandName)) {
            m_objectsToProcess.setLogicalLength(0);
            m_currentObjectId.setNull();
            return;
        }
        ApplicationContext context;
        ZEFTLayerManagerUtil::getApplicationContext(context, m_objectsToProcess.first().database(), commandName,
                                                    AcDbObjectId());
        if (m_currentObjectId.isValid()) context.activeObjectId = m_currentObjectId;
        {
            ZEFTSmartUnlockLayers unlockLayers;
            // One group per target layer, in the order the layers first appear.
            AcDbObjectIdArray layerIds;
            std::vector<AcDbObjectIdArray> groups;
            std::optional<ZEFTResolutionBatch> batch(std::in_place, context.database);
            for (const AcDbObjectId& id : m_objectsToProcess) {
                const AcDbObjectId target = ZEFTLayerManagerUtil::processEntityLayerRules(id, context);
                if (!target.isValid()) continue;
                const int k = layerIds.find(target);
                if (k < 0) {
                    layerIds.append(target);
                    groups.emplace_back().append(id);
                } else {
                    groups[std::size_t(k)].append(id);
                }
            }
            // The project is told afresh: it changes its own records.
            batch.reset();
            ZEFTLayerManagerUtil::addLayersToActiveObject(layerIds, groups, context);
            m_currentObjectId.setNull();
            m_objectsToProcess.setLogicalLength(0);
        }
    });
}

ZEFTLayerManagerDatabaseReactor::~ZEFTLayerManagerDatabaseReactor() = default;

void ZEFTLayerManagerDatabaseReactor::objectAppended(const AcDbDatabase*, const AcDbObject* object)
{
    ZEFT_GUARD_VOID("ZEFTLayerManagerDatabaseReactor::objectAppended", {
        if (gpLayerManagerEditorReactor && object && object->isKindOf(AcDbEntity::desc()))
            gpLayerManagerEditorReactor->m_objectsToProcess.append(object->objectId());
    });
}
