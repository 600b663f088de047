// The casts, and the published fetches of operands. ret_ival() and the like evaluate into a
// borrowing slot, so that a variable answers by an alias and nothing is copied that only gets read.

#include <cmath>
#include <cstdlib>
#include <utility>

#include "kestrin/strings.h"
#include "vm/text.h"

namespace {

// Toward zero; out of range and NaN give the smallest integer, as the processor's conversion does.
SLO truncated(DFL value)
{
    const DFL whole = value < 0.0 ? std::ceil(value) : std::floor(value);
    if (!(whole >= -0x1p63 && whole < 0x1p63)) return INT64_MIN;
    return static_cast<SLO>(whole);
}

template <class T> void ret_number(const ULO *dat_ptr, T *targ)
{
    if (!rt_ctrl->rt_noterror) return;
    kestrin_data slot = borrowing_slot;
    const T value = fetch<T>(dat_ptr, &slot);
    if (rt_ctrl->rt_noterror) *targ = value;
    if (slot.disable_ptr) release(&slot);
}

} // namespace

SLO to_ival(const kestrin_data *d)
{
    switch (d->type) {
    case 'I': return d->value.ival;
    case 'F': return truncated(d->value.fval);
    case 'S': return d->svalue == nullptr ? 0 : atol(d->svalue);
    default: return 0;
    }
}

DFL to_fval(const kestrin_data *d)
{
    switch (d->type) {
    case 'I': return static_cast<DFL>(d->value.ival);
    case 'F': return d->value.fval;
    case 'S': return d->svalue == nullptr ? 0.0 : atof(d->svalue);
    default: return 0.0;
    }
}

void store_text(CHR **targ, const kestrin_data *d)
{
    if (d->type == 'I')
        equ_num(targ, d->value.ival);
    else if (d->type == 'F')
        equ_fnum(targ, d->value.fval);
    else
        equ(targ, d->type == 'S' ? d->svalue : nullptr);
}

void forget_alias(kestrin_data *ret_dat)
{
    ret_dat->svalue = nullptr;
    ret_dat->arraytype = 0;
    ret_dat->indices_numb = 1;
    ret_dat->aready_tags = nullptr;
    ret_dat->array.mix = nullptr;
}

void eval_operand(const ULO *dat_ptr, kestrin_data *ret_dat) { eval(dat_ptr, ret_dat); }

void ret_ival(const ULO *dat_ptr, SLO *targ) { ret_number(dat_ptr, targ); }

void ret_fval(const ULO *dat_ptr, DFL *targ) { ret_number(dat_ptr, targ); }

void ret_sval(const ULO *dat_ptr, CHR **targ)
{
    if (!rt_ctrl->rt_noterror) return;
    if (const CHR *text = text_in_place(node_at(dat_ptr))) {
        equ(targ, text);
        return;
    }
    // The operand may build its text in the caller's string, so the slot owns it for the while.
    kestrin_data slot = owning_slot;
    slot.svalue = std::exchange(*targ, nullptr);
    eval(dat_ptr, &slot);
    if (rt_ctrl->rt_noterror) {
        if (slot.type == 0)
            raise_error(rt_text::RETURN_SVAL, dat_ptr);
        else if (slot.type != 'S')
            store_text(&slot.svalue, &slot);
        else if (slot.svalue == nullptr)
            equ(&slot.svalue, nullptr);
    }
    *targ = std::exchange(slot.svalue, nullptr);
    release(&slot);
}
