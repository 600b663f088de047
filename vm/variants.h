// Operations on numbers for what their operands are. An operand is a plain variable, a constant or
// anything else, and the linker knows which: it puts into a node of arithmetic the variant that
// asks nothing of its operands at run time. A node has one parent, so a SETQ around such a node
// gets a handler that does the work of both.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <utility>

#include "kestrin/value.h"

// VARIABLE: a read of a plain variable whose type is unknown or the operand's. CONSTANT: one of the
// operand's type. EXPRESSION: any other node. ANY: not looked at.
enum operand_kind : UCH { VARIABLE, CONSTANT, EXPRESSION, ANY };
constexpr std::size_t OPERAND_KINDS = 3;

// The handlers of an operation for two operands of certain kinds.
struct variant {
    fcall record;    // leaves the result in the record, as the generic handler does
    fcall assigning; // stands in the node of a SETQ whose value the operation is
};
// By the kind of the first and then of the second.
using variant_table = std::array<variant, OPERAND_KINDS * OPERAND_KINDS>;

template <class operation, std::size_t... i>
constexpr variant_table make_variants(std::index_sequence<i...>)
{
    return {operation::template of_kinds<operand_kind(i / OPERAND_KINDS),
                                         operand_kind(i % OPERAND_KINDS)>()...};
}

// An operation on numbers.
struct numeric_row {
    fcall handler, proved; // the generic one and the fast one
    const void *function;  // numeric::direct, for those who have its operands
    const CHR *letters;    // of the operands' types
    CHR result;
    bool may_fault;
    const variant_table *variants; // NULL: it has none
};
std::span<const numeric_row> integer_operations(), float_operations();

// Chooses the variant of a linked node, whose operand words are given. NULL: the node has none.
const variant *specialise(ULO *node, const ULO *words);
// Makes a SETQ of a number do the work of its operand too, whose variant is given. False for any
// other node.
bool assign_at_once(ULO *node, const variant *value);

// The generic handler that a variant, or a form of vm/moves.h, stands for; any other handler is its
// own.
fcall generic_handler(fcall form);
