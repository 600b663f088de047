// The heap block of a counted string, shared by the sources of this folder: padded sizes, resizing,
// and the layout primitive under all cutting and padding. A block is always the exact padded size
// of its string, and everything behind the characters is zero; seal() is the one place that sees to
// both the length word and the zeros.
#pragma once

#include <bit>
#include <cstring>
#include <string_view>

#include "kestrin/strings.h"
#include "strings/fatal.h"

SHARED_FATAL_SITE(MK_FST_BUFF)
SHARED_FATAL_SITE(GET_STD_BUFF)
SHARED_FATAL_SITE(CAT)
SHARED_FATAL_SITE(SUBSTR_SAME)

constexpr ULO LENGTH_WORD = sizeof(ULO);

// No allocator has more, and sizes computed below it cannot wrap. What is longer counts as a failed
// allocation.
constexpr ULO LONGEST_STRING = (ULO(1) << 63) - 64;

// Bytes of characters, NUL and fill: the next multiple of 8 above `size`.
constexpr ULO padded(ULO size) { return (size | 7) + 1; }

inline ULO load_word(const CHR *place)
{
    ULO word;
    memcpy(&word, place, sizeof word);
    return word;
}

inline void store_word(CHR *place, ULO word) { memcpy(place, &word, sizeof word); }

// Writes the length and zeroes the fill. The characters stay.
inline void seal(CHR *string, ULO size)
{
    static_assert(std::endian::native == std::endian::little, "the mask keeps the low bytes");
    store_word(string - LENGTH_WORD, size);
    CHR *last = string + (size & ~ULO(7));
    store_word(last, load_word(last) & ((ULO(1) << (size % 8 * 8)) - 1));
}

// Makes `*targ` a string of `size` bytes that keeps its characters as far as they go; new ones are
// undefined. NULL if memory runs out, and the target is as it was.
CHR *resize(CHR **targ, ULO size);
// The same, but fatal at `site` whatever the fault hook.
CHR *must_resize(CHR **targ, ULO size, const fatal_site &site);

// Makes `*targ` a string of `size` bytes with `part`, a piece of `source`, from offset `front` on.
// The bytes around it are the caller's to fill. `source` may be the target's string. Fatal at
// `site`.
CHR *lay(CHR **targ, const CHR *source, std::string_view part, ULO front, ULO size,
         const fatal_site &site);
// Makes `*targ` the piece `part` of `source`, which may be the target's string.
CHR *keep(CHR **targ, const CHR *source, std::string_view part);

// Makes `*targ` a copy of `text`, which must not lie inside the target. Honours the fault hook.
CHR *store(CHR **targ, std::string_view text, const fatal_site &site);

// Replaces the string of `*targ` by `fresh`, whose ownership passes to the target.
inline CHR *adopt(CHR **targ, CHR *fresh)
{
    free_string(targ);
    return *targ = fresh;
}
