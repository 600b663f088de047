// Building, padding, trimming and tokens.
#include "kit.h"

#include <algorithm>

namespace {

using operation = CHR *(*)(CHR **, const CHR *);

TEST(building, spaces_copies_and_reversal)
{
    text target("old");
    for (ULO size : {0, 1, 7, 8, 100})
        EXPECT_EQ(std::string(size, ' '), bytes_of(space(&target.s, size)));
    for (std::string_view source : {""sv, "x"sv, "ab"sv, "1234567"sv, "12345678"sv})
        for (ULO count : {0, 1, 2, 3, 10}) {
            std::string expected;
            for (ULO i = 0; i < count; ++i) expected += source;
            expect_each_target(expected, source,
                               [=](CHR **t, const CHR *s) { return replicate(t, s, count); });
            expect_each_target(std::string(source.rbegin(), source.rend()), source, rev);
        }
    EXPECT_EQ("", bytes_of(replicate(&target.s, text("").s, HUGE_SIZE)));
}

TEST(building, case_of_all_bytes)
{
    std::string all, upper_case, lower_case;
    for (int c = 0; c < 256; ++c) {
        all += CHR(c);
        upper_case += CHR(c >= 'a' && c <= 'z' ? c - 32 : c);
        lower_case += CHR(c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
    for (size_t shift = 0; shift < 9; ++shift) {
        expect_each_target(upper_case.substr(shift), all.substr(shift), upper);
        expect_each_target(lower_case.substr(shift), all.substr(shift), lower);
    }
}

TEST(padding, exact_width)
{
    const struct {
        std::string_view source;
        ULO width;
        std::string_view left, right, centre;
    } cases[] = {
        {" ab ", 5, " ab  ", "  ab ", "  ab "},
        {"ab", 5, "ab   ", "   ab", "  ab "},
        {"abcdef", 3, "abc", "abc", "abc"},
        {" abcdef", 3, " ab", "abc", "abc"},
        {"abc", 0, "", "", ""},
        {"", 3, "   ", "   ", "   "},
        {" \t ", 2, "  ", "  ", "  "},
        {"  a", 12, "  a         ", "           a", "      a     "},
        {"      a    ", 3, "   ", "a  ", " a "},
    };
    for (const auto &c : cases) {
        const auto run = [&](auto op) {
            return [&c, op](CHR **t, const CHR *s) { return op(t, s, c.width); };
        };
        expect_each_target(c.left, c.source, run(padl));
        expect_each_target(c.right, c.source, run(padr));
        expect_each_target(c.centre, c.source, run(padc));
    }
}

struct word_case {
    std::string_view source;
    std::string_view expected[2];
};

TEST(tokens, words)
{
    const word_case cases[] = {{"", {"", ""}},
                               {" \t\0 "sv, {"", ""}},
                               {"a  b ", {"a", "b "}},
                               {"  one\ttwo  three ", {"one", "two  three "}},
                               {"a\x7F\x80 b", {"a\x7F\x80", "b"}},
                               {"a\0b"sv, {"a", "b"}}};
    for (const auto &c : cases) {
        expect_each_target(c.expected[0], c.source, head);
        expect_each_target(c.expected[1], c.source, tail);
    }
}

TEST(tokens, of_the_language)
{
    const word_case cases[] = {
        {"", {"", ""}},
        {"   ", {"", ""}},
        {"(a b) c", {"(a b)", "c"}},
        {"a\"b c\"d e", {"a\"b c\"d", "e"}},
        {"a)b", {"a", ")b"}},
        {" ) x", {"", ") x"}},
        {R"-("a\" b" c)-", {R"-("a\" b")-", "c"}},
        {R"-((a "b)" c) d)-", {R"-((a "b)" c))-", "d"}},
        {"abs(a (b) c)d e", {"abs(a (b) c)", "d e"}},
        {"(a (b ", {"(a (b", ""}},
        {"\"a b  ", {"\"a b", ""}},
        {"\"ab\\", {"\"ab\\", ""}},
        {R"-(a\" b" c)-", {R"-(a\" b")-", "c"}},
        {R"-(\( a) b)-", {R"-(\( a))-", "b"}},
        {"(a\n b)  \t c d ", {"(a\n b)", "c d "}},
        {"a b", {"a", "b"}},
    };
    for (const auto &c : cases) {
        expect_each_target(c.expected[0], c.source, lsp_head);
        expect_each_target(c.expected[1], c.source, lsp_tail);
    }
}

// The steps as they are told: trim, blanks to spaces, pairs of spaces to one until none is left.
std::string packed(const std::string &source)
{
    scratch made, pair, one;
    alltrim(&made.s, text(source).s);
    std::string words = bytes_of(made.s);
    for (CHR &c : words)
        if (UCH(c) < 32) c = ' ';
    for (size_t p; (p = words.find("  ")) != words.npos;) words.erase(p, 1);
    return words;
}

TEST(trimming, agrees_with_plain_references)
{
    const auto blank = [](CHR c) { return UCH(c) <= 32; };
    constexpr CHR bytes[] = {' ', ' ', '\t', '\0', '\x1F', 'a', '(', '\x7F', '\x80', '\xFF'};
    std::mt19937 random(4);
    for (int i = 0; i < 5000; ++i) {
        const std::string source = random_text(random, bytes, 14);
        const size_t from =
            size_t(std::find_if_not(source.begin(), source.end(), blank) - source.begin());
        const size_t behind =
            size_t(std::find_if_not(source.rbegin(), source.rend(), blank) - source.rbegin());
        const std::string front = source.substr(from),
                          back = source.substr(0, source.size() - behind);
        const bool all = from == source.size();
        expect_each_target(front, source, ltrim);
        expect_each_target(back, source, rtrim);
        expect_each_target(all ? "" : back.substr(from), source, alltrim);
        expect_each_target(packed(source), source, pack);
        expect_each_target(packed(source).substr(0, packed(source).find(' ')), source, head);
    }
    expect_each_target("a b", "\ta\n b ", pack);
    expect_each_target("\x7F", " \x7F ", pack);
}

} // namespace
