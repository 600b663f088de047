// Search, cutting and replacing. Cutting is one move of bytes by keep(), also where source and
// target are one string. Replacing counts the matches first, so that the result is allocated once
// in its exact size.
#include "kestrin/strings.h"

#include <algorithm>

#include "strings/block.h"
#include "strings/scratch.h"

// -- Search ------------------------------------------------------------------------------------

namespace {

// The first `pattern`, which is not empty, in `text`; NULL if there is none.
const CHR *find(std::string_view text, std::string_view pattern)
{
    if (text.empty()) return nullptr;
    return static_cast<const CHR *>(
        memmem(text.data(), text.size(), pattern.data(), pattern.size()));
}

} // namespace

ULO at(const CHR *pattern, const CHR *among)
{
    if (len(pattern) == 0 || len(among) == 0) return 0;
    const CHR *match = find(view(among), view(pattern));
    return match == nullptr ? 0 : static_cast<ULO>(match - among) + 1;
}

ULO rat(const CHR *pattern, const CHR *among)
{
    const ULO size = len(pattern);
    if (size == 0 || size > len(among)) return 0;
    ULO starts = len(among) + 1 - size;
    while (const void *start = memrchr(among, pattern[0], starts)) {
        starts = static_cast<ULO>(static_cast<const CHR *>(start) - among);
        if (memcmp(start, pattern, size) == 0) return starts + 1;
    }
    return 0;
}

// -- Cutting -----------------------------------------------------------------------------------

CHR *substr(CHR **targ, const CHR *source, ULO from, ULO pos)
{
    // The position in front of the first character counts as one of those asked for.
    if (from == 0) {
        from = 1;
        if (pos != 0) --pos;
    }
    const std::string_view text = view(source);
    return keep(targ, source, text.substr(std::min<ULO>(from - 1, text.size()), pos));
}

CHR *left(CHR **targ, const CHR *source, ULO pos) { return substr(targ, source, 1, pos); }

CHR *leftr(CHR **targ, const CHR *source, ULO posr)
{
    const ULO size = len(source);
    return substr(targ, source, 1, size - std::min(posr, size));
}

CHR *right(CHR **targ, const CHR *source, ULO pos)
{
    const ULO size = len(source), count = std::min(pos, size);
    return substr(targ, source, size + 1 - count, count);
}

// The largest `posl` wraps to position 0, and the result is all but the last character: programs
// reach it with -1.
CHR *rightl(CHR **targ, const CHR *source, ULO posl)
{
    return substr(targ, source, posl + 1, len(source));
}

// -- Replacing ---------------------------------------------------------------------------------

namespace {

ULO count_matches(std::string_view text, std::string_view pattern)
{
    ULO count = 0;
    while (const CHR *match = find(text, pattern)) {
        text.remove_prefix(static_cast<size_t>(match - text.data()) + pattern.size());
        count++;
    }
    return count;
}

// Length of a text of `size` bytes after `count` replacements; the longest ULO if it does not fit.
ULO replaced_size(ULO size, ULO count, ULO pattern, ULO subst)
{
    ULO added, total;
    if (__builtin_mul_overflow(count, subst, &added)) return ~ULO(0);
    if (__builtin_add_overflow(size - count * pattern, added, &total)) return ~ULO(0);
    return total;
}

CHR *append(CHR *out, std::string_view text)
{
    if (!text.empty()) memcpy(out, text.data(), text.size());
    return out + text.size();
}

void write_replaced(CHR *out, std::string_view text, std::string_view pattern,
                    std::string_view subst)
{
    while (const CHR *match = find(text, pattern)) {
        const size_t before = static_cast<size_t>(match - text.data());
        out = append(append(out, text.substr(0, before)), subst);
        text.remove_prefix(before + pattern.size());
    }
    append(out, text);
}

} // namespace

CHR *strtran(CHR **targ, const CHR *source, const CHR *pattern, const CHR *subst)
{
    const std::string_view text = view(source), search = view(pattern), replacement = view(subst);
    const bool safe = *targ == nullptr || (*targ != pattern && *targ != subst);
    if (safe && search.size() == 1 && replacement.size() == 1) {
        equ(targ, source);
        std::replace(*targ, *targ + len(*targ), *pattern, *subst);
        return *targ;
    }
    const ULO count = search.empty() ? 0 : count_matches(text, search);
    if (count == 0) return equ(targ, source);

    CHR *fresh = nullptr;
    must_resize(&fresh, replaced_size(text.size(), count, search.size(), replacement.size()),
                site::CAT);
    write_replaced(fresh, text, search, replacement);
    return adopt(targ, fresh);
}
