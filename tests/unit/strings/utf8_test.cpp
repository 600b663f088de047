// UTF-8. The case pairs are checked by their number and sums, by single pairs, and by a walk of
// rules over random bytes that knows only how single characters change.
#include "kit.h"

#include <array>
#include <map>

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

ULO decoded(const std::string &bytes)
{
    ULO code = UCH(bytes[0]) & (bytes.size() == 1 ? 0x7F : 0x7F >> bytes.size());
    for (size_t i = 1; i < bytes.size(); ++i) code = code << 6 | (UCH(bytes[i]) & 63);
    return code;
}

bool is_surrogate(ULO code) { return code >= 0xD800 && code < 0xE000; }

TEST(utf8_character, legal_exactly_if_well_formed)
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

TEST(utf8_trim, looks_at_seven_positions)
{
    const std::string bad(16, '\x80');
    const auto ruin = [&](size_t count) { return bad.substr(0, count); };
    const std::string cases[][3] = {
        {"", "", ""},
        {"ab\xE2\x82", "ab\xE2\x82", "ab"},
        {ruin(2) + "ab", "ab", ruin(2) + "ab"},
        {ruin(6) + "ab", "ab", ruin(6) + "ab"},
        {ruin(7) + "ab", ruin(7) + "ab", ruin(7) + "ab"},
        {ruin(7), ruin(7), ""},
        {ruin(8), ruin(8), ruin(8)},
        {"a" + ruin(6), "a" + ruin(6), "a"},
        {"a" + ruin(7), "a" + ruin(7), "a" + ruin(7)},
        {"a\xE2\x82\xAC", "a\xE2\x82\xAC", "a\xE2\x82\xAC"},
        {"\xE2\x82\xAC\xAC", "\xE2\x82\xAC\xAC", "\xE2\x82\xAC"},
        {std::string("\0a\0", 3), std::string("a\0", 2), std::string("\0a", 2)},
    };
    for (const auto &[source, front, back] : cases) {
        expect_each_target(front, source, ltrim_utf8);
        expect_each_target(back, source, rtrim_utf8);
    }
    expect_each_target("xy", "\x80\x80xy\xE2\x82", alltrim_utf8);
}

// Every character beyond ASCII that `change` changes, and what it becomes.
std::map<std::string, std::string> pairs_of(operation change)
{
    std::map<std::string, std::string> pairs;
    for (ULO code = 0x80; code < 0x110000; ++code) {
        if (is_surrogate(code)) continue;
        text made(encoded(code));
        if (view(change(&made.s, made.s)) != encoded(code)) pairs[encoded(code)] = bytes_of(made.s);
    }
    return pairs;
}

const auto upper_pairs = pairs_of(upper_utf8), lower_pairs = pairs_of(lower_utf8);

TEST(utf8_case, pairs_have_their_number_sums_and_length)
{
    const struct {
        const std::map<std::string, std::string> &pairs;
        operation change;
        ULO count, from, to;
    } cases[] = {{upper_pairs, upper_utf8, 1338, 32120125, 29156468},
                 {lower_pairs, lower_utf8, 1337, 29201621, 31832447}};
    for (const auto &c : cases) {
        ULO from = 0, to = 0;
        for (const auto &[one, other] : c.pairs) {
            EXPECT_EQ(one.size(), is_utf8char(other.c_str()));
            from += decoded(one);
            to += decoded(other);
            expect_each_target(other, other, c.change); // nothing changes twice
        }
        EXPECT_EQ((std::array{c.count, c.from, c.to}), (std::array{c.pairs.size(), from, to}));
    }
}

// Characters with two lower or upper forms, or with none.
TEST(utf8_case, single_pairs)
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

// The rules byte by byte: how far to step behind each lead, and where pairs are looked for.
std::string walked(std::string s, const std::map<std::string, std::string> &pairs, UCH first)
{
    const auto byte = [&](size_t i) { return i < s.size() ? UCH(s[i]) : UCH(0); };
    if (byte(0) == 0) return s;
    for (size_t p = 0, step; p < s.size(); p += step) {
        const UCH c = byte(p);
        const bool rows4 = strchr("\x90\x91\x96\x9E", byte(p + 1)) != nullptr;
        size_t mapped = 0;
        if (c >= first && c < first + 26)
            s[p] = CHR(c ^ 32), step = 1;
        else if (c <= 0xC0 || byte(p + 1) == 0)
            step = 1;
        else if (c <= 0xC2 || c > 0xF0)
            step = 2;
        else if (c < 0xE0)
            step = mapped = 2;
        else if (c == 0xF0)
            step = byte(p + 2) == 0 ? 2 : !rows4 || byte(p + 3) == 0 ? 3 : mapped = 4;
        else if (strchr("\xE1\xE2\xEA\xEF", c))
            step = byte(p + 2) == 0 ? 2 : mapped = 3;
        else
            step = 2;
        const auto pair = pairs.find(s.substr(p, mapped));
        if (mapped != 0 && pair != pairs.end()) s.replace(p, mapped, pair->second);
    }
    return s;
}

TEST(utf8_case, broken_sequences_go_by_the_rules)
{
    constexpr CHR bytes[] = {0,      'a',    'z',    'A',    'Z',    '@',    '{',    '\x80',
                             '\xA9', '\x90', '\x91', '\xBF', '\xC0', '\xC2', '\xC3', '\xD0',
                             '\xE0', '\xE1', '\xE2', '\xB8', '\x81', '\xEA', '\x99', '\xEF',
                             '\xBD', '\xF0', '\xF0', '\x9E', '\xA8', '\xF4', '\xFF'};
    std::mt19937 random(10);
    for (int i = 0; i < 200000; ++i) {
        const std::string source = random_text(random, bytes, 24);
        text up(source), low(source);
        ASSERT_EQ(walked(source, upper_pairs, 'a'), bytes_of(upper_utf8(&up.s, up.s)))
            << testing::PrintToString(source);
        ASSERT_EQ(walked(source, lower_pairs, 'A'), bytes_of(lower_utf8(&low.s, low.s)))
            << testing::PrintToString(source);
    }
}

} // namespace
