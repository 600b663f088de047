// Texts that the program holds with the two nibbles of each byte exchanged, so that it keeps no
// plain copy of its banners.
#pragma once

#include <cstddef>
#include <string>

#include "kestrin/types.h"

constexpr UCH exchange_nibbles(UCH byte) { return static_cast<UCH>(byte << 4 | byte >> 4); }

// `size` bytes: the text, then NULs, all scrambled at compile time.
template <std::size_t size> struct scrambled {
    UCH bytes[size] = {};
    template <std::size_t n> consteval scrambled(const CHR (&text)[n])
    {
        static_assert(n - 1 <= size);
        for (std::size_t i = 0; i + 1 < n; i++)
            bytes[i] = exchange_nibbles(static_cast<UCH>(text[i]));
    }
    // The text without the NULs behind it.
    std::string plain() const
    {
        std::string text;
        for (UCH byte : bytes)
            if (byte != 0) text.push_back(static_cast<CHR>(exchange_nibbles(byte)));
        return text;
    }
};
