// The terminal as eleven values: name, size and control strings, from the termcap database or from
// the built-in entry where the database has nothing. The driver binds them into every program, the
// *_TERM instructions read them at run time. One row of terminal.def holds all about a value.
#pragma once

#include "kestrin/types.h"

// All state of the terminal, process-wide and without a lock. The strings are counted strings that
// live as long as the process; they are NULL before the first term_init().
struct terminal_record {
#define TERM_NAME(name, standard) CHR *name = nullptr;
#define TERM_NUMBER(name, capability, standard, few, least, what) SSH name = 0;
#define TERM_STRING(name, capability, standard, what) CHR *name = nullptr;
#include "terminal/terminal.def"
#undef TERM_NAME
#undef TERM_NUMBER
#undef TERM_STRING
    CHR *init_status = nullptr;   // report of the last term_init(), a counted string
    CHR *reinit_status = nullptr; // report of the last term_reinit(); NULL after term_init()
    bool loaded = false;
    bool warning = false;  // a default or a limit took effect in the last term_init() or _reinit()
    bool wants_tty = true; // term_init() opens /dev/tty
    int tty = 2;           // descriptor for keys and window size

    // For modules that must serialise terminal work; NULL are not called. The first gets the
    // argument of term_init() or term_reinit(), the third gets 0.
    void (*before_init)(const CHR *argument) = nullptr;
    void (*after_init)() = nullptr;
    void (*before_cursor)(const CHR *argument) = nullptr;
    void (*after_cursor)() = nullptr;
};

extern constinit terminal_record terminal;

// Loads all values for the terminal type `name`, a NUL-terminated text that may lie in the record;
// NULL or empty: for the type that the environment names in TERM. Never fails: every shortfall has
// a default and a line in `init_status`. Opens /dev/tty anew; an earlier descriptor stays open.
void term_init(const CHR *name);
// Reads the window size alone and reports in `reinit_status`. `argument` goes to the hook only.
// Does term_init() instead if that was not done yet.
void term_reinit(const CHR *argument);

// Makes `*targ` the cursor string for line y, column x, both counted from 0, and returns it. If one
// of them is negative it is the template GOTOCURSOR_TERM as it stands.
CHR *term_pre_gotoYX(CHR **targ, SSH y, SSH x);
// The same for the template that `*targ` holds, which ends at its first NUL; NULL stays NULL.
CHR *term_pre_goto1YX(CHR **targ, USH y, USH x);
