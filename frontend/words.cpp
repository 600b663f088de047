// The index over both instruction tables. Every thread's names begin with the mnemonics in the
// order of the tables, so that a mnemonic's number is its place in the list of instruction_words.

#include "frontend/words.h"

#include "strings/scratch.h"
#include "vm/machine.h"

std::vector<instruction_word> instruction_words;

namespace {

// Adds the group to all words of its string.
void mark_members(const name_table &known, group g)
{
    std::string_view rest = view(group_string(g));
    while (!rest.empty()) {
        const auto end = rest.find(' ');
        if (const name_id name = known.find(rest.substr(0, end)); name != NO_NAME)
            instruction_words[name].groups |= in(g);
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    }
}

void add_word(name_table *known, std::string_view name, const instruction_word &word)
{
    if (known->enter(name) == instruction_words.size()) instruction_words.push_back(word);
}

void enter_words(name_table *known)
{
    const bool is_first = instruction_words.empty();
    if (is_first) {
        build_groups();
        bind_isaext();
        instruction_words.reserve(isa_count + isaext_count);
    }
    for (ULO i = 0; i < isa_count; i++)
        add_word(known, view(*isa_table[i].mnemonic), {'T', i, isa_table[i].operands, 0});
    for (ULO i = 0; i < isaext_count; i++)
        add_word(known, isaext_table[i].fnc_name, {'t', i, isaext_table[i].operands, 0});
    for (unsigned g = 0; is_first && g < GROUPS; g++) mark_members(*known, static_cast<group>(g));
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
