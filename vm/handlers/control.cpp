// PROGN, IF, WHILE, FOR, BREAK, EXIT and the call of a user-defined function.
//
// BREAK and EXIT are error codes: they stop all work like an error, and the nearest loop, call or
// run that may absorb them sets the machine going again.

#include "kestrin/strings.h"
#include "vm/handler.h"
#include "vm/hot.h"
#include "vm/places.h"
#include "vm/watch.h"

void answer_zero(kestrin_data *ret_dat)
{
    clear(ret_dat);
    answer<SLO>(ret_dat, 0);
}

bool absorb_break()
{
    if (rt_ctrl->rt_error_code != UNWIND_BREAK) return false;
    rt_ctrl->rt_noterror = 1;
    rt_ctrl->rt_error_code = 0;
    return true;
}

namespace {

void unwind(UCH mark)
{
    if (!rt_ctrl->rt_noterror) return;
    rt_ctrl->rt_noterror = 0;
    rt_ctrl->rt_error_code = mark;
}

// In a watched run the thread's record says which statement runs.
template <bool is_watched> void note(const ULO *node)
{
    if constexpr (is_watched) rt_ctrl->watched.node = node;
}

// An array that is made single keeps its places, but shares them with nobody.
void set_control(kestrin_data *control, SLO value)
{
    if (!control->single) [[unlikely]]
        own_places(control);
    control->single = 1;
    control->type = 'I';
    control->value.ival = value;
}

// The control variable, which the body may have given any value.
SLO read_control(const ULO *word, kestrin_data *control, kestrin_data *ret_dat)
{
    return control->type == 'I' ? control->value.ival : fetch<SLO>(word, ret_dat);
}

// The increment, a constant nearly always.
[[gnu::always_inline]] inline SLO fetch_step(const ULO *word, kestrin_data *ret_dat)
{
    const ULO *node = node_at(word);
    if (is_node(node, func__dummy_i)) [[likely]]
        return constant_of<SLO>(node);
    return fetch<SLO>(word, ret_dat);
}

// The value of the round behind the one that native code has left.
SLO next_value(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    rt_ctrl->for_goes_on = 0;
    const SLO value = read_control(dat_ptr, variable(node_at(dat_ptr)[1]), ret_dat);
    return value + fetch_step(dat_ptr + 2, ret_dat);
}

// The rounds of a FOR from one with this value on. True where the loop has ended well. Words:
// variable, start, increment, end, body. The increment is evaluated twice a round, for its sign and
// for the step: programs can see its side effects.
template <bool is_watched> bool count_up(const ULO *dat_ptr, kestrin_data *ret_dat, SLO current)
{
    kestrin_data *control = variable(node_at(dat_ptr)[1]);
    unsigned *const rounds_left = rounds_left_of(dat_ptr);
    for (;;) {
        if (!rt_ctrl->rt_noterror) return false;
        set_control(control, current);
        if (is_done_natively(dat_ptr, ret_dat, rounds_left)) return false;
        note<is_watched>(dat_ptr - 1);
        const SLO step = fetch_step(dat_ptr + 2, ret_dat);
        const SLO end = fetch<SLO>(dat_ptr + 3, ret_dat);
        if (!rt_ctrl->rt_noterror) return false;
        if (step < 0 ? end > current : end < current) return true;
        note<is_watched>(node_at(dat_ptr + 4));
        eval(dat_ptr + 4, ret_dat);
        if (!rt_ctrl->rt_noterror) return false;
        current = read_control(dat_ptr, control, ret_dat);
        current += fetch_step(dat_ptr + 2, ret_dat);
    }
}

template <bool is_watched = false> void repeat_for(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return;
    ret_dat->disable_ptr = 1;
    const SLO value =
        rt_ctrl->for_goes_on ? next_value(dat_ptr, ret_dat) : fetch<SLO>(dat_ptr + 1, ret_dat);
    if (count_up<is_watched>(dat_ptr, ret_dat, value) || absorb_break()) answer_zero(ret_dat);
}

template <bool is_watched = false> void repeat_while(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return;
    ret_dat->disable_ptr = 1;
    unsigned *const rounds_left = rounds_left_of(dat_ptr);
    for (;;) {
        if (is_done_natively(dat_ptr, ret_dat, rounds_left)) return;
        note<is_watched>(dat_ptr - 1);
        const SLO condition = fetch<SLO>(dat_ptr, ret_dat);
        // A BREAK in the body is seen here too: nothing has been fetched then.
        if (!rt_ctrl->rt_noterror) {
            if (!absorb_break()) return;
            break;
        }
        if (condition == 0) break;
        note<is_watched>(node_at(dat_ptr + 1));
        eval(dat_ptr + 1, ret_dat);
    }
    answer_zero(ret_dat);
}

template <bool is_watched = false> void choose(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    // A slot that borrows still does so for the branch, which may answer by an alias.
    // The record's own type too, for a branch that leaves the record as it was.
    const UCH owning = ret_dat->disable_ptr, type = ret_dat->type;
    ret_dat->disable_ptr = 1;
    const SLO condition = fetch<SLO>(dat_ptr, ret_dat);
    if (!owning) {
        clear(ret_dat);
        ret_dat->disable_ptr = 0;
    }
    ret_dat->type = type;
    note<is_watched>(node_at(dat_ptr + (condition == 0 ? 2 : 1)));
    // Two jumps, which are foreseen, and not one to an address that waits for the condition.
    if (condition == 0) [[unlikely]]
        return eval(dat_ptr + 2, ret_dat);
    eval(dat_ptr + 1, ret_dat);
}

template <bool is_watched = false> void run_all(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const ULO count = dat_ptr[0];
    for (ULO i = 1; i <= count; i++) {
        note<is_watched>(node_at(dat_ptr + i));
        eval(dat_ptr + i, ret_dat);
        if (i < count) lend_again(ret_dat);
    }
}

template <fcall form> void watch(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const ULO *around = rt_ctrl->watched.node;
    note<true>(dat_ptr - 1);
    form(dat_ptr, ret_dat);
    note<true>(around);
}

} // namespace

