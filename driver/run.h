// The run of a linked program.
#pragma once

#include "driver/session.h"

// Runs the program between the unit's callbacks and prints its value. False with a runtime error
// pending.
bool run_to_end(session *s);
// The same; a runtime error ends the process.
void run_program(session *s);
