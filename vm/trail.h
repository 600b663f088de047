// Where an error was raised and which calls it has ended: for those who show a fault of a program
// with its place. Nothing is noted unless somebody asks, and nothing without an error.
#pragma once

#include "vm/machine.h"

struct error_trail {
    static constexpr ULO half = 16;

    const ULO *at = nullptr;         // in or behind the node that has raised it; NULL: not known
    const ULO *calls[2 * half] = {}; // the first and the last, as dat_ptr of the call's handler
    ULO count = 0;                   // of all calls, innermost first

    // The activation that the error is in.
    const ULO *function = nullptr;
    const kestrin_data *frame = nullptr;

    // Where the i-th call is kept, from 0, if it is.
    static ULO place(ULO i) { return i < half ? i : half + i % half; }
    const ULO *call(ULO i) const { return calls[place(i)]; }
    bool keeps(ULO i) const { return i < half || i + half >= count; }
};

// An error becomes pending.
inline void note_error(rt_control *rt, const ULO *at)
{
    if (rt->rt_trail == nullptr) return;
    rt->rt_trail->at = at;
    rt->rt_trail->count = 0;
    rt->rt_trail->function = rt->rt_function;
    rt->rt_trail->frame = rt->rt_frame;
}

// The call at `dat_ptr` of an image with that frame ends by an error, and its caller stands in the
// record again. An argument's error has not been in the function.
inline void note_call(rt_control *rt, const ULO *dat_ptr, const ULO *image,
                      const kestrin_data *frame)
{
    error_trail *trail = rt->rt_trail;
    if (trail == nullptr || trail->function != image || trail->frame != frame) return;
    trail->calls[error_trail::place(trail->count++)] = dat_ptr;
    trail->function = rt->rt_function;
    trail->frame = rt->rt_frame;
}
