// Constants and variable reads. They alone test for a pending error on entry; everything above them
// may evaluate its operands blindly.

#include "vm/leaf.h"

#include "kestrin/mapcar.h" // publishes func__dummy_s
#include "kestrin/strings.h"
#include "vm/handler.h"
#include "vm/moves.h"

namespace {

// What every variable read ends with.
void check_set(const ULO *dat_ptr, const kestrin_data *ret_dat)
{
    if (ret_dat->type == 0) [[unlikely]]
        raise_unset_variable(dat_ptr - 1);
}

// An alias or a copy.
inline void read_variable(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return;
    const kestrin_data *v = variable(dat_ptr[0]);
    if (!ret_dat->disable_ptr) {
        *ret_dat = *v;
    } else if (v->single && holds_number(v)) {
        ret_dat->single = 1;
        ret_dat->type = v->type;
        ret_dat->value = v->value;
    } else {
        copy_kst_data(ret_dat, v, 0);
    }
    check_set(dat_ptr, ret_dat);
}

} // namespace

HANDLER(dummy_i)
{
    if (!rt_ctrl->rt_noterror) return;
    answer<SLO>(ret_dat, static_cast<SLO>(dat_ptr[0]));
}

HANDLER(dummy_f)
{
    if (!rt_ctrl->rt_noterror) return;
    answer<DFL>(ret_dat, constant_of<DFL>(dat_ptr - 1));
}

HANDLER(dummy_s)
{
    if (!rt_ctrl->rt_noterror) return;
    lend_again(ret_dat);
    ret_dat->disable_ptr = 1;
    ret_dat->single = 1;
    ret_dat->type = 'S';
    equ(&ret_dat->svalue, reinterpret_cast<const CHR *>(dat_ptr + 1));
}

HANDLER(dummy_z)
{
    if (!rt_ctrl->rt_noterror) return;
    ret_dat->single = 1;
    ret_dat->type = 'Z';
}

TYPED_HANDLERS(getval, read_variable)

HANDLER(getval_last)
{
    if (!rt_ctrl->rt_noterror) return;
    lend_again(ret_dat);
    ret_dat->disable_ptr = 1;
    take_value(ret_dat, variable(dat_ptr[0]));
    check_set(dat_ptr, ret_dat);
}

HANDLER(getval_ptr)
{
    if (!rt_ctrl->rt_noterror) return;
    *ret_dat = *variable(dat_ptr[0]);
    check_set(dat_ptr, ret_dat);
}
