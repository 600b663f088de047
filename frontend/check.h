// The syntax checker: the one pass that can refuse a program. All later passes walk the tree that
// it leaves without any further checking.
#pragma once

#include <string_view>

#include "frontend/lut.h"
#include "frontend/tree.h"
#include "kestrin/types.h"

// Proves that `source` is a well-formed program and adds its tree to `*t`; `*root` is NO_NODE for a
// comment form. `place` is where `source` stands in the joined text of its file. `name` begins the
// function path of messages: "Main", "UDFs_CFG", "Main_Modified" (where formal arguments may be
// assigned) or "Main_Mapcar". `*table` is the table of known functions; NULL has it created and the
// instruction tables tested. UDFs at the top of the text are entered in it in the current scope.
// Returns the number of formal arguments that the text needs, or FAILED with the syntax error left.
SLO kestrin_check(tree *t, node_index *root, std::string source, SLO place, std::string_view name,
                  lut **table);
