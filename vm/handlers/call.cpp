// The call of a user-defined function: the frame, the arguments, the body. Words of the node: the
// function's image, the number of arguments, the argument operands.

#include <algorithm>

#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/errors.h"
#include "vm/handler.h"
#include "vm/hot.h"
#include "vm/moves.h"
#include "vm/trail.h"
#include "vm/watch.h"

FATAL_SITE(DEFUN_FRAME, "kestrin", "func__defun", 23)

void give_up(rt_control *rt, const ULO *dat_ptr)
{
    if (rt->rt_recursion == recursion::ENDS_PROCESS) fatal(site::DEFUN_FRAME);
    if (rt->rt_recursion == recursion::ENDS_RUN) rt->rt_recursion = recursion::HAS_ENDED_RUN;
    raise_deep_recursion(dat_ptr);
}

namespace {

// A single value may come with the members of an array that it was made from; INDEX would find
// them.
void drop_members(kestrin_data *record)
{
    const UCH type = record->type;
    free_array_of(record);
    record->type = type;
}

// Evaluated in the caller's scope. A plain variable is lent by alias, a member too, all else is
// owned by the frame.
[[gnu::always_inline]] inline void evaluate_argument(const ULO *word, kestrin_data *record)
{
    *record = owning_slot;
    eval(word, record);
    if (record->single && record->indices_numb > 1 && record->disable_ptr) [[unlikely]]
        drop_members(record);
    record->disable_ptr = 0;
}

void set_argument(const given_number &given, kestrin_data *record)
{
    *record = fresh_variable;
    record->type = given.type;
    record->value.ival = given.bits;
}

// More arguments than the image takes: a function whose arguments only a nested one uses.
[[gnu::noinline]] void evaluate_and_drop(const ULO *word)
{
    kestrin_data record;
    evaluate_argument(word, &record);
    if (!is_lent(node_at(word))) release(&record);
}

void release_frame(kestrin_data *frame, ULO slots, const ULO *words, ULO arguments)
{
    for (ULO i = 0; i < arguments; i++)
        if (!is_lent(node_at(words + i))) release(&frame[i]);
    for (ULO i = arguments; i < slots; i++) release(&frame[i]);
}

// A BREAK in the body has ended the function.
void answer_break(rt_control *rt, kestrin_data *ret_dat)
{
    clear(ret_dat);
    ret_dat->type = 'S';
    ret_dat->value.ival = 0; // what a consumer of a proved number reads
    equ(&ret_dat->svalue, nullptr);
    rt->rt_noterror = 1;
    rt->rt_error_code = 0;
}

// The first places of a frame from operands. `given` is NULL where all are to be evaluated.
[[gnu::always_inline]] inline void fill_arguments(kestrin_data *frame, const ULO *words, ULO count,
                                                  const given_number *given)
{
    for (ULO i = 0; i < count; i++) {
        if (given == nullptr || given[i].type == 0)
            evaluate_argument(words + i, &frame[i]);
        else
            set_argument(given[i], &frame[i]);
    }
}

template <bool is_watched>
[[gnu::always_inline]] inline void call_function(const ULO *dat_ptr, kestrin_data *ret_dat,
                                                 const given_number *given)
{
    rt_control *rt = rt_ctrl;
    if (!rt->rt_noterror) [[unlikely]]
        return;
    if (stack_pointer() < stack_floor + ROOM_OF_A_BODY) [[unlikely]]
        return give_up(rt, dat_ptr);
    const ULO *image = node_at(dat_ptr);
    const ULO slots = image_slots(image), passed = dat_ptr[1];
    const ULO arguments = std::min({image_arguments(image), passed, slots});
    const ULO *words = dat_ptr + 2;

    kestrin_data *saved_top = rt->frame_top, *saved_end = rt->frame_end;
    kestrin_data *frame = take_frame(rt, slots, site::DEFUN_FRAME);
    fill_arguments(frame, words, arguments, given);
    for (ULO i = arguments; i < passed; i++) evaluate_and_drop(words + i);
    for (ULO i = arguments; i < slots; i++) frame[i] = fresh_variable;

    const ULO *saved_function = rt->rt_function;
    kestrin_data *saved_frame = rt->rt_frame;
    rt->rt_function = image;
    rt->rt_frame = frame;
    count_call(rt, image);
    ret_dat->disable_ptr = 1; // what the body answers outlives the frame
    if constexpr (is_watched)
        run_watched(rt, dat_ptr - 1, ret_dat);
    else
        call(image_main_node(image), ret_dat);
    release_frame(frame, slots, words, arguments);
    rt->frame_top = saved_top;
    rt->frame_end = saved_end;
    rt->rt_function = saved_function;
    rt->rt_frame = saved_frame;
    if (rt->rt_noterror) [[likely]]
        return;
    if (rt->rt_error_code == UNWIND_BREAK)
        answer_break(rt, ret_dat);
    else
        note_call(rt, dat_ptr, image, frame);
}

// Apart, so that the usual call stays as it is.
[[gnu::noinline]] void call_watched(const ULO *dat_ptr, kestrin_data *ret_dat,
                                    const given_number *given)
{
    call_function<true>(dat_ptr, ret_dat, given);
}

} // namespace

HANDLER(defun) { call_function<false>(dat_ptr, ret_dat, nullptr); }
HANDLER(defun_watched) { call_watched(dat_ptr, ret_dat, nullptr); }

void call_with_numbers(const ULO *dat_ptr, kestrin_data *ret_dat, const given_number *given)
{
    if (the_engine.watcher != nullptr) [[unlikely]]
        return call_watched(dat_ptr, ret_dat, given);
    call_function<false>(dat_ptr, ret_dat, given);
}
