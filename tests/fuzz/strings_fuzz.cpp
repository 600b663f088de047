// Any bytes as a series of operations on four string variables: an operation, the variables that it
// works on and a count, then text that fills a variable where the operation asks for it. After each
// one the target must have its layout; what operations mean is for the unit tests.
#include <algorithm>

#include "strings/scratch.h"
#include "tests/fuzz/fuzz.h"

namespace {

// Length, and zeros up to the next multiple of 8.
void check_layout(const CHR *string)
{
    require(string != nullptr);
    for (ULO i = len(string); i == len(string) || i % 8 != 0; ++i) require(string[i] == 0);
    require(cmp(string, string) == 1 && cmp_s(string, string) == 0);
    for (const CHR *c = string; c < string + len(string); ++c)
        require(is_utf8char(c) <= std::min<SLO>(4, string + SLO(len(string)) - c));
}

CHR *(*const plain_operations[])(CHR **, const CHR *) = {
    equ,      lcat,     rev,        strraw,     strunraw,     strdump,    upper,
    lower,    ltrim,    rtrim,      alltrim,    pack,         head,       tail,
    lsp_head, lsp_tail, ltrim_utf8, rtrim_utf8, alltrim_utf8, upper_utf8, lower_utf8};
CHR *(*const counted_operations[])(CHR **, const CHR *, ULO) = {left, leftr, right, rightl};
CHR *(*const sized_operations[])(CHR **, const CHR *, ULO) = {padl, padr, padc, replicate};

constexpr ULO LONGEST = 1 << 16;

struct machine {
    scratch variables[4];
    input in;

    CHR **variable() { return &variables[in.byte() % 4].s; }

    // Near the ends of the range of counts as well as small ones.
    ULO count()
    {
        const ULO n = in.byte();
        return n < 240 ? n : n - 256;
    }

    void replace(CHR **targ, const CHR *source)
    {
        const CHR *pattern = *variable(), *subst = *variable();
        if (len(source) * (len(subst) + 1) <= LONGEST) strtran(targ, source, pattern, subst);
    }

    void step()
    {
        CHR **targ = variable();
        CHR *const *from = variable();
        switch (in.byte() % 6) {
        case 0: assign(targ, in.text(in.byte())); break;
        case 1: plain_operations[in.byte() % std::size(plain_operations)](targ, *from); break;
        case 2: counted_operations[in.byte() % 4](targ, *from, count()); break;
        case 3: sized_operations[in.byte() % 4](targ, *from, in.byte()); break;
        case 4: replace(targ, *from); break;
        case 5: substr(targ, *from, count(), count()); break;
        }
        if (*targ == nullptr) return;
        check_layout(*targ);
        const ULO place = at(*from, *targ), last = rat(*from, *targ);
        require(place <= last && (place == 0) == (last == 0) && last <= len(*targ));
        if (len(*targ) > LONGEST) left(targ, *targ, 100);
    }
};

} // namespace

void try_input(std::string_view bytes)
{
    machine m{{}, {bytes}};
    while (!m.in.ended()) m.step();
}
