// Identifiers of the module's dialog templates and of their controls. A
// control's identifier, as a decimal string, is its widget's object name.
#pragma once

#include <QString>

// Dialog templates.
enum : int {
    IDD_LAYER_STANDARD_PAGE = 17506,
    IDD_LAYER_ENUMS_PAGE = 17507,
    IDD_LAYER_FUNCTIONS_PAGE = 17508,
    IDD_SELECT_STRING = 17509,
    IDD_LAYER_EXCEPTIONS_PAGE = 17511,
};

// Controls of the standard page.
enum : int {
    IDC_EDIT_STANDARD_NAME = 17504,
    IDC_GRID_MODEL_RULE = 17505,
    IDC_GRID_DOC_RULE = 17507,
    IDC_GRID_DRAFT_RULE = 17722,
    IDC_STATIC_STANDARD_NAME = 17528,
    IDC_STATIC_MODEL_RULE = 17529,
    IDC_STATIC_DRAFT_RULE = 17530,
    IDC_STATIC_DOC_RULE = 17531,
};

// Controls of the enumerations, functions and exceptions pages.
enum : int {
    IDC_GRID_ENUM_VALUES = 17510,
    IDC_BUT_LAYER_ADD_ENUM = 17511,
    IDC_BUT_LAYER_DEL_ENUM = 17512,
    IDC_LIST_ENUM_NAMES = 17513,
    IDC_LIST_FUNC_NAMES = 17514,
    IDC_BUT_LAYER_ADD_FUNC = 17515,
    IDC_BUT_LAYER_DEL_FUNC = 17516,
    IDC_GRID_FUNC_VALUES = 17517,
    IDC_GRID_EXCEPTIONS = 17518,
};

// Controls of the function picker; OK and Cancel keep the system's numbers.
enum : int {
    IDC_LIST_SELECT_STRING = 17506,
    IDC_GROUP_SELECT_HELP = 17723,
    IDC_STATIC_SELECT_HELP = 17724,
    IDC_STATIC_SELECT_LABEL = 17725,
    IDC_BUTTON_OK = 1,
    IDC_BUTTON_CANCEL = 2,
    IDC_BUTTON_HELP = 9,
};

inline QString zeftControlName(int id) { return QString::number(id); }
