// The test of the instruction tables, which also makes the table of known functions.
#pragma once

#include "frontend/lut.h"
#include "kestrin/types.h"

// Enters every mnemonic with its operand count in scope 0 and tests every row; then opens scope 1.
// Returns 0, or FAILED with a syntax error of code 5 left: a fault in a unit's table.
SLO check_instruction_tables(lut **table);
// Enters them untested, in scope 0: for code that comes without a text.
void enter_instructions(lut **table);
