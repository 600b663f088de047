// PROGN, IF, WHILE, FOR, BREAK, EXIT and the call of a user-defined function.
//
// BREAK and EXIT are error codes: they stop all work like an error, and the nearest loop, call or
// run that may absorb them sets the machine going again.

#include "kestrin/strings.h"
#include "vm/handler.h"

namespace {

void answer_zero(kestrin_data *ret_dat)
{
    clear(ret_dat);
    answer<SLO>(ret_dat, 0);
}

// Takes back a BREAK. False if something else is pending.
bool absorb_break()
{
    if (rt_ctrl->rt_error_code != UNWIND_BREAK) return false;
    rt_ctrl->rt_noterror = 1;
    rt_ctrl->rt_error_code = 0;
    return true;
}

void unwind(UCH mark)
{
    if (!rt_ctrl->rt_noterror) return;
    rt_ctrl->rt_noterror = 0;
    rt_ctrl->rt_error_code = mark;
}

template <operands how, leaf_kind leaf = ANY> void choose(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    // A slot that borrows still does so for the branch, which may answer by an alias.
    const UCH owning = ret_dat->disable_ptr;
    ret_dat->disable_ptr = 1;
    const SLO condition = fetch<how, SLO, leaf>(dat_ptr, ret_dat);
    if (!owning) {
        clear(ret_dat);
        ret_dat->disable_ptr = 0;
    }
    eval(dat_ptr + (condition != 0 ? 1 : 2), ret_dat);
}

template <operands how, leaf_kind leaf = ANY>
void repeat_while(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return;
    ret_dat->disable_ptr = 1;
    for (;;) {
        const SLO condition = fetch<how, SLO, leaf>(dat_ptr, ret_dat);
        // A BREAK in the body is seen here too: the fetch above has done nothing then.
        if (!rt_ctrl->rt_noterror) {
            if (!absorb_break()) return;
            break;
        }
        if (condition == 0) break;
        eval(dat_ptr + 1, ret_dat);
    }
    answer_zero(ret_dat);
}

void set_control(kestrin_data *control, SLO value)
{
    control->single = 1;
    control->type = 'I';
    control->value.ival = value;
}

// The control variable, which the body may have given any value.
SLO read_control(const ULO *word, kestrin_data *control, kestrin_data *ret_dat)
{
    return control->type == 'I' ? control->value.ival : fetch<CAST, SLO>(word, ret_dat);
}

// True where the loop has ended well. Words: variable, start, increment, end, body. The increment
// is evaluated twice a round, for its sign and for the step: programs can see its side effects.
template <operands how, leaf_kind by, leaf_kind to>
bool count_up(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    kestrin_data *control = variable(node_at(dat_ptr)[1]);
    SLO current = fetch<how, SLO>(dat_ptr + 1, ret_dat);
    for (;;) {
        if (!rt_ctrl->rt_noterror) return false;
        set_control(control, current);
        const SLO step = fetch<how, SLO, by>(dat_ptr + 2, ret_dat);
        const SLO end = fetch<how, SLO, to>(dat_ptr + 3, ret_dat);
        if (!rt_ctrl->rt_noterror) return false;
        if (step < 0 ? end > current : end < current) return true;
        eval(dat_ptr + 4, ret_dat);
        if (!rt_ctrl->rt_noterror) return false;
        current = read_control(dat_ptr, control, ret_dat);
        current += fetch<how, SLO, by>(dat_ptr + 2, ret_dat);
    }
}

template <operands how, leaf_kind by = ANY, leaf_kind to = ANY>
void repeat_for(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return;
    ret_dat->disable_ptr = 1;
    if (count_up<how, by, to>(dat_ptr, ret_dat) || absorb_break()) answer_zero(ret_dat);
}

} // namespace

HANDLER(progn)
{
    const ULO count = dat_ptr[0];
    for (ULO i = 1; i <= count; i++) {
        eval(dat_ptr + i, ret_dat);
        if (i < count) lend_again(ret_dat);
    }
}

HANDLER(if) { choose<CAST>(dat_ptr, ret_dat); }
HANDLER(if_j) { choose<PROVED>(dat_ptr, ret_dat); }
HANDLER(while) { repeat_while<CAST>(dat_ptr, ret_dat); }
HANDLER(while_j) { repeat_while<PROVED>(dat_ptr, ret_dat); }
HANDLER(for)
{
    repeat_for<CAST>(dat_ptr, ret_dat);
}
HANDLER(for_j) { repeat_for<PROVED>(dat_ptr, ret_dat); }

HANDLER(break)
{
    (void)dat_ptr, (void)ret_dat;
    unwind(UNWIND_BREAK);
}

HANDLER(exit)
{
    (void)dat_ptr, (void)ret_dat;
    unwind(UNWIND_EXIT);
}

namespace {

template <operands how> constexpr variant_row if_variants(fcall general)
{
    return vary<1>(general, 0, 'I', 0,
                   []<leaf_kind leaf, leaf_kind>() { return &choose<how, leaf>; });
}

template <operands how> constexpr variant_row while_variants(fcall general)
{
    return vary<1>(general, 0, 'I', 0,
                   []<leaf_kind leaf, leaf_kind>() { return &repeat_while<how, leaf>; });
}

// By increment and end.
template <operands how> constexpr variant_row for_variants(fcall general)
{
    return vary<2>(general, 2, 'I', 'I',
                   []<leaf_kind by, leaf_kind to>() { return &repeat_for<how, by, to>; });
}

constexpr variant_row rows[] = {
    if_variants<CAST>(func__if),       if_variants<PROVED>(func__if_j),
    while_variants<CAST>(func__while), while_variants<PROVED>(func__while_j),
    for_variants<CAST>(func__for),     for_variants<PROVED>(func__for_j),
};

} // namespace

const std::span<const variant_row> control_variants = rows;
