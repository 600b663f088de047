// The rare ways of text operands.

#include "vm/text.h"

void make_text(const ULO *word, kestrin_data *d)
{
    if (!rt_ctrl->rt_noterror) return;
    switch (d->type) {
    case 'I': equ_num(&d->svalue, d->value.ival); break;
    case 'F': equ_fnum(&d->svalue, d->value.fval); break;
    case 'Z': equ(&d->svalue, nullptr); break;
    case 'S': break; // member 0 of an array
    default: return raise_error(rt_text::RETURN_SVAL, word);
    }
    answer_text(d);
}
