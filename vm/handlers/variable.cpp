// SETQ and ALSETQ: assignment to a variable. They do the same at run time and differ only in what
// the type pass makes of them. Words of the node: slot number, value operand.

#include "kestrin/strings.h"
#include "vm/forms.h"
#include "vm/handler.h"

namespace {

// An array, also one that a FOR over its name has made single.
bool holds_array(const kestrin_data *d) { return d->indices_numb > 1; }

void set_number(kestrin_data *target, UCH type, const kestrin_data *source)
{
    target->single = 1;
    target->type = type;
    target->value = source->value;
}

} // namespace

// Both single and of the proved type: type and value are all there is. Else the generic road.
template <class T, operand_kind kind_> void assign_any(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    eval_number<T, kind_>(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    kestrin_data *target = variable(dat_ptr[0]);
    if (ret_dat->single && ret_dat->type == kind<T>::letter && owns_nothing(target))
        set_number(target, kind<T>::letter, ret_dat);
    else
        copy_kst_data(target, ret_dat, 0);
}
template void assign_any<SLO>(const ULO *dat_ptr, kestrin_data *ret_dat);
template void assign_any<DFL>(const ULO *dat_ptr, kestrin_data *ret_dat);

HANDLER(setq)
{
    eval(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    kestrin_data *target = variable(dat_ptr[0]);
    if (ret_dat->single && (ret_dat->type == 'I' || ret_dat->type == 'F') && owns_nothing(target))
        set_number(target, ret_dat->type, ret_dat);
    else
        copy_kst_data(target, ret_dat, 0);
}

HANDLER(setq_i) { assign_any<SLO>(dat_ptr, ret_dat); }
HANDLER(setq_f) { assign_any<DFL>(dat_ptr, ret_dat); }

HANDLER(setq_s)
{
    eval(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    kestrin_data *target = variable(dat_ptr[0]);
    if (!ret_dat->single || holds_array(target) || ret_dat->type != 'S')
        return copy_kst_data(target, ret_dat, 0);
    target->type = 'S';
    equ(&target->svalue, ret_dat->svalue);
}

HANDLER(setq_z)
{
    eval(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    kestrin_data *target = variable(dat_ptr[0]);
    if (!ret_dat->single || holds_array(target) || ret_dat->type != 'Z')
        return copy_kst_data(target, ret_dat, 0);
    target->type = 'Z';
    free_string(&target->svalue);
}

HANDLER(alsetq) { func__setq(dat_ptr, ret_dat); }
HANDLER(alsetq_i) { func__setq_i(dat_ptr, ret_dat); }
HANDLER(alsetq_f) { func__setq_f(dat_ptr, ret_dat); }
HANDLER(alsetq_s) { func__setq_s(dat_ptr, ret_dat); }
HANDLER(alsetq_z) { func__setq_z(dat_ptr, ret_dat); }

namespace {

template <class T>
constexpr auto setq_variants = by_one([]<operand_kind value>() {
    return variant{.record = &assign_any<T, value>};
});

template <class T> constexpr variant_row setq_row(fcall setq, fcall alsetq)
{
    return {.general = {setq, alsetq},
            .operands = {{kind<T>::letter, true}},
            .together = &variant::assigning,
            .variants = setq_variants<T>.data()};
}

constexpr variant_row rows[] = {setq_row<SLO>(func__setq_i, func__alsetq_i),
                                setq_row<DFL>(func__setq_f, func__alsetq_f)};

} // namespace

const std::span<const variant_row> variable_variants = rows;
