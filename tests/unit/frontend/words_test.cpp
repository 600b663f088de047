// The classes of tokens, names in UTF-8 among them, and the squeezing of PROGN statements. How
// lines are joined and what is refused is golden.

#include <gtest/gtest.h>

#include "frontend/token.h"
#include "kestrin/isa.h"
#include "tests/kit/passes.h"

namespace {

using Words = kit::with_passes<testing::Test>;

TEST_F(Words, ClassesOfTokens)
{
    const struct {
        bool utf8;
        std::string token;
        UCH letter;
        std::string folded; // or the message's end
    } cases[] = {
        {false, "a\x7F", 0, "name: a\x7F"},      {true, "\xC3\xA9", 'V', "\xC3\x89"},
        {true, "\xD0\xB6#1", 'V', "\xD0\x96#1"}, {true, "a\xFE", 0, "name: a\xFE"},
        {true, "a@I", 0, "name: a@I"},           {true, "\xFEx", 0, "constant: \xFEx"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.token);
        _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(c.utf8);
        std::string out = "before ";
        ASSERT_EQ(c.letter, kestrin_type(c.token, &out));
        EXPECT_EQ("before " + (c.letter == 0 ? "" : c.folded), out);
        if (c.letter != 0) continue;
        EXPECT_EQ(2, rt_ctrl->rt_run_flag);
        EXPECT_TRUE(view(rt_ctrl->rt_run_text).ends_with(c.folded)) << rt_ctrl->rt_run_text;
    }
    _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(0);
}

TEST_F(Words, Squeezing)
{
    const struct {
        const char *text, *squeezed;
        ULO count;
    } cases[] = {
        {"(PROGN A (PROGN B (PROGN C D)) E)", "(PROGN A B C D E)", 2},
        {"(PROGN A)", "A", 1},
        {"(PROGN (PROGN A))", "A", 2},
        {"(PROGN (PROGN A B))", "(PROGN A B)", 1},
        {"(IF A (PROGN B C) (PROGN (PROGN D)))", "(IF A (PROGN B C) D)", 2},
        {"(DEFUN F (PROGN A))", "(DEFUN F (PROGN A))", 0},
        {"(DEFUN F (PROGN (IVAL A)))", "(DEFUN F (IVAL A))", 1},
        {"(DEFUN F (PROGN (DEFUN G (H))))", "(DEFUN F (PROGN (DEFUN G (H))))", 0},
        {"(PROGN (DEFUN F (PROGN (PROGN A B))) (F))", "(PROGN (DEFUN F (PROGN A B)) (F))", 1},
        {"(PROGN \"(PROGN \" (PROGN \"a) b\"))", "(PROGN \"(PROGN \" \"a) b\")", 1},
        {"(PROGN (PROGN))", "(PROGN)", 1},
        // out of balance: a walk that began in quotes meets a parenthesis in them, once
        {"(DEFUN F \"x (A))", "(DEFUN F (x ()))", 0},
    };
    for (const auto &c : cases) {
        ULO count = 0;
        EXPECT_EQ(c.squeezed,
                  kit::passed(c.text, [&](CHR **targ) { count = progn_squeeze(targ); }));
        EXPECT_EQ(c.count, count) << c.text;
    }
}

} // namespace
