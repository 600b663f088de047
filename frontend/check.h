// The syntax checker: the one pass that can refuse a program. All later passes walk the tree that
// it leaves without any further checking.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/lut.h"
#include "frontend/syntax.h"
#include "frontend/tree.h"
#include "kestrin/types.h"

// A fault of a program that stands at a node.
struct syntax_fault {
    syntax id;
    std::vector<std::string> parts; // of its message
    node_index node;
};

// Proves that `source` is a well-formed program and adds its tree to `*t`; `*root` is NO_NODE for a
// comment form. `source` has no blanks around it and stands at `place` in the joined text of its
// file. `name` begins the function path of messages: "Main", "UDFs_CFG", "Main_Modified" (where
// formal arguments may be assigned) or "Main_Mapcar". `*table` is the table of known functions;
// NULL has it created and the instruction tables tested. UDFs at the top of the text are entered in
// it in the current scope. Returns the number of formal arguments that the text needs, or FAILED
// with the syntax error left. With `faults` the check goes on behind an error of a form and adds
// all that it finds in a text in balance, in order, and the tree and the table are of no use after
// a failure.
SLO kestrin_check(tree *t, node_index *root, std::string source, SLO place, std::string_view name,
                  lut **table, std::vector<syntax_fault> *faults = nullptr);
