// The syntax checker: what the program's road does not reach, and the whole of it against the plain
// checker of this folder. Programs and their messages stand in the golden cases.

#include "frontend/check.h"

#include <gtest/gtest.h>

#include "frontend/isa.h"
#include "tests/kit/passes.h"
#include "tests/unit/frontend/random_source.h"

namespace {

struct outcome {
    SLO status;
    int code;
    std::string message, text;
    bool operator==(const outcome &) const = default;
    friend void PrintTo(const outcome &o, std::ostream *out)
    {
        *out << o.status << " code " << o.code << " " << o.message << " text " << o.text;
    }
};

outcome check(const std::string &text, std::string_view name = "Main", lut **table = nullptr)
{
    lut *own = nullptr;
    tree t;
    const SLO status = kestrin_check(&t, &t.root, text, 0, name, table == nullptr ? &own : table);
    lut_free(&own);
    if (status < 0)
        return {status, rt_ctrl->rt_run_flag, std::string(view(rt_ctrl->rt_run_text)), ""};
    return {status, 0, "", t.written()};
}

using Checker = kit::with_passes<testing::Test>;

TEST_F(Checker, WholeTexts)
{
    const struct {
        const char *name, *text;
        SLO status;
        const char *result; // the checked text or the message
    } cases[] = {
        {"Main", "(rem anything \"at all\" (balanced))", 0, ""},
        {"Main", "((rem a) Comment b)", 0, ""},
        {"Main", "(\"a\" \"b\")", 0, "(PROGN \"ab\")"},
        {"Main", "(outf \"%d\" $1)", 1, "(OUTF \"%d\" $1)"},
        {"Main", "(&&  $2 (And 1e5 $1))", 2, "(&& $2 (AND 1E5 $1))"},
        {"Main", "(defun f (iadd $1 $2))", 2, "(DEFUN F (IADD $1 $2))"},
        {"Main_Modified", "(setq $1 2)", 0, "(SETQ $1 2)"},
        {"Main_Modified", "(progn (for $2 0 1 9 1) (setq $1 $1))", 1,
         "(PROGN (FOR $2 0 1 9 1) (SETQ $1 $1))"},
        {"Main_Modified", "(defun f (setq $1 2))", -1,
         "In function `Main_Modified:F': invalid variable name `$1': (setq $1 2)"},
        {"Main_Mapcar", "5", -1,
         "In function `Main_Mapcar': parentheses-unterminated function: `5'"},
        {"Main", "(iadd 1 2) 3", -1,
         "In function `Main': parentheses-unterminated function: `(iadd 1 2) 3'"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const outcome got = check(c.text, c.name);
        EXPECT_EQ(c.status, got.status);
        EXPECT_EQ(c.result, c.status < 0 ? got.message : got.text);
    }
}

// Definitions of one text are known in the next one that is given the same table; inner ones are
// not.
TEST_F(Checker, TableOutlivesAText)
{
    lut *table = nullptr;
    EXPECT_EQ(1,
              check("(defun f (progn (defun g (progn 1)) (ineg $1)))", "UDFs_CFG", &table).status);
    EXPECT_EQ(ISA_ROWS + 1, table->lut_count);
    EXPECT_EQ(1u, table->lut_scope);
    EXPECT_EQ(0, check("(f 1)", "Main", &table).status);
    EXPECT_EQ(4, check("(f)", "Main", &table).code);
    EXPECT_EQ(3, check("(g)", "Main", &table).code);
    EXPECT_EQ(8, check("(defun F (progn 1))", "Main", &table).code);
    lut_free(&table);
}

TEST_F(Checker, AcceptsAgainWhatItHasAccepted)
{
    random_source source(20);
    int accepted = 0;
    for (int i = 0; i < 12000; i++) {
        const outcome once = check("(progn " + source.form(4) + " " + source.form(3) + ")");
        if (once.status < 0 || once.text.empty()) continue;
        ASSERT_EQ(once, check(once.text));
        accepted++;
    }
    EXPECT_LT(300, accepted);
}

} // namespace
