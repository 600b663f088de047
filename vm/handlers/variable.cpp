// SETQ and ALSETQ: assignment to a variable. They do the same at run time and differ only in what
// the type pass makes of them. Words of the node: slot number, value operand.

#include "kestrin/strings.h"
#include "vm/forms.h"
#include "vm/handler.h"
#include "vm/moves.h"
#include "vm/text.h"

namespace {

// An array, also one that a FOR over its name has made single.
bool holds_array(const kestrin_data *d) { return d->indices_numb > 1; }

// Where nobody reads the result record any more, its value moves.
template <bool used> void assign_result(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    kestrin_data *target = variable(dat_ptr[0]);
    if (set_number(target, ret_dat)) return;
    if (used)
        copy_kst_data(target, ret_dat, 0);
    else
        take_result(target, ret_dat);
}

template <bool used> void assign_value(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    eval(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    assign_result<used>(dat_ptr, ret_dat);
}

// A variable, copied from where it stands. Nobody reads the record.
void assign_variable(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const ULO *node = node_at(dat_ptr + 1);
    if (node[1] == dat_ptr[0]) return assign_value<true>(dat_ptr, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    kestrin_data *target = variable(dat_ptr[0]);
    const kestrin_data *source = variable(node[1]);
    if (source->type == 0) return raise_unset_variable(node);
    if (!set_number(target, source)) copy_kst_data(target, source, 0);
}

// The same of a member of a mixed array.
void assign_member(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const ULO *node = node_at(dat_ptr + 1);
    const kestrin_data *source = node[1] == dat_ptr[0] ? nullptr : mixed_member(node);
    if (source == nullptr) return assign_value<false>(dat_ptr, ret_dat);
    kestrin_data *target = variable(dat_ptr[0]);
    if (!set_number(target, source)) copy_kst_data(target, source, 0);
}

} // namespace

template <class T, operand_kind kind, bool used>
void assign_any(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if constexpr (!used && is_in_place(kind)) {
        T value;
        kestrin_data *target = variable(dat_ptr[0]);
        if (rt_ctrl->rt_noterror && owns_nothing(target) &&
            read_single<T, kind>(dat_ptr + 1, &value)) [[likely]]
            return answer(target, value);
    }
    eval_number<T, kind>(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    assign_result<used>(dat_ptr, ret_dat);
}

// For the files whose operations a SETQ may be one with.
template void assign_any<SLO>(const ULO *, kestrin_data *);
template void assign_any<DFL>(const ULO *, kestrin_data *);

HANDLER(setq) { assign_value<true>(dat_ptr, ret_dat); }

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
    return variant{.record = &assign_any<T, value>, .unused = &assign_any<T, value, false>};
});

// Of any type.
template <fcall setq>
constexpr auto setq_any_variants = by_one([]<operand_kind value>() {
    return variant{.record = setq,
                   .unused = value == VARIABLE ? &assign_variable
                             : value == MEMBER ? &assign_member
                                               : &assign_value<false>};
});

template <fcall setq> constexpr variant_row setq_any_row(fcall alsetq)
{
    return {.handlers = {setq, alsetq},
            .operands = {{'V'}},
            .variants = setq_any_variants<setq>.data()};
}

template <class T> constexpr variant_row setq_row(fcall setq, fcall alsetq)
{
    return {.handlers = {setq, alsetq},
            .operands = {{in_record<T>::letter, true}},
            .together = &variant::assigning,
            .variants = setq_variants<T>.data()};
}

constexpr variant_row rows[] = {
    setq_row<SLO>(func__setq_i, func__alsetq_i), setq_row<DFL>(func__setq_f, func__alsetq_f),
    setq_any_row<func__setq>(func__alsetq), setq_any_row<func__setq_s>(func__alsetq_s),
    setq_any_row<func__setq_z>(func__alsetq_z)};

} // namespace

const std::span<const variant_row> variable_variants = rows;
