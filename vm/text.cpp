// The rare ways of text operands.

#include "vm/text.h"

#include <string>

void make_text(const ULO *word, kestrin_data *d)
{
    if (!rt_ctrl->rt_noterror) return;
    if (d->type == 0) return raise_error(rt_text::RETURN_SVAL, word);
    if (d->type != 'S') store_text(&d->svalue, d); // else it is member 0 of an array
    answer_text(d);
}

CHR *show_nuls(CHR **targ, const CHR *source)
{
    const std::string_view bytes = view(source);
    if (bytes.find('\0') == std::string_view::npos) return equ(targ, source);
    std::string shown;
    for (const CHR c : bytes) {
        if (c == 0)
            shown.append("\\0");
        else
            shown.push_back(c);
    }
    return assign(targ, shown);
}
