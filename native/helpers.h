// What native code calls when a value does not fit, an error comes or a node is left to its
// handler. All of them run in the frame that stands in the thread's record.
#pragma once

#include "native/region.h"

namespace native {

// Where the handlers go on when a variable has got a value of another type than the code is made
// for: the nodes around the one that is done, from the inside.
struct exit_step {
    work what;       // PROGN, WHILE, FOR
    const ULO *node; // of it
    ULO done;        // operands of a PROGN that are done
};
struct exit_path {
    std::vector<exit_step> steps;
    const ULO *root = nullptr;  // of the region
    mutable unsigned taken = 0; // how often
};
// Code that is left that often is used no more.
constexpr unsigned MOST_EXITS = 16;

// The record of the calling thread, ready for native code.
rt_control *enter();

// The value of the node at an operand word as an integer or the bits of a float, as `letter` says.
// With an error pending afterwards it is nothing.
SLO number_of(const ULO *word, CHR letter);
// Evaluates a node whose value nobody reads.
void run_statement(const ULO *node, kestrin_data *ret_dat);
// Evaluates a node that the function answers, by `handler` or, if that is NULL, by the one that
// stands in it.
void run_answer(const ULO *node, kestrin_data *ret_dat, fcall handler);

// The same for a call at an operand word, some of whose arguments are given; or the variable that
// gets its value.
SLO number_of_call(const ULO *word, const given_number *given, CHR letter);
void call_and_assign(const ULO *dat_ptr, const given_number *given, kestrin_data *target);

// 1 or 0.
SLO are_same_texts(const CHR *a, const CHR *b);

// The rest of a region by handlers.
void go_on_by_handlers(const exit_path *path, kestrin_data *ret_dat);

// The handler of before stands in the region's node again, for good.
void stop_using(const ULO *root);

// For a function without a frame, or what calls one: `image` is the one that the node at `dat_ptr`
// stands in. Makes that the running function, for an error to come.
void name_function(const ULO *image);
// The error of the call has come from inside.
void note_direct_call(const ULO *dat_ptr, const ULO *image);
void give_up_call(const ULO *dat_ptr, const ULO *image);

} // namespace native
