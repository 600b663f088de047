// Names that may stand for the beginning of one, for the prompt and for editors.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The words of the instruction table, in its order.
std::vector<std::string> instruction_names();

std::string lower_case(std::string_view text);

// A name as it goes on from what was typed of it: in small letters unless that has a capital. Empty
// if the name does not begin so.
std::string completed(std::string_view typed, std::string_view name);
