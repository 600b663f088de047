// Integer and boolean instructions. Arithmetic wraps at 64 bits.

#include <bit>

#include "vm/handler.h"
#include "vm/random.h"

namespace {

SLO add(SLO a, SLO b) { return SLO(ULO(a) + ULO(b)); }
SLO subtract(SLO a, SLO b) { return SLO(ULO(a) - ULO(b)); }
SLO multiply(SLO a, SLO b) { return SLO(ULO(a) * ULO(b)); }
SLO multiply_add(SLO a, SLO b, SLO c) { return SLO(ULO(a) * ULO(b) + ULO(c)); }
SLO increment(SLO a) { return add(a, 1); }
SLO decrement(SLO a) { return subtract(a, 1); }
SLO negate(SLO a) { return SLO(0 - ULO(a)); }
SLO absolute(SLO a) { return a < 0 ? negate(a) : a; }
SLO bit_and(SLO a, SLO b) { return a & b; }
SLO bit_or(SLO a, SLO b) { return a | b; }
SLO bit_xor(SLO a, SLO b) { return a ^ b; }
SLO bit_not(SLO a) { return ~a; }
SLO shift_right(SLO a, SLO n) { return a >> (n & 63); }
SLO shift_left(SLO a, SLO n) { return SLO(ULO(a) << (n & 63)); }
SLO logical_not(SLO a) { return a == 0; }

// Division is slow, and most divide by a power of two. For such: `a` cut to a multiple of `b`.
bool is_power_of_two(SLO b) { return b > 0 && (b & (b - 1)) == 0; }
SLO whole_part(SLO a, SLO b) { return (a + (a < 0 ? b - 1 : 0)) & -b; }

SLO quotient(SLO a, SLO b)
{
    return is_power_of_two(b) ? whole_part(a, b) >> std::countr_zero(ULO(b)) : a / b;
}
SLO remainder_of(SLO a, SLO b) { return is_power_of_two(b) ? a - whole_part(a, b) : a % b; }

SLO random_integer(SLO m)
{
    return static_cast<SLO>(static_cast<DFL>(m) * draw(m < 0) / LARGEST_DRAW);
}

template <rt_text text> rt_text zero_divisor(SLO, SLO b) { return b == 0 ? text : rt_text::NONE; }

// AND and OR evaluate the second operand only if the first leaves the result open.
template <bool decided_by> struct decide {
    static SLO get(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        const bool first = fetch<SLO>(dat_ptr, ret_dat) != 0;
        if (!rt_ctrl->rt_noterror || first == decided_by) return decided_by;
        return fetch<SLO>(dat_ptr + 1, ret_dat) != 0;
    }

    static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        const SLO value = get(dat_ptr, ret_dat);
        if (rt_ctrl->rt_noterror) answer(ret_dat, value);
    }
};

} // namespace

#define ARITHMETIC(X)                                                                              \
    X(iadd, numeric<add>)                                                                          \
    X(isub, numeric<subtract>)                                                                     \
    X(imul, numeric<multiply>)                                                                     \
    X(idiv, numeric<quotient, zero_divisor<rt_text::INT_DIVZERO>>)                                 \
    X(imod, numeric<remainder_of, zero_divisor<rt_text::INT_MODZERO>>)

#define OTHER_OPERATIONS(X)                                                                        \
    X(iincr, numeric<increment>)                                                                   \
    X(idecr, numeric<decrement>)                                                                   \
    X(ineg, numeric<negate>)                                                                       \
    X(iabs, numeric<absolute>)                                                                     \
    X(iand, numeric<bit_and>)                                                                      \
    X(ior, numeric<bit_or>)                                                                        \
    X(ixor, numeric<bit_xor>)                                                                      \
    X(inot, numeric<bit_not>)                                                                      \
    X(ishr, numeric<shift_right>)                                                                  \
    X(ishl, numeric<shift_left>)                                                                   \
    X(not, numeric<logical_not>)                                                                   \
    X(ima, numeric<multiply_add>)                                                                  \
    X(irnd, numeric<random_integer>)

ARITHMETIC(HANDLERS)
OTHER_OPERATIONS(HANDLERS)

HANDLERS(and, decide<false>)
HANDLERS(or, decide<true>)

std::span<const numeric_row> integer_operations()
{
    static const numeric_row rows[] = {ARITHMETIC(ARITHMETIC_ROW) OTHER_OPERATIONS(NUMERIC_ROW)};
    return rows;
}
