// Where a run has failed, and the calls that led there.
#pragma once

#include <cstdio>

#include "driver/session.h"
#include "vm/trail.h"
#include "workshop/fault.h"

// Prints the pending runtime error as a fault of the source, and below it each call that it has
// ended, innermost first. The session's places say what of the code comes from where; of a stored
// program nothing is known but the error's own text. `set` is the source of the global functions.
void print_runtime_error(FILE *stream, const session &s, const source &from,
                         const error_trail &trail, const source &set);
