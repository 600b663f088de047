// A source file on its way to a checked program.
#pragma once

#include <string>
#include <vector>

#include "frontend/tree.h"
#include "kestrin/types.h"
#include "workshop/fault.h"

// Reads a file, "-" for the standard input. False with the reason in `*why`.
bool read_source(const CHR *path, source *into, std::string *why);

struct program {
    tree parsed;
    ULO arguments = 0;         // words that it takes
    std::vector<fault> faults; // none: it can be compiled
};

// Checks a source and leaves its tree, with the place of each node. Wants the language started; the
// functions of the source stay known to later checks. Returns whether there were no faults.
bool check_program(const source &from, program *into);

// Starts the engine and the language, once in a process; a second call does nothing.
struct session;
session &start_workshop();
