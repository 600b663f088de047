// Case change of eight ASCII letters at once: the bytes of a word are compared side by side in
// arithmetic that never carries from one byte into the next. Bytes from 128 on stay.
#pragma once

#include "kestrin/types.h"

constexpr ULO EACH_BYTE = 0x0101010101010101;
constexpr ULO HIGH_BITS = EACH_BYTE * 0x80;

// 0x20 in every byte that holds one of the letters `first` to `last`.
constexpr ULO case_bits(ULO word, UCH first, UCH last)
{
    const ULO low = word & ~HIGH_BITS;
    const ULO from_first = low + EACH_BYTE * (0x80 - first);
    const ULO above_last = low + EACH_BYTE * (0x7F - last);
    return (from_first & ~above_last & ~word & HIGH_BITS) >> 2;
}

constexpr ULO upper_word(ULO word) { return word ^ case_bits(word, 'a', 'z'); }

constexpr ULO lower_word(ULO word) { return word ^ case_bits(word, 'A', 'Z'); }
