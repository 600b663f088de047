// The index over both instruction tables. Every thread's names begin with the mnemonics in the
// order of the tables, so that a mnemonic's number is its place in the list of instruction_words.

#include "frontend/words.h"

#include <algorithm>

#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/machine.h"

std::vector<instruction_word> instruction_words;

namespace {

constexpr isa_id leaders[] = {
#define GROUP(name) ISA_##name,
    EACH_GROUP(GROUP)
#undef GROUP
};

bool are_aliases(const isa_row &a, const isa_row &b)
{
    return a.operands == b.operands && a.ret_type == b.ret_type && cmp(a.op_type, b.op_type) &&
           std::equal(std::begin(a.slots), std::end(a.slots), b.slots);
}

// Rows like that of the word that gives the group its name belong to it.
void mark_members(const name_table &known, group g)
{
    const name_id leader = known.find(mnemonic(leaders[g]));
    if (leader == NO_NAME || instruction_words[leader].letter != 'T') return;
    const isa_row &row = isa_table[instruction_words[leader].row];
    for (ULO i = 0; i < isa_count; i++)
        if (are_aliases(row, isa_table[i]))
            instruction_words[known.find(view(*isa_table[i].mnemonic))].groups |= in(g);
}

void add_word(name_table *known, std::string_view name, const instruction_word &word)
{
    if (known->enter(name) == instruction_words.size()) instruction_words.push_back(word);
}

void enter_words(name_table *known)
{
    const bool is_first = instruction_words.empty();
    if (is_first) {
        bind_isaext();
        instruction_words.reserve(isa_count + isaext_count);
    }
    for (ULO i = 0; i < isa_count; i++)
        add_word(known, view(*isa_table[i].mnemonic), {i, 0, isa_table[i].operands, 'T'});
    for (ULO i = 0; i < isaext_count; i++)
        add_word(known, isaext_table[i].fnc_name, {i, 0, isaext_table[i].operands, 't'});
    for (unsigned g = 0; is_first && g < std::size(leaders); g++)
        mark_members(*known, static_cast<group>(g));
}

} // namespace

name_table &names()
{
    name_table &table = of_thread<name_table>();
    if (table.count() == 0) enter_words(&table);
    return table;
}

const instruction_word *find_word(std::string_view mnemonic)
{
    return word_of(names().find(mnemonic));
}

group_set groups_of(const isa_row &row) { return word_groups(view(*row.mnemonic)); }

ULO row_of_group(group g)
{
    ULO row = 0;
    while (row < isa_count && !(groups_of(isa_table[row]) & in(g))) row++;
    return row;
}

void forget_words()
{
    instruction_words.clear();
    of_thread<name_table>() = name_table();
}
