// The error instructions: the library functions of vm/errors.cpp for programs. None of them does
// anything while an error is pending, so an error can be raised once and never taken back.

#include "vm/handler.h"
#include "vm/text.h"
#include "vm/trail.h"

namespace {

CHR *set_and_get(CHR **targ)
{
    set_error(targ);
    return *targ;
}

// What the four _INFO instructions are made of: whether the error is raised, and whether its text
// says where.
struct info_form {
    const CHR *caller;
    bool raises, with_place;
};
constexpr info_form set_info = {"Set_Error_Info", false, false};
constexpr info_form rise_info = {"Rise_Error_Info", true, false};
constexpr info_form set_info_dbg = {"Set_Error_Info_Dbg", false, true};
constexpr info_form rise_info_dbg = {"Rise_Error_Info_Dbg", true, true};

template <const info_form &form> struct info {
    static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        with_operands<SLO, const CHR *>(dat_ptr, ret_dat, [=](SLO code, const CHR *text) {
            scratch shown;
            set_error_state(code, show_nuls(&shown.s, text), form.caller);
            if (form.with_place) add_error_place(dat_ptr);
            if (!form.raises) {
                answer_text(ret_dat);
                get_error_text(&ret_dat->svalue);
                return;
            }
            rt_ctrl->rt_noterror = 0;
            note_error(rt_ctrl, dat_ptr);
        });
    }
};

} // namespace

LEAF_HANDLER(set_error, set_and_get)
LEAF_HANDLER(get_error_code, get_error_code)
LEAF_HANDLER(get_error_text, get_error_text)
HANDLERS(set_error_info, info<set_info>)
HANDLERS(rise_error_info, info<rise_info>)
HANDLERS(set_error_info_dbg, info<set_info_dbg>)
HANDLERS(rise_error_info_dbg, info<rise_info_dbg>)

HANDLER(rise_error)
{
    if (!rt_ctrl->rt_noterror) return;
    rise_error();
    note_error(rt_ctrl, dat_ptr);
}

HANDLER(set_error_dbg)
{
    if (!rt_ctrl->rt_noterror) return;
    lend_again(ret_dat);
    ret_dat->disable_ptr = 1;
    answer_text(ret_dat);
    set_error_dbg(&ret_dat->svalue, dat_ptr);
}

HANDLER(rise_error_dbg)
{
    if (rt_ctrl->rt_noterror) rise_error_dbg(dat_ptr);
}
