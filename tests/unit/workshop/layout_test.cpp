// The layout of texts: what it looks like, and what it may not change.

#include "workshop/layout.h"

#include <gtest/gtest.h>

#include "tests/kit/code.h"
#include "tests/kit/sanitizers.h"
#include "tests/unit/frontend/random_source.h"
#include "workshop/program.h"

namespace {

using layout = kit::with_passes<testing::Test>;

TEST_F(layout, texts)
{
    const std::string wide(60, 'w');
    const struct {
        std::string text, wanted;
    } cases[] = {
        {"", ""},
        {" \n\n", ""},
        {"a", "a\n"},
        {"#!x\r\n( progn\t1\r\n)", "#!x\n(progn 1)\n"},
        {"(a)(b)", "(a)\n(b)\n"},
        {"\n\n(a)\n\n\n\n(b)\n(c)\n\n", "(a)\n\n(b)\n(c)\n"},
        {"(f\n 1\n (g\n  2))", "(f 1 (g 2))\n"},
        {"(progn\n\n 1\n\n\n 2\n\n)", "(progn\n  1\n\n  2)\n"},
        {"(if c a\nb)", "(if c\n  a\n  b)\n"},
        {"(for i\n1 1 9 (progn (f) (g)))", "(for i 1 1 9 (progn (f) (g)))\n"},
        {"(\"a\" \"b\"\n\"c\")", "(\"a\"\n \"b\"\n \"c\")\n"},
        {"(f a b (" + wide + ") " + wide + ")", "(f a b\n  (" + wide + ")\n  " + wide + ")\n"},
        {"(setq a (f (" + wide + ") (" + wide + ")))",
         "(setq a\n  (f\n    (" + wide + ")\n    (" + wide + ")))\n"},
        // Column 100 is the last one, for the parentheses behind a form too.
        {"(progn\n(f " + wide + std::string(36, 'x') + "))",
         "(progn\n  (f\n    " + wide + std::string(36, 'x') + "))\n"},
        {"(progn\n(f " + wide + std::string(33, 'x') + "))",
         "(progn\n  (f " + wide + std::string(33, 'x') + "))\n"},
        {"(f)   # one\n(long form) # two\n\n(f) # three\n",
         "(f)         # one\n(long form) # two\n\n(f) # three\n"},
        {"(progn 1 # why\n)", "(progn 1) # why\n"},
        {"(progn 1 # why\n) # end", "(progn\n  1 # why\n)   # end\n"},
        {"(progn 1\n # why\n)", "(progn\n  1\n  # why\n)\n"},
        {"(progn # why\n 1)", "(progn # why\n  1)\n"},
        {"(progn (f) (rem  a  #x\n   b) 2)", "(progn\n  (f) (rem  a  #x\nb)\n  2)\n"},
        {"(progn\n    (rem  a\n         b) 2)", "(progn\n  (rem  a\n       b)\n  2)\n"},
        {"a\"b # c\"d\"# (\"#e", "a\"b # c\"d\"# (\" #e\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.wanted, laid_out(c.text));
        EXPECT_EQ(c.wanted, laid_out(c.wanted));
    }
}

std::string joined(const std::string &text)
{
    std::string line;
    join_lines(&line, text, false);
    return line;
}

void expect_same_program(const std::string &text)
{
    if (!faults_of_balance({"", text}).empty()) return;
    SCOPED_TRACE(text);
    const std::string once = laid_out(text);
    EXPECT_EQ(once, laid_out(once));
    const std::string before = wrapped(joined(text)), after = wrapped(joined(once));
    const std::string checked = kit::checked(before);
    if (checked.starts_with('['))
        EXPECT_EQ('[', kit::checked(after)[0]); // its message shows the text
    else
        ASSERT_EQ(kit::program(before), kit::program(after));
}

TEST_F(layout, own_programs_stay_the_same)
{
    for (const std::string &text : kit::own_files({"tests", "tutorial", "bench", "extension"}))
        expect_same_program(text);
}

// Blanks outside strings become line ends, notes and comment forms.
std::string scattered(const std::string &text, std::mt19937 *random)
{
    static const char *const what[] = {"\n",           "\n\n\n",     " # note \"(\n",
                                       "\n # note)\n", " (rem x)  ", "(rem \n  y) ",
                                       "\n(rem z)\n",  " "};
    std::string other;
    bool in_string = false;
    for (ULO i = 0; i < text.size(); i++) {
        const bool hides = in_string && text[i] == '\\';
        if (text[i] == '"') in_string = !in_string;
        const bool may = !in_string && (text[i] == ' ' || text[i] == ')');
        if (may && (*random)() % 3 == 0) other += what[(*random)() % std::size(what)];
        other += text[i];
        if (hides && i + 1 < text.size()) other += text[++i];
    }
    return other;
}

TEST_F(layout, random_programs_stay_the_same)
{
    std::mt19937 random(1);
    random_source source(2);
    for (int i = 0; i < 3000; i++) {
        std::string text;
        for (int n = i % 5; n >= 0; n--) text += source.form(i % 7) + (n % 2 ? " " : "\n");
        expect_same_program(text);
        expect_same_program(scattered(text, &random));
        expect_same_program(source.garbage(30));
    }
}

// Neither time nor size may grow with the square of the depth.
TEST_F(layout, deep_forms)
{
#ifdef ADDRESS_SANITIZER
    const ULO depth = 1'000; // its frames are larger
#else
    const ULO depth = 10'000;
#endif
    for (const std::string open : {"(f ", "(if ", "(progn 1 ", "("}) {
        std::string text;
        for (ULO i = 0; i < depth; i++) text += open;
        text.append(depth, ')');
        EXPECT_LT(laid_out(text).size(), 100 * text.size());
    }
}

} // namespace
