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

void copy_number(kestrin_data *to, const kestrin_data *from) { to->value = from->value; }

void copy_text(kestrin_data *to, const kestrin_data *from) { equ(&to->svalue, from->svalue); }

void copy_nothing(kestrin_data *, const kestrin_data *) {}

// The shape of the typed reads: a single value has only what its type needs copied.
template <UCH letter, void (*copy_single)(kestrin_data *, const kestrin_data *)>
void read_typed(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    const kestrin_data *v = variable(dat_ptr[0]);
    if (!ret_dat->disable_ptr) {
        *ret_dat = *v;
    } else if (v->single && v->type == letter) {
        ret_dat->single = 1;
        ret_dat->type = v->type;
        copy_single(ret_dat, v);
    } else {
        copy_kst_data(ret_dat, v, 0);
    }
    check_set(dat_ptr, ret_dat);
}

} // namespace

HANDLER(dummy_i)
{
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    answer<SLO>(ret_dat, static_cast<SLO>(dat_ptr[0]));
}

HANDLER(dummy_f)
{
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    answer<DFL>(ret_dat, constant_of<DFL>(dat_ptr - 1));
}

HANDLER(dummy_s)
{
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    lend_again(ret_dat);
    ret_dat->disable_ptr = 1;
    ret_dat->single = 1;
    ret_dat->type = 'S';
    equ(&ret_dat->svalue, reinterpret_cast<const CHR *>(dat_ptr + 1));
}

HANDLER(dummy_z)
{
    (void)dat_ptr;
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    ret_dat->single = 1;
    ret_dat->type = 'Z';
}

HANDLER(getval)
{
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    const kestrin_data *v = variable(dat_ptr[0]);
    if (!ret_dat->disable_ptr)
        *ret_dat = *v;
    else if (v->single && (v->type == 'I' || v->type == 'F')) {
        ret_dat->single = 1;
        ret_dat->type = v->type;
        ret_dat->value = v->value;
    } else
        copy_kst_data(ret_dat, v, 0);
    check_set(dat_ptr, ret_dat);
}

HANDLER(getval_i) { read_typed<'I', copy_number>(dat_ptr, ret_dat); }
HANDLER(getval_f) { read_typed<'F', copy_number>(dat_ptr, ret_dat); }
HANDLER(getval_s) { read_typed<'S', copy_text>(dat_ptr, ret_dat); }
HANDLER(getval_z) { read_typed<'Z', copy_nothing>(dat_ptr, ret_dat); }

HANDLER(getval_last)
{
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    lend_again(ret_dat);
    ret_dat->disable_ptr = 1;
    take_value(ret_dat, variable(dat_ptr[0]));
    check_set(dat_ptr, ret_dat);
}

HANDLER(getval_ptr)
{
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    *ret_dat = *variable(dat_ptr[0]);
    check_set(dat_ptr, ret_dat);
}
