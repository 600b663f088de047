// What the engine and an extension unit are to each other: the unit defines main, the callbacks and
// its instructions; the engine offers _Main_ and the facts about the module.
#pragma once

#include "kestrin/isa.h"
#include "kestrin/types.h"

// -- Defined by the engine ---------------------------------------------------------------------

// Compiles and runs as the command line says; ends the process with status 0 or 1. A second entry
// is a fatal error.
[[noreturn]] int _Main_(int argc, char **argv);

// -- Defined by the unit -----------------------------------------------------------------------

// The unit's instructions, `INSTRUCTIONS` rows, and its version text.
extern const INSTRUCTION_STRU INSTRUCTION_SET[];
extern const ULO INSTRUCTIONS;
extern const CHR *const VERSION_CKSTUDF___;

// Immediately before and after the run of the program.
void startup_callback();
void taskjob_end_callback(ULO id_taskjob);
// Serves USER_IO: `*usr_buff` is a counted string, request and answer alike.
void user_io_callback(SLO usr_id, CHR **usr_buff);
