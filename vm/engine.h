// The process record: what the driver prepares once and lower layers read. Strings in it live as
// long as the process.
#pragma once

#include "kestrin/types.h"

struct lut;

struct engine {
    CHR *global_udf_index; // names of the global functions with their numbers
    CHR *global_udf_types; // type context that later texts start from
    CHR *global_udf_code;  // compiled, then linked bytecode
    lut *func_lut;         // known functions of the main thread
    UCH mapcar_with_decompiler;
    UCH compile_with_debuginfo;
    UCH moves = 1;    // 1: the linker lets values move where nobody sees the difference
    UCH small_arrays; // 1: arrays own only the places that they use; else as many as they report
};

extern engine the_engine;
