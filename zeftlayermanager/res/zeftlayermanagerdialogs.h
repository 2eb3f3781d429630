// The module's dialog templates: caption, size and controls in dialog units,
// and what the dialogs take from them (texts, geometry in proportion).
#pragma once

#include <QRect>
#include <QSize>
#include <string>
#include <vector>

class QWidget;

struct ZEFTDialogControl {
    int id;
    // What the control is on the template: "static", "edit", "button",
    // "group", "list", "listview" or "ZEFTGridCtrl".
    const wchar_t* kind;
    const wchar_t* text;
    int x, y, w, h;
};

struct ZEFTDialogTemplate {
    int id;
    const wchar_t* caption;
    int width, height;
    std::vector<ZEFTDialogControl> controls;
};

// The template of that number; null when the module has none.
const ZEFTDialogTemplate* zeftDialogTemplate(int id);
// A control of a template; null when the template has no such control.
const ZEFTDialogControl* zeftDialogControl(int templateId, int controlId);

// Dialog units to pixels, from the average character width and the height
// of the widget's font, as the window system of the templates measures them
// (a unit is a quarter of the average width across, an eighth of the height
// down).
class ZEFTDialogUnits {
public:
    explicit ZEFTDialogUnits(const QWidget* widget);
    int x(int units) const;
    int y(int units) const;
    QSize size(int w, int h) const { return {x(w), y(h)}; }
    // A control's size on its template.
    QSize controlSize(int templateId, int controlId) const;
    QSize templateSize(int templateId) const;

private:
    double avgWidth_;
    double height_;
};

namespace WyPrompts {
// Sets the dialog's title and the texts of its controls (found by object
// name) from the template. Texts marked "#" (not yet translated) show without the mark.
void setDialogAndControlText(QWidget* dialog, int templateId, const wchar_t* project);
}  // namespace WyPrompts

// A prompt as a person reads it: the "#" that marks a text not yet
// translated is left out.
std::wstring zeftDisplayText(const std::wstring& prompt);
