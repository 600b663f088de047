// The hash index over both instruction tables.

#include "frontend/words.h"

#include <unordered_map>

#include "strings/scratch.h"

namespace {

using word_index = std::unordered_map<std::string_view, instruction_word>;

// Never freed on purpose: it lives as long as the tables.
word_index *words = nullptr;

// Adds the group to all words of its string.
void mark_members(group g)
{
    std::string_view rest = view(group_string(g));
    while (!rest.empty()) {
        const auto end = rest.find(' ');
        if (const auto found = words->find(rest.substr(0, end)); found != words->end())
            found->second.groups |= in(g);
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    }
}

void make_index()
{
    build_groups();
    bind_isaext();
    words = new word_index;
    words->reserve(2 * (isa_count + isaext_count));
    for (ULO i = 0; i < isa_count; i++) {
        const std::string_view name = view(*isa_table[i].mnemonic);
        words->try_emplace(name, instruction_word{'T', i, isa_table[i].operands, 0});
    }
    for (ULO i = 0; i < isaext_count; i++)
        words->try_emplace(isaext_table[i].fnc_name,
                           instruction_word{'t', i, isaext_table[i].operands, 0});
    for (unsigned g = 0; g < GROUPS; g++) mark_members(static_cast<group>(g));
}

} // namespace

const instruction_word *find_word(std::string_view mnemonic)
{
    if (words == nullptr) make_index();
    const auto found = words->find(mnemonic);
    return found == words->end() ? nullptr : &found->second;
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
    delete words;
    words = nullptr;
}
