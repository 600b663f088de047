// Cursor templates.
#include "terminal/cursor.h"

#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

std::string expand(const std::string &form, int first, int second, const char *up = nullptr,
                   const char *left = nullptr)
{
    char lent[CURSOR_ROOM];
    std::int32_t arg[2] = {first, second};
    char *built = expand_cursor(form.c_str(), lent, up, left, arg);
    std::string text = built;
    if (built != lent) free(built);
    return text;
}

struct {
    const char *form;
    int first, second;
    const char *text;
} const cases[] = {
    {"plain", 1, 2, "plain"},
    {"", 1, 2, ""},
    {"\033[%i%d;%dH", 0, 0, "\033[1;1H"},
    {"%r%d;%d", 3, 7, "7;3"},
    {"%%%d%", 5, 0, "%5"},
    {"%2,%3", 7, 7, "07,007"},
    {"%2,%3", 123, 1234, "23,1234"},
    {"%d,%d", 999, 1000, "999,1000"},
    {"%d,%d", 12345, -5, "<345,+"},
    {"%2", -15, 0, "/+"},
    {"%.%.", 65, 66, "AB"},
    {"%.%.", 0, 256, "\x80\x80"},
    {"%+ %+!", 0, 1, " \""},
    {"%+\xff%.", 2, 65, "\1A"},
    {"%C %C ", 95, 197, "\x7f\2%"},
    {"%>5\x02%d", '6', 0, "56"},
    {"%>5\x02%d", '5', 0, "53"},
    {"%f%d", 1, 2, "2"},
    {"%d%b%d", 1, 2, "11"},
    {"%B%d", 45, 0, "69"},
    {"%D%d", 45, 0, "19"},
    {"%n%d,%d", 1, 0, "97,96"},
    {"%m%d,%d", 1, 0, "126,127"},
    {"%p1%d%p2%d%q!%z!", 3, 4, "34!!"},
    // Arithmetic: sign, kind, value.
    {"%a+c\x05%d", 10, 0, "15"},
    {"%a-c\x85%d", 10, 0, "5"},
    {"%a*pA%d", 10, 3, "30"},
    {"%a/pA%d", 10, 3, "3"},
    {"%a=p@%d", 10, 3, "10"},
    {"%a=c\x07%d", 10, 3, "7"},
    {"%f%a+p?%d", 10, 3, "13"},
    {"%a/c\x80%d", 10, 3, "0"}, // no divisor: 0
    {"%a/pA%d", INT_MIN, -1, "("},
    // Beside the two arguments: 0, and nothing is stored.
    {"%b%d%d", 5, 6, "05"},
    {"%f%f%d%a=c\x07%b%d", 5, 6, "00"},
    {"%a+pB%d", 5, 6, "5"},
    {"%b%a=c\x07%i%d%d", 5, 6, "06"},
    // Parameters that the end cuts off read as NUL.
    {"%+", 65, 0, "A"},
    {"%C", 65, 0, "A"},
    {"%>", 65, 0, ""},
    {"%a", 65, 0, ""},
    {"%a+", 65, 0, ""},
    {"%p", 65, 0, ""},
    // A quotient of 0 modulo 256 ends the text.
    {"a%C b", 256 * 96, 0, "a"},
};

} // namespace

TEST(cursor, ExpandsTemplates)
{
    for (auto &row : cases) {
        EXPECT_EQ(row.text, expand(row.form, row.first, row.second))
            << row.form << " " << row.first << " " << row.second;
    }
}

TEST(cursor, PrintsNumbersAsPrintfDoes)
{
    for (int i = 0; i <= 9999; i++) {
        char text[64];
        snprintf(text, sizeof text, "%d,%03d,%02d", i, i, i % 100);
        EXPECT_EQ(text, expand("%d%b,%3%b,%2", i, 0));
    }
}

// With a text that moves left, no NUL, tab or newline goes out; the steps are undone at the end.
TEST(cursor, KeepsControlBytesFromTheTerminal)
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
    for (auto &row : steps) {
        EXPECT_EQ(row.text, expand(row.form, row.row, row.column, "U", "L")) << row.form;
    }
    EXPECT_EQ("\1\1L", expand("%.%.", 0, 0, nullptr, "L"));
}

TEST(cursor, MovesToTheHeapWhenItGrows)
{
    for (int size : {10, 74, 75, 80, 119, 120, 121, 1000}) {
        std::string form(size, 'a');
        EXPECT_EQ(form + "12", expand(form + "%d", 12, 0));
        EXPECT_EQ(form + "\1" + form, expand(form + "%.", 0, 0, form.c_str(), ""));
    }
    EXPECT_STREQ("1;2", tgoto("%d;%d", 2, 1));
    std::string whole(500, 'b');
    EXPECT_EQ(whole, tgoto(whole.c_str(), 0, 0));
    EXPECT_STREQ("c", tgoto("c", 0, 0));
    EXPECT_EQ(nullptr, tgoto(nullptr, 0, 0));
}

// Any template ends, and writes at most four bytes for each of its own.
TEST(cursor, SurvivesAnyTemplate)
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
