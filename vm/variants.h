// Variants of handlers for what their operands are. An operand is a plain variable, a constant or
// an expression, and the linker knows which: it puts the variant that asks nothing of it at run
// time in the place of the handler that the table names.
#pragma once

#include <cstddef>
#include <span>
#include <utility>

#include "kestrin/value.h"

// VARIABLE: a read of a plain variable whose type is unknown or the operand's. CONSTANT: one of the
// operand's type. EXPRESSION: a node with operands of its own, or a call. ANY: not looked at.
enum leaf_kind : UCH { VARIABLE, CONSTANT, EXPRESSION, ANY };
constexpr std::size_t leaf_kinds = 3;

// A handler and its variants, for one operand or for two that follow each other.
struct variant_row {
    fcall general;
    UCH first;      // number of the operand word that the first letter is about
    CHR letters[2]; // types of the operands, 'I' or 'F'; 0: there is one only
    fcall variants[leaf_kinds * leaf_kinds]; // [first kind], or [first * leaf_kinds + second]
};

// Makes a row; `variant` gives the handler for the kinds that it is instantiated with.
template <std::size_t operands, class F>
constexpr variant_row vary(fcall general, UCH first, CHR letter, CHR second_letter, F variant)
{
    variant_row row = {general, first, {letter, second_letter}, {}};
    [&]<std::size_t... i>(std::index_sequence<i...>)
    {
        if constexpr (operands == 1)
            ((row.variants[i] = variant.template operator()<leaf_kind(i), ANY>()), ...);
        else
            ((row.variants[i] = variant.template
                                operator()<leaf_kind(i / leaf_kinds), leaf_kind(i % leaf_kinds)>()),
             ...);
    }
    (std::make_index_sequence < operands == 1 ? leaf_kinds : leaf_kinds * leaf_kinds > ());
    return row;
}

// The rows of each file of handlers that has some.
extern const std::span<const variant_row> integer_variants, float_variants, compare_variants,
    control_variants, variable_variants, array_variants;

// The variant of a handler for the linked operands at these words, or the handler itself.
fcall specialised(fcall general, const ULO *operand_words);
