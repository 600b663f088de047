// The instruction tables as text, for a unit that changes them ahead of _Main_.
//
// A row is "(MNEMONIC operands ret_type "op_type" handlers...)": operands in decimal, -1 for any
// number; five handler addresses in decimal for the ISA, one for the ISAext. The _set calls end the
// process with the fatal report once the engine has started.
#pragma once

#include "kestrin/types.h"
#include "kestrin/value.h"

// One instruction of an extension unit.
struct INSTRUCTION_STRU {
    const CHR *fnc_name; // upper case
    SSH operands;
    UCH ret_type;       // 'I', 'F', 'S', 'Z'
    const UCH *op_type; // one letter of "IFSZ" for each operand, NUL-terminated
    fcall func_ptr;
};

// The mnemonics in row order, separated by single blanks. Setting takes one word for each row from
// the first on and ends early at the end of the list. Not allowed on a table set by
// _internal_ISA_COPs_set.
void _internal_ISA_COP_mnemonics_get(CHR **lst);
void _internal_ISA_COP_mnemonics_set(const CHR *list);

// 1: bytes from 128 to 253 are letters in names and fold as UTF-8. 0: only A to Z are.
UCH _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_get();
void _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(UCH ASCIIorUTF8);

// The whole tables. An empty text restores what is built in or linked in.
void _internal_ISA_COPs_get(CHR **tab);
void _internal_ISA_COPs_set(const CHR *table);
void _internal_ISAext_COPs_get(CHR **tab);
void _internal_ISAext_COPs_set(const CHR *table);
// The same texts, with the handler addresses or without.
void _internal_ISA_COPs_get_(CHR **tab, UCH with_handlers);
void _internal_ISAext_COPs_get_(CHR **tab, UCH with_handlers);
