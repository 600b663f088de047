// The run of a linked program.
#pragma once

#include "driver/session.h"

// Runs the program between the unit's callbacks and prints its value. A runtime error ends the
// process.
void run_program(session *s);
