// Where the handlers hand over to native code: they count how often a loop goes round and a
// function is called, and a layer above makes code of what runs hot.
#pragma once

#include "vm/engine.h"
#include "vm/machine.h"

// What native code does at an address. `depth`: how far above the stack pointer the return address
// of a function without a frame stands; NO_RETURN in code that handlers have called.
constexpr SLO NO_RETURN = -1;
struct native_place {
    const ULO *node = nullptr; // NULL: none of the program's work, or no such code
    SLO depth = NO_RETURN;
};

// That layer. Where it is not there, the handlers run alone.
struct native_maker {
    unsigned rounds, calls; // of a loop or of a function until it is hot

    // Code that goes on with the linked loop at `node` and does all that is left of it, its value
    // too. It returns false, with nothing done, where the variables hold other types than it was
    // made for. NULL if there is no code.
    using rest_of_loop = bool (*)(const ULO *dat_ptr, kestrin_data *ret_dat);
    rest_of_loop (*loop)(const ULO *node);
    // Makes the main node of an image native, if it can be. Its frame stands in the record.
    void (*function)(const ULO *image);
    // Linked code between two addresses is about to end.
    void (*forget)(const void *from, const void *to);
    // Of a watched run; a signal handler of the running thread may call this.
    native_place (*find)(const void *address) = nullptr;
};

// What is not worth a further look now gets so many rounds or calls.
constexpr unsigned LEFT_ALONE = 1 << 12;

// All counters at their beginning.
hot_counters fresh_counters();

// Places that lie near each other have counters of their own. Loops that share one are hot earlier;
// of functions that do, one is hot when its calls come without the others' between them, or when
// that has been waited for PATIENCE times in all.
constexpr unsigned PATIENCE = 1 << 14;
inline ULO counter_of(const ULO *place)
{
    return reinterpret_cast<ULO>(place) / sizeof(ULO) % hot_counters::COUNT;
}

// At the top of each round of a loop. True if native code has done the rest.
bool go_on_natively(const ULO *dat_ptr, kestrin_data *ret_dat, unsigned *rounds_left);
inline bool is_done_natively(const ULO *dat_ptr, kestrin_data *ret_dat, unsigned *rounds_left)
{
    return --*rounds_left == 0 && go_on_natively(dat_ptr, ret_dat, rounds_left);
}
inline unsigned *rounds_left_of(const ULO *dat_ptr)
{
    return &rt_ctrl->counters->rounds[counter_of(dat_ptr)];
}

// At each call of a function, when its frame stands in the record.
void make_function_native(const ULO *image, unsigned *calls_left);
inline void count_call(rt_control *rt, const ULO *image)
{
    unsigned *left = &rt->counters->calls[counter_of(image)];
    if (--*left == 0) [[unlikely]]
        make_function_native(image, left);
}

// To be called before linked code of so many bytes ends.
inline void forget_native(const CHR *code, ULO size)
{
    if (the_engine.native != nullptr) the_engine.native->forget(code, code + size);
}

// -- What that layer takes from the handlers of loops ------------------------------------------

// The value of a loop that has ended well.
void answer_zero(kestrin_data *ret_dat);
// Takes back a BREAK. False if something else is pending.
bool absorb_break();
