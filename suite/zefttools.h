// The tools library's layer locking, command and system-variable queries and
// message boxes, as the suite's modules call them.
#pragma once

#include <functional>
#include <string>

#include "host/dbobject.h"

class AcDbDatabase;

class ZEFTLayerTools {
public:
    // The locked layers of the working database.
    static void getLokedLayers(AcDbObjectIdArray& layers);
    // Sets or clears the locked flag of each layer; a layer already in the
    // wanted state is not opened for write.
    static void lockLayers(const AcDbObjectIdArray& layers, bool lock);
};

class ZEFTAcadSystemTools {
public:
    // A system variable of the current document ("TILEMODE", "CVPORT", ...).
    static bool getSysVar(const wchar_t* name, ResBuf& value);
    // Whether commandName is the command `command`: the whole name, without
    // regard to case, a leading '.' or '_' ignored.
    static bool isCommand(const wchar_t* commandName, const wchar_t* command);
};

// Message box flags the suite's modules pass.
enum : unsigned {
    MB_OK = 0x0,
    MB_OKCANCEL = 0x1,
    MB_YESNOCANCEL = 0x3,
    MB_YESNO = 0x4,
    MB_ICONERROR = 0x10,
    MB_ICONQUESTION = 0x20,
    MB_ICONEXCLAMATION = 0x30,
    MB_ICONINFORMATION = 0x40,
};
enum : int { IDOK = 1, IDCANCEL = 2, IDYES = 6, IDNO = 7 };

class ZEFTUITools {
public:
    // Shows a message box with the caption "Beltrix gestion des calques" and
    // answers the button pressed. Without a window (headless runs) the text
    // is printed on the command line and the first button is the answer.
    static int MessageBoxW(const std::wstring& text, unsigned flags, void* parent = nullptr);
    // Who shows message boxes: a window front end or a test. The handler gets
    // the caption, the text and the flags and answers a button id.
    using Handler = std::function<int(const std::wstring& caption, const std::wstring& text, unsigned flags)>;
    static void setMessageBoxHandler(Handler handler);
};

class ZEFTHelpTools {
public:
    // Opens the topic of a help book. Without a window front end the
    // request is printed on the command line.
    static void Help(int book, int topic);
    // Who shows help: a window front end or a test.
    using Handler = std::function<void(int book, int topic)>;
    static void setHelpHandler(Handler handler);
};

// The automatic-test export mode of the suite: while on, command ends
// re-layer nothing. Off unless a caller turns it on (or ZEFT_AT_EXPORT=1).
namespace WyAutoTestUtils {
bool IsATExport();
void SetATExport(bool on);
}  // namespace WyAutoTestUtils
