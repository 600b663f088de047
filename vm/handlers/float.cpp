// Float instructions and the four constants. Nothing is fused; overflow gives infinity.

#include <bit>
#include <cmath>
#include <complex>

#include "vm/handler.h"
#include "vm/random.h"
#include "vm/text.h"

namespace {

constexpr DFL ALL_WHOLE = 4503599627370496.0; // from 2^52 on a double has no fraction

DFL add(DFL a, DFL b) { return a + b; }
DFL subtract(DFL a, DFL b) { return a - b; }
DFL multiply(DFL a, DFL b) { return a * b; }
DFL divide(DFL a, DFL b) { return a / b; }
DFL multiply_add(DFL a, DFL b, DFL c) { return a * b + c; }
DFL absolute(DFL a) { return std::fabs(a); }
DFL cosine(DFL a) { return std::cos(a); }
DFL sine(DFL a) { return std::sin(a); }
DFL arc_tangent(DFL a) { return std::atan(a); }
DFL exponential(DFL a) { return std::exp(a); }
DFL power(DFL a, DFL b) { return std::pow(a, b); }
DFL logarithm(DFL a) { return std::log(a); }
DFL square_root(DFL a) { return std::sqrt(a); }
DFL random_float(DFL m) { return draw(m < 0.0) * m / LARGEST_DRAW; }

DFL integer_part(DFL a) { return std::fabs(a) < ALL_WHOLE ? std::copysign(std::trunc(a), a) : a; }

// Half away from zero, by adding first: the added half stays in large values that can hold it.
DFL rounded(DFL a) { return integer_part(a < 0.0 ? a - 0.5 : a + 0.5); }

// One call of the complex exponential, not a sine and a cosine of their own.
DFL sine_plus_cosine(DFL a)
{
    const std::complex<DFL> e = std::exp(std::complex<DFL>(0.0, a));
    return e.imag() + e.real();
}

bool is_whole(DFL a) { return std::fabs(a) >= ALL_WHOLE || a == std::floor(a); }

rt_text zero_divisor(DFL, DFL b) { return b == 0.0 ? rt_text::FLOAT_DIVZERO : rt_text::NONE; }
rt_text not_positive(DFL a) { return a > 0.0 ? rt_text::NONE : rt_text::FLOAT_LOGARITHM; }
rt_text negative(DFL a) { return a < 0.0 ? rt_text::FLOAT_SQRT : rt_text::NONE; }
rt_text no_power(DFL a, DFL b)
{
    return a < 0.0 && !is_whole(b) ? rt_text::FLOAT_POWER : rt_text::NONE;
}

template <ULO bits> DFL fixed_value() { return std::bit_cast<DFL>(bits); }

} // namespace

#define ARITHMETIC(X)                                                                              \
    X(fadd, numeric<add>)                                                                          \
    X(fsub, numeric<subtract>)                                                                     \
    X(fmul, numeric<multiply>)                                                                     \
    X(fdiv, numeric<divide, zero_divisor>)

#define OTHER_OPERATIONS(X)                                                                        \
    X(fma, numeric<multiply_add>)                                                                  \
    X(fabs, numeric<absolute>)                                                                     \
    X(fint, numeric<integer_part>)                                                                 \
    X(fround, numeric<rounded>)                                                                    \
    X(fcos, numeric<cosine>)                                                                       \
    X(fsin, numeric<sine>)                                                                         \
    X(fcas, numeric<sine_plus_cosine>)                                                             \
    X(fatn, numeric<arc_tangent>)                                                                  \
    X(fexp, numeric<exponential>)                                                                  \
    X(fpow, numeric<power, no_power>)                                                              \
    X(fln, numeric<logarithm, not_positive>)                                                       \
    X(fsqrt, numeric<square_root, negative>)                                                       \
    X(frnd, numeric<random_float>)

ARITHMETIC(HANDLERS)
OTHER_OPERATIONS(HANDLERS)

std::span<const numeric_row> float_operations()
{
    static const numeric_row rows[] = {ARITHMETIC(ARITHMETIC_ROW) OTHER_OPERATIONS(NUMERIC_ROW)};
    return rows;
}

LEAF_HANDLER(ee, fixed_value<0x4005BF0A8B145769>)
LEAF_HANDLER(gamma, fixed_value<0x3FE2788CFC6FB619>)
LEAF_HANDLER(phi,
             fixed_value<0x3FC4B5F949465D54>) // a tenth of the golden ratio: the language's value
LEAF_HANDLER(pi, fixed_value<0x400921FB54442D18>)
