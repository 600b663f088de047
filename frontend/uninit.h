// The flow analysis that warns about variables read before any assignment could have happened.
#pragma once

#include <string>
#include <string_view>

#include "frontend/tree.h"

// The warnings about a checked program, whole lines; empty if there are none. `name` begins the
// function path in them.
std::string kst_uninit_check(std::string_view name, const tree &program);
