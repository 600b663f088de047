// IVAL, FVAL, STR and TYPE. A cast is the operation that leaves its operand as it has been fetched.

#include <array>

#include "vm/handler.h"
#include "vm/text.h"

namespace {

SLO same_integer(SLO a) { return a; }
DFL same_float(DFL a) { return a; }

void convert_text(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_text(dat_ptr, ret_dat);
}

void answer_type(kestrin_data *ret_dat, UCH type)
{
    sch2str(&ret_dat->svalue, static_cast<SCH>(type));
    answer_text(ret_dat);
}

} // namespace

TYPED_HANDLERS(ival, numeric<same_integer>::run)
TYPED_HANDLERS(fval, numeric<same_float>::run)
TYPED_HANDLERS(str, convert_text)

const CHR *type_in_place(const ULO *node)
{
    // A counted string for each letter.
    static constexpr auto letters = [] {
        struct text_of_one {
            ULO length;
            CHR text[sizeof(ULO)];
        };
        std::array<text_of_one, 26> all = {};
        for (int i = 0; i < 26; i++) all[i] = {1, {CHR('A' + i)}};
        return all;
    }();
    const ULO *operand = node_at(node + 1);
    if (!is_variable_read(operand)) return nullptr;
    const UCH type = variable(operand[1])->type;
    return type == 0 ? nullptr : letters[type - 'A'].text;
}

// The type letter of the value; of member 0 for an array.
HANDLER(type)
{
    ret_dat->disable_ptr = 1;
    const ULO *node = node_at(dat_ptr);
    if (is_variable_read(node) && rt_ctrl->rt_noterror && variable(node[1])->type != 0)
        return answer_type(ret_dat, variable(node[1])->type);
    call_for_value(node, ret_dat);
    if (rt_ctrl->rt_noterror) answer_type(ret_dat, ret_dat->type);
}
