// The universal value, the handler protocol and the calls that a handler makes.
//
// A program runs as threaded code: a node is a run of words, the first being the address of its
// handler. A handler gets `dat_ptr`, the address of the word behind that, and the record `ret_dat`
// that its caller lends for the result. The operands of a unit's instruction stand in the words
// dat_ptr[0], dat_ptr[1] and so on: each holds the address of the operand's node.
//
// What a handler does, in this order:
// - It sets ret_dat->disable_ptr to 1: the result is owned.
// - It fetches its operands, first to last, each once, into locals or into `ret_dat`: by ret_ival()
//   and the like, which take any type and cast, or by eval_operand() where the types are proved,
//   for arrays, and for values as they come. No test stands in between: while an error is pending a
//   fetch does nothing.
// - If noterror() gives 1, it computes and leaves `ret_dat` a valid value: `single` 1, `type` and
//   the value. With an error pending, or raised by itself, it leaves `ret_dat` as it is.
// - It frees its own strings and records.
//
// `ret_dat` may hold an earlier value on entry. A single value just goes over it: its string is a
// target as it stands, and array memory left over is freed with the record. A handler that makes an
// array clears the record by free_kst_data() first; then it sets `single` 0, the value of member 0
// and `arraytype` (the row's ret_type, for which programs are compiled), and allocates a multiple
// of 128 places by malloc(), all of them filled: where there is no member by a tag 0 and a NULL
// string, or by a `fresh_variable`.
//
// A program's code runs on the thread of the run, and operands are evaluated there. Threads of a
// unit's own work on values that were fetched before.
#pragma once

#include "kestrin/errors.h"
#include "kestrin/types.h"

#pragma GCC visibility push(default) // the library shows the names of these headers alone

// A variable, an array member, an argument and a result alike.
//
// Member 0 of an array is the record's own value. Member k, from 1 below `indices_numb`, is
//     arraytype 0      array.mix[k], a record, maybe an array itself; unassigned if its type is 0
//     arraytype 'I'    array.ival[k]      in these and the next: unassigned if aready_tags[k] is 0
//     arraytype 'F'    array.fval[k]
//     arraytype 'S'    array.svalue[k]
//     arraytype 'Z'    nil; `array` is NULL
struct kestrin_data {
    // 1: whoever holds the record owns the string and the array in it and frees them. 0: it may be
    // a shallow alias of a variable, which must be neither written through nor freed, and is
    // invalid after the next assignment.
    UCH disable_ptr;
    UCH single;    // 1: a single value. 0: an array.
    UCH type;      // of the single value or of member 0: 0 (undefined), 'I', 'F', 'S', 'Z'
    UCH arraytype; // 0: mixed (or no array); else the class of all members from 1 on
    union {
        SLO ival;
        DFL fval;
    } value;          // if `type` is 'I' or 'F'
    CHR *svalue;      // counted string if `type` is 'S', else NULL or a buffer left over
    ULO indices_numb; // 1 for a single value; of an array the places, member 0 included. All of
                      // them have memory if the unit brings instructions; without, small arrays
                      // that the engine made own only those that were used
    UCH *aready_tags; // typed arrays: for each place 0 (not assigned) or the type; else NULL
    union {
        kestrin_data *mix;
        SLO *ival;
        DFL *fval;
        CHR **svalue;
    } array; // by malloc; place 0 is never used
};

// A handler. `dat_ptr` points behind the handler word of the node.
using fcall = void (*)(const ULO *dat_ptr, kestrin_data *ret_dat);

// The three forms in which records begin. An owning slot gets a value that outlives the variable it
// was read from; its holder frees it with free_kst_data(). A borrowing slot may be answered by an
// alias; its holder frees it if its `disable_ptr` reads 1 afterwards, and only then.
inline constexpr kestrin_data fresh_variable = {0, 1, 0, 0, {0}, nullptr, 1, nullptr, {nullptr}};
inline constexpr kestrin_data borrowing_slot = fresh_variable;
inline constexpr kestrin_data owning_slot = {1, 1, 0, 0, {0}, nullptr, 1, nullptr, {nullptr}};

// Evaluate the operand of the operand word at `dat_ptr` and cast it. Floats are cut toward zero; a
// text is read as far as it is a number, else 0; nil is 0, 0.0 and the empty string; numbers print
// as equ_num() and equ_fnum() do; an array gives its member 0. `*targ` has to be initialised: while
// an error is pending they do nothing and leave it as it is. When the operand itself fails, a
// number stays as it is, and the target of ret_sval() holds what the operand left: any text, or
// NULL. `targ` of ret_sval() is a target (kestrin/strings.h), freed by the caller.
void ret_ival(const ULO *dat_ptr, SLO *targ);
void ret_fval(const ULO *dat_ptr, DFL *targ);
void ret_sval(const ULO *dat_ptr, CHR **targ);

// Evaluates the operand of the operand word at `dat_ptr` into `ret_dat`, as it comes: any type, an
// array too. `ret_dat` is an owning slot, the handler's own among them, or a borrowing slot. It can
// be lent again for the next operand if it is an owning slot. With an error pending afterwards it
// holds nothing to go by.
void eval_operand(const ULO *dat_ptr, kestrin_data *ret_dat);

// Deep copy into `dest`, which owns what it gets and keeps its `disable_ptr`; what it held is freed
// or used again. `indices_numb` 0 copies all member places of `source`, else the first so many, at
// most all. Copying a record over itself or over the variable that it aliases loses nothing.
void copy_kst_data(kestrin_data *dest, const kestrin_data *source, ULO indices_numb);
// Frees what the record owns and leaves it an undefined single value; harmless when repeated.
// `disable_ptr` stays. Not for an alias.
void free_kst_data(kestrin_data *ret_dat);

// Create and release what the engine keeps for the calling thread: the string library's block and
// the machine's. A thread of a unit's own calls them at its start and at its end, around every
// other call of the engine; so does a main that calls any of it ahead of _Main_ (which needs no
// clean-up). The thread of a run has them already and keeps them: no clean-up there, in a handler
// or a callback. Each does nothing if it has nothing to do. Lack of memory ends the process.
void setup_quarne_thread_safe_functionality_for_local_thread();
void cleanup_quarne_thread_safe_functionality_for_local_thread();

#pragma GCC visibility pop
