// The syntax checker: the one pass that can refuse a program. All later passes walk the canonical
// text that it leaves without any further checking.
#pragma once

#include <string_view>

#include "kestrin/types.h"
#include "strings/lut.h"

// Proves that `*text` is a well-formed program and rewrites it to checked text; to the empty string
// for a comment form. `name` begins the function path of messages: "Main", "UDFs_CFG",
// "Main_Modified" (where formal arguments may be assigned) or "Main_Mapcar". `*table` is the table
// of known functions; NULL has it created and the instruction tables tested. UDFs at the top of the
// text are entered in it in the current scope. Returns the number of formal arguments that the text
// needs, or FAILED with the syntax error left.
SLO kestrin_check(CHR **text, std::string_view name, lut **table);
