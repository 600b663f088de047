// What the engine and an extension unit are to each other: the unit defines main, the callbacks and
// its instructions, all of them, if only empty; the engine offers _Main_.
#pragma once

#include "kestrin/isa.h"
#include "kestrin/types.h"

#pragma GCC visibility push(default) // the library shows the names of these headers alone

// -- Defined by the engine ---------------------------------------------------------------------

// Compiles and runs as the command line says and ends the process by exit(), with status 0 or 1; it
// never returns. `argv` must live as long as the process. A second call, from a handler or a
// callback too, is a fatal error. What a unit has to change ahead of it (kestrin/isa.h), its main
// changes ahead of it.
[[noreturn]] int _Main_(int argc, char **argv);

// -- Defined by the unit -----------------------------------------------------------------------

// int main(int argc, char **argv): at the least `return _Main_(argc, argv);`. A main that uses the
// string library first calls setup_quarne_thread_safe_functionality_for_local_thread().

// The unit's instructions, of which `INSTRUCTIONS` rows count; a unit without any defines an array
// of one row and the number 0. They are read until the process ends. This declaration has to stand
// ahead of the definition: const data would be the unit's own without it.
extern const INSTRUCTION_STRU INSTRUCTION_SET[];
extern const ULO INSTRUCTIONS;
// The unit's version text, NUL-terminated, for the listing of versions.
extern const CHR *VERSION_CKSTUDF___;

// Called once, immediately before the program runs, when everything is compiled and linked; not
// called when a run ends before that, by a syntax error for one. All callbacks are called on the
// thread that runs the program.
void startup_callback();
// Called once, immediately after the run, whether it succeeded or failed. `id_taskjob` is the
// number of the task job, always 0 here.
void taskjob_end_callback(ULO id_taskjob);
// Serves (USER_IO usr_id text). `*usr_buff` is a heap counted string, request and answer alike: the
// callback replaces it under the target rule of kestrin/strings.h, and the engine takes it back as
// the value of the instruction. It is not NULL on entry; NULL left there is the empty string. A
// failure is an answer of your own, or an error by rise_error_info(). Programs count on the
// requests "PWD" (the working directory) and "GetEnv NAME" (a variable's value, empty if unset).
void user_io_callback(SLO usr_id, CHR **usr_buff);

#pragma GCC visibility pop
