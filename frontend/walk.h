// Head and tail of text that has not been proved sound.
#pragma once

#include "strings/tokens.h"

// The first token of a text, and what follows it without leading blanks. On unbalanced text a
// syntax error is left and the result is false.
bool kestrin_head(std::string_view *token, std::string_view text);
bool kestrin_tail(std::string_view *rest, std::string_view text);
