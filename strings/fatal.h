// The one fatal report. Beneath everything else, so that any layer can end the process when it runs
// out of memory or is misused; only this and driver/ ever do.
#pragma once

#include "kestrin/types.h"

// Where a fatal report comes from. Module, function and location are interface: what has a number
// keeps it. 120 and up are free.
struct fatal_site {
    const CHR *module;
    const CHR *function;
    ULO location;
};

// Tells a site, in the source that uses it: `site::id` from there on. All sites of a program lie
// in one section, where a test finds them and compares them with the list of those that are known;
// the alignment keeps them side by side.
#define FATAL_SITE(id, module, function, location)                                                 \
    namespace site {                                                                               \
    [[gnu::section("fatal_sites"), gnu::used]] alignas(fatal_site) constexpr fatal_site id = {     \
        module, function, location};                                                               \
    }
// Makes a site of one source known to others.
#define SHARED_FATAL_SITE(id)                                                                      \
    namespace site {                                                                               \
    extern const fatal_site id;                                                                    \
    }

SHARED_FATAL_SITE(MEMORY_NEW) // the engine's own structures

// The text of most reports.
extern const CHR *const memory_fault_text;

// argv of the process once _Main_ has saved it, else NULL: the report then names the program.
extern char **saved_argv;

// Reports a fatal condition to standard error and returns; the caller ends the process. Texts are
// NUL-terminated; of `location` the low 8 bits are printed. With `syscall` not NULL the text of
// errno follows.
void fprint_error_info(const CHR *text, const CHR *module, const CHR *function, ULO location,
                       const CHR *syscall);

// Makes a failing `new` end in the report too. So it does from the start of the process, as a
// unit's main may call the library ahead of _Main_; _Main_ sees to it again, in case that main has
// set a handler of its own.
[[gnu::constructor(101)]] void report_failing_new();

// Called ahead of the report of fatal() with its text, by who words some of them in another way and
// ends the process then; NULL: nobody.
extern void (*before_fatal)(const CHR *text);

// Reports with the module, function and location of the site, then ends the process with status 1.
[[noreturn]] void fatal(const fatal_site &site, const CHR *text = memory_fault_text,
                        const CHR *syscall = nullptr);
