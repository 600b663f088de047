// Running a program in this process.
#pragma once

#include <vector>

#include "workshop/fault.h"

// Checks and runs a source, or a stored program, with these words as they are, prints its value and
// ends the process with the status that kestrin would end it with. Faults go to stderr. Once in a
// process; a child that is to run one calls this. `profile` names a file of global functions; NULL:
// none.
[[noreturn]] void run_source(source from, const std::vector<const CHR *> &words,
                             const CHR *profile);
