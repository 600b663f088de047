// The start of the process: what must hold before a program is read.
#pragma once

#include "driver/session.h"

// Opens those of the descriptors 0 to 2 that are closed on the null device: a file gets the lowest
// number that is free, and what a program opens first would get its output.
void fill_standard_descriptors();
// A second _Main_ in a process ends it.
void guard_against_reentry();
// The thread's blocks, the process record, what the environment says.
void start_engine(session *s);
// The words of the language and the terminal's values; a talking run tells its settings.
void start_language(session *s);
