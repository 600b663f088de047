// The compiler and the machine from inside a unit: the handler of MAPCAR, called with a node made
// by hand. A node of a string constant is the word of its handler and the counted string in place:
//
//     ULO node[] = { handler, length, characters, NUL, NUL fill to a multiple of 8 bytes };
//     node[0] = reinterpret_cast<ULO>(func__dummy_s);
//     const ULO operand = reinterpret_cast<ULO>(node);
//     kestrin_data answer = owning_slot;
//     func__mapcar(&operand, &answer);
//     ...                              // members 1 to 11 are answer.array.mix[1] to [11]
//     free_kst_data(&answer);
#pragma once

#include "kestrin/types.h"
#include "kestrin/value.h"

#pragma GCC visibility push(default) // the library shows the names of these headers alone

// Members of the answer, a mixed array of twelve places. Member 0 is the record's own value.
enum : ULO {
    MAPCAR_OUTPUT = 0,      // 'S' what the code printed
    MAPCAR_VALUE = 1,       // the value of the code, an array too; an empty string if it failed
    MAPCAR_SYNTAX_CODE = 2, // 'I' 0 none, 1 to 9 the checker's, 255 refused as a whole
    MAPCAR_SYNTAX_TEXT = 3, // 'S'
    MAPCAR_ERROR_CODE = 4,  // 'I' runtime error code, 0 none
    MAPCAR_ERROR_TEXT = 5,  // 'S'
    MAPCAR_PROCESSED = 6,   // 'S' the text as checked; empty when bytecode was given
    MAPCAR_TYPED = 7,       // 'S' the text with type suffixes; empty when bytecode was given
    MAPCAR_COMPILED = 8,    // 'S' bytecode, which a later call takes in place of the text
    MAPCAR_LINKED = 9,      // 'S' linked words, of no use after the call
    MAPCAR_DECOMPILED = 10, // 'S' source text made from member 8; empty if that is switched off
    MAPCAR_SECONDS = 11,    // 'F' time spent in the call
    MAPCAR_MEMBERS = 12
};

// Compiles, links and runs the text, or the bytecode, that the operand word at `dat_ptr` gives, and
// leaves the answer in `ret_dat`, an owning slot: its holder frees it with free_kst_data(). The
// code sees the global functions, not the variables and functions of the running program.
//
// A failure of the code is in the answer and nowhere else: the error state of the thread is as it
// was before the call. With an error pending already the call runs nothing: members 2 and 4 are 1,
// and the error stays pending. Bytecode is checked before it runs.
//
// To be called from a handler, on its own thread or on one that has been set up; not before the
// engine has started. On a thread of the unit's own, recursion goes as deep as that thread's stack
// lets it; deeper it ends the process by the fatal report.
void func__mapcar(const ULO *dat_ptr, kestrin_data *ret_dat);

// The handler of a string constant: `dat_ptr + 1` is its counted string. `ret_dat` becomes an owned
// copy of it; nothing happens while an error is pending.
void func__dummy_s(const ULO *dat_ptr, kestrin_data *ret_dat);

#pragma GCC visibility pop
