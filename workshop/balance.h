// Parentheses without their partners.
#pragma once

#include <vector>

#include "workshop/fault.h"

// The faults of a text whose parentheses are out of balance; none if they are in balance. Quotes
// are in balance in every line.
std::vector<fault> find_unbalanced(std::string_view text);
