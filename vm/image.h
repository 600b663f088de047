// Words of compiled bytecode, which compiler, linker and decompiler share. All references are
// relative, in words. This is a file format.
//
// A function image: header, slots, formal arguments, number of UDFs, a table of offsets to their
// images, debug text, the images, the main node. An operand table holds the distance from each
// entry to the operand's node.
#pragma once

#include "kestrin/types.h"

namespace image {

// Code letters, in the low 7 bits of a code word; its payload stands above.
inline constexpr CHR letters[] = "UIFSZVifszPTtLG";
constexpr unsigned letter_bits = 7;

constexpr ULO code(CHR letter, ULO payload = 0)
{
    return payload << letter_bits | static_cast<UCH>(letter);
}
constexpr CHR letter_of(ULO word) { return static_cast<CHR>(word & 127); }
constexpr ULO payload_of(ULO word) { return word >> letter_bits; }

// Payload of an instruction.
constexpr ULO instruction(ULO row, ULO slot) { return row * 8 + slot; }
constexpr ULO row_of(ULO payload) { return payload / 8; }
constexpr ULO slot_of(ULO payload) { return payload % 8; }

// Words of the header of an image.
enum : ULO { MAIN_NODE, SLOTS, ARGUMENTS, UDFS, UDF_TABLE };

// Words of `bytes` characters with at least one NUL behind them.
constexpr ULO words_of_text(ULO bytes) { return bytes / 8 + 1; }

} // namespace image
