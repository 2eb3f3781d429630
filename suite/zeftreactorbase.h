// Reactor bases: attach a module's editor reactor to the editor and its
// database reactor to every drawing, open now or opened later.
#pragma once

#include "host/database.h"
#include "host/editor.h"

class ZEFTEditorReactorBase : public AcEditorReactor2 {
public:
    // With autoAttach the reactor joins the editor at once.
    explicit ZEFTEditorReactorBase(bool autoAttach = true);
    ~ZEFTEditorReactorBase() override;
    ZEFTEditorReactorBase(const ZEFTEditorReactorBase& other);
    ZEFTEditorReactorBase& operator=(const ZEFTEditorReactorBase& other);
    void attach();
    void detach();
    bool isAttached() const { return attached_; }

private:
    bool attached_ = false;
};

class ZEFTDatabaseReactorBase : public AcDbDatabaseReactor {
public:
    ZEFTDatabaseReactorBase();
    ~ZEFTDatabaseReactorBase() override;
    ZEFTDatabaseReactorBase(const ZEFTDatabaseReactorBase&) = delete;
    ZEFTDatabaseReactorBase& operator=(const ZEFTDatabaseReactorBase&) = delete;
    void goodbye(const AcDbDatabase* db) override;

private:
    int listener_ = 0;
};
