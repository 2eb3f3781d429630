// Documents: one per open drawing, the current document, DBMOD, and the
// system variables the module reads.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/database.h"

class AcApDocument {
public:
    explicit AcApDocument(std::unique_ptr<AcDbDatabase> db) : db_(std::move(db)) {}
    AcDbDatabase* database() const { return db_.get(); }
    std::string fileName() const { return db_->fileName(); }
    // Saves DBMOD; the matching pop restores it, so that internal changes do
    // not count as the user's.
    void pushDbmod() { saved_.push_back(db_->dbmod()); }
    void popDbmod()
    {
        if (saved_.empty()) return;
        db_->setDbmod(saved_.back());
        saved_.pop_back();
    }
    // Viewport that is current: 1 when paper space of a layout is active.
    int cvport() const { return cvport_; }
    void setCvport(int v) { cvport_ = v; }

private:
    std::unique_ptr<AcDbDatabase> db_;
    std::vector<int> saved_;
    int cvport_ = 2;
};

class AcApDocManager {
public:
    AcApDocument* curDocument() const { return current_; }
    AcApDocument* mdiActiveDocument() const { return current_; }
    void setCurDocument(AcApDocument* doc) { current_ = doc; }
    // Opens a drawing as a document; it becomes current.
    AcApDocument* open(std::unique_ptr<AcDbDatabase> db);
    void close(AcApDocument* doc);
    AcApDocument* documentOf(const AcDbDatabase* db) const;
    const std::vector<std::unique_ptr<AcApDocument>>& documents() const { return docs_; }

private:
    std::vector<std::unique_ptr<AcApDocument>> docs_;
    AcApDocument* current_ = nullptr;
};

AcApDocManager* acDocManagerPtr();
#define acDocManager acDocManagerPtr()

// The database commands work on: the current document's.
AcDbDatabase* acdbWorkingDatabase();
void acdbSetWorkingDatabase(AcDbDatabase* db);

// System variables: "TILEMODE", "CVPORT", "DBMOD" of the current document.
bool acedGetVar(const wchar_t* name, ResBuf& value);
bool acedSetVar(const wchar_t* name, const ResBuf& value);
