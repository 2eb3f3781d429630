// The host side of a desktop session: the layer manager loaded, one drawing
// open as the current document, command lines run as `zeftlayer run` runs a
// script's lines. No Qt here, so that the window stays a view over it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/zeftlayer/commands.h"

class AcDbDatabase;

namespace zeftcad {

struct EntityRow {
    std::string handle;
    std::wstring className, layer;
    bool paperSpace = false;
};

struct LayerRow {
    std::wstring name;
    bool on = true, frozen = false, locked = false;
    int colour = 7;
};

struct LineOutcome {
    bool command = false;  // the line named a command (not blank, not a comment)
    bool failed = false;
    std::string error;     // "COMMAND: reason" when it failed
};

class Session {
public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Loads the layer manager and registers the host's commands; returns why
    // it failed, or empty.
    std::string start();
    // Opens a drawing in place of the current one, which stays open when this
    // fails; returns why (naming the file), or empty.
    std::string open(const std::string& path, std::vector<std::string>& warnings);
    // An empty drawing without a file.
    void openNew();
    // Writes the drawing atomically; the file becomes the drawing's own
    // (where SAVE and QSAVE write) and it counts as unmodified.
    std::string save(const std::string& path);
    // Runs one line as a line of a script, with the re-layering at command end.
    LineOutcome runLine(const std::wstring& line);

    AcDbDatabase* database() const;
    // Where the drawing is saved; empty for a new drawing.
    std::string path() const;
    // DBMOD of the drawing.
    bool modified() const;
    // Model space, then the current paper space.
    std::vector<EntityRow> entities() const;
    std::vector<LayerRow> layers() const;

private:
    std::unique_ptr<zeftlayer::OpenDrawing> drawing_;
    bool started_ = false;
};

}  // namespace zeftcad
