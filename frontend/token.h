// Token classes: what a token is and the one way in which it may be spelled.
#pragma once

#include <string>
#include <string_view>

#include "kestrin/types.h"

// The first token of a text that has not been proved sound. False, with a syntax error left, if the
// text is out of balance.
bool kestrin_head(std::string_view *token, std::string_view text);

// The strict classifier. Returns 'S', 'P', 'Z', 'V', 'I' or 'F' and appends the token, folded where
// its class folds, to `*out`. Returns 0 for a refused token, with a syntax error of code 2 left and
// `*out` as it was.
UCH kestrin_type(std::string_view token, std::string *out);

// The quick companion for text that is already checked: 'S', 'P', 'U' (a form), 'Z', 'V', 'F' or
// 'I' by the token's first bytes. Never fails.
UCH kestrin_type1(std::string_view token);

// The number that a token begins with, as atol() reads it.
SLO leading_number(std::string_view token);

// Appends the text in upper case, by the mode of names in force.
void append_folded(std::string *out, std::string_view text);

// The type letter of a token's suffix `@X`, 0 if it has none; and the token without it.
CHR suffix_of(std::string_view token);
std::string_view without_suffix(std::string_view token);
