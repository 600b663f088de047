// The instruction tables as the front end, the compiler and the linker read them, and the index of
// their words.
#pragma once

#include <string_view>

#include "kestrin/isa.h"

// Row numbers of the built-in table.
enum isa_id : ULO {
#define ROW(id, ...) ISA_##id,
#include "frontend/isa.def"
#undef ROW
    ISA_ROWS
};
static_assert(ISA_MAPCAR == 222, "units name the rows by their order: new ones go to the end");

struct isa_row {
    CHR **mnemonic; // cell that holds the counted string; renaming writes the cell
    SSH operands;   // -1: any number
    UCH ret_type;   // of "UIFSZ"
    const CHR
        *op_type;   // counted string, a letter of "VUEIFSZ-" for each operand; one for -1 operands
    fcall slots[5]; // generic; J or I; F; S; Z. NULL: empty
};

// The tables in force.
extern isa_row *isa_table;
extern ULO isa_count;
extern const INSTRUCTION_STRU *isaext_table; // NULL until bound
extern ULO isaext_count;

// The built-in table, and the cells of its mnemonics.
extern isa_row built_in_isa[ISA_ROWS];
extern CHR *isa_mnemonics[ISA_ROWS];
inline bool isa_is_built_in() { return isa_table == built_in_isa; }
// Whether a unit brings instructions of its own, which may walk all places of an array.
inline bool has_foreign_instructions() { return !isa_is_built_in() || isaext_count != 0; }

// The current spelling of a built-in row's mnemonic.
std::string_view mnemonic(isa_id id);

// Bytes from 128 to 253 count as letters of names, and names fold as UTF-8.
extern UCH names_are_utf8;

// Nonzero until _Main_ begins; the _set calls work only so long.
extern UCH engine_open;

// Puts the linked-in instructions in force if no table is.
void bind_isaext();

// The operand letters of an ISAext row.
std::string_view operand_letters(const INSTRUCTION_STRU &row);

// The slot of the handler that a type suffix selects: 0 for a letter that selects none.
ULO slot_of_suffix(CHR letter);
