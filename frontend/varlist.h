// The numbering of a function's variables.
#pragma once

#include <vector>

#include "frontend/scoped.h"
#include "frontend/tree.h"
#include "kestrin/types.h"

// Slots of the function being compiled: the formal arguments up to the highest one used, then the
// variables in order of first appearance. A variable is its token, suffix included: X and X@I are
// two slots. Numberings nest as the functions do.
class varlist {
public:
    // Numbers the variables of a form, definitions in it left out, until leave(). Returns the
    // number of slots.
    ULO build_varlist(const tree &t, node_index form);
    void leave() { numbers_.leave(); }

    // Of the form last numbered: the formal arguments, and the names of the variables behind them,
    // without suffixes.
    ULO arguments() const { return arguments_; }
    const std::vector<name_id> &variables() const { return variables_; }

    // Finds the place of a variable behind the formal arguments. False if it is not in the list.
    bool find(const node &variable, ULO *place) const;

private:
    void walk_form(const tree &t, node_index form);

    ULO arguments_ = 0;
    std::vector<name_id> variables_;
    scoped<std::uint32_t> numbers_; // from 1
};
