// Words of compiled bytecode, which compiler, verifier, linker and decompiler share, and of linked
// bytecode, which the machine reads. This is a file format.
//
// A function image:
//
//     code | slots | arguments | UDFs | table of UDFs | debug text | images of UDFs | main node
//
// A node is a code word, which holds a letter and a payload, and what its letter asks for:
//
//     I F          code | value                             a constant
//     Z            code                                     nil
//     S            code | length | bytes, a NUL, fill       a string, as it lies in memory
//     V i f s z    code | variable                          a read of a variable, of a proved type
//     P            code | variable                          a variable that is lent to a call
//     T t          code | operands                          an instruction, of ISA or ISAext
//     T            code | variable | operands               SETQ, INDEX and others: operand 0 is
//                                                           the number of a variable
//     T            code | count | operands                  any number of operands, as PROGN
//     L G          code | UDF | count | operands            a call, of a global UDF with G
//
// An operand is the distance from its word to its node, which stands behind the table; that of the
// table of UDFs and of the main node likewise. Linked, a code word is the address of a handler, the
// code word of an image that of its main node, and each distance and UDF number an address.
#pragma once

#include "kestrin/types.h"

namespace image {

// Code letters, in the low 7 bits of a code word; its payload stands above.
inline constexpr CHR letters[] = "UIFSZVifszPTtLG";
constexpr unsigned LETTER_BITS = 7;

constexpr ULO code(CHR letter, ULO payload = 0)
{
    return payload << LETTER_BITS | static_cast<UCH>(letter);
}
constexpr CHR letter_of(ULO word) { return static_cast<CHR>(word & 127); }
constexpr ULO payload_of(ULO word) { return word >> LETTER_BITS; }

// Payload of an instruction.
constexpr ULO instruction(ULO row, ULO slot) { return row * 8 + slot; }
constexpr ULO row_of(ULO payload) { return payload / 8; }
constexpr ULO slot_of(ULO payload) { return payload % 8; }

// Words of the header of an image.
enum : ULO { MAIN_NODE, SLOTS, ARGUMENTS, UDFS, UDF_TABLE };

// Where in a node stands what; 0 for what it lacks, as word 0 is the code word.
struct node_words {
    ULO variable = 0; // number of a variable
    ULO udf = 0;
    ULO count = 0;    // number of operands
    ULO operands = 0; // the first of them
    ULO declared = 0; // how many there are if no word counts them
};

constexpr node_words words_of_call() { return {.udf = 1, .count = 2, .operands = 3}; }

// Of an instruction whose row declares `operands`, -1 any number. `variable_first`: the first of
// them is the number of a variable in the node.
constexpr node_words words_of_instruction(SLO operands, bool variable_first)
{
    if (operands < 0) return {.count = 1, .operands = 2};
    const ULO declared = static_cast<ULO>(operands);
    if (!variable_first) return {.operands = 1, .declared = declared};
    return {.variable = 1, .operands = 2, .declared = declared > 0 ? declared - 1 : 0};
}

// Words of `bytes` characters with at least one NUL behind them.
constexpr ULO words_of_text(ULO bytes) { return bytes / 8 + 1; }

} // namespace image
