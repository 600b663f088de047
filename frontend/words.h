// The index of the instruction words: what a pass wants to know of a mnemonic, found by hash.
#pragma once

#include <string_view>

#include "frontend/groups.h"
#include "frontend/isa.h"

struct instruction_word {
    CHR letter; // 'T' a row of the ISA, 't' of the ISAext
    ULO row;
    SSH operands;
    group_set groups; // of control mnemonics
};

// The first row with this mnemonic, ISA ahead of ISAext; NULL if there is none. The index is made
// on the first call, after which the tables must stay as they are.
const instruction_word *find_word(std::string_view mnemonic);

// The groups of an ISA row.
group_set groups_of(const isa_row &row);

// The number of the first ISA row in a group; isa_count if there is none.
ULO row_of_group(group g);

// Drops the index, because a table changes.
void forget_words();

// The groups of a word that may be no mnemonic at all.
inline group_set word_groups(std::string_view word)
{
    const instruction_word *found = find_word(word);
    return found == nullptr ? 0 : found->groups;
}
