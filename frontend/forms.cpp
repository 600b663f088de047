// The form tests of the driver and of mapcar, in one place. A program that is not settled is tested
// as text.

#include "frontend/forms.h"

#include "frontend/isa.h"
#include "frontend/words.h"
#include "strings/tokens.h"

namespace {

bool is_one_form(std::string_view text)
{
    return !text.empty() && text.front() == '(' && first_token(text).size() == text.size();
}

} // namespace

bool is_one_form(const tree &t)
{
    if (!t.settled) return is_one_form(std::string_view(t.text));
    return t.root != NO_NODE && t.nodes[t.root].letter == 'U';
}

bool is_executable_form(const tree &t)
{
    if (!is_one_form(t)) return false;
    const group_set groups =
        t.settled ? groups_of(word_of(t.nodes[t.root].name))
                  : word_groups(first_word(left_trimmed(std::string_view(t.text).substr(1))));
    return !(groups & in(GROUP_DEFUN));
}

std::string wrapped(std::string text)
{
    text.insert(0, std::string("(").append(mnemonic(ISA_PROGN)).append(" ")).append(")");
    return text;
}

void wrap(tree *t)
{
    if (t->settled)
        t->root = t->add_form(ISA_PROGN, t->root);
    else
        t->read(wrapped(t->text), CHECKED);
}
