// The flow analysis that warns about variables read before any assignment could have happened.
#pragma once

#include <string>
#include <string_view>

// The warnings about a checked text, whole lines; empty if there are none. `name` begins the
// function path in them.
std::string kst_uninit_check(std::string_view name, std::string_view text);
