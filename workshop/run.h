// Running a program in this process.
#pragma once

#include <functional>
#include <vector>

#include "driver/session.h"
#include "frontend/tree.h"
#include "workshop/fault.h"
#include "workshop/verb.h"

// A program and its words, as a command has them.
struct program_call {
    std::string_view command; // that faults of its words are told by, "kst run"
    source from = {};
    std::vector<const CHR *> words = {};
    const CHR *profile = nullptr; // file of global functions; NULL: none
};

// What may be changed of a run: the checked tree of a source, and how linked code is run, which
// returns what run_to_end() does. `set` is the source of its global functions.
struct run_hooks {
    std::function<void(tree *)> arrange = {};
    std::function<bool(session *, const source &set)> run = {};
};

// Checks and runs a source, or a stored program, with its words as they are, prints its value and
// ends the process with the status that kestrin would end it with. Faults go to stderr. Once in a
// process; a child that is to run one calls this.
[[noreturn]] void run_source(const program_call &called, const run_hooks &hooks = {});

// What commands take that run a program: FILE [WORD ...], or -e TEXT [WORD ...].
inline constexpr option TEXT_OPTION = {"-e", "TEXT",
                                       "the program is TEXT; all that follows are its words"};
// `called` has its command. False with the reason if the file can't be read.
bool read_program(const request &asked, program_call *called, std::string *why);
// The same of a program that is watched: a stored one tells no lines.
bool read_source_program(const request &asked, program_call *called, std::string *why);

// Opens where a report of the run goes, the standard error if `path` is NULL and the standard
// output if it is "-"; for a program that is sound. What can't be written, or is a file of the
// program, ends the process as a misuse.
FILE *open_report(const program_call &called, const CHR *path);
// False, and said so, if not all of it could be written.
bool finish_report(std::string_view command, FILE *file);
