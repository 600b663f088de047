// The numbering of variables: one walk over the form.

#include "frontend/varlist.h"

#include <cstdlib>

#include "frontend/token.h"
#include "frontend/words.h"
#include "vm/stack.h"

FATAL_SITE(STACK_VARLIST, "kestrin", "build_varlist", 125)

namespace {

// More formal arguments than this no text refers to by chance; a frame of them could not be taken.
constexpr SLO MOST_ARGUMENTS = SLO(1) << 32;

// A variable of each type has a number of its own.
ULO key_of(const node &variable)
{
    return ULO(variable.name) * 5 + slot_of_suffix(variable.suffix);
}

// What is no type's suffix is part of the token, but is not shown.
name_id shown_name(const node &variable)
{
    const std::string_view token = names().text(variable.name);
    if (variable.suffix != 0 || suffix_of(token) == 0) return variable.name;
    return names().enter(std::string(without_suffix(token)));
}

} // namespace

void varlist::walk_form(const tree &t, node_index form)
{
    check_stack(site::STACK_VARLIST);
    if (groups_of(word_of(t.nodes[form].name)) & in(GROUP_DEFUN)) return;
    for (node_index i = t.nodes[form].first; i != NO_NODE; i = t.nodes[i].next) {
        const node &n = t.nodes[i];
        if (n.letter == 'U') walk_form(t, i);
        if (n.letter == 'P') {
            const SLO number = t.argument_number(n);
            if (number > 0 && number <= MOST_ARGUMENTS && ULO(number) > arguments_)
                arguments_ = ULO(number);
        }
        if (n.letter != 'V' || numbers_.get(key_of(n)) != 0) continue;
        variables_.push_back(shown_name(n));
        numbers_.set(key_of(n), static_cast<std::uint32_t>(variables_.size()));
    }
}

ULO varlist::build_varlist(const tree &t, node_index form)
{
    numbers_.enter();
    variables_.clear();
    arguments_ = 0;
    walk_form(t, form);
    return arguments_ + variables_.size();
}

bool varlist::find(const node &variable, ULO *place) const
{
    const std::uint32_t number = variable.letter == 'V' ? numbers_.get(key_of(variable)) : 0;
    *place = ULO(number) - 1;
    return number != 0;
}
