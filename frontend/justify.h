// The type pass: what can be proved of types goes into the tree as suffixes.
#pragma once

#include "frontend/tree.h"
#include "kestrin/types.h"

// Gives the nodes of a squeezed program the suffixes of their types and returns the type letter of
// the whole: 'I', 'F', 'S', 'Z' or 'U'. `udf_types` is the type context: 0xFF, then for each known
// UDF its name, 0xFE, its letter and 0xFF. Where `made` is not NULL it becomes the context with the
// UDFs that the program defines behind it. Can't fail: where nothing is known nothing is written.
UCH kestrin_justify(tree *t, const CHR *udf_types, CHR **made);
