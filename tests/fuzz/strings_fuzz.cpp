// Any bytes as a series of operations on four string variables: an operation, the variables that it
// works on and a count, then text that fills a variable where the operation asks for it. After each
// one the target must have its layout, and what holds for the operation must hold.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "strings/scratch.h"

namespace {

void require(bool holds)
{
    if (!holds) abort();
}

// Length, and zeros up to the next multiple of 8.
void check_layout(const CHR *string)
{
    require(string != nullptr);
    for (ULO i = len(string); i == len(string) || i % 8 != 0; ++i) require(string[i] == 0);
    require(cmp(string, string) == 1 && cmp_s(string, string) == 0);
    for (const CHR *c = string; c < string + len(string); ++c) {
        const UCH size = is_utf8char(c);
        require(size <= 4 && c + size <= string + len(string));
    }
}

using plain = CHR *(*)(CHR **, const CHR *);
constexpr plain plain_operations[] = {
    equ,      lcat,    rev,        upper,      lower,        ltrim,      rtrim,
    alltrim,  pack,    head,       tail,       lsp_head,     lsp_tail,   strraw,
    strunraw, strdump, ltrim_utf8, rtrim_utf8, alltrim_utf8, upper_utf8, lower_utf8,
};
constexpr plain never_longer[] = {ltrim,  rtrim,      alltrim,    pack,
                                  head,   tail,       lsp_head,   lsp_tail,
                                  strraw, ltrim_utf8, rtrim_utf8, alltrim_utf8};
constexpr plain same_again[] = {upper, lower, ltrim, rtrim, alltrim, pack, head, lsp_head};
constexpr plain same_length[] = {rev, upper, lower, upper_utf8, lower_utf8};

using counted = CHR *(*)(CHR **, const CHR *, ULO);
constexpr counted counted_operations[] = {left, leftr, right, rightl};
constexpr counted sized_operations[] = {padl, padr, padc, replicate};

template <size_t N> bool is_one_of(const plain (&list)[N], plain operation)
{
    for (plain one : list)
        if (one == operation) return true;
    return false;
}

constexpr ULO LONGEST = 1 << 16;

struct machine {
    scratch variables[4];
    const std::uint8_t *in, *end;

    ULO byte() { return in == end ? 0 : *in++; }
    CHR **variable() { return &variables[byte() % 4].s; }

    void fill(CHR **targ)
    {
        const ULO size = std::min<ULO>(byte(), static_cast<ULO>(end - in));
        assign(targ, {reinterpret_cast<const CHR *>(in), size});
        in += size;
    }

    // Near the ends of the range of counts as well as small ones.
    ULO count()
    {
        const ULO n = byte();
        return n < 240 ? n : n - 256;
    }

    void run_plain(CHR **targ, const CHR *source)
    {
        const plain operation = plain_operations[byte() % std::size(plain_operations)];
        const ULO before = len(source);
        operation(targ, source);
        if (is_one_of(never_longer, operation)) require(len(*targ) <= before);
        if (is_one_of(same_length, operation)) require(len(*targ) == before);
        if (is_one_of(same_again, operation)) {
            scratch again;
            require(cmp(operation(&again.s, *targ), *targ) == 1);
        }
        if (operation == lcat) require(len(*targ) >= before);
    }

    void replace(CHR **targ, const CHR *source)
    {
        const CHR *pattern = *variable(), *subst = *variable();
        if (len(source) * (len(subst) + 1) > LONGEST) return;
        strtran(targ, source, pattern, subst);
    }

    void step()
    {
        CHR **targ = variable();
        CHR *const *from = variable();
        const CHR *const source = *from;
        switch (byte() % 6) {
        case 0: fill(targ); break;
        case 1: run_plain(targ, source); break;
        case 2: counted_operations[byte() % 4](targ, source, count()); break;
        case 3: sized_operations[byte() % 4](targ, source, byte()); break;
        case 4: replace(targ, source); break;
        case 5: substr(targ, source, count(), count()); break;
        }
        if (*targ == nullptr) return;
        check_layout(*targ);
        const ULO place = at(*from, *targ), last = rat(*from, *targ);
        require(place <= last && (place == 0) == (last == 0) && last <= len(*targ));
        if (len(*targ) > LONGEST) left(targ, *targ, 100);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    machine m{{}, data, data + size};
    while (m.in != m.end) m.step();
    return 0;
}
