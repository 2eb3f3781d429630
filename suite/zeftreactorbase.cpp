#include "suite/zeftreactorbase.h"

ZEFTEditorReactorBase::ZEFTEditorReactorBase(bool autoAttach)
{
    if (autoAttach) attach();
}

ZEFTEditorReactorBase::~ZEFTEditorReactorBase() { detach(); }

// A copy is a reactor of its own: it attaches as the original was.
ZEFTEditorReactorBase::ZEFTEditorReactorBase(const ZEFTEditorReactorBase& other) : AcEditorReactor2(other)
{
    if (other.attached_) attach();
}

ZEFTEditorReactorBase& ZEFTEditorReactorBase::operator=(const ZEFTEditorReactorBase& other)
{
    if (other.attached_) attach();
    else detach();
    return *this;
}

void ZEFTEditorReactorBase::attach()
{
    acedEditor->addReactor(this);
    attached_ = true;
}

void ZEFTEditorReactorBase::detach()
{
    acedEditor->removeReactor(this);
    attached_ = false;
}

ZEFTDatabaseReactorBase::ZEFTDatabaseReactorBase()
{
    for (AcDbDatabase* db : AcDbDatabase::hostAllDatabases()) db->addReactor(this);
    listener_ = AcDbDatabase::hostAddCreationListener([this](AcDbDatabase* db) { db->addReactor(this); });
}

ZEFTDatabaseReactorBase::~ZEFTDatabaseReactorBase()
{
    AcDbDatabase::hostRemoveCreationListener(listener_);
    for (AcDbDatabase* db : AcDbDatabase::hostAllDatabases()) db->removeReactor(this);
}

void ZEFTDatabaseReactorBase::goodbye(const AcDbDatabase* db) { const_cast<AcDbDatabase*>(db)->removeReactor(this); }
