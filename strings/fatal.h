// The one fatal report and the table of its sites. Beneath everything else, so that any layer can
// end the process when it runs out of memory or is misused; only this and driver/ ever do.
#pragma once

#include "kestrin/types.h"

// Where a fatal report comes from: one row of fatal.def each.
enum class fatal_site {
#define FATAL_SITE(id, module, function, location) id,
#include "strings/fatal.def"
#undef FATAL_SITE
};

// The text of most rows.
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

// Reports with the module, function and location of the row, then ends the process with status 1.
[[noreturn]] void fatal(fatal_site site, const CHR *text = memory_fault_text,
                        const CHR *syscall = nullptr);
