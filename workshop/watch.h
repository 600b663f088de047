// Values of single forms of a program, told while it runs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/tree.h"

struct form_value {
    ULO number;       // of the form among the watched ones, from 1
    CHR type;         // as the language's TYPE tells it
    std::string text; // as far as the value has one
};

// Changes a checked program so that it writes the values of its forms that begin at these places to
// a descriptor. The forms, their effects and the program's value stay as they are; a definition has
// no value.
void watch_forms(tree *checked, const std::vector<file_place> &places, int descriptor);

// Takes apart what such a program has written, up to what is cut off.
std::vector<form_value> values_of(std::string_view written);
