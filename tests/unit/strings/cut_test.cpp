#include "kit.h"

#include <algorithm>

namespace {

constexpr const CHR *ab_pieces[] = {"a", "b", "aa", "ab"};

TEST(search, first_and_last_start)
{
    const struct {
        std::string_view pattern, among;
        ULO first, last;
    } cases[] = {{"abc", "abcabc", 1, 4}, {"", "abc", 0, 0}, {"aa", "aaa", 1, 2},
                 {"abcd", "abc", 0, 0},   {"a", "", 0, 0},   {"\0"sv, "a\0b\0"sv, 2, 4},
                 {"c", "abc", 3, 3},      {"x", "abc", 0, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(c.first, at(text(c.pattern).s, text(c.among).s)) << c.pattern;
        EXPECT_EQ(c.last, rat(text(c.pattern).s, text(c.among).s)) << c.pattern;
    }
    const text some("a");
    EXPECT_EQ(0u, at(nullptr, some.s) + at(some.s, nullptr) + rat(nullptr, some.s) +
                      rat(some.s, nullptr));
}

TEST(search, agrees_with_a_plain_search)
{
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        const std::string among = random_text(random, ab_pieces, 12),
                          pattern = random_text(random, ab_pieces, 3);
        const text a(among), p(pattern);
        EXPECT_EQ(pattern.empty() ? 0 : among.find(pattern) + 1, at(p.s, a.s));
        EXPECT_EQ(pattern.empty() ? 0 : among.rfind(pattern) + 1, rat(p.s, a.s));
    }
}

constexpr SLO counts[] = {0, 1, 2, 3, 4, 5, 6, 9, SLO(~ULO(0) >> 1), -2, -1};

TEST(cutting, every_count_on_every_target)
{
    // The plain meaning, with a cut beyond either end as no error.
    for (std::string_view source : {""sv, "abcde"sv, "12345678"sv})
        for (SLO count : counts) {
            const ULO n = ULO(count), most = std::min<ULO>(n, source.size());
            const auto run = [n](auto op) {
                return [n, op](CHR **t, const CHR *s) { return op(t, s, n); };
            };
            SCOPED_TRACE(count);
            expect_each_target(source.substr(0, most), source, run(left));
            expect_each_target(source.substr(0, source.size() - most), source, run(leftr));
            expect_each_target(source.substr(source.size() - most), source, run(right));
            if (count != -1) expect_each_target(source.substr(most), source, run(rightl));
        }
    expect_each_target("ab", "abc", [](CHR **t, const CHR *s) { return rightl(t, s, HUGE_SIZE); });
}

TEST(cutting, position_zero_uses_one_up)
{
    const struct {
        ULO from, pos;
        std::string_view expected;
    } cases[] = {{2, 2, "bc"},       {5, 9, "e"},          {6, 1, ""}, {0, 2, "a"},
                 {0, 0, ""},         {0, 1, ""},           {1, 0, ""}, {0, HUGE_SIZE, "abcde"},
                 {HUGE_SIZE, 5, ""}, {3, HUGE_SIZE, "cde"}};
    for (const auto &c : cases)
        expect_each_target(c.expected, "abcde",
                           [&](CHR **t, const CHR *s) { return substr(t, s, c.from, c.pos); });
}

std::string replaced(std::string source, const std::string &pattern, const std::string &subst)
{
    for (size_t p = 0; !pattern.empty() && (p = source.find(pattern, p)) != source.npos;
         p += subst.size())
        source.replace(p, pattern.size(), subst);
    return source;
}

TEST(replacing, from_the_left_without_searching_again)
{
    const std::string_view cases[][4] = {
        {"aaa", "aa", "b", "ba"},   {"aaa", "a", "aa", "aaaaaa"},
        {"abc", "", "x", "abc"},    {"abab", "b", "", "aa"},
        {"a.b.", ".", "-", "a-b-"}, {"a\0b"sv, "\0"sv, "::", "a::b"},
        {"aaaa", "aa", "", ""},     {"", "a", "b", ""}};
    for (const auto &[source, pattern, subst, expected] : cases) {
        const text p(pattern), q(subst);
        expect_each_target(expected, source,
                           [&](CHR **t, const CHR *s) { return strtran(t, s, p.s, q.s); });
    }
    text kept("abab");
    const text b("b");
    EXPECT_EQ("aa", bytes_of(strtran(&kept.s, kept.s, b.s, nullptr)));
    EXPECT_EQ("aa", bytes_of(strtran(&kept.s, kept.s, nullptr, b.s)));
}

TEST(replacing, target_may_be_any_of_the_three)
{
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i) {
        const std::string source = random_text(random, ab_pieces, 10),
                          pattern = random_text(random, ab_pieces, 2),
                          subst = random_text(random, ab_pieces, 2);
        const std::string expected = replaced(source, pattern, subst);
        for (int which = 0; which < 4; ++which) {
            text s(source), p(pattern), q(subst), other("other");
            scratch *targets[] = {&s, &p, &q, &other};
            ASSERT_EQ(expected, bytes_of(strtran(&targets[which]->s, s.s, p.s, q.s)))
                << source << '/' << pattern << '/' << subst << " into " << which;
        }
    }
    text all("a");
    EXPECT_EQ("a", bytes_of(strtran(&all.s, all.s, all.s, all.s)));
}

} // namespace
