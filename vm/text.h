// Instructions over strings: the fetch of text operands and the templates that turn a function of
// the string library into handlers.
//
// The first text operand is built in the result record, where the library may change it in place. A
// constant or a plain variable is read where it stands, as long as no operand after it can assign.
#pragma once

#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/handler.h"

// A constant or a plain variable of a number.
inline bool is_number_leaf(const ULO *node)
{
    return is_node(node, func__getval, func__dummy_i, func__getval_i, func__dummy_f,
                   func__getval_f);
}

// A plain variable of whatever type.
inline bool is_variable_read(const ULO *node)
{
    return is_node(node, func__getval, func__getval_i, func__getval_f, func__getval_s,
                   func__getval_z);
}

// An INDEX of an array of texts, or of any values, whose index is a leaf. Words: variable, index.
void func__index(const ULO *dat_ptr, kestrin_data *ret_dat);
void func__index_s(const ULO *dat_ptr, kestrin_data *ret_dat);
inline bool is_plain_member(const ULO *node)
{
    return is_node(node, func__index, func__index_s) && is_number_leaf(node_at(node + 2));
}

// Its evaluation changes no variable.
inline bool has_no_effect(const ULO *node)
{
    return is_number_leaf(node) || is_node(node, func__dummy_s, func__getval_s) ||
           is_plain_member(node);
}
inline bool none_has_effect(const ULO *from, const ULO *to)
{
    for (; from < to; from++)
        if (!has_no_effect(node_at(from))) return false;
    return true;
}

// Turns a record that holds any value into one that holds its text, or raises the error of an
// undefined value; `word` is the operand word.
void make_text(const ULO *word, kestrin_data *d);

// A copy of `source` for calls that end a text at its first NUL: each NUL byte becomes the two
// characters \0.
CHR *show_nuls(CHR **targ, const CHR *source);

// Evaluates an operand as text into an owning slot.
inline void eval_text(const ULO *word, kestrin_data *slot)
{
    eval_value(word, slot);
    if (!slot->single || slot->type != 'S') make_text(word, slot);
}

// Makes a borrowing slot an alias of a member. False, with nothing owned by the slot, if there is
// none.
bool lend_member(const kestrin_data *array, SLO index, kestrin_data *slot);

// The index of a plain member. False with an error pending, or if its leaf is no good for one.
bool plain_index(const ULO *node, SLO *index);

// The place of the text of a member that is one, NULL if it is not. The text of an array is its
// member 0; it is one where it is only read.
enum text_shape : UCH { ANY_TEXT, SINGLE_TEXT };
CHR **member_text(kestrin_data *array, SLO index, text_shape shape);

// A plain member of a mixed array that holds a value; NULL for any other, and with an error
// pending.
const kestrin_data *mixed_member(const ULO *node);

// The place of the text of a plain member, to be read.
inline CHR *const *member_text(const ULO *node)
{
    SLO index;
    return plain_index(node, &index) ? member_text(variable(node[1]), index, ANY_TEXT) : nullptr;
}

// The text of a TYPE of a plain variable, a constant; NULL for that of anything else.
void func__type(const ULO *dat_ptr, kestrin_data *ret_dat);
const CHR *type_in_place(const ULO *node);

// The text of a constant, of a variable or plain member that holds one, or of the type of a
// variable, where it stands; NULL for anything else, an allocated text otherwise.
inline const CHR *text_in_place(const ULO *node)
{
    if (is_node(node, func__dummy_s)) return reinterpret_cast<const CHR *>(node + 2);
    if (is_node(node, func__getval, func__getval_s)) {
        const kestrin_data *v = variable(node[1]);
        return v->type == 'S' ? v->svalue : nullptr;
    }
    if (is_node(node, func__type)) return type_in_place(node);
    CHR *const *const place = is_plain_member(node) ? member_text(node) : nullptr;
    return place == nullptr ? nullptr : *place;
}

// A number that can be fetched without touching the text in the result record.
template <class T> bool is_in_place(const ULO *node)
{
    return is_node(node, in_record<T>::constant, in_record<T>::typed_read, func__getval);
}

