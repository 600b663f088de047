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

struct code_escapes {
    std::string upper[256], lower[256];
    code_escapes()
    {
        for (int code = 0; code < 256; ++code) {
            upper[code] = escape("\\0x%02X", code);
            lower[code] = escape("\\0x%02x", code);
        }
    }
};
const code_escapes codes;

std::string plain_strraw(std::string made)
{
    replace_all(&made, "\\\\", "\\0x5C");
    for (const auto &[pattern, byte] : letters) replace_all(&made, pattern, std::string(1, byte));
    for (int code = 0; code < 256; ++code) {
        replace_all(&made, codes.upper[code], std::string(1, CHR(code)));
        replace_all(&made, codes.lower[code], std::string(1, CHR(code)));
    }
    return made;
}

std::string plain_strunraw(std::string made)
{
    replace_all(&made, "\\", "\\\\");
    for (const auto &[pattern, byte] : letters) replace_all(&made, std::string(1, byte), pattern);
    for (int code = 0; code < 32; ++code)
        replace_all(&made, std::string(1, CHR(code)), codes.upper[code]);
    return made;
}

TEST(escapes, read)
{
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", ""},
        {"plain", "plain"},
        {"\\n", "\n"},
        {"\\\\\\n", "\\\n"},
        {"\\\\n", "\\n"},
        {"\\0x41\\0x4a\\0x4A", "AJJ"},
        {"\\0x00", "\0"sv},
        {"\\0xaB\\0X41\\0x4", "\\0xaB\\0X41\\0x4"},
        {"\\0x0a\\0x0A", "\n\n"},
        {"\\", "\\"},
        {"a\\", "a\\"},
        {"\\q\\\"", "\\q\""},
        {"\\b\\r\\t\\e\\v\\a\\f", "\b\r\t\x1B\v\a\f"},
        // A byte that one escape yields takes part in a later one, and only in a later one.
        {"\\\\0x61", "a"},
        {"\\\\0x41", "\\0x41"},
        {"\\\\0x5c", "\\"},
        {"\\\\0x5C", "\\0x5C"},
        {"\\0\\0x78FF", "\xFF"},
        {"\\0\\0x7841", "\\0x41"},
        {"\\0xA\\0x42", "\xAB"},
        {"\\0x3\\0x30", "0"},
        {"\\\\0x6\\0x31", "a"},
    };
    for (const auto &[source, expected] : cases) {
        expect_each_target(expected, source, strraw);
        EXPECT_EQ(expected, plain_strraw(std::string(source)));
    }
}

TEST(escapes, one_pass_reads_like_the_whole_sequence)
{
    constexpr const CHR *pieces[] = {
        "\\",     "\\",     "\\",     "\\\\",   "\\0x",  "\\0x",   "\\0",    "0x",    "0",    "x",
        "X",      "3",      "5",      "6",      "7",     "A",      "C",      "F",     "a",    "b",
        "c",      "f",      "5C",     "5c",     "7",     "n",      "r",      "t",     "\"",   "Z",
        "\\0x5C", "\\0x5c", "\\0x30", "\\0x78", "\\0x4", "\\0x41", "\\0x61", "\\0x3", "\\0x6"};
    std::mt19937 random(8);
    int read_again = 0;
    for (int i = 0; i < 400000; ++i) {
        const std::string source = random_text(random, pieces, 14);
        const std::string expected = plain_strraw(source);
        text made(source);
        strraw(&made.s, made.s);
        ASSERT_EQ(expected, view(made.s)) << source;
        read_again += source.find("\\\\0x") != source.npos;
    }
    EXPECT_GT(read_again, 1000);
}

TEST(escapes, long_nested_text_takes_linear_time)
{
    std::string source;
    for (int i = 0; i < 200000; ++i) source += "\\0\\\\";
    text made(source);
    EXPECT_EQ(source.size() / 4 * 3, bytes_of(strraw(&made.s, made.s)).size());
}

TEST(escapes, written)
{
    std::string all;
    for (int code = 0; code < 256; ++code) all += CHR(code);
    expect_each_target(plain_strunraw(all), all, strunraw);
    expect_each_target("\\0x00\\e\xE9", "\0\x1B\xE9"sv, strunraw);

    std::mt19937 random(9);
    constexpr CHR bytes[] = {'\\', '"', 'n', '0', 'x', 'A',    0,     7,
                             8,    10,  27,  31,  ' ', '\x7F', '\x80'};
    for (int i = 0; i < 20000; ++i) {
        const std::string source = random_text(random, bytes, 20);
        const std::string written = plain_strunraw(source);
        expect_each_target(written, source, strunraw);
        if (source.find("\\0x") == source.npos) expect_each_target(source, written, strraw);
    }
}

} // namespace
