// Integer and boolean instructions. Arithmetic wraps at 64 bits.

#include "vm/handler.h"
#include "vm/random.h"

namespace {

SLO add(SLO a, SLO b)
{
    return SLO(ULO(a) + ULO(b));
}
SLO subtract(SLO a, SLO b)
{
    return SLO(ULO(a) - ULO(b));
}
SLO multiply(SLO a, SLO b)
{
    return SLO(ULO(a) * ULO(b));
}
SLO multiply_add(SLO a, SLO b, SLO c)
{
    return SLO(ULO(a) * ULO(b) + ULO(c));
}
SLO quotient(SLO a, SLO b)
{
    return a / b;
}
SLO remainder_of(SLO a, SLO b)
{
    return a % b;
}
SLO increment(SLO a)
{
    return add(a, 1);
}
SLO decrement(SLO a)
{
    return subtract(a, 1);
}
SLO negate(SLO a)
{
    return SLO(0 - ULO(a));
}
SLO absolute(SLO a)
{
    return a < 0 ? negate(a) : a;
}
SLO bit_and(SLO a, SLO b)
{
    return a & b;
}
SLO bit_or(SLO a, SLO b)
{
    return a | b;
}
SLO bit_xor(SLO a, SLO b)
{
    return a ^ b;
}
SLO bit_not(SLO a)
{
    return ~a;
}
SLO shift_right(SLO a, SLO n)
{
    return a >> (n & 63);
}
SLO shift_left(SLO a, SLO n)
{
    return SLO(ULO(a) << (n & 63));
}
SLO logical_not(SLO a)
{
    return a == 0;
}

SLO random_integer(SLO m)
{
    return static_cast<SLO>(static_cast<DFL>(m) * draw(m < 0) / largest_draw);
}

template <rt_text text> rt_text zero_divisor(SLO, SLO b)
{
    return b == 0 ? text : rt_text::NONE;
}

// AND and OR evaluate the second operand only if the first leaves the result open.
template <operands how, bool decided_by> void decide(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    const bool first = fetch<how, SLO>(dat_ptr, ret_dat) != 0;
    if (!rt_ctrl->rt_noterror) return;
    if (first == decided_by) return answer<SLO>(ret_dat, decided_by);
    const bool second = fetch<how, SLO>(dat_ptr + 1, ret_dat) != 0;
    if (rt_ctrl->rt_noterror) answer<SLO>(ret_dat, second);
}

} // namespace

HANDLERS(iadd, numeric<add>)
HANDLERS(isub, numeric<subtract>)
HANDLERS(imul, numeric<multiply>)
HANDLERS(idiv, numeric<quotient, zero_divisor<rt_text::INT_DIVZERO>>)
HANDLERS(imod, numeric<remainder_of, zero_divisor<rt_text::INT_MODZERO>>)
HANDLERS(ima, numeric<multiply_add>)
HANDLERS(iincr, numeric<increment>)
HANDLERS(idecr, numeric<decrement>)
HANDLERS(ineg, numeric<negate>)
HANDLERS(iabs, numeric<absolute>)
HANDLERS(iand, numeric<bit_and>)
HANDLERS(ior, numeric<bit_or>)
HANDLERS(ixor, numeric<bit_xor>)
HANDLERS(inot, numeric<bit_not>)
HANDLERS(ishr, numeric<shift_right>)
HANDLERS(ishl, numeric<shift_left>)
HANDLERS(not, numeric<logical_not>)
HANDLERS(irnd, numeric<random_integer>)

HANDLER(and)
{
    decide<CAST, false>(dat_ptr, ret_dat);
}
HANDLER(and_j)
{
    decide<PROVED, false>(dat_ptr, ret_dat);
}
HANDLER(or)
{
    decide<CAST, true>(dat_ptr, ret_dat);
}
HANDLER(or_j)
{
    decide<PROVED, true>(dat_ptr, ret_dat);
}
