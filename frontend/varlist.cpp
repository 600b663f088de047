// The numbering of variables: one walk over the form, names by hash.

#include "frontend/varlist.h"

#include <cstdlib>
#include <string>

#include "frontend/token.h"
#include "frontend/words.h"
#include "vm/stack.h"

namespace {

// More formal arguments than this no text refers to by chance; a frame of them could not be taken.
constexpr SLO most_arguments = SLO(1) << 32;

void note_argument(std::string_view token, varlist *list)
{
    const SLO number = atol(std::string(token.substr(1)).c_str());
    if (number > 0 && number <= most_arguments && ULO(number) > list->arguments)
        list->arguments = ULO(number);
}

void walk_form(std::string_view text, const brackets &table, ULO from, ULO to, varlist *list)
{
    check_stack(fatal_site::STACK_VARLIST);
    token_walk walk(text, table, from + 1, to > from + 1 ? to - 1 : from + 1);
    if (word_groups(without_suffix(walk.next())) & in(GROUP_DEFUN)) return;
    for (auto token = walk.next(); !token.empty(); token = walk.next()) {
        switch (kestrin_type1(token)) {
        case 'U': walk_form(text, table, walk.start(), walk.start() + token.size(), list); break;
        case 'P': note_argument(token, list); break;
        case 'V':
            if (list->numbers.try_emplace(token, list->names.size()).second)
                list->names.push_back(token);
            break;
        default: break;
        }
    }
}

} // namespace

ULO build_varlist(std::string_view text, const brackets &table, ULO from, ULO to, varlist *list)
{
    walk_form(text, table, from, to, list);
    for (auto &entry : list->numbers) entry.second += list->arguments;
    return list->slots();
}
