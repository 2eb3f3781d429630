// The module's texts, by prompt number.
#include "zeftlayermanager/res/zeftlayermanagerprompts.h"

const std::map<int, std::wstring>& zeftLayerManagerPrompts()
{
    static const std::map<int, std::wstring> prompts = {
        {17701, L"zeftstandardcalque"},
        {17702, L"Annuler"},
        {17703, L"Aide"},
        {17704, L"Standard de noms de calques"},
        {17705, L"Champ"},
        {17706, L"Fonction"},
        {17707, L"Valeurs par d\u00E9faut"},
        {17708, L"Objet"},
        {17709, L"Valeur"},
        {17710, L"Aller \u00E0..."},
        {17711, L"#Saved standard does not apply to the current drawing.\n"
                L"D\u00E9marrer un nouveau dessin pour prendre en compte le nouveau standard."},
        {17712, L"Valeurs par d\u00E9faut"},
        {17714, L"[Layer_Standard]\n"
                L"Name=Beltrix\n"
                L"\n"
                L"[Model_Rules]\n"
                L"Name_1=Building Name\n"
                L"Field_1==BUILDING()\n"
                L"Name_2=Level / View name\n"
                L"Field_2==LEVEL/VIEW()\n"
                L"[Draft_Rules]\n"
                L"Name_1=Building Name\n"
                L"Field_1==BUILDING()\n"
                L"Name_2=Level / View name\n"
                L"Field_2==LEVEL/VIEW()\n"
                L"Name_3=Element Type\n"
                L"Field_3==GENERAL TYPE()\n"
                L"\n"
                L"[Doc_Rules]\n"
                L"Name_1=User defined\n"
                L"Field_1=CalquePlans\n"
                L"\n"
                L"[Exceptions]\n"
                L"Key_1=ZEFTGridRectangularE\n"
                L"Value_1=Trame\n"
                L"Key_2=AcDbViewport\n"
                L"Value_2=Frames\n"
                L"[Separator]\n"
                L"Value=. \n"
                L"WhiteSpaceAfter=1\n"},
        {17716, L"Etes-vous s\u00FBr de vouloir supprimer?"},
        {17717, L"Beltrix gestion des calques"},
        {17718, L"Ce nom est d\u00E9j\u00E0 utilis\u00E9."},
        {17719, L"#paper elements"},
        {17720, L"#viewport frames"},
        {17721, L"#Save as..."},
        {17722, L"Represents the name of element's building."},
        {17723, L"Represents the name of element's group.\nLike reinforcement or drawing elements."},
        {17724, L"A code for each entity type."},
        {17725, L"If the entity is part of a level than it is the  level name.\nOtherwise is nothing."},
        {17726, L"If the entity is part of a level it is the level name.\nIf the entity is part of a drawing it is "
                L"the drawing name.\nOtherwise is nothing."},
        {17727, L"Represents the name of element's project."},
        {17728, L"Represents the element's projection."},
        {17729, L"If the entity is part of a drawing than it is drawing name.\nOtherwise nothing."},
        {17730, L"If the entity is part of a drawing than it is drawing type.\nOtherwise nothing."},
        {17731, L"Custon user function."},
        {17732, L"If entity is part of a layout than it is layout name.\nOtherwise nothing."},
        // Texts of this build beyond the original table: the reason a save failed.
        {17740, L"Le fichier %1 n'a pas pu \u00EAtre enregistr\u00E9 :\n%2"},
    };
    return prompts;
}
