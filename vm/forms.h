// The forms of an operation on numbers: the handlers that leave its result in the record, hand it
// on in a register, or do the work of the SETQ, IF or WHILE around it as well.
//
// The contract of a form, in three sentences. It first tries to get its number from operands that
// stand in place, and until it has it, it has changed nothing. Where that fails, it calls the
// generic handler of the node, which does the whole work as if no form had been chosen. Whatever
// else it evaluates, it looks at rt_noterror before it stores or answers anything.
//
//     linker ---------> specialise() ------> variants_of<op>     one table for each operation:
//     (bytecode/link)   (vm/variants)        [kind of operand]   a row of forms for each kind
//
//     record  -------+                     +--> compute_in_place   operands in place, or refuses
//     hand    -------+                     |
//     assign  -------+--> operation::get --+
//     choose  -------+                     |
//     repeat_while --+                     +--> compute            operands of other kinds
//        |
//        +-- refused: op::generic, or the generic SETQ, IF, WHILE
//
// An operation is a class with
//     result, wants            its number's type, and what it wants of its operands
//     truth                    whether it serves as a condition
//     members                  whether a MEMBER as operand is worth forms of its own
//     generic                  its handler, which takes operands of any kind
//     compute_in_place<kinds>  the number where all operands stand in place; false where they hold
//                              another type or the operation has a fault, and nothing has been done
//     compute<kinds>           the number for operands of other kinds; `ret_dat` is an owning slot
//     with_first<kinds>        in place of that, only where the first operand stands in place and
//                              may refuse
//     make<kinds>              only where some kinds have other forms than the usual: the variant
//
// A further form is one function here and one member of `variant`, filled in by forms_of().
#pragma once

#include "vm/handler.h"
#include "vm/hot.h"

// -- Where a number comes from -----------------------------------------------------------------

// Each gives the number. Where all that it reads stands in place it may refuse, and has done
// nothing.

// An operand word.
template <class T, operand_kind kind> struct operand {
    static constexpr bool in_place = is_in_place(kind);
    static bool get(const ULO *word, [[maybe_unused]] kestrin_data *ret_dat, T *value)
    {
        if constexpr (in_place) {
            return read_in_place<T, kind>(word, value);
        } else {
            *value = fetch<CAST, T, kind>(word, ret_dat);
            return true;
        }
    }
};

// The words of an operation.
template <class op, operand_kind... kinds> struct operation {
    using T = typename op::result;
    static constexpr bool in_place = (is_in_place(kinds) && ...);
    [[gnu::always_inline]] static bool get(const ULO *dat_ptr,
                                           [[maybe_unused]] kestrin_data *ret_dat, T *value)
    {
        if constexpr (in_place) {
            return op::template compute_in_place<kinds...>(dat_ptr, value);
        } else if constexpr (requires {
                                 op::template with_first<kinds...>(dat_ptr, ret_dat, value);
                             }) {
            return op::template with_first<kinds...>(dat_ptr, ret_dat, value);
        } else {
            *value = op::template compute<kinds...>(dat_ptr, ret_dat);
            return true;
        }
    }
};

// An operand word whose node is an operation.
template <class operation> struct inner {
    static constexpr bool in_place = operation::in_place;
    [[gnu::always_inline]] static bool get(const ULO *word, kestrin_data *ret_dat,
                                           typename operation::T *value)
    {
        return operation::get(node_at(word) + 1, ret_dat, value);
    }
};

// -- What is done with it ----------------------------------------------------------------------

template <class op, operand_kind... kinds> void record(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    using numbers = operation<op, kinds...>;
    ret_dat->disable_ptr = 1;
    typename op::result value;
    if (!numbers::get(dat_ptr, ret_dat, &value)) [[unlikely]]
        return op::generic(dat_ptr, ret_dat);
    if (rt_ctrl->rt_noterror) [[likely]]
        answer(ret_dat, value);
}

template <class op>
[[gnu::noinline]] auto hand_generically(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    op::generic(dat_ptr, ret_dat);
    return rt_ctrl->rt_noterror ? in_record<typename op::result>::from(ret_dat) : 0;
}
template <class op, operand_kind... kinds> auto hand(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    typename op::result value;
    if (!operation<op, kinds...>::get(dat_ptr, ret_dat, &value)) [[unlikely]]
        return hand_generically<op>(dat_ptr, ret_dat);
    return value;
}

