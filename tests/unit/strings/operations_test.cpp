// Operations from one string to another: each against its plain meaning on random bytes, and on
// every kind of target. Single cases of what they mean are golden cases of strings.
#include "kit.h"

#include <algorithm>

namespace {

std::string front_cut(const std::string &s)
{
    const auto first = std::find_if(s.begin(), s.end(), [](CHR c) { return UCH(c) > 32; });
    return {first, s.end()};
}
std::string reversed(const std::string &s) { return {s.rbegin(), s.rend()}; }
std::string back_cut(const std::string &s) { return reversed(front_cut(reversed(s))); }
std::string both_cut(const std::string &s) { return front_cut(back_cut(s)); }

// Trimmed, blanks made spaces, pairs of spaces made one until none is left.
std::string packed(const std::string &s)
{
    std::string words = both_cut(s);
    for (CHR &c : words)
        if (UCH(c) < 32) c = ' ';
    for (size_t p; (p = words.find("  ")) != words.npos;) words.erase(p, 1);
    return words;
}

std::string first_word(const std::string &s) { return packed(s).substr(0, packed(s).find(' ')); }

std::string in_case(std::string s, CHR first)
{
    for (CHR &c : s)
        if (c >= first && c < first + 26) c = CHR(c ^ 32);
    return s;
}

using operation = CHR *(*)(CHR **, const CHR *);
using plain = std::string (*)(const std::string &);

const std::pair<operation, plain> operations[] = {
    {equ, [](const std::string &s) { return s; }},
    {rev, reversed},
    {upper, [](const std::string &s) { return in_case(s, 'a'); }},
    {lower, [](const std::string &s) { return in_case(s, 'A'); }},
    {ltrim, front_cut},
    {rtrim, back_cut},
    {alltrim, both_cut},
    {pack, packed},
    {head, first_word},
    {tail,
     [](const std::string &s) { return front_cut(front_cut(s).substr(first_word(s).size())); }},
};

TEST(Operations, HaveTheirPlainMeaning)
{
    constexpr CHR bytes[] = {' ', ' ',    '\t',   '\0',   '\x1F', 'a', 'Z', '@',
                             '{', '\x7F', '\x80', '\xFF', 'A',    'z', '[', '`'};
    std::mt19937 random(4);
    for (int i = 0; i < 3000; ++i) {
        const std::string source = random_text(random, bytes, 20);
        for (const auto &[run, meaning] : operations)
            expect_each_target(meaning(source), source, run);
    }
}

using sized = CHR *(*)(CHR **, const CHR *, ULO);
using plain_sized = std::string (*)(const std::string &, ULO);

std::string filled(const std::string &part, ULO width, ULO (*in_front)(ULO missing))
{
    const std::string kept = part.substr(0, width);
    const ULO missing = width - kept.size(), front = in_front(missing);
    return std::string(front, ' ') + kept + std::string(missing - front, ' ');
}

const std::pair<sized, plain_sized> cuts[] = {
    {left, [](const std::string &s, ULO n) { return s.substr(0, n); }},
    {leftr,
     [](const std::string &s, ULO n) { return s.substr(0, s.size() - std::min(n, s.size())); }},
    {right, [](const std::string &s, ULO n) { return s.substr(s.size() - std::min(n, s.size())); }},
    {rightl,
     [](const std::string &s, ULO n) {
         return n == ~ULO(0) ? s.substr(0, s.empty() ? 0 : s.size() - 1)
                             : s.substr(std::min(n, s.size()));
     }},
    {[](CHR **targ, const CHR *s, ULO n) { return substr(targ, s, n, 3); },
     [](const std::string &s, ULO n) { // position 0 is in front of the first
         return n == 0 ? s.substr(0, 2) : s.substr(std::min(n - 1, s.size()), 3);
     }},
};

const std::pair<sized, plain_sized> builders[] = {
    {padl, [](const std::string &s,
              ULO n) { return filled(back_cut(s), n, [](ULO) { return ULO(0); }); }},
    {padr, [](const std::string &s,
              ULO n) { return filled(front_cut(s), n, [](ULO missing) { return missing; }); }},
    {padc,
     [](const std::string &s, ULO n) {
         return filled(both_cut(s), n, [](ULO missing) { return (missing + 1) / 2; });
     }},
    {replicate,
     [](const std::string &s, ULO n) {
         std::string all;
         for (; n > 0; --n) all += s;
         return all;
     }},
    {[](CHR **targ, const CHR *, ULO n) { return space(targ, n); },
     [](const std::string &, ULO n) { return std::string(n, ' '); }},
};

TEST(Operations, OfASizeHaveTheirPlainMeaning)
{
    constexpr CHR bytes[] = {' ', '\t', 'a', 'b', '\x80'};
    std::mt19937 random(5);
    const auto expect = [](const auto &row, const std::string &source, ULO n) {
        SCOPED_TRACE(n);
        expect_each_target(row.second(source, n), source,
                           [&](CHR **t, const CHR *s) { return row.first(t, s, n); });
    };
    for (int i = 0; i < 2000; ++i) {
        const std::string source = random_text(random, bytes, 12);
        const ULO count = random() % 16;
        for (const auto &row : builders) expect(row, source, count);
        for (const ULO n : {count, ~ULO(0) - count, ~ULO(0) / 2 + count})
            for (const auto &row : cuts) expect(row, source, n);
    }
}

constexpr const CHR *ab_pieces[] = {"a", "b", "aa", "ab"};

TEST(Search, AgreesWithAPlainSearch)
{
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        const std::string among = random_text(random, ab_pieces, 12),
                          pattern = random_text(random, ab_pieces, 3);
        const text a(among), p(pattern);
        EXPECT_EQ(pattern.empty() ? 0 : among.find(pattern) + 1, at(p.s, a.s));
        EXPECT_EQ(pattern.empty() ? 0 : among.rfind(pattern) + 1, rat(p.s, a.s));
    }
    const text some("a");
    EXPECT_EQ(0u, at(nullptr, some.s) + at(some.s, nullptr) + rat(nullptr, some.s) +
                      rat(some.s, nullptr));
}

std::string replaced(std::string source, const std::string &pattern, const std::string &subst)
{
    for (size_t p = 0; !pattern.empty() && (p = source.find(pattern, p)) != source.npos;
         p += subst.size())
        source.replace(p, pattern.size(), subst);
    return source;
}

TEST(Replacing, TargetMayBeAnyOfTheThree)
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
    text all("a"), b("b");
    EXPECT_EQ("a", bytes_of(strtran(&all.s, all.s, all.s, all.s)));
    EXPECT_EQ("", bytes_of(strtran(&b.s, b.s, b.s, nullptr)));
    EXPECT_EQ("a", bytes_of(strtran(&all.s, all.s, nullptr, b.s)));
}

} // namespace
