// Escapes. The reference is the sequence of whole replacements that defines them.
#include "kit.h"

namespace {

void replace_all(std::string *in, const std::string &pattern, const std::string &subst)
{
    for (size_t p = 0; (p = in->find(pattern, p)) != in->npos; p += subst.size())
        in->replace(p, pattern.size(), subst);
}

constexpr std::pair<const CHR *, CHR> letters[] = {{"\\b", 8},    {"\\n", 10}, {"\\r", 13},
                                                   {"\\t", 9},    {"\\e", 27}, {"\\v", 11},
                                                   {"\\\"", '"'}, {"\\a", 7},  {"\\f", 12}};

std::string escape(const CHR *format, int code)
{
    CHR made[8];
    snprintf(made, sizeof made, format, unsigned(code));
    return made;
}

std::string plain_strraw(std::string made)
{
    static const auto codes = [] {
        std::vector<std::string> all;
        for (int code = 0; code < 256; ++code)
            for (const CHR *form : {"\\0x%02X", "\\0x%02x"}) all.push_back(escape(form, code));
        return all;
    }();
    replace_all(&made, "\\\\", "\\0x5C");
    for (const auto &[pattern, byte] : letters) replace_all(&made, pattern, std::string(1, byte));
    for (size_t i = 0; i < codes.size(); ++i)
        replace_all(&made, codes[i], std::string(1, CHR(i / 2)));
    return made;
}

std::string plain_strunraw(std::string made)
{
    replace_all(&made, "\\", "\\\\");
    for (const auto &[pattern, byte] : letters) replace_all(&made, std::string(1, byte), pattern);
    for (int code = 0; code < 32; ++code)
        replace_all(&made, std::string(1, CHR(code)), escape("\\0x%02X", code));
    return made;
}

TEST(Escapes, OnePassReadsLikeTheWholeSequence)
{
    constexpr const CHR *pieces[] = {
        "\\",     "\\",     "\\",     "\\\\",   "\\0x",  "\\0x",   "\\0",    "0x",    "0",    "x",
        "X",      "3",      "5",      "6",      "7",     "A",      "C",      "F",     "a",    "b",
        "c",      "f",      "5C",     "5c",     "7",     "n",      "r",      "t",     "\"",   "Z",
        "\\0x5C", "\\0x5c", "\\0x30", "\\0x78", "\\0x4", "\\0x41", "\\0x61", "\\0x3", "\\0x6"};
    std::mt19937 random(8);
    for (int i = 0; i < 400000; ++i) {
        const std::string source = random_text(random, pieces, 14);
        text made(source);
        strraw(&made.s, made.s);
        ASSERT_EQ(plain_strraw(source), view(made.s)) << source;
    }
}

TEST(Escapes, LongNestedTextTakesLinearTime)
{
    std::string source;
    for (int i = 0; i < 200000; ++i) source += "\\0\\\\";
    text made(source);
    EXPECT_EQ(source.size() / 4 * 3, bytes_of(strraw(&made.s, made.s)).size());
}

TEST(Escapes, Written)
{
    std::mt19937 random(9);
    for (int i = 0; i < 20000; ++i) {
        std::string source;
        for (int n = int(random() % 20); n > 0; --n)
            source += "\\0x\"A"[random() % 5], source += CHR(random());
        const std::string written = plain_strunraw(source);
        expect_each_target(written, source, strunraw);
        if (source.find("\\0x") == source.npos) expect_each_target(source, written, strraw);
    }
}

// For units that write bytes as the library does.
TEST(Escapes, FormatsAreToldFromTheFirstUseOn)
{
    const text source("a\\0x41");
    for (CHR *(*operation)(CHR **, const CHR *) : {strraw, strunraw, strdump}) {
        scratch target;
        counted_faults own;
        EXPECT_EQ(nullptr, own.block.raw_fmt_upper);
        operation(&target.s, source.s);
        EXPECT_STREQ("\\0x%02hhX", own.block.raw_fmt_upper);
        EXPECT_STREQ("\\0x%02hhx", own.block.raw_fmt_lower);
        EXPECT_STREQ(" %02hhX", own.block.dump_fmt);
    }
}

} // namespace
