#include "host/document.h"

#include <algorithm>
#include <cwctype>

namespace {
AcDbDatabase* gWorking = nullptr;
}

AcApDocManager* acDocManagerPtr()
{
    static AcApDocManager mgr;
    return &mgr;
}

AcApDocument* AcApDocManager::open(std::unique_ptr<AcDbDatabase> db)
{
    docs_.push_back(std::make_unique<AcApDocument>(std::move(db)));
    current_ = docs_.back().get();
    current_->setCvport(current_->database()->tilemode() == 0 ? 1 : 2);
    return current_;
}

void AcApDocManager::close(AcApDocument* doc)
{
    if (doc && doc->database() == gWorking) gWorking = nullptr;
    auto it = std::find_if(docs_.begin(), docs_.end(), [&](auto& d) { return d.get() == doc; });
    if (it == docs_.end()) return;
    if (current_ == doc) current_ = nullptr;
    docs_.erase(it);
    if (!current_ && !docs_.empty()) current_ = docs_.back().get();
}

AcApDocument* AcApDocManager::documentOf(const AcDbDatabase* db) const
{
    for (auto& d : docs_)
        if (d->database() == db) return d.get();
    return nullptr;
}

AcDbDatabase* acdbWorkingDatabase()
{
    if (gWorking) return gWorking;
    AcApDocument* doc = acDocManager->curDocument();
    return doc ? doc->database() : nullptr;
}

void acdbSetWorkingDatabase(AcDbDatabase* db) { gWorking = db; }

bool acedGetVar(const wchar_t* name, ResBuf& value)
{
    AcApDocument* doc = acDocManager->curDocument();
    if (!doc) return false;
    std::wstring n = acdbToUpper(name ? name : L"");
    if (n == L"TILEMODE") value = ResBuf::int16(5003, std::int16_t(doc->database()->tilemode()));
    else if (n == L"CVPORT") value = ResBuf::int16(5003, std::int16_t(doc->cvport()));
    else if (n == L"DBMOD") value = ResBuf::int16(5003, std::int16_t(doc->database()->dbmod() ? 1 : 0));
    else return false;
    return true;
}

bool acedSetVar(const wchar_t* name, const ResBuf& value)
{
    AcApDocument* doc = acDocManager->curDocument();
    if (!doc) return false;
    std::wstring n = acdbToUpper(name ? name : L"");
    if (n == L"TILEMODE") {
        doc->database()->setTilemode(value.rint() ? 1 : 0);
        doc->setCvport(value.rint() ? 2 : 1);
    } else if (n == L"CVPORT") {
        doc->setCvport(value.rint());
    } else {
        return false;
    }
    return true;
}

bool acedSSSetFirst(const AcDbObjectIdArray& ids)
{
    AcApDocument* doc = acDocManager->curDocument();
    if (!doc) return false;
    AcDbObjectIdArray& sel = doc->pickFirst();
    sel.clear();
    for (AcDbObjectId id : ids)
        if (id.database() == doc->database() && AcDbEntity::cast(id.object()) && !sel.contains(id)) sel.append(id);
    return true;
}

bool acedSSGetFirst(AcDbObjectIdArray& ids)
{
    ids.clear();
    AcApDocument* doc = acDocManager->curDocument();
    if (!doc) return false;
    std::erase_if(doc->pickFirst(), [](const AcDbObjectId& id) { return !id.isValid() || id.isErased(); });
    ids = doc->pickFirst();
    return true;
}
