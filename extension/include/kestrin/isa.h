// The instruction tables: the rows that a unit brings along, and both tables as text, for a main
// that changes them ahead of _Main_.
//
// A row of text is (NAME operands result "letters" handlers). `operands` is decimal, -1 for any
// number. `result` is one letter: I, F, S, Z, or U where only the run tells. `letters` has one for
// each operand, one in all for -1:
//
//     V        a variable's name          U, E     any value; its type can select a typed handler
//     IFSZ     cast to this type          -        any expression, left to the handler
//
// `handlers` are addresses in decimal, 0 for an empty slot, each behind a blank. A row of the ISA
// has five. Slot 0 takes operands of any type. The compiler takes another slot where it has proved
// types: slot 1 if the operands are what the letters I, F, S, Z say, and for the letters E (all of
// one type) and U (the last operand's) slot 1 for I, 2 for F, 3 for S, 4 for Z. A row of the ISAext
// has one handler, letters of IFSZ only, and no -1. A slot that the compiler may take has to be
// filled; letters of - alone leave it no choice but slot 0. A program that runs into an empty slot
// ends by the fatal report.
//
// Rows stand one behind the other. Bytecode stores their numbers, and a stored program runs only
// with the tables that it was compiled for: any change of them, a new row at the end too, refuses
// it. Rows that differ in the name alone are aliases: a copy of IF's row under another name is an
// IF. Names are in upper case, as programs are folded before a name is looked up; no program can
// call another. The tables are tested when the first program is checked: a name with a byte that
// names can't have, a name that occurs twice or a wrong letter is a syntax error with code 5.
//
// The _set calls work ahead of _Main_ alone; later they end the process by the fatal report. Lists
// and tables are counted strings (kestrin/strings.h). The thread must have been set up.
#pragma once

#include "kestrin/types.h"
#include "kestrin/value.h"

#pragma GCC visibility push(default) // the library shows the names of these headers alone

// One instruction of an extension unit, a row of the ISAext.
struct INSTRUCTION_STRU {
    const CHR *fnc_name; // NUL-terminated, in upper case
    SSH operands;        // number of operands, from 0
    UCH ret_type;        // the type that the handler always leaves: 'I', 'F', 'S', 'Z'
    const UCH *op_type;  // one letter of "IFSZ" for each operand, NUL-terminated; NULL for none
    fcall func_ptr;
};

// The 223 mnemonics in row order, each but the last followed by one blank. Fatal on a table that
// _internal_ISA_COPs_set() has replaced, as is the next one.
void _internal_ISA_COP_mnemonics_get(CHR **lst);
// Renames: one word for each row, in row order, in upper case; the list may end early, and the rows
// behind keep their names. A name is what is legal for a variable, or a sign such as <=.
void _internal_ISA_COP_mnemonics_set(const CHR *list);

// How letters in names are read. 1: bytes from 128 to 253 are letters, and names fold to upper case
// as UTF-8. 0, as it is from the start: only A to Z are letters.
UCH _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_get();
void _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(UCH ASCIIorUTF8);

// The whole table with its handler addresses, which hold for this process only. The _set forms
// replace the whole table by the rows in front of the first token that is none; without any, also
// for NULL, what is built in or linked in is restored. Addresses are taken as they come.
void _internal_ISA_COPs_get(CHR **tab);
void _internal_ISA_COPs_set(const CHR *table);
void _internal_ISAext_COPs_get(CHR **tab);
void _internal_ISAext_COPs_set(const CHR *table);
// The same texts, with the addresses for `with_handlers` 1, or without for 0. A precompiled file
// runs only where both texts without addresses are what they were when it was written.
void _internal_ISA_COPs_get_(CHR **tab, UCH with_handlers);
void _internal_ISAext_COPs_get_(CHR **tab, UCH with_handlers);

#pragma GCC visibility pop
