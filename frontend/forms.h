// Rules that make one executable form of a text.
#pragma once

#include <string>
#include <string_view>

// Whether the text is one parenthesised form.
bool is_one_form(std::string_view text);
// Whether it is one form that is no definition.
bool is_executable_form(std::string_view text);
// The text as the one argument list of a PROGN.
std::string wrapped(std::string_view text);
