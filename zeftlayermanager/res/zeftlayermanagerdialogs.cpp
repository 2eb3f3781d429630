#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"

#include <QAbstractButton>
#include <QFontMetricsF>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QWidget>
#include <cmath>

#include "zeftlayermanager/res/zeftlayermanagerresource.h"

namespace {

const std::vector<ZEFTDialogTemplate>& templates()
{
    static const std::vector<ZEFTDialogTemplate> all = {
        {IDD_LAYER_STANDARD_PAGE,
         L"Standard",
         377,
         206,
         {
             {IDC_STATIC_STANDARD_NAME, L"static", L"Nom du standard :", 19, 18, 71, 8},
             {IDC_EDIT_STANDARD_NAME, L"edit", L"", 101, 15, 138, 13},
             {IDC_STATIC_MODEL_RULE, L"static", L"Mod\u00E8le, ferraillage et cotations :", 13, 41, 126, 9},
             {IDC_GRID_MODEL_RULE, L"ZEFTGridCtrl", L"Model Rule", 5, 52, 365, 26},
             {IDC_STATIC_DRAFT_RULE, L"static", L"Vues calcul\u00E9es :", 13, 95, 111, 9},
             {IDC_GRID_DRAFT_RULE, L"ZEFTGridCtrl", L"Draft Rule", 5, 106, 365, 26},
             {IDC_STATIC_DOC_RULE, L"static", L"Documents:", 13, 149, 80, 9},
             {IDC_GRID_DOC_RULE, L"ZEFTGridCtrl", L"Doc Rule", 5, 160, 365, 26},
         }},
        {IDD_LAYER_ENUMS_PAGE,
         L"Champs",
         295,
         190,
         {
             {IDC_LIST_ENUM_NAMES, L"listview", L"List1", 7, 7, 117, 161},
             {IDC_GRID_ENUM_VALUES, L"ZEFTGridCtrl", L"Enum. values", 142, 7, 138, 180},
             {IDC_BUT_LAYER_ADD_ENUM, L"button", L"Ajouter", 7, 172, 53, 15},
             {IDC_BUT_LAYER_DEL_ENUM, L"button", L"Supprimer", 71, 172, 53, 15},
         }},
        {IDD_LAYER_FUNCTIONS_PAGE,
         L"Fonctions",
         361,
         190,
         {
             {IDC_LIST_FUNC_NAMES, L"listview", L"List1", 7, 7, 117, 160},
             {IDC_GRID_FUNC_VALUES, L"ZEFTGridCtrl", L"Function values", 142, 7, 212, 180},
             {IDC_BUT_LAYER_ADD_FUNC, L"button", L"Ajouter", 7, 172, 53, 15},
             {IDC_BUT_LAYER_DEL_FUNC, L"button", L"Supprimer", 71, 172, 53, 15},
         }},
        {IDD_SELECT_STRING,
         L"S\u00E9lection",
         200,
         186,
         {
             {IDC_STATIC_SELECT_LABEL, L"static", L"S\u00E9lecter la fonction:", 7, 7, 186, 8},
             {IDC_LIST_SELECT_STRING, L"list", L"", 7, 18, 186, 88},
             {IDC_GROUP_SELECT_HELP, L"group", L"Aide", 7, 110, 186, 50},
             {IDC_STATIC_SELECT_HELP, L"static", L"", 13, 121, 174, 34},
             {IDC_BUTTON_OK, L"button", L"OK", 89, 165, 50, 14},
             {IDC_BUTTON_CANCEL, L"button", L"Annuler", 143, 165, 50, 14},
         }},
        {IDD_LAYER_EXCEPTIONS_PAGE,
         L"Exceptions",
         243,
         191,
         {
             {IDC_GRID_EXCEPTIONS, L"ZEFTGridCtrl", L"Exception values", 7, 7, 212, 180},
         }},
    };
    return all;
}

}  // namespace

const ZEFTDialogTemplate* zeftDialogTemplate(int id)
{
    for (const ZEFTDialogTemplate& t : templates())
        if (t.id == id) return &t;
    return nullptr;
}

const ZEFTDialogControl* zeftDialogControl(int templateId, int controlId)
{
    const ZEFTDialogTemplate* t = zeftDialogTemplate(templateId);
    if (!t) return nullptr;
    for (const ZEFTDialogControl& c : t->controls)
        if (c.id == controlId) return &c;
    return nullptr;
}

ZEFTDialogUnits::ZEFTDialogUnits(const QWidget* widget)
{
    const QFontMetricsF metrics(widget->font());
    static const QString alphabet = QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
    avgWidth_ = metrics.horizontalAdvance(alphabet) / alphabet.size();
    height_ = metrics.height();
}

int ZEFTDialogUnits::x(int units) const { return int(std::lround(units * avgWidth_ / 4.0)); }
int ZEFTDialogUnits::y(int units) const { return int(std::lround(units * height_ / 8.0)); }

QSize ZEFTDialogUnits::controlSize(int templateId, int controlId) const
{
    const ZEFTDialogControl* c = zeftDialogControl(templateId, controlId);
    return c ? size(c->w, c->h) : QSize();
}

QSize ZEFTDialogUnits::templateSize(int templateId) const
{
    const ZEFTDialogTemplate* t = zeftDialogTemplate(templateId);
    return t ? size(t->width, t->height) : QSize();
}

std::wstring zeftDisplayText(const std::wstring& prompt)
{
    return !prompt.empty() && prompt[0] == L'#' ? prompt.substr(1) : prompt;
}

void WyPrompts::setDialogAndControlText(QWidget* dialog, int templateId, const wchar_t* project)
{
    (void)project;  // the templates' texts are this module's own
    const ZEFTDialogTemplate* t = zeftDialogTemplate(templateId);
    if (!dialog || !t) return;
    dialog->setWindowTitle(QString::fromStdWString(zeftDisplayText(t->caption)));
    for (const ZEFTDialogControl& c : t->controls) {
        QWidget* w = dialog->findChild<QWidget*>(zeftControlName(c.id));
        if (!w) continue;
        const QString text = QString::fromStdWString(zeftDisplayText(c.text));
        if (auto* label = qobject_cast<QLabel*>(w))
            label->setText(text);
        else if (auto* button = qobject_cast<QAbstractButton*>(w))
            button->setText(text);
        else if (auto* group = qobject_cast<QGroupBox*>(w))
            group->setTitle(text);
        else if (auto* edit = qobject_cast<QLineEdit*>(w))
            edit->setText(text);
        else
            w->setAccessibleName(text);  // lists and grids: their name for assistive tools
    }
}
