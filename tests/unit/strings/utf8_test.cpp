// UTF-8: which bytes are a character, what trimming takes off, how case changes, in broken text
// too.
#include "kit.h"

namespace {

using operation = CHR *(*)(CHR **, const CHR *);

std::string encoded(ULO code)
{
    if (code < 0x80) return {CHR(code)};
    if (code < 0x800) return {CHR(0xC0 | code >> 6), CHR(0x80 | (code & 63))};
    if (code < 0x10000)
        return {CHR(0xE0 | code >> 12), CHR(0x80 | (code >> 6 & 63)), CHR(0x80 | (code & 63))};
    return {CHR(0xF0 | code >> 18), CHR(0x80 | (code >> 12 & 63)), CHR(0x80 | (code >> 6 & 63)),
            CHR(0x80 | (code & 63))};
}

bool is_surrogate(ULO code) { return code >= 0xD800 && code < 0xE000; }

TEST(Utf8Character, LegalExactlyIfWellFormed)
{
    for (ULO code = 0; code < 0x200000; ++code) {
        const std::string bytes = encoded(code);
        const bool legal = code != 0 && code != 0x7F && !is_surrogate(code) && code < 0x110000;
        ASSERT_EQ(legal ? bytes.size() : 0, is_utf8char(bytes.c_str())) << std::hex << code;
    }
    for (const CHR *bytes :
         {"", "\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3z", "\xE0\x80\x80", "\xE0\x9F\xBF",
          "\xE2\x82", "\xE2\x82z", "\xF0\x8F\xBF\xBF", "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xFF"})
        EXPECT_EQ(0, is_utf8char(bytes)) << testing::PrintToString(bytes);
    EXPECT_EQ(0, is_utf8char(nullptr));
    EXPECT_EQ(1, is_utf8char("\x7E"));
}

TEST(Utf8Trim, LooksAtSevenPositions)
{
    const std::string bad(16, '\x80');
    const auto ruin = [&](size_t count) { return bad.substr(0, count); };
    const std::string cases[][3] = {
        {ruin(6) + "ab", "ab", ruin(6) + "ab"},
        {ruin(7) + "ab", ruin(7) + "ab", ruin(7) + "ab"},
        {ruin(7), ruin(7), ""},
        {ruin(8), ruin(8), ruin(8)},
        {"a" + ruin(6), "a" + ruin(6), "a"},
        {"a" + ruin(7), "a" + ruin(7), "a" + ruin(7)},
        {"\xE2\x82\xAC\xAC", "\xE2\x82\xAC\xAC", "\xE2\x82\xAC"},
        {std::string("\0a\0", 3), std::string("a\0", 2), std::string("\0a", 2)},
    };
    for (const auto &[source, front, back] : cases) {
        expect_each_target(front, source, ltrim_utf8);
        expect_each_target(back, source, rtrim_utf8);
    }
    expect_each_target("xy", "\x80\x80xy\xE2\x82", alltrim_utf8);
}

// The case tables as a whole, by the sum of what they make of every character beyond ASCII. A row
// that is meant to change comes with the new sum.
TEST(Utf8Case, TablesChangeWhatTheyChanged)
{
    std::string all;
    for (ULO code = 0x80; code < 0x110000; ++code)
        if (!is_surrogate(code)) all += encoded(code);
    const struct {
        operation change;
        ULO sum;
    } cases[] = {{upper_utf8, 13072208501854704725U}, {lower_utf8, 6574010654800582351U}};
    const text source(all);
    for (const auto &c : cases) {
        scratch made, again;
        c.change(&made.s, source.s);
        EXPECT_EQ(len(source.s), len(made.s));
        EXPECT_EQ(c.sum, crcsum(made.s));
        EXPECT_EQ(1, cmp(c.change(&again.s, made.s), made.s)) << "nothing changes twice";
    }
}

// Characters with two lower or upper forms, or with none.
TEST(Utf8Case, SinglePairs)
{
    constexpr ULO cases[][3] = {{0xE9, 0xC9, 0xE9},       {0xDF, 0xDF, 0xDF},
                                {0x258, 0x18E, 0x258},    {0x1DD, 0x1DD, 0x1DD},
                                {0x3D1, 0x3F4, 0x3D1},    {0x10A0, 0x1C90, 0x10D0},
                                {0x2D00, 0x1C90, 0x10D0}, {0x1C5, 0x1C4, 0x1C6},
                                {0x3C2, 0x3A3, 0x3C2},    {0x130, 0x130, 0x130}};
    for (const auto &[code, up, low] : cases) {
        expect_each_target(encoded(up), encoded(code), upper_utf8);
        expect_each_target(encoded(low), encoded(code), lower_utf8);
    }
}

// What stands behind a lead is stepped over, whatever it is, so a broken sequence swallows letters.
// It ends in front of a NUL.
TEST(Utf8Case, BrokenSequencesGoByTheRules)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"\x80zz"sv, "\x80ZZ"sv},
        {"\xC1zz"sv, "\xC1zZ"sv},
        {"\xDFzz"sv, "\xDFzZ"sv},
        {"\xE0zzz"sv, "\xE0zZZ"sv},
        {"\xE1zzz"sv, "\xE1zzZ"sv},
        {"\xE2\xB0z"sv, "\xE2\xB0z"sv},
        {"\xE3zzz"sv, "\xE3zZZ"sv},
        {"\xEFzzz"sv, "\xEFzzZ"sv},
        {"\xF0zzzz"sv, "\xF0zzZZ"sv},
        {"\xF0\x90zzz"sv, "\xF0\x90zzZ"sv},
        {"\xF0\x9Ezzz"sv, "\xF0\x9EzzZ"sv},
        {"\xF0\x92zzz"sv, "\xF0\x92zZZ"sv},
        {"\xC3\0z"sv, "\xC3\0Z"sv},
        {"\xE1z\0z"sv, "\xE1z\0Z"sv},
        {"\xF0\x90z\0z"sv, "\xF0\x90z\0Z"sv},
        {"\0zz"sv, "\0zz"sv},
        {"z\xE1\xBF"sv, "Z\xE1\xBF"sv}};
    for (const auto &[source, raised] : cases) {
        expect_each_target(raised, source, upper_utf8);
        std::string high(source), lowered(raised); // the same of the other letters
        for (std::string *text : {&high, &lowered})
            for (CHR &c : *text)
                if (c == 'z' || c == 'Z') c = CHR(c ^ 32);
        expect_each_target(lowered, high, lower_utf8);
    }
}

} // namespace
