// Values that change hands in place of being copied. The linker knows what becomes of the value of
// a node; where nobody could see the difference, it puts a form of the handler there that takes,
// gives away or lends what the usual one copies.
#pragma once

#include "vm/handler.h"

// Gives the value of `source` to `dest`, each the owner of what it holds. What `dest` held is freed
// or stays in `source` as a buffer; `source` is left with no value to go by. Both keep their
// `disable_ptr`.
void take_value(kestrin_data *dest, kestrin_data *source);

// The same from a result record that nobody reads any more; it may be an alias, which is copied.
inline void take_result(kestrin_data *dest, kestrin_data *source)
{
    if (source->disable_ptr)
        take_value(dest, source);
    else
        copy_kst_data(dest, source, 0);
}

enum class value_use : UCH {
    OPERAND, // by the node around it
    UNUSED,  // by nobody
    ANSWER,  // it is what the function answers, the last thing that is done in its frame
    ARGUMENT // of a function
};

// What becomes of operand `i` of `count`, in a node that has this handler and whose own value is
// used so.
value_use use_of_operand(fcall handler, ULO i, ULO count, value_use own);

// The form of a linked SETQ or ARSETQ, nobody reads whose value, that appends to a text in place;
// NULL if `node` is no such thing. Not for one whose value operand assigns the variable.
fcall appending_form(const ULO *node);

// The form of a linked SETQ or ARSETQ, nobody reads whose value, that takes the value of its
// operand out of the record, or copies a variable or a member from where it stands; NULL for other
// nodes.
fcall taking_setq(const ULO *node);
fcall taking_arsetq(const ULO *node);

// The form of an INDEX that lends its member to a function; NULL for other nodes.
fcall lending_form(const ULO *node);

// The forms of a MAPCAR of whose answer nobody reads the texts that show the code, or neither these
// nor the code itself: they make none.
void func__mapcar_without_texts(const ULO *dat_ptr, kestrin_data *ret_dat);
void func__mapcar_without_code(const ULO *dat_ptr, kestrin_data *ret_dat);

// All of these forms, by file, each with the handler that it stands for.
struct handler_form {
    fcall form, handler;
};
std::span<const handler_form> appending_forms(), setq_forms(), array_forms();

// True for a node that lends what it passes to a function: the frame must not free it.
void func__index_lent(const ULO *dat_ptr, kestrin_data *ret_dat);
inline bool is_lent(const ULO *node) { return is_node(node, func__getval_ptr, func__index_lent); }
