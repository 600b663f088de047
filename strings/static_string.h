// Counted strings laid out at compile time, for tables. They are sources only: never a target,
// never freed.
#pragma once

#include <cstddef>

#include "kestrin/types.h"

template <std::size_t n> // of the literal, its NUL included
struct static_string {
    ULO size = n - 1;
    alignas(8) CHR text[(n + 7) / 8 * 8] = {};
    constexpr static_string(const CHR (&literal)[n])
    {
        for (std::size_t i = 0; i < n; i++) text[i] = literal[i];
    }
};
