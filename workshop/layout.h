// The one layout of a source text.
#pragma once

#include <string>
#include <string_view>

// The text laid out anew. Its tokens, comments and strings are what they were, and so is the tree
// that the language makes of it. A layout laid out is the same. Quotes and parentheses of the text
// are in balance.
//
// A form stands on one line if it ends by column 100. Of a wider one the first words stand on one
// line and each further argument on a line of its own, indented by two. A form whose arguments are
// to be done (PROGN, IF, WHILE, FOR, a definition) also stays open where its author has begun one
// on a new line. An empty line between such arguments, or between forms of the program, stays, of
// several one. A comment behind something stays behind it, in one column with those of the lines
// around it; a comment form is taken over byte for byte.
std::string laid_out(std::string_view text);
