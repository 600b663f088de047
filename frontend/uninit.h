// The flow analysis that warns about variables read before any assignment could have happened.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/tree.h"

// The warnings about a checked program, whole lines; empty if there are none. `name` begins the
// function path in them. With `uses` loops are taken to run at least once, as a reader would; the
// nodes that the warnings are about go there.
std::string kst_uninit_check(std::string_view name, const tree &program,
                             std::vector<node_index> *uses = nullptr);
