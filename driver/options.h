// The command line and the environment of the program.
#pragma once

#include <vector>

#include "driver/session.h"

// All spellings of the options.
std::vector<const CHR *> option_words();

// Reads the nine switches and the path of the configuration profile.
void read_environment(session *s);
// Looks at argv[1], the only place of an option, and sets the mode. Requests that need no program
// end the process, with status 0 if they are proper, else with usage on stderr and status 1.
void scan_options(session *s);
