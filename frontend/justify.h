// The type pass: what can be proved of types goes into the tree as suffixes.
#pragma once

#include <span>
#include <vector>

#include "frontend/tree.h"
#include "kestrin/types.h"
#include "vm/engine.h"

// Gives the nodes of a squeezed program the suffixes of their types and returns the type letter of
// the whole: 'I', 'F', 'S', 'Z' or 'U'. `context` is the UDFs that are known; where `made` is not
// NULL, those that the program defines are added to it. Can't fail: where nothing is known nothing
// is written.
UCH kestrin_justify(tree *t, std::span<const udf_letter> context, std::vector<udf_letter> *made);
