// The numbering of a function's variables.
#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

#include "frontend/walk.h"
#include "kestrin/types.h"

// Slots of one function: the formal arguments up to the highest one used, then the variables in
// order of first appearance. A variable is its token, suffix included: X and X@I are two slots.
struct varlist {
    ULO arguments = 0;
    std::vector<std::string_view> names;               // from slot `arguments` on
    std::unordered_map<std::string_view, ULO> numbers; // of `names`
    ULO slots() const { return arguments + names.size(); }
};

// Numbers the variables of the form text[from, to), definitions in it left out. `table` holds the
// brackets of the text, which the list refers to. Returns the number of slots.
ULO build_varlist(std::string_view text, const brackets &table, ULO from, ULO to, varlist *list);