// One operand of an operation, held for as long as the operation runs. `last` is behind the last
// operand word; `empty` is true while no text stands in the record yet.
template <class A> struct held_operand {
    using number = std::conditional_t<std::is_floating_point_v<A>, DFL, SLO>;
    static constexpr bool in_record = false;
    number value = 0;
    held_operand(const ULO *word, const ULO *, kestrin_data *ret_dat, bool empty)
    {
        if (empty || is_in_place<number>(node_at(word)))
            value = fetch<number>(word, ret_dat);
        else if constexpr (std::is_same_v<number, DFL>)
            ret_fval(word, &value);
        else
            ret_ival(word, &value);
    }
    A get(const kestrin_data *) const { return static_cast<A>(value); }
};

template <> struct held_operand<const CHR *> {
    const CHR *place = nullptr;
    bool in_record = false;
    scratch own;
    held_operand(const ULO *word, const ULO *last, kestrin_data *ret_dat, bool empty)
    {
        const ULO *node = node_at(word);
        if (is_node(node, func__dummy_s) || none_has_effect(word + 1, last))
            place = text_in_place(node);
        if (place != nullptr) return;
        in_record = empty;
        if (empty)
            eval_text(word, ret_dat);
        else
            ret_sval(word, &own.s);
    }
    const CHR *get(const kestrin_data *ret_dat) const
    {
        if (place != nullptr) return place;
        return in_record ? ret_dat->svalue : own.s;
    }
};

// All operands of an instruction, fetched in order.
template <class... A> struct held_operands {
    held_operands(const ULO *, const ULO *, kestrin_data *, bool) {}
    template <class F, class... Got> auto pass(F f, kestrin_data *, Got... got) const
    {
        return f(got...);
    }
};

template <class A, class... Rest> struct held_operands<A, Rest...> {
    held_operand<A> first;
    held_operands<Rest...> rest;
    held_operands(const ULO *word, const ULO *last, kestrin_data *ret_dat, bool empty)
        : first(word, last, ret_dat, empty),
          rest(word + 1, last, ret_dat, empty && !first.in_record)
    {
    }
    template <class F, class... Got> auto pass(F f, kestrin_data *ret_dat, Got... got) const
    {
        return rest.pass(f, ret_dat, got..., first.get(ret_dat));
    }
};

inline void answer_text(kestrin_data *ret_dat)
{
    ret_dat->single = 1;
    ret_dat->type = 'S';
}

// A result that is a number: any integer type answers 'I'.
template <class R> void answer_number(kestrin_data *ret_dat, R value)
{
    if constexpr (std::is_floating_point_v<R>)
        answer<DFL>(ret_dat, value);
    else
        answer<SLO>(ret_dat, static_cast<SLO>(value));
}

// The signature of `op` says the rest: CHR *(CHR **targ, operands...) gives a string, any other
// result is a number.
template <auto op> struct text;

// Fetches the operands and hands them to `run`, unless an error is pending by then.
template <class... A, class F> void with_operands(const ULO *dat_ptr, kestrin_data *ret_dat, F run)
{
    ret_dat->disable_ptr = 1;
    const held_operands<A...> held(dat_ptr, dat_ptr + sizeof...(A), ret_dat, true);
    if (rt_ctrl->rt_noterror) [[likely]]
        held.pass(run, ret_dat);
}

template <class... A, CHR *(*op)(CHR **, A...)> struct text<op> {
    static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        with_operands<A...>(dat_ptr, ret_dat, [ret_dat](A... a) {
            answer_text(ret_dat);
            op(&ret_dat->svalue, a...);
        });
    }
};

template <class R, class... A, R (*op)(A...)>
requires(!std::is_same_v<R, CHR *>) struct text<op> {
    static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        with_operands<A...>(dat_ptr, ret_dat,
                            [ret_dat](A... a) { answer_number(ret_dat, op(a...)); });
    }
};

// An instruction without operands. Like the leaves it touches nothing while an error is pending.
// `op` is CHR *(CHR **targ) for a text; any other result is a number.
template <auto op> void answer_leaf(kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return;
    if constexpr (std::is_invocable_v<decltype(op), CHR **>) {
        lend_again(ret_dat);
        ret_dat->disable_ptr = 1;
        answer_text(ret_dat);
        op(&ret_dat->svalue);
    } else {
        answer_number(ret_dat, op());
    }
}

#define LEAF_HANDLER(name, ...)                                                                    \
    HANDLER(name) { answer_leaf<__VA_ARGS__>(ret_dat); }
