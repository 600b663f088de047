#include "native/helpers.h"

#include <bit>

#include "kestrin/strings.h"
#include "vm/errors.h"
#include "vm/hot.h"
#include "vm/moves.h"
#include "vm/trail.h"

namespace native {

namespace {

// The bits of the number in the record that the operand at `word` has left, which ends.
template <class T> SLO take(const ULO *word, kestrin_data *slot)
{
    T value = 0;
    if (rt_ctrl->rt_noterror) {
        if (slot->type != 0)
            value = in_record<T>::from(slot);
        else
            raise_error(in_record<T>::undefined, word);
    }
    if (slot->disable_ptr) release(slot);
    return std::bit_cast<SLO>(value);
}
SLO take_number(const ULO *word, kestrin_data *slot, CHR letter)
{
    return letter == 'I' ? take<SLO>(word, slot) : take<DFL>(word, slot);
}

// The operands of a PROGN from one on.
void go_on_with_progn(const ULO *dat_ptr, ULO from, kestrin_data *ret_dat)
{
    for (ULO i = from; i < dat_ptr[0] && rt_ctrl->rt_noterror; i++) {
        lend_again(ret_dat);
        eval(dat_ptr + 1 + i, ret_dat);
    }
}

// A loop whose body is done for this time.
void go_on_with_loop(const exit_step &step, kestrin_data *ret_dat)
{
    lend_again(ret_dat);
    ret_dat->disable_ptr = 1;
    if (!rt_ctrl->rt_noterror) {
        if (absorb_break()) answer_zero(ret_dat);
    } else if (step.what == work::FOR) {
        rt_ctrl->for_goes_on = 1;
        linked_handler(step.node)(step.node + 1, ret_dat);
    } else {
        call(step.node, ret_dat);
    }
}

} // namespace

rt_control *enter()
{
    rt_control *rt = rt_ctrl;
    rt->call_floor = stack_floor + ROOM_OF_A_BODY;
    return rt;
}

SLO number_of(const ULO *word, CHR letter)
{
    kestrin_data slot = owning_slot;
    eval(word, &slot);
    return take_number(word, &slot, letter);
}

SLO number_of_call(const ULO *word, const given_number *given, CHR letter)
{
    kestrin_data slot = owning_slot;
    call_with_numbers(node_at(word) + 1, &slot, given);
    return take_number(word, &slot, letter);
}

void run_statement(const ULO *node, kestrin_data *ret_dat)
{
    call(node, ret_dat);
    lend_again(ret_dat);
    ret_dat->disable_ptr = 1;
}

void run_answer(const ULO *node, kestrin_data *ret_dat, fcall handler)
{
    check_stack(site::STACK_EVAL);
    (handler != nullptr ? handler : handler_of(node))(node + 1, ret_dat);
}

void call_and_assign(const ULO *dat_ptr, const given_number *given, kestrin_data *target)
{
    kestrin_data slot = owning_slot;
    call_with_numbers(dat_ptr, &slot, given);
    if (rt_ctrl->rt_noterror && !set_number(target, &slot)) take_result(target, &slot);
    release(&slot);
}

SLO are_same_texts(const CHR *a, const CHR *b) { return cmp(a, b) != 0; }

void go_on_by_handlers(const exit_path *path, kestrin_data *ret_dat)
{
    if (__atomic_add_fetch(&path->taken, 1, __ATOMIC_RELAXED) == MOST_EXITS) stop_using(path->root);
    for (const exit_step &step : path->steps)
        if (step.what == work::PROGN)
            go_on_with_progn(step.node + 1, step.done, ret_dat);
        else
            go_on_with_loop(step, ret_dat);
}

void name_function(const ULO *image) { rt_ctrl->rt_function = image; }

void note_direct_call(const ULO *dat_ptr, const ULO *image)
{
    rt_control *rt = rt_ctrl;
    if (rt->rt_trail != nullptr)
        note_call(rt, dat_ptr, rt->rt_trail->function, rt->rt_trail->frame);
    rt->rt_function = image;
    if (rt->rt_trail != nullptr) rt->rt_trail->function = image;
}

void give_up_call(const ULO *dat_ptr, const ULO *image)
{
    rt_ctrl->rt_function = image;
    give_up(rt_ctrl, dat_ptr);
}

} // namespace native
