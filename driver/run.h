// The run of a linked program.
#pragma once

#include "driver/session.h"
#include "kestrin/value.h"

// Prints a value as the program's: on a line of stdout, an array by its member 0. A text may be
// rewritten for that.
void print_value(kestrin_data *value);
// Runs the program between the unit's callbacks and prints its value. False with a runtime error
// pending.
bool run_to_end(session *s);
// The same; a runtime error ends the process.
void run_program(session *s);
