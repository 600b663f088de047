// SETQ and ALSETQ: assignment to a variable. They do the same at run time and differ only in what
// the type pass makes of them. Words of the node: slot number, value operand.

#include "kestrin/strings.h"
#include "vm/handler.h"
#include "vm/moves.h"
#include "vm/text.h"

namespace {

// Where nobody reads the result record any more, its value moves.
template <bool used> void assign_value(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    eval(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    kestrin_data *target = variable(dat_ptr[0]);
    if (set_number(target, ret_dat)) return;
    if (used)
        copy_kst_data(target, ret_dat, 0);
    else
        take_result(target, ret_dat);
}

// A variable, or a member of a mixed array, copied from where it stands. Nobody reads the record.
template <bool is_member> void assign_in_place(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const ULO *node = node_at(dat_ptr + 1);
    const kestrin_data *source = nullptr;
    if (node[1] != dat_ptr[0] && rt_ctrl->rt_noterror)
        source = is_member ? mixed_member(node) : variable(node[1]);
    if (source == nullptr || source->type == 0) return assign_value<false>(dat_ptr, ret_dat);
    kestrin_data *target = variable(dat_ptr[0]);
    if (!set_number(target, source)) copy_kst_data(target, source, 0);
}

} // namespace

TYPED_HANDLERS(setq, assign_value<true>)
TYPED_HANDLERS(alsetq, assign_value<true>)

fcall taking_setq(const ULO *node)
{
    if (!is_node(node, func__setq, func__setq_i, func__setq_f, func__setq_s, func__setq_z,
                 func__alsetq, func__alsetq_i, func__alsetq_f, func__alsetq_s, func__alsetq_z))
        return nullptr;
    const ULO *value = node_at(node + 2);
    if (is_variable_read(value)) return assign_in_place<false>;
    return is_plain_member(value) ? assign_in_place<true> : assign_value<false>;
}

std::span<const handler_form> setq_forms()
{
    static constexpr handler_form forms[] = {{assign_in_place<false>, func__setq},
                                             {assign_in_place<true>, func__setq},
                                             {assign_value<false>, func__setq}};
    return forms;
}
