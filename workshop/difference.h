// What differs between two texts, line by line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The lines of a text, each with its newline; the last one may have none.
std::vector<std::string_view> lines_of(std::string_view text);

// Lines of `wanted` alone behind "-", lines of `got` alone behind "+", two lines around them behind
// " ", and how many are left out. Control bytes are shown as escapes.
std::vector<std::string> difference(std::string_view wanted, std::string_view got);
