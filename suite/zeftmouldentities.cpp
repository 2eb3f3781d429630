#include "suite/zeftmouldentities.h"

#include "host/document.h"
#include "suite/wybase.h"
#include "suite/zeftprojectformat.h"

bool ZEFTMouldEntities::getAllMouldEntities(const wchar_t* listName, AcDbObjectIdArray& ids, AcDbDatabase* db)
{
    ZEFT_GUARD("ZEFTMouldEntities::getAllMouldEntities", false, {
        if (!listName) return false;
        if (!db) db = acdbWorkingDatabase();
        AcDbObjectPointer<AcDbDictionary> lists(zeft_project::namedEntry(db, zeft_project::kMouldDictionary),
                                                AcDb::kForNotify);
        AcDbObjectId listId;
        if (!lists || lists->getAt(listName, listId) != Acad::eOk) return false;
        lists.close();
        ResBufList chain;
        if (!zeft_project::readChain(listId, chain)) return false;
        for (const ResBuf& item : chain)
            if (item.restype == zeft_project::kPointerCode && item.id.isValid() && !item.id.isErased())
                ids.append(item.id);
        return true;
    });
}
