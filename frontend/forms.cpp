// The form tests of the driver and of mapcar, in one place.

#include "frontend/forms.h"

#include "frontend/isa.h"
#include "frontend/walk.h"
#include "frontend/words.h"

bool is_one_form(std::string_view text)
{
    return !text.empty() && text.front() == '(' && first_token(text).size() == text.size();
}

bool is_executable_form(std::string_view text)
{
    if (!is_one_form(text)) return false;
    const std::string_view inside = left_trimmed(text.substr(1));
    ULO end = 0;
    while (end < inside.size() && !is_blank(inside[end])) end++;
    return !(word_groups(inside.substr(0, end)) & in(GROUP_DEFUN));
}

std::string wrapped(std::string_view text)
{
    return std::string("(").append(mnemonic(ISA_PROGN)).append(" ").append(text).append(")");
}
