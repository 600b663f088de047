// A source file on its way to a checked program.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/check.h"
#include "frontend/lut.h"
#include "frontend/tree.h"
#include "kestrin/types.h"
#include "workshop/fault.h"

// Reads a file, "-" for the standard input. False with the reason in `*why`.
bool read_source(const CHR *path, source *into, std::string *why);

// Whether a file begins as a text does. A NUL is a blank of the language, so it can be a program
// all the same.
bool is_text(std::string_view file);
inline const fault NOT_A_TEXT = {{0, 0}, "is not a source: its first bytes hold NULs"};

// Quotes and parentheses without their partners; none: the text can be taken apart. Wants the
// language started.
std::vector<fault> faults_of_balance(const source &from);

struct program {
    tree parsed;
    ULO arguments = 0;         // words that it takes
    std::vector<fault> faults; // none: it can be compiled
};

// A table of known functions for one check: the instructions and the global functions.
struct known_functions {
    lut *table;
    known_functions();
    ~known_functions();
    known_functions(const known_functions &) = delete;
    known_functions &operator=(const known_functions &) = delete;
};

// What the checker has found in a tree.
std::vector<fault> faults_of(const std::vector<syntax_fault> &found, const tree &t);

// Whether a node of a checked tree defines a function.
bool is_definition(const node &n);

// Checks a source and leaves its tree, with the place of each node, and all its faults: those of
// parentheses first, as others may be their consequences. Wants the
// language started; the functions of the source are entered in the table. Returns whether there
// were no faults.
bool check_program(const source &from, program *into, lut **table);

// Reads of variables that may have no value yet, in a program without faults.
std::vector<fault> find_unset(program checked);

// Starts the engine and the language, once in a process; a second call does nothing.
struct session;
session &start_workshop();

// Makes the functions of a profile known, NULL for the one that the environment names, if any. Once
// in a process, ahead of all checks. Returns the status of a command that goes no further, else
// STATUS_GOOD: a file that can't be read is refused, faults go to `tell`.
using fault_teller = std::function<void(const source &, const std::vector<fault> &)>;
int load_functions(std::string_view command, const CHR *profile, const fault_teller &tell);
