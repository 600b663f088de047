// Flattening of nested PROGN statements.
#pragma once

#include "kestrin/types.h"

// Removes the PROGN statements in `*text` that nesting and the driver's rewrites have piled up, and
// returns how many went (the count may wrap: putting one back around a UDF's body counts against
// it).
// `*text` is a form of checked text. Afterwards a UDF's body is one form that is no definition; the
// text as a whole may become a bare token.
ULO progn_squeeze(CHR **text);
