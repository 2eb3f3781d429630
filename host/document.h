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
    // Where SAVE and QSAVE write: set by the front end, else the file read.
    std::string savePath() const { return savePath_.empty() ? fileName() : savePath_; }
    void setSavePath(std::string path) { savePath_ = std::move(path); }
    // The pick-first selection (see acedSSGetFirst).
    AcDbObjectIdArray& pickFirst() { return pickFirst_; }

private:
    std::unique_ptr<AcDbDatabase> db_;
    std::vector<int> saved_;
    int cvport_ = 2;
    std::string savePath_;
    AcDbObjectIdArray pickFirst_;
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

// The pick-first selection of the current document: what the user selected
// before starting a command. Setting it keeps the entities of the current
// drawing, each once; getting it leaves out entities erased since. False
// when no document is open.
bool acedSSSetFirst(const AcDbObjectIdArray& ids);
bool acedSSGetFirst(AcDbObjectIdArray& ids);
