// The type pass: its rules as a table of typed texts.

#include "frontend/justify.h"

#include <gtest/gtest.h>

#include "frontend/isa.h"
#include "tests/kit/passes.h"

namespace {

// The text of a case is the typed one without its suffixes.
struct type_case {
    const char *typed;
    UCH letter;
};

const type_case cases[] = {
    // All kinds of suffixes in two programs.
    {R"((PROGN (SETQ@I A@I 1) (SETQ@F B 2.) (IF@J (==@I A@I 1) (SETQ@S B "x") 0) (OUTF "%d" A@I)))",
     'S'},
    {R"((PROGN (SETQ@I A 1) (WHILE@J (< A 3) (SETQ@S A "x"))))", 'I'},
    // Tokens.
    {"A", 'U'},
    {"$1", 'U'},
    // A read ahead of the first assignment is another variable than those behind it.
    {R"((PROGN (OUTF "%d" A) (SETQ@I A@I 1)))", 'I'},
    // Assignments.
    // Once of changing type, always so.
    {"(PROGN (SETQ@I A 1) (SETQ A B) (SETQ@I A 1) A)", 'U'},
    {"(PROGN (SETQ@I A@I (SETQ@I B@I 1)) (SETQ@I B@I A@I))", 'I'},
    // The target's row is made behind the value.
    {"(PROGN (SETQ@I $1 1) (IADD@J $1 2))", 'I'},
    // Arrays.
    {"(PROGN (ARSETQ@I A@I 0 1) (INDEX@I A@I 0))", 'I'},
    {R"((PROGN (ARSETQ A 0 1) (ARSETQ A 1 "x")))", 'S'},
    // An array copied into a member.
    {"(PROGN (ARSETQ@I B@I 1 1) (ARSETQ A 0 B@I))", 'U'},
    // Only a bare name is seen to be an array.
    {"(PROGN (ARSETQ@I B@I 1 1) (ARSETQ@I A@I 0 (PROGN B@I)))", 'I'},
    // The index must be an integer.
    {R"((PROGN (ARSETQ@I A@I 0 1) (INDEX A@I "0")))", 'I'},
    // The sweep leaves the suffix of ALINDEX alone.
    {"(PROGN (ARSETQ A 1 2.) (ALINDEX@J A 2) (SETQ@I A 1))", 'I'},
    // A formal argument has a type and shows none, and so its INDEX shows none.
    {"(PROGN (SETQ@I $1 1) (INDEX $1 0))", 'I'},
    // Control.
    {"(IF@J 1 2 3.)", 'U'},
    // A PROGN may end at a BREAK that stands in it, but not at an EXIT or at one further in.
    {"(PROGN 1 (BREAK) (EXIT) 2.)", 'S'},
    {"(PROGN (WHILE@J 1 (BREAK)) 2.)", 'F'},
    // Loops.
    {R"((FOR@J I@I 0 1 9 (OUTF "%d" I@I)))", 'I'},
    // The rehearsal of the body finds the second type ahead of the walk; the suffix of FOR stays.
    {R"((FOR@J I 0 1 9 (SETQ@S I "x")))", 'I'},
    // What a body assigns is known to a condition only behind the rehearsal.
    {"(WHILE@J (<@I A@I 3) (SETQ@I A@I 1))", 'I'},
    // A loop within a loop has no rehearsal of its own, but its outer one's comes to the same.
    {"(WHILE@J 1 (WHILE@J (<@I A@I 3) (SETQ@I A@I 1)))", 'I'},
    // One rehearsal does not see through a chain of assignments.
    {"(WHILE@J 1 (PROGN (SETQ C B) (SETQ@I B A@I) (SETQ@I A@I 1)))", 'I'},
    // Instructions.
    {R"((SUBSTR@J "abc" 1 (LEN@J "x")))", 'S'},
    // Definitions.
    {"(PROGN (DEFUN F (IF $1 (F (ISUB $1 1)) 0)) (F 1))", 'U'},
    // A recursion whose value does not depend on it is proved in the second walk.
    {"(DEFUN F (PROGN (SETQ@I A@I (F)) (IADD@J A@I 1)))", 'S'},
    // Variables are private to their function.
    {"(PROGN (SETQ@I A@I 1) (DEFUN F (SETQ@F A@F 2.)) A@I)", 'I'},
    // The second walk knows the arrays of the first, but not its types.
    {"(DEFUN F (PROGN (ARSETQ A 0 B) (ARSETQ@I B@I 0 1)))", 'S'},
    {"(DEFUN F (PROGN (SETQ@I B@I 1) (ARSETQ A 0 B@I) (ARSETQ@I B@I 0 1)))", 'S'},
    // A nested definition sees the type of the function around it that the walk goes by.
    {"(DEFUN F (PROGN (DEFUN G (SETQ@I A@I (F))) (G) 1))", 'S'},
};

struct context_case {
    const char *typed, *before, *after; // UDF types: NAME:LETTER and a blank each
};

const context_case contexts[] = {
    {"(PROGN (DEFUN F (PROGN 1)) (DEFUN G (F)) (G))", "", "F:I G:I "},
    // Nested definitions leave nothing behind.
    {"(DEFUN F (PROGN (DEFUN G (PROGN 1)) (G)))", "", "F:I "},
    {"(DEFUN F (IF $1 (F (ISUB $1 1)) 0))", "", "F:U "},
    // Global functions are known from the beginning.
    {"(SETQ@F A@F (G))", "G:F ", "G:F "},
    {"(DEFUN F (IADD (G) (H)))", "G:I H:U ", "G:I H:U F:I "},
};

// Instructions of a unit: I*2_ takes an integer, FUSION_CMP two operands of one type.
const type_case of_a_unit[] = {
    {"(I*2_@J 2)", 'I'},
    {"(PROGN (SETQ@I A@I 2) (SETQ@F B@F 2.) (I*2_@J A@I))", 'I'},
    {"(PROGN (SETQ@I A@I 2) (SETQ@F B@F 2.) (FUSION_CMP A@I B@F))", 'I'},
    {"(PROGN (SETQ@I A@I 2) (FUSION_CMP@I A@I A@I))", 'I'},
};

std::string without_suffixes(std::string typed)
{
    for (auto at = typed.find('@'); at != typed.npos; at = typed.find('@', at)) typed.erase(at, 2);
    return typed;
}

using TypePass = kit::with_passes<testing::Test>;

template <ULO n> void expect(const type_case (&rows)[n])
{
    for (const type_case &c : rows) {
        const kit::typed_text got = kit::typed(without_suffixes(c.typed));
        EXPECT_EQ(got.text, c.typed);
        EXPECT_EQ(CHR(got.letter), CHR(c.letter)) << c.typed;
    }
}

TEST_F(TypePass, Rules) { expect(cases); }

TEST_F(TypePass, TypesOfFunctions)
{
    for (const context_case &c : contexts) {
        const kit::typed_text got = kit::typed(without_suffixes(c.typed), c.before);
        EXPECT_EQ(got.text, c.typed);
        EXPECT_EQ(got.types, c.after) << c.typed;
    }
}

TEST_F(TypePass, InstructionsOfAUnit)
{
    scratch isa, row;
    _internal_ISA_COPs_get(&isa.s);
    assign(&row.s, "(FUSION_CMP 2 I \"EE\" 1 1 1 1 1)");
    _internal_ISA_COPs_set(cat(&isa.s, row.s));
    assign(&row.s, "(I*2_ 1 I \"I\" 1)");
    _internal_ISAext_COPs_set(row.s);
    expect(of_a_unit);
    _internal_ISAext_COPs_set(nullptr);
    _internal_ISA_COPs_set(nullptr);
}

// Each of forty nested functions calls itself and the next one. To walk every body twice for each
// walk of the one around it would take 2 to the power of 40 walks, which no test lives to see.
TEST_F(TypePass, NestingOfDefinitionsIsNoMultiplier)
{
    std::string typed = "(PROGN $1 1)";
    for (int i = 40; i > 0; i--) {
        const std::string name = "F" + std::to_string(i);
        const std::string around = i == 1 ? "1" : "(F" + std::to_string(i - 1) + " $1)";
        typed = "(PROGN (DEFUN " + name + " " + typed + ") (" + name + " $1) (IADD@J " + around +
                " (" + name + " 1)))";
    }
    const std::string text = without_suffixes(typed);
    ASSERT_EQ(kit::checked(text), text);
    EXPECT_EQ(kit::typed(text).text, typed);
}

} // namespace
