// The instruction words: what a pass wants to know of a mnemonic, found by hash.
#pragma once

#include <string_view>
#include <vector>

#include "frontend/groups.h"
#include "frontend/isa.h"
#include "frontend/names.h"

struct instruction_word {
    ULO row;
    group_set groups; // of control mnemonics
    SSH operands;
    CHR letter; // 'T' a row of the ISA, 't' of the ISAext
};

// The first row with this mnemonic, ISA ahead of ISAext; NULL if there is none. The words are
// indexed on the first call, after which the tables must stay as they are.
const instruction_word *find_word(std::string_view mnemonic);

// The words by their numbers among the thread's names.
extern std::vector<instruction_word> instruction_words;
inline const instruction_word *word_of(name_id name)
{
    return name < instruction_words.size() ? &instruction_words[name] : nullptr;
}

// The groups of an ISA row.
group_set groups_of(const isa_row &row);

// The number of the first ISA row in a group; isa_count if there is none.
ULO row_of_group(group g);

// Drops the index and the calling thread's names, because a table changes.
void forget_words();

// The groups of a word that may be no mnemonic at all.
inline group_set groups_of(const instruction_word *word)
{
    return word == nullptr ? 0 : word->groups;
}
inline group_set word_groups(std::string_view word) { return groups_of(find_word(word)); }
