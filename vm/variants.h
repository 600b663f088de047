// Variants of handlers for what their operands are. An operand is a plain variable, a constant, a
// value that its node can hand on, or anything else, and the linker knows which: it puts into a
// node the variant that asks nothing of its operands at run time.
//
// A node has one parent, which alone calls it. So the two may agree on another way than through the
// record: the operand's node hands its value on in a register, or the parent's handler does the
// work of both.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <utility>

#include "kestrin/value.h"

// VARIABLE: a read of a plain variable whose type is unknown or the operand's. CONSTANT: one of the
// operand's type, which may be any. MEMBER: one of an array of the operand's type, with a plain
// variable as index; of any array if the type may be any. HANDED: a node that hands on a value of
// the operand's type. EXPRESSION: any other node with operands of its own, or a call. ANY: not
// looked at.
enum operand_kind : UCH { VARIABLE, CONSTANT, MEMBER, HANDED, EXPRESSION, ANY };
constexpr std::size_t OPERAND_KINDS = 5;

constexpr bool is_in_place(operand_kind kind) { return kind < HANDED; }

// A handler that gives its value in a register. A text stays as it is until the next evaluation.
union handing_form {
    SLO (*integer)(const ULO *dat_ptr, kestrin_data *ret_dat) = nullptr;
    DFL (*real)(const ULO *dat_ptr, kestrin_data *ret_dat);
    const CHR *(*text)(const ULO *dat_ptr, kestrin_data *ret_dat);
};

// The handlers of an operation for operands of certain kinds; those that it lacks are NULL.
struct variant {
    fcall record = nullptr;    // leaves the result in the record: what any parent can call
    fcall unused = nullptr;    // the same where nobody reads the result, if that makes a difference
    CHR letter = 0;            // 'I', 'F' or 'S', if there is one of the following
    bool exact = false;        // they give the operation's own result, never a cast of another type
    bool member = false;       // the node is a MEMBER
    handing_form handing = {}; // hands the result on, by `letter`; its caller lends an owning slot
    fcall assigning = nullptr; // stands in the node of a SETQ whose value the operation is
    fcall choosing = nullptr;  // in the node of an IF whose condition it is
    fcall looping = nullptr;   // in the node of a WHILE
};

// What an operand is wanted for.
struct wanted {
    CHR letter = 0;     // of the type to which it is read, 'V' any; 0: there is no such operand
    bool exact = false; // its own type matters as well
};

// Handlers, the generic and the fast one of an instruction, and their variants by the kinds of one
// operand or of two that follow each other. Where there is no variant for an operand that is
// HANDED, it is taken for an EXPRESSION, and a MEMBER for one of these two.
struct variant_row {
    fcall handlers[2] = {};
    UCH first = 0; // number of the operand word that the first letter is about
    wanted operands[2] = {};
    // The handler, among those of the first operand's variant, that does the work of both nodes.
    fcall variant::*together = nullptr;
    const variant *variants = nullptr; // [first kind], or [first * OPERAND_KINDS + second]
};

// Tables of variants; `make` gives the one for the kinds that it is called for.
template <class F> constexpr auto by_one(F make)
{
    std::array<variant, OPERAND_KINDS> made = {};
    [&]<std::size_t... i>(std::index_sequence<i...>)
    {
        ((made[i] = make.template operator()<operand_kind(i)>()), ...);
    }
    (std::make_index_sequence<OPERAND_KINDS>());
    return made;
}
template <class F> constexpr auto by_two(F make)
{
    std::array<variant, OPERAND_KINDS *OPERAND_KINDS> made = {};
    [&]<std::size_t... i>(std::index_sequence<i...>)
    {
        ((made[i] = make.template
                    operator()<operand_kind(i / OPERAND_KINDS), operand_kind(i % OPERAND_KINDS)>()),
         ...);
    }
    (std::make_index_sequence<OPERAND_KINDS * OPERAND_KINDS>());
    return made;
}

// The rows of each file of handlers that has some.
extern const std::span<const variant_row> integer_variants, float_variants, compare_variants,
    control_variants, variable_variants, array_variants, cast_variants;

// Chooses the variant of a linked node, whose operand words are given with what this function has
// returned for the first of them. Returns the variant, or NULL for a node that has none. `used` is
// false where nobody reads the node's value.
constexpr std::size_t LOOKED_AT = 4;
const variant *specialise(ULO *node, const ULO *words, const variant *const *operands, bool used);

// What a handler in linked code stands for.
struct form_facts {
    fcall handler; // the generic one of the node
    fcall record;  // does what the node does and leaves the value in the record
};
// Of a form of this table; of any other handler it is the handler itself, twice.
form_facts facts_of_form(fcall form);
