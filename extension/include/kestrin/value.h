// The universal value, the handler protocol and the calls that a handler makes.
//
// A program runs as threaded code: a node is a run of words, the first being the address of its
// handler. A handler gets the address of the word behind it and the record that its caller lends
// for the result. It evaluates an operand by calling the operand's handler, whose node's address
// stands in an operand word.
#pragma once

#include "kestrin/types.h"

// A variable, an array member, an argument and a result alike.
struct kestrin_data {
    // 1: the record owns its string and array. 0: it may be a shallow alias of a variable, which
    // must be neither written through nor freed.
    UCH disable_ptr;
    UCH single;    // 1: a single value. 0: an array.
    UCH type;      // of the single value or of member 0: 0 (undefined), 'I', 'F', 'S', 'Z'
    UCH arraytype; // 0: mixed (or no array); else the class of all members from 1 on
    union {
        SLO ival;
        DFL fval;
    } value;
    CHR *svalue;      // counted string if `type` is 'S', else NULL or a buffer left over
    ULO indices_numb; // member places, member 0 included; 1 for a single value
    UCH *aready_tags; // typed arrays: for each place 0 (not assigned) or the type
    union {
        kestrin_data *mix;
        SLO *ival;
        DFL *fval;
        CHR **svalue;
    } array; // place 0 is never used: member 0 is the record's own value
};

// A handler. `dat_ptr` points behind the handler word of the node.
using fcall = void (*)(const ULO *dat_ptr, kestrin_data *ret_dat);

// The three forms in which records begin. An owning slot gets a value that outlives the variable it
// was read from; a borrowing slot may be answered by an alias.
inline constexpr kestrin_data fresh_variable = {0, 1, 0, 0, {0}, nullptr, 1, nullptr, {nullptr}};
inline constexpr kestrin_data borrowing_slot = fresh_variable;
inline constexpr kestrin_data owning_slot = {1, 1, 0, 0, {0}, nullptr, 1, nullptr, {nullptr}};

// Evaluate the operand in the operand word at `dat_ptr` and convert it. `targ` of ret_sval is a
// string variable of the caller, replaced in place. Nothing happens while an error is pending.
void ret_ival(const ULO *dat_ptr, SLO *targ);
void ret_fval(const ULO *dat_ptr, DFL *targ);
void ret_sval(const ULO *dat_ptr, CHR **targ);

// Deep copy. `indices_numb` 0 copies all member places of `source`, else the first so many. Copying
// a record over itself or over the variable that it aliases loses nothing.
void copy_kst_data(kestrin_data *dest, const kestrin_data *source, ULO indices_numb);
// Frees what the record owns and leaves it an undefined single value.
void free_kst_data(kestrin_data *ret_dat);

// 1 while no error and no unwinding is pending on this thread.
UCH noterror();

// Create and release the blocks of the calling thread. Every thread that evaluates code or uses the
// string library calls them; _Main_ does so for its own. Both may be called more than once.
void setup_quarne_thread_safe_functionality_for_local_thread();
void cleanup_quarne_thread_safe_functionality_for_local_thread();