// SETQ of a value that is likely a T; its own value may be `used`. handlers/variable.cpp holds the
// body and makes these two.
template <class T, operand_kind kind = ANY, bool used = true>
void assign_any(const ULO *dat_ptr, kestrin_data *ret_dat);
extern template void assign_any<SLO>(const ULO *dat_ptr, kestrin_data *ret_dat);
extern template void assign_any<DFL>(const ULO *dat_ptr, kestrin_data *ret_dat);

template <class T, class source> void assign(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if constexpr (!source::in_place) ret_dat->disable_ptr = 1;
    T value;
    if (!source::get(dat_ptr + 1, ret_dat, &value)) [[unlikely]]
        return assign_any<T>(dat_ptr, ret_dat);
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    answer(ret_dat, value);
    kestrin_data *target = variable(dat_ptr[0]);
    if (!owns_nothing(target)) [[unlikely]]
        return copy_kst_data(target, ret_dat, 0);
    answer(target, value);
}

template <class source> void choose(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    // A slot that borrows still does so for the branch, which may answer by an alias.
    // The record's own type too, for a branch that leaves the record as it was.
    const UCH owning = ret_dat->disable_ptr, type = ret_dat->type;
    if constexpr (!source::in_place) ret_dat->disable_ptr = 1;
    SLO condition;
    if (!source::get(dat_ptr, ret_dat, &condition)) [[unlikely]] {
        ret_dat->disable_ptr = owning;
        return choose<operand<SLO, ANY>>(dat_ptr, ret_dat);
    }
    if constexpr (!source::in_place) {
        if (!owning) {
            clear(ret_dat);
            ret_dat->disable_ptr = 0;
        }
        ret_dat->type = type;
    }
    eval(dat_ptr + (condition != 0 ? 1 : 2), ret_dat);
}

void answer_zero(kestrin_data *ret_dat);
// Takes back a BREAK. False if something else is pending.
bool absorb_break();

template <class source> void repeat_while(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return;
    ret_dat->disable_ptr = 1;
    unsigned *const rounds_left = rounds_left_of(dat_ptr);
    for (;;) {
        if (is_done_natively(dat_ptr, ret_dat, rounds_left)) return;
        SLO condition;
        if (!source::get(dat_ptr, ret_dat, &condition)) [[unlikely]]
            condition = fetch<CAST, SLO>(dat_ptr, ret_dat);
        // A BREAK in the body is seen here too: nothing has been fetched then.
        if (!rt_ctrl->rt_noterror) {
            if (!absorb_break()) return;
            break;
        }
        if (condition == 0) break;
        eval(dat_ptr + 1, ret_dat);
    }
    answer_zero(ret_dat);
}

// -- Tables ------------------------------------------------------------------------------------

template <class op, operand_kind... kinds> constexpr handing_form handing()
{
    if constexpr (std::is_same_v<typename op::result, DFL>)
        return {.real = &hand<op, kinds...>};
    else
        return {.integer = &hand<op, kinds...>};
}

template <class op, operand_kind... kinds> constexpr variant forms_of()
{
    using T = typename op::result;
    using source = inner<operation<op, kinds...>>;
    variant made = {.record = &record<op, kinds...>,
                    .letter = in_record<T>::letter,
                    .exact = true,
                    .handing = handing<op, kinds...>()};
    if constexpr (op::truth) {
        made.choosing = &choose<source>;
        made.looping = &repeat_while<source>;
    } else {
        made.assigning = &assign<T, source>;
    }
    return made;
}

template <class op> struct variant_maker {
    template <operand_kind... kinds> constexpr variant operator()() const
    {
        if constexpr (!op::members && ((kinds == MEMBER) || ...))
            return {};
        else if constexpr (requires { op::template make<kinds...>(); })
            return op::template make<kinds...>();
        else
            return forms_of<op, kinds...>();
    }
};

template <class op> constexpr auto make_variants()
{
    if constexpr (std::size(op::wants) == 1)
        return by_one(variant_maker<op>());
    else
        return by_two(variant_maker<op>());
}
template <class op> inline constexpr auto variants_of = make_variants<op>();

// The row of an operation.
template <class op> constexpr variant_row forms(fcall generic, fcall proved)
{
    variant_row row = {.handlers = {generic, proved}, .variants = variants_of<op>.data()};
    for (std::size_t i = 0; i < std::size(op::wants); i++) row.operands[i] = op::wants[i];
    return row;
}
