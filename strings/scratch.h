// A string variable that frees itself. There are no conversions: a target is visibly `&x.s`, a
// source `x.s`.
#pragma once

#include <string_view>

#include "kestrin/strings.h"

struct scratch {
    CHR *s = nullptr;
    scratch() = default;
    ~scratch() { free_string(&s); }
    scratch(const scratch &) = delete;
    scratch &operator=(const scratch &) = delete;
};

// The bytes of a counted string, NULL as empty. Valid until the string changes.
inline std::string_view view(const CHR *string)
{
    return string == nullptr ? std::string_view() : std::string_view(string, len(string));
}

// Makes `*targ` a copy of `text`, which must not lie inside the target. Returns the new handle.
CHR *assign(CHR **targ, std::string_view text);
