#include "vm/number_text.h"

#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "strings/scratch.h"
#include "vm/handler.h"

namespace {

// What the system library prints; the value goes as the conversion wants it.
template <class T> std::string printed(const char *format, T value)
{
    CHR text[1024];
    const int size = snprintf(text, sizeof text, format, value);
    return std::string(text, static_cast<size_t>(size));
}

// Empty if the format was refused. No result of these tests is empty.
template <class T> std::string plainly(const char *format, T value)
{
    kestrin_data d = owning_slot;
    if constexpr (std::is_same_v<T, const CHR *>) {
        d.type = 'S';
        assign(&d.svalue, value);
    } else {
        answer(&d, value);
    }
    std::string text;
    if (print_plainly(&d, format)) text = view(d.svalue);
    free_kst_data(&d);
    return text;
}

constexpr const char *integer_formats[] = {"%ld",      "%d",   "%i",    "%lld",  "%u",     "%lx",
                                           "%x",       "%lo",  "%08ld", "%-9d|", "a%5ldb", "%05x",
                                           "%-020ld|", "%0ld", "%020d", "%99ld"};
constexpr const char *float_formats[] = {"%f",    "%.0f",  "%.3f",     "%.16E",   "%e",      "%.0e",
                                         "%.60f", "%9.2f", "%-12.4e|", "%012.3f", "x%.17Ey", "%.f"};

TEST(NumberText, IsWhatTheSystemLibraryPrints)
{
    const char *asked = getenv("KESTRIN_TEST_COUNT");
    const long rounds = asked == nullptr ? 2000 : atol(asked);
    std::mt19937_64 random(7);
    for (long i = 0; i < rounds && !HasFailure(); i++) {
        const ULO bits = random(), shift = random() % 64;
        DFL real, near;
        memcpy(&real, &bits, sizeof real);
        near = static_cast<DFL>(static_cast<SLO>(bits) >> shift) / 1000.0;
        for (const char *format : integer_formats)
            EXPECT_EQ(plainly(format, SLO(bits >> shift)), printed(format, SLO(bits >> shift)));
        for (const char *format : float_formats)
            for (const DFL value : {real, near, -near}) {
                const std::string text = plainly(format, value);
                EXPECT_TRUE(text.empty() || text == printed(format, value)) << format << text;
            }
    }
}

TEST(NumberText, SpecialValues)
{
    for (const SLO value :
         {SLO(0), SLO(-1), SLO(1), INT64_MAX, INT64_MIN, SLO(INT32_MIN), SLO(1) << 32})
        for (const char *format : integer_formats)
            EXPECT_EQ(plainly(format, value), printed(format, value)) << format;
    for (const DFL value : {0.0, -0.0, 0.5, 1.5, 2.5, -0.125, 9.9999999, 1e22, 1e23, 99999.5,
                            5e-324, DBL_MIN, 0.1, 1e-7})
        for (const char *format : float_formats)
            EXPECT_EQ(plainly(format, value), printed(format, value)) << format;
}

// What another value or another library call is needed for.
TEST(NumberText, RefusesTheRest)
{
    for (const char *format :
         {"",    "text", "%",  "%%", "%l", "%5", "%ld%d", "%+d",  "% d",   "%#x",   "%'d", "%.3d",
          "%hd", "%zd",  "%c", "%s", "%f", "%n", "%*d",   "%1$d", "%0-5d", "%100d", "%X"})
        EXPECT_EQ(plainly(format, SLO(5)), "") << format;
    for (const char *format : {"%d", "%g", "%a", "%lf", "%Lf", "%s", "%.61f", "%F"})
        EXPECT_EQ(plainly(format, 5.0), "") << format;
    for (const DFL value : {1e100, -1e300, HUGE_VAL, -HUGE_VAL, std::nan("")})
        EXPECT_EQ(plainly("%.3f", value), "") << value;
    for (const char *format : {"%d", "%.2s", "%ls", "%05s"}) EXPECT_EQ(plainly(format, "abc"), "");
}

} // namespace
