// Integer and boolean instructions. Arithmetic wraps at 64 bits.

#include "vm/handler.h"
#include "vm/random.h"

namespace {

SLO add(SLO a, SLO b) { return SLO(ULO(a) + ULO(b)); }
SLO subtract(SLO a, SLO b) { return SLO(ULO(a) - ULO(b)); }
SLO multiply(SLO a, SLO b) { return SLO(ULO(a) * ULO(b)); }
SLO multiply_add(SLO a, SLO b, SLO c) { return SLO(ULO(a) * ULO(b) + ULO(c)); }
SLO quotient(SLO a, SLO b) { return a / b; }
SLO remainder_of(SLO a, SLO b) { return a % b; }
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

SLO random_integer(SLO m)
{
    return static_cast<SLO>(static_cast<DFL>(m) * draw(m < 0) / largest_draw);
}

template <rt_text text> rt_text zero_divisor(SLO, SLO b) { return b == 0 ? text : rt_text::NONE; }

// AND and OR evaluate the second operand only if the first leaves the result open.
template <operands how, bool decided_by, leaf_kind a = ANY, leaf_kind b = ANY>
void decide(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    const bool first = fetch<how, SLO, a>(dat_ptr, ret_dat) != 0;
    if (!rt_ctrl->rt_noterror) return;
    if (first == decided_by) return answer<SLO>(ret_dat, decided_by);
    const bool second = fetch<how, SLO, b>(dat_ptr + 1, ret_dat) != 0;
    if (rt_ctrl->rt_noterror) answer<SLO>(ret_dat, second);
}

} // namespace

#define INTEGER_INSTRUCTIONS(X)                                                                    \
    X(iadd, numeric<add>)                                                                          \
    X(isub, numeric<subtract>)                                                                     \
    X(imul, numeric<multiply>)                                                                     \
    X(idiv, numeric<quotient, zero_divisor<rt_text::INT_DIVZERO>>)                                 \
    X(imod, numeric<remainder_of, zero_divisor<rt_text::INT_MODZERO>>)                             \
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
    X(not, numeric<logical_not>)

INTEGER_INSTRUCTIONS(HANDLERS)
HANDLERS(ima, numeric<multiply_add>)
HANDLERS(irnd, numeric<random_integer>)

HANDLER(and) { decide<CAST, false>(dat_ptr, ret_dat); }
HANDLER(and_j) { decide<PROVED, false>(dat_ptr, ret_dat); }
HANDLER(or) { decide<CAST, true>(dat_ptr, ret_dat); }
HANDLER(or_j) { decide<PROVED, true>(dat_ptr, ret_dat); }

namespace {

template <operands how, bool decided_by> constexpr variant_row deciding(fcall general)
{
    return vary<2>(general, 0, 'I', 'I', []<leaf_kind first, leaf_kind second>() {
        return &decide<how, decided_by, first, second>;
    });
}

constexpr variant_row rows[] = {
    INTEGER_INSTRUCTIONS(VARIANTS) deciding<CAST, false>(func__and),
    deciding<PROVED, false>(func__and_j),
    deciding<CAST, true>(func__or),
    deciding<PROVED, true>(func__or_j),
};

} // namespace

const std::span<const variant_row> integer_variants = rows;
