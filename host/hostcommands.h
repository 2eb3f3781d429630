// The host's own drawing and editing commands (LINE, CIRCLE, COPY, LAYER,
// TILEMODE, SAVE, ...) and stand-ins for the suite's other modules'
// commands, run from a script or a command line through
// acedEditor->runCommand. Their answers are described in docs/scripts.md.
#pragma once

#include "host/dbobject.h"

// The group the host's commands are registered in.
inline constexpr const wchar_t* kHostCommandGroup = L"ACAD_HOST";

// Registers the commands once; later calls do nothing.
void acedRegisterHostCommands();

// The answer that cancels a command where it stands, as Escape at a prompt:
// what the command appended so far stays, and commandCancelled is fired.
inline constexpr const wchar_t* kCancelAnswer = L"*cancel*";

// Whether every point of the entity's record (groups 10 to 13 with their y)
// lies in the window, with at least one point.
bool acdbHostPointsInWindow(const AcDbEntity* ent, double x1, double y1, double x2, double y2);
