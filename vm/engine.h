// The process record: what the driver prepares once and lower layers read. What it refers to
// lives as long as the process.
#pragma once

#include <span>
#include <string>

#include "kestrin/types.h"

struct lut;
struct native_maker;
struct call_watcher;

// A function with the type letter of its value.
struct udf_letter {
    std::string name;
    UCH letter;
    bool operator==(const udf_letter &) const = default;
};

struct engine {
    std::span<const udf_letter> global_udf_types; // by number: what later texts start from
    CHR *global_udf_code;                         // compiled, then linked bytecode
    lut *func_lut;                                // known functions of the main thread
    UCH mapcar_with_decompiler;
    UCH compile_with_debuginfo;
    UCH moves = 1;    // 1: the linker lets values move where nobody sees the difference
    UCH small_arrays; // 1: arrays own only the places that they use, and copies share them; else
                      // as many as they report
    UCH reserves;     // 1: of those, large ones take addresses ahead, which nothing limits
    const native_maker *native;  // NULL: the handlers run alone
    const call_watcher *watcher; // NULL: nobody watches what is linked
    UCH interruptible;     // 1: a signal may make an error pending, for which native loops look
    UCH environment_asked; // 1: a program has asked for a variable of the environment
};

extern engine the_engine;
