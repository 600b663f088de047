// What the text calls need of the built-in table beyond reading it.
#pragma once

#include "kestrin/types.h"

// Puts the built-in rows in force.
void restore_built_in_isa();
// Whether a mnemonic's string lies in the program's own data, so that it is never freed.
bool is_built_in_mnemonic(const CHR *cell);
