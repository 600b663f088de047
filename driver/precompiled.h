// Precompiled program files: a header of 16 bytes, bound to the machine and to the instruction
// tables, and the compiled bytecode of the global functions and the program together.
#pragma once

#include <string_view>

#include "bytecode/decompile.h"
#include "driver/session.h"

// Whether the contents of a file are a precompiled program.
bool is_precompiled(std::string_view contents);

// Tests a precompiled program and leaves its bytecode in prog_text, ready for the linker; lists it
// if that was asked for. A program that must not run ends the process.
void load_precompiled(session *s, std::string_view contents);

// Decompiles compiled code, a counted string, and lists it with the decompiler's messages; the
// entire code is listed with offsets. Returns whether it made sense.
bool list_decompiled(const session *s, const CHR *code, decompile_mode mode, code_origin origin);

// Writes the program with its global functions to the disk, beside its source. A file that can't be
// written gives no message.
void write_precompiled(const session *s);
