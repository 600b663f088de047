// Cursor templates: what no program reaches, numbers as a whole, growth, and any bytes. Commands
// one by one are golden cases.
#include "terminal/cursor.h"

#include <climits>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

std::string expand(const std::string &form, int first, int second, const char *up = nullptr,
                   const char *left = nullptr)
{
    std::int32_t arg[2] = {first, second};
    return expand_cursor(form.c_str(), up, left, arg).c_str();
}

} // namespace

TEST(Cursor, PrintsNumbersAsPrintfDoes)
{
    for (int i = 0; i <= 9999; i++) {
        char text[64];
        snprintf(text, sizeof text, "%d,%03d,%02d", i, i, i % 100);
        EXPECT_EQ(text, expand("%d%b,%3%b,%2", i, 0));
    }
    EXPECT_EQ("<345,+", expand("%d,%d", 12345, -5));
    EXPECT_EQ("/+", expand("%2", -15, 0));
    EXPECT_EQ("(", expand("%a/pA%d", INT_MIN, -1));
}

// With a text that moves left, no NUL, tab or newline goes out; the steps are undone at the end.
TEST(Cursor, KeepsControlBytesFromTheTerminal)
{
    static const struct {
        const char *form;
        int row, column;
        const char *text;
    } steps[] = {
        {"%.%.", 0, 0, "\1\1UL"},         {"%.%.", 9, 10, "\x0b\x0bUUL"},
        {"%.%.", 8, 11, "\x08\x0b"},      {"%r%.%.", 0, 9, "\x0b\1ULL"},
        {"%.%+\t|", 256, 1, "\1\x0b|UL"},
    };
    for (auto &row : steps)
        EXPECT_EQ(row.text, expand(row.form, row.row, row.column, "U", "L")) << row.form;
    EXPECT_EQ("\1\1L", expand("%.%.", 0, 0, nullptr, "L"));
}

TEST(Cursor, HasRoomForAnyLength)
{
    for (int size : {10, 74, 75, 80, 119, 120, 121, 1000}) {
        std::string form(size, 'a');
        EXPECT_EQ(form + "12", expand(form + "%d", 12, 0));
        EXPECT_EQ(form + "\1" + form, expand(form + "%.", 0, 0, form.c_str(), ""));
        EXPECT_EQ(form + "1;2", tgoto((form + "%d;%d").c_str(), 2, 1));
    }
    EXPECT_STREQ("c", tgoto("c", 0, 0));
    EXPECT_EQ(nullptr, tgoto(nullptr, 0, 0));
}

// Any template ends, and writes at most four bytes for each of its own.
TEST(Cursor, SurvivesAnyTemplate)
{
    std::mt19937 random(11);
    const std::string bytes = "%%%%%%%d23.+C>rifbBDnmap=-*/@AB?\x01\x80\xff";
    for (int round = 0; round < 20000; round++) {
        std::string form;
        for (int size = int(random() % 60); size > 0; size--)
            form += bytes[random() % bytes.size()];
        int first = int(random()) >> random() % 32, second = int(random()) >> random() % 32;
        EXPECT_LE(expand(form, first, second, "UP", "L").size(), form.size() * 4);
    }
}
