// IVAL, FVAL, STR and TYPE. A slot whose operand has the wanted type already forwards to it, and
// looks once whether a single value of the type has come back.

#include <array>

#include "vm/handler.h"
#include "vm/text.h"

namespace {

SLO same_integer(SLO a) { return a; }
DFL same_float(DFL a) { return a; }
CHR *same_text(CHR **targ, const CHR *source) { return equ(targ, source); }

// Casts what the operand has left in the record.
template <class T> void answer_cast(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const T value = cast_result<T>(dat_ptr, ret_dat);
    if (rt_ctrl->rt_noterror) answer<T>(ret_dat, value);
}

// The operand as it comes, then converted by its own type.
template <class T> void convert(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_value(dat_ptr, ret_dat);
    answer_cast<T>(dat_ptr, ret_dat);
}

void convert_text(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_text(dat_ptr, ret_dat);
}

// The operand as it is, where its type is the wanted one.
template <class T> void forward(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->type = 0;
    eval_number<T>(dat_ptr, ret_dat);
    if (ret_dat->single && ret_dat->type == in_record<T>::letter) [[likely]]
        return;
    answer_cast<T>(dat_ptr, ret_dat);
}

// A number that stands in place is printed at once.
template <class T, CHR *(*print)(CHR **, T)>
void convert_number_text(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    T value = 0;
    if (!read_single(dat_ptr, &value)) return convert_text(dat_ptr, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    ret_dat->disable_ptr = 1;
    answer_text(ret_dat);
    print(&ret_dat->svalue, value);
}

void answer_type(kestrin_data *ret_dat, UCH type)
{
    sch2str(&ret_dat->svalue, static_cast<SCH>(type));
    answer_text(ret_dat);
}

} // namespace

HANDLER(ival) { numeric<same_integer>::run<CAST>(dat_ptr, ret_dat); }
HANDLER(ival_i) { forward<SLO>(dat_ptr, ret_dat); }
HANDLER(ival_f) { convert<SLO>(dat_ptr, ret_dat); }
HANDLER(ival_s) { convert<SLO>(dat_ptr, ret_dat); }
HANDLER(ival_z) { convert<SLO>(dat_ptr, ret_dat); }

HANDLER(fval) { numeric<same_float>::run<CAST>(dat_ptr, ret_dat); }
HANDLER(fval_i)
{
    SLO value = 0;
    if (!read_single(dat_ptr, &value)) return convert<DFL>(dat_ptr, ret_dat);
    ret_dat->disable_ptr = 1;
    if (rt_ctrl->rt_noterror) answer<DFL>(ret_dat, static_cast<DFL>(value));
}
HANDLER(fval_f) { forward<DFL>(dat_ptr, ret_dat); }
HANDLER(fval_s) { convert<DFL>(dat_ptr, ret_dat); }
HANDLER(fval_z) { convert<DFL>(dat_ptr, ret_dat); }

HANDLER(str) { text<same_text>::run<CAST>(dat_ptr, ret_dat); }
HANDLER(str_i) { convert_number_text<SLO, equ_num>(dat_ptr, ret_dat); }
HANDLER(str_f) { convert_number_text<DFL, equ_fnum>(dat_ptr, ret_dat); }
HANDLER(str_s) { convert_text(dat_ptr, ret_dat); }
HANDLER(str_z) { convert_text(dat_ptr, ret_dat); }

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