HANDLER(progn) { run_all(dat_ptr, ret_dat); }
HANDLER(if) { choose(dat_ptr, ret_dat); }
HANDLER(if_j) { choose(dat_ptr, ret_dat); }
HANDLER(while) { repeat_while(dat_ptr, ret_dat); }
HANDLER(while_j) { repeat_while(dat_ptr, ret_dat); }
HANDLER(for) { repeat_for(dat_ptr, ret_dat); }
HANDLER(for_j) { repeat_for(dat_ptr, ret_dat); }

HANDLER(break) { unwind(UNWIND_BREAK); }
HANDLER(exit) { unwind(UNWIND_EXIT); }

HANDLER(defun);
HANDLER(defun_watched);

std::span<const handler_form> watched_forms()
{
    static constexpr handler_form forms[] = {
        {func__defun_watched, func__defun},       {watch<run_all<true>>, func__progn},
        {watch<choose<true>>, func__if},          {watch<choose<true>>, func__if_j},
        {watch<repeat_while<true>>, func__while}, {watch<repeat_while<true>>, func__while_j},
        {watch<repeat_for<true>>, func__for},     {watch<repeat_for<true>>, func__for_j},
    };
    return forms;
}

fcall watched_form(fcall handler)
{
    for (const auto &[watched, plain] : watched_forms())
        if (plain == handler) return watched;
    return handler;
}

value_use use_of_operand(fcall handler, ULO i, ULO count, value_use own)
{
    const auto is_one_of = [&](fcall a, fcall b) { return handler == a || handler == b; };
    const value_use answered = own == value_use::ARGUMENT ? value_use::OPERAND : own;
    if (handler == func__defun) return value_use::ARGUMENT;
    if (handler == func__progn) return i + 1 == count ? answered : value_use::UNUSED;
    if (is_one_of(func__if, func__if_j) && i > 0) return answered;
    if (is_one_of(func__while, func__while_j) && i == 1) return value_use::UNUSED;
    if (is_one_of(func__for, func__for_j) && i == 4) return value_use::UNUSED;
    return value_use::OPERAND;
}
