// Running a program in this process.
#pragma once

#include <functional>
#include <vector>

#include "frontend/tree.h"
#include "workshop/fault.h"

// Checks and runs a source, or a stored program, with these words as they are, prints its value and
// ends the process with the status that kestrin would end it with. Faults go to stderr. Once in a
// process; a child that is to run one calls this. `profile` names a file of global functions; NULL:
// none. `arrange` may change the checked tree of a source.
[[noreturn]] void run_source(const source &from, const std::vector<const CHR *> &words,
                             const CHR *profile, const std::function<void(tree *)> &arrange = {});
