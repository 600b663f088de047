// Flattening of nested PROGN statements.
#pragma once

#include "frontend/tree.h"
#include "kestrin/types.h"

// Removes the PROGN statements that nesting and the driver's rewrites have piled up, and returns
// how many went (the count may wrap: putting one back around a UDF's body counts against it). The
// tree is one form of checked text. Afterwards a UDF's body is one form that is no definition; the
// whole may become a bare token.
ULO progn_squeeze(tree *t);
// The same for a text, a counted string.
ULO progn_squeeze(CHR **text);
