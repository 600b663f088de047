// Blocks, joining, comparing, standard buffers, and what happens without memory.
#include "kit.h"

#include <cstdlib>

namespace {

TEST(Layout, ResizingKeepsWhatFitsAndZeroesTheRest)
{
    for (ULO from = 0; from < 40; ++from)
        for (ULO to = 0; to < 40; ++to) {
            text made(std::string(from, 'x'));
            mk_fst_buff(&made.s, to);
            if (to > from) memset(made.s + from, 'y', to - from);
            std::string expected(std::min(from, to), 'x');
            expected.resize(to, 'y');
            EXPECT_EQ(expected, bytes_of(made.s));
        }
}

TEST(Null, ReadsAsEmptyAndIsMadeWherePromised)
{
    scratch made;
    EXPECT_EQ(0u, len(nullptr) + notempty(nullptr));
    EXPECT_EQ(nullptr, free_string(&made.s));
    EXPECT_EQ(nullptr, cat(&made.s, nullptr));
    EXPECT_EQ("", bytes_of(equ(&made.s, nullptr)));
    EXPECT_EQ(0, cmp(made.s, nullptr));
    EXPECT_EQ(1, cmp(nullptr, nullptr));
    EXPECT_EQ(-1, cmp_s(nullptr, made.s));
    EXPECT_EQ(1, cmp_s(made.s, nullptr));
    using operation = CHR *(*)(CHR **, const CHR *);
    constexpr operation all[] = {
        equ,     lcat,       get_std_buff, rev,          upper,      lower,     ltrim,  rtrim,
        alltrim, pack,       head,         tail,         lsp_head,   lsp_tail,  strraw, strunraw,
        strdump, ltrim_utf8, rtrim_utf8,   alltrim_utf8, upper_utf8, lower_utf8};
    for (operation op : all) {
        scratch fresh;
        EXPECT_EQ("", bytes_of(op(&fresh.s, nullptr)));
    }
    text old("old text that goes");
    EXPECT_EQ("", bytes_of(substr(&old.s, nullptr, 1, 5)));
    EXPECT_EQ("", bytes_of(replicate(&old.s, nullptr, HUGE_SIZE)));
    EXPECT_EQ("", bytes_of(strtran(&old.s, nullptr, nullptr, nullptr)));
    EXPECT_EQ("  ", bytes_of(padc(&old.s, nullptr, 2)));
}

TEST(Reading, OrderIsThatOfUnsignedBytesThenLength)
{
    const std::string_view ascending[] = {"",         "\0"sv, "\0\0"sv, "\0\x01"sv, "a",
                                          "a\0"sv,    "ab",   "abc",    "abcdefg",  "abcdefg\0"sv,
                                          "abcdefgh", "b",    "\x7F",   "\x80",     "\xFF"};
    for (const auto &one : ascending)
        for (const auto &other : ascending) {
            const text a(one), b(other);
            EXPECT_EQ((&one > &other) - (&one < &other), cmp_s(a.s, b.s)) << one << " : " << other;
            EXPECT_EQ(&one == &other, cmp(a.s, b.s)) << one << " : " << other;
        }
}

TEST(Joining, BothEndsAndAStringWithItself)
{
    std::mt19937 random(1);
    for (int i = 0; i < 500; ++i) {
        const std::string a(random() % 20, 'a'), b(random() % 20, '\0');
        const text more(b);
        text behind(a), before(a), twice(a), twice_in_front(a);
        EXPECT_EQ(a + b, bytes_of(cat(&behind.s, more.s)));
        EXPECT_EQ(b + a, bytes_of(lcat(&before.s, more.s)));
        EXPECT_EQ(a + a, bytes_of(cat(&twice.s, twice.s)));
        EXPECT_EQ(a + a, bytes_of(lcat(&twice_in_front.s, twice_in_front.s)));
        const CHR *place = behind.s;
        EXPECT_EQ(place, equ(&behind.s, behind.s));
        EXPECT_EQ(place, cat(&behind.s, nullptr));
        EXPECT_EQ(a + b, bytes_of(lcat(&behind.s, nullptr)));
    }
}

TEST(RunningOut, HookIsCalledAndTheTargetStays)
{
    text kept("kept");
    CHR *buffer = nullptr;
    strcpy(mk_std_buff(&buffer, 7), "buffer");
    const CHR *const old = kept.s, *const old_buffer = buffer;
    counted_faults faults;
    EXPECT_EQ(old, mk_fst_buff(&kept.s, HUGE_SIZE));
    EXPECT_EQ(old, mk_fst_buff(&kept.s, HUGE_SIZE - 8));
    EXPECT_EQ(old, equ(&kept.s, impossible_string()));
    EXPECT_EQ(old_buffer, mk_std_buff(&buffer, HUGE_SIZE));
    EXPECT_EQ(4, counted_faults::calls);
    EXPECT_EQ("kept", bytes_of(kept.s));
    EXPECT_STREQ("buffer", buffer);
    free(buffer);
}

} // namespace
