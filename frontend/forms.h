// Rules that make one executable form of a text.
#pragma once

#include <string>
#include <string_view>

#include "frontend/tree.h"

// Whether the program is one parenthesised form.
bool is_one_form(const tree &t);
// Whether it is one form that is no definition.
bool is_executable_form(const tree &t);
// The text as the arguments of a PROGN; the same for a program.
std::string wrapped(std::string text);
void wrap(tree *t);
