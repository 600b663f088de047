// Shared by the tests of the string library: strings with any bytes in them, a reading that checks
// the layout on the way, and one call that tries an operation on every kind of target.
#pragma once

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <string_view>

#include "strings/scratch.h"
#include "strings/state.h"
#include "tests/kit/sanitizers.h"

using namespace std::string_literals;
using namespace std::string_view_literals;

struct text : scratch {
    explicit text(std::string_view bytes) { assign(&s, bytes); }
};

// The bytes of a string that must be allocated. Everything behind them is zero up to the next
// multiple of 8.
inline std::string bytes_of(const CHR *string)
{
    EXPECT_NE(nullptr, string);
    const ULO size = len(string);
    for (ULO i = size; i == size || i % 8 != 0; ++i)
        EXPECT_EQ(0, string[i]) << "fill byte " << i << " of a string of " << size;
    return std::string(view(string));
}

// Runs `op(CHR **targ, const CHR *source)` on a NULL target, on one that holds another text, longer
// or shorter, and on the variable of the source.
template <class Operation>
void expect_each_target(std::string_view expected, std::string_view source, Operation op)
{
    SCOPED_TRACE(testing::PrintToString(source));
    const text from(source);
    scratch none;
    text longer(std::string(source.size() + 20, '#')), shorter("#"), same(source);
    for (scratch *target :
         {&none, static_cast<scratch *>(&longer), static_cast<scratch *>(&shorter)})
        EXPECT_EQ(expected, bytes_of(op(&target->s, from.s)));
    EXPECT_EQ(expected, bytes_of(op(&same.s, same.s)));
    EXPECT_EQ(source, bytes_of(from.s));
}

// Random text of up to `longest` pieces.
template <class Piece, size_t N>
std::string random_text(std::mt19937 &random, const Piece (&pieces)[N], size_t longest)
{
    std::string made;
    for (size_t count = random() % (longest + 1); count > 0; --count) made += pieces[random() % N];
    return made;
}

// A hook for the calling thread that counts its calls.
struct counted_faults {
    static inline thread_local int calls;
    strings_state block{[] { ++calls; }, nullptr, nullptr, nullptr};
    counted_faults()
    {
        calls = 0;
        strings_tls = &block;
    }
    ~counted_faults() { strings_tls = nullptr; }
};

constexpr ULO HUGE_SIZE = ~ULO(0);

// A string in static data whose length no allocator can give.
inline const CHR *impossible_string()
{
    static const struct {
        ULO size = HUGE_SIZE - 7;
        CHR bytes[8] = "";
    } block;
    return block.bytes;
}
