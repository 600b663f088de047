// Handlers of the leaves of the code: constants and variable reads. They alone test for a pending
// error on entry.
#pragma once

#include "kestrin/value.h"

#define LEAF(name) void func__##name(const ULO *dat_ptr, kestrin_data *ret_dat)

LEAF(dummy_i); // integer constant
LEAF(dummy_f); // float constant
LEAF(dummy_s); // string constant, a counted string in place; published too
LEAF(dummy_z); // nil

// Variable reads: an alias into a borrowing slot, a deep copy into an owning one. The typed ones
// are for variables whose type is proved.
LEAF(getval);
LEAF(getval_i);
LEAF(getval_f);
LEAF(getval_s);
LEAF(getval_z);
LEAF(getval_last); // a local variable that the function answers: its value moves, its frame ends
LEAF(getval_ptr);  // an alias whatever the slot: a plain variable passed to a UDF

#undef LEAF
