// The type pass: its rules as a table of texts, and the whole of it against the plain pass of the
// kit on random programs.

#include "frontend/justify.h"

#include <gtest/gtest.h>

#include "frontend/isa.h"
#include "tests/kit/passes.h"
#include "tests/kit/plain_types.h"
#include "tests/kit/random_program.h"

namespace {

struct type_case {
    const char *text, *typed;
    UCH letter;
};

const type_case worked_examples[] = {
    {R"((PROGN (SETQ A 1) (SETQ B 2.) (IF (== A 1) (SETQ B "x") 0) (OUTF "%d" A)))",
     R"((PROGN (SETQ@I A@I 1) (SETQ@F B 2.) (IF@J (==@I A@I 1) (SETQ@S B "x") 0) (OUTF "%d" A@I)))",
     'S'},
    {R"((PROGN (SETQ A 1) (WHILE (< A 3) (SETQ A "x"))))",
     R"((PROGN (SETQ@I A 1) (WHILE@J (< A 3) (SETQ@S A "x"))))", 'I'},
};

const type_case tokens[] = {
    {"5", "5", 'I'},
    {"-0.5", "-0.5", 'F'},
    {"1E5", "1E5", 'F'},
    {R"("a b")", R"("a b")", 'S'},
    {"NIL", "NIL", 'Z'},
    {"A", "A", 'U'},
    {"$1", "$1", 'U'},
    // A read ahead of the first assignment is another variable than those behind it.
    {R"((PROGN (OUTF "%d" A) (SETQ A 1)))", R"((PROGN (OUTF "%d" A) (SETQ@I A@I 1)))", 'I'},
};

const type_case assignments[] = {
    {"(SETQ A NIL)", "(SETQ@Z A@Z NIL)", 'Z'},
    {R"((ALSETQ A "x"))", R"((ALSETQ@S A@S "x"))", 'S'},
    {R"((SETQ A (IVAL "1")))", R"((SETQ@I A@I (IVAL@S "1")))", 'I'},
    {"(SETQ A B)", "(SETQ A B)", 'U'},
    {"(PROGN (SETQ A 1) (SETQ A 2.) A)", "(PROGN (SETQ@I A 1) (SETQ@F A 2.) A)", 'U'},
    // Once of changing type, always so.
    {"(PROGN (SETQ A 1) (SETQ A B) (SETQ A 1) A)", "(PROGN (SETQ@I A 1) (SETQ A B) (SETQ@I A 1) A)",
     'U'},
    {"(PROGN (SETQ A (SETQ B 1)) (SETQ B A))",
     "(PROGN (SETQ@I A@I (SETQ@I B@I 1)) (SETQ@I B@I A@I))", 'I'},
    // The target's row is made behind the value.
    {"(SETQ A (SETQ A 1))", "(SETQ@I A@I (SETQ@I A@I 1))", 'I'},
    {"(PROGN (SETQ $1 1) (IADD $1 2))", "(PROGN (SETQ@I $1 1) (IADD@J $1 2))", 'I'},
    {R"((PROGN (SETQ $1 1) (SETQ $1 "a") $1))", R"((PROGN (SETQ@I $1 1) (SETQ@S $1 "a") $1))", 'U'},
};

const type_case arrays[] = {
    {"(PROGN (ARSETQ A 0 1) (INDEX A 0))", "(PROGN (ARSETQ@I A@I 0 1) (INDEX@I A@I 0))", 'I'},
    {R"((PROGN (ARSETQ A 0 1) (ARSETQ A 1 "x")))", R"((PROGN (ARSETQ A 0 1) (ARSETQ A 1 "x")))",
     'S'},
    // An array copied into a member.
    {"(PROGN (ARSETQ B 1 1) (ARSETQ A 0 B))", "(PROGN (ARSETQ@I B@I 1 1) (ARSETQ A 0 B@I))", 'U'},
    {"(PROGN (SETQ B 1) (ARSETQ A 0 B))", "(PROGN (SETQ@I B@I 1) (ARSETQ@I A@I 0 B@I))", 'I'},
    {"(ARSETQ A 1 A)", "(ARSETQ A 1 A)", 'U'},
    {"(PROGN (SETQ A 1) (ARSETQ A 1 A))", "(PROGN (SETQ@I A 1) (ARSETQ A 1 A))", 'U'},
    // Only a bare name is seen to be an array.
    {"(PROGN (ARSETQ B 1 1) (ARSETQ A 0 (PROGN B)))",
     "(PROGN (ARSETQ@I B@I 1 1) (ARSETQ@I A@I 0 (PROGN B@I)))", 'I'},
    // The index must be an integer.
    {"(PROGN (ARSETQ A 0. 1) A)", "(PROGN (ARSETQ A 0. 1) A)", 'U'},
    {"(PROGN (ARSETQ A 0 1) (INDEX A \"0\"))", "(PROGN (ARSETQ@I A@I 0 1) (INDEX A@I \"0\"))", 'I'},
    {"(PROGN (INDEX A 0) (ARSETQ A 0 1))", "(PROGN (INDEX A 0) (ARSETQ@I A@I 0 1))", 'I'},
    {"(PROGN (ARSETQ A 0 1) (INDEX A 0) (SETQ A 2.))",
     "(PROGN (ARSETQ A 0 1) (INDEX A 0) (SETQ@F A 2.))", 'F'},
    {"(PROGN (ARSETQ A 1 2.) (ALINDEX A 2))", "(PROGN (ARSETQ@F A@F 1 2.) (ALINDEX@J A@F 2))", 'U'},
    {"(ALINDEX A 2.)", "(ALINDEX A 2.)", 'U'},
    // The sweep leaves the suffix of ALINDEX alone.
    {"(PROGN (ARSETQ A 1 2.) (ALINDEX A 2) (SETQ A 1))",
     "(PROGN (ARSETQ A 1 2.) (ALINDEX@J A 2) (SETQ@I A 1))", 'I'},
    // A formal argument has a type and shows none, and so its INDEX shows none.
    {"(PROGN (SETQ $1 1) (INDEX $1 0))", "(PROGN (SETQ@I $1 1) (INDEX $1 0))", 'I'},
    {"(PROGN (SETQ $1 1) (ALINDEX $1 1))", "(PROGN (SETQ@I $1 1) (ALINDEX@J $1 1))", 'U'},
};

const type_case control[] = {
    {"(PROGN 1 2.)", "(PROGN 1 2.)", 'F'},
    {"(PROGN)", "(PROGN)", 'U'},
    {"(IF 1 2 3.)", "(IF@J 1 2 3.)", 'U'},
    {"(IF 1. 2 3)", "(IF 1. 2 3)", 'I'},
    {"(IF A 2 3)", "(IF A 2 3)", 'I'},
    {"(IF 1 A B)", "(IF@J 1 A B)", 'U'},
    // A PROGN may end at a BREAK that stands in it, but not at an EXIT or at one further in.
    {"(PROGN (BREAK) 1)", "(PROGN (BREAK) 1)", 'S'},
    {"(PROGN 1 (BREAK) (EXIT) 2.)", "(PROGN 1 (BREAK) (EXIT) 2.)", 'S'},
    {"(PROGN (EXIT) 1)", "(PROGN (EXIT) 1)", 'I'},
    {"(PROGN (IF 1 (BREAK) 0) 1)", "(PROGN (IF@J 1 (BREAK) 0) 1)", 'I'},
    {"(PROGN (WHILE 1 (BREAK)) 2.)", "(PROGN (WHILE@J 1 (BREAK)) 2.)", 'F'},
    {"(WHILE A 1.)", "(WHILE A 1.)", 'I'},
    {"(WHILE 1. 1.)", "(WHILE 1. 1.)", 'I'},
};

const type_case loops[] = {
    {"(FOR I 0 1 9 (OUTF \"%d\" I))", "(FOR@J I@I 0 1 9 (OUTF \"%d\" I@I))", 'I'},
    {"(FOR I 0 1. 9 I)", "(FOR I@I 0 1. 9 I@I)", 'I'},
    {"(FOR I 0 1 9. I)", "(FOR I@I 0 1 9. I@I)", 'I'},
    {"(FOR I 0. 1 9 I)", "(FOR I@F 0. 1 9 I@F)", 'I'},
    {"(FOR I A 1 9 I)", "(FOR I A 1 9 I)", 'I'},
    // The rehearsal of the body finds the second type ahead of the walk; the suffix of FOR stays.
    {"(FOR I 0 1 9 (SETQ I \"x\"))", "(FOR@J I 0 1 9 (SETQ@S I \"x\"))", 'I'},
    {"(FOR I 0 I 9 (SETQ I \"x\"))", "(FOR I 0 I 9 (SETQ@S I \"x\"))", 'I'},
    {"(PROGN (SETQ I 1.) (FOR I 0 1 9 I))", "(PROGN (SETQ@F I 1.) (FOR@J I 0 1 9 I))", 'I'},
    // What a body assigns is known to a condition only behind the rehearsal.
    {"(WHILE (< A 3) (SETQ A 1))", "(WHILE@J (<@I A@I 3) (SETQ@I A@I 1))", 'I'},
    {"(WHILE 1 (PROGN (IADD A 1) (SETQ A 1)))", "(WHILE@J 1 (PROGN (IADD@J A@I 1) (SETQ@I A@I 1)))",
     'I'},
    // A loop within a loop has no rehearsal of its own, but its outer one's comes to the same.
    {"(WHILE 1 (WHILE (< A 3) (SETQ A 1)))", "(WHILE@J 1 (WHILE@J (<@I A@I 3) (SETQ@I A@I 1)))",
     'I'},
    // One rehearsal does not see through a chain of assignments.
    {"(WHILE 1 (PROGN (SETQ C B) (SETQ B A) (SETQ A 1)))",
     "(WHILE@J 1 (PROGN (SETQ C B) (SETQ@I B A@I) (SETQ@I A@I 1)))", 'I'},
    {"(IF 1 (WHILE (< A 3) (SETQ A 1)) 0)", "(IF@J 1 (WHILE@J (<@I A@I 3) (SETQ@I A@I 1)) 0)", 'I'},
};

const type_case instructions[] = {
    {"(IADD 1 2)", "(IADD@J 1 2)", 'I'},
    {"(IADD 1 2.)", "(IADD 1 2.)", 'I'},
    {"(IADD A 1)", "(IADD A 1)", 'I'},
    {"(IADD 1 A)", "(IADD 1 A)", 'I'},
    {"(+. 1. (FVAL 1))", "(+.@J 1. (FVAL@I 1))", 'F'},
    {"(FVAL NIL)", "(FVAL@Z NIL)", 'F'},
    {"(STR A)", "(STR A)", 'S'},
    {"(== 1. 2.)", "(==@F 1. 2.)", 'I'},
    {"(EQUAL NIL NIL)", "(EQUAL@Z NIL NIL)", 'I'},
    {"(< \"a\" \"b\")", "(<@S \"a\" \"b\")", 'I'},
    {"(< 1 2.)", "(< 1 2.)", 'I'},
    {"(< A 2)", "(< A 2)", 'I'},
    {"(&& 1 (|| 0 1))", "(&&@J 1 (||@J 0 1))", 'I'},
    {"(LEFT \"abc\" 2)", "(LEFT@J \"abc\" 2)", 'S'},
    {"(LEFT \"abc\" \"2\")", "(LEFT \"abc\" \"2\")", 'S'},
    {"(SUBSTR \"abc\" 1 (LEN \"x\"))", "(SUBSTR@J \"abc\" 1 (LEN@J \"x\"))", 'S'},
    {"(TYPE 1)", "(TYPE 1)", 'S'},
    {"(INDICES A)", "(INDICES A)", 'I'},
    {"(EXIT)", "(EXIT)", 'S'},
};

const type_case definitions[] = {
    {"(PROGN (DEFUN F (PROGN 1)) (F))", "(PROGN (DEFUN F (PROGN 1)) (F))", 'I'},
    {"(PROGN (DEFUN F (PROGN 1)) (SETQ A (F)))", "(PROGN (DEFUN F (PROGN 1)) (SETQ@I A@I (F)))",
     'I'},
    {"(DEFUN F (PROGN 1.))", "(DEFUN F (PROGN 1.))", 'S'},
    {"(PROGN (DEFUN F (IF $1 (F (ISUB $1 1)) 0)) (F 1))",
     "(PROGN (DEFUN F (IF $1 (F (ISUB $1 1)) 0)) (F 1))", 'U'},
    // A recursion whose value does not depend on it is proved in the second walk.
    {"(DEFUN F (PROGN (SETQ A (F)) (IADD A 1)))",
     "(DEFUN F (PROGN (SETQ@I A@I (F)) (IADD@J A@I 1)))", 'S'},
    // Variables are private to their function.
    {"(PROGN (SETQ A 1) (DEFUN F (SETQ A 2.)) A)",
     "(PROGN (SETQ@I A@I 1) (DEFUN F (SETQ@F A@F 2.)) A@I)", 'I'},
    // The second walk knows the arrays of the first, but not its types.
    {"(DEFUN F (PROGN (ARSETQ A 0 B) (ARSETQ B 0 1)))",
     "(DEFUN F (PROGN (ARSETQ A 0 B) (ARSETQ@I B@I 0 1)))", 'S'},
    {"(DEFUN F (PROGN (SETQ B 1) (ARSETQ A 0 B) (ARSETQ B 0 1)))",
     "(DEFUN F (PROGN (SETQ@I B@I 1) (ARSETQ A 0 B@I) (ARSETQ@I B@I 0 1)))", 'S'},
    {"(PROGN (SETQ B 1) (ARSETQ A 0 B) (ARSETQ B 0 1))",
     "(PROGN (SETQ@I B@I 1) (ARSETQ@I A@I 0 B@I) (ARSETQ@I B@I 0 1))", 'I'},
    // A nested definition sees the type of the function around it that the walk goes by.
    {"(DEFUN F (PROGN (DEFUN G (SETQ A (F))) (G) 1))",
     "(DEFUN F (PROGN (DEFUN G (SETQ@I A@I (F))) (G) 1))", 'S'},
};

struct context_case {
    const char *text, *typed, *before, *after; // UDF types: NAME:LETTER and a blank each
};

const context_case contexts[] = {
    {"(PROGN (DEFUN F (PROGN 1)) (DEFUN G (F)) (G))",
     "(PROGN (DEFUN F (PROGN 1)) (DEFUN G (F)) (G))", "", "F:I G:I "},
    // Nested definitions leave nothing behind.
    {"(DEFUN F (PROGN (DEFUN G (PROGN 1)) (G)))", "(DEFUN F (PROGN (DEFUN G (PROGN 1)) (G)))", "",
     "F:I "},
    {"(DEFUN F (PROGN (BREAK) 1))", "(DEFUN F (PROGN (BREAK) 1))", "", "F:S "},
    {"(DEFUN F (IF $1 (F (ISUB $1 1)) 0))", "(DEFUN F (IF $1 (F (ISUB $1 1)) 0))", "", "F:U "},
    {"(DEFUN F (PROGN (F) 1))", "(DEFUN F (PROGN (F) 1))", "", "F:I "},
    // Global functions are known from the beginning.
    {"(SETQ A (G))", "(SETQ@F A@F (G))", "G:F ", "G:F "},
    {"(DEFUN F (IADD (G) (H)))", "(DEFUN F (IADD (G) (H)))", "G:I H:U ", "G:I H:U F:I "},
    {"(DEFUN F (IADD (G) (H)))", "(DEFUN F (IADD@J (G) (H)))", "G:I H:I ", "G:I H:I F:I "},
};

std::string udf_types(std::string text)
{
    std::string types = "\xFF";
    for (CHR c : text) types += c == ':' ? '\xFE' : c == ' ' ? '\xFF' : c;
    return types;
}

class TypePass : public testing::Test {
protected:
    void SetUp() override { kit::start_passes(); }
    template <ULO n> static void expect(const type_case (&cases)[n])
    {
        for (const type_case &c : cases) {
            const kit::typed_text typed = kit::typed(c.text);
            EXPECT_EQ(typed.text, c.typed);
            EXPECT_EQ(CHR(typed.letter), CHR(c.letter)) << c.text;
        }
    }
};

TEST_F(TypePass, WorkedExamples) { expect(worked_examples); }
TEST_F(TypePass, Tokens) { expect(tokens); }
TEST_F(TypePass, Assignments) { expect(assignments); }
TEST_F(TypePass, Arrays) { expect(arrays); }
TEST_F(TypePass, Control) { expect(control); }
TEST_F(TypePass, Loops) { expect(loops); }
TEST_F(TypePass, Instructions) { expect(instructions); }
TEST_F(TypePass, Definitions) { expect(definitions); }

TEST_F(TypePass, TypesOfFunctions)
{
    for (const context_case &c : contexts) {
        const kit::typed_text typed = kit::typed(c.text, udf_types(c.before));
        EXPECT_EQ(typed.text, c.typed);
        EXPECT_EQ(typed.types, udf_types(c.after)) << c.text;
    }
}

// -- Instructions of a unit --------------------------------------------------------------------

const type_case unit_instructions[] = {
    {"(I*2_ 2)", "(I*2_@J 2)", 'I'},
    {R"((PROGN (SETQ VAR_INT 2) (SETQ VAR_FLOAT 2.) (SETQ VAR_STR "2") (SETQ VAR_NIL NIL) )"
     R"((OUTF "(i*2_ 2) = %ld\n" (I*2_ VAR_INT)) (OUTF "(i*2_ 2.) = %ld\n" (I*2_ VAR_FLOAT)) )"
     R"((OUTF "(fusion_cmp 2 2.) = %ld\n" (FUSION_CMP VAR_INT VAR_FLOAT)) )"
     R"((OUTF "(fusion_cmp 2 2) = %ld\n" (FUSION_CMP VAR_INT VAR_INT))))",
     R"((PROGN (SETQ@I VAR_INT@I 2) (SETQ@F VAR_FLOAT@F 2.) (SETQ@S VAR_STR@S "2") )"
     R"((SETQ@Z VAR_NIL@Z NIL) )"
     R"((OUTF "(i*2_ 2) = %ld\n" (I*2_@J VAR_INT@I)) (OUTF "(i*2_ 2.) = %ld\n" (I*2_ VAR_FLOAT@F)) )"
     R"((OUTF "(fusion_cmp 2 2.) = %ld\n" (FUSION_CMP VAR_INT@I VAR_FLOAT@F)) )"
     R"((OUTF "(fusion_cmp 2 2) = %ld\n" (FUSION_CMP@I VAR_INT@I VAR_INT@I))))",
     'S'},
};

TEST_F(TypePass, InstructionsOfAUnit)
{
    scratch isa, row;
    _internal_ISA_COPs_get(&isa.s);
    assign(&row.s, "(FUSION_CMP 2 I \"EE\" 1 1 1 1 1)");
    _internal_ISA_COPs_set(cat(&isa.s, row.s));
    assign(&row.s, "(I*2_ 1 I \"I\" 1)");
    _internal_ISAext_COPs_set(row.s);
    expect(unit_instructions);
    _internal_ISAext_COPs_set(nullptr);
    _internal_ISA_COPs_set(nullptr);
}

// -- Whole programs ----------------------------------------------------------------------------

TEST_F(TypePass, AgreesWithThePlainPassOnRandomPrograms)
{
    for (unsigned seed = 0; seed < 1000; seed++) {
        const std::string source = kit::random_program(seed, false, "(IRND 1)", "(IADD 0").text();
        const std::string text = kit::squeezed(kit::checked(source));
        ASSERT_EQ(text[0], '(') << text << "\nof " << source;
        std::string plain = text, types = udf_types("F0:I G:U ");
        const UCH letter = kit::plain_types(&plain, &types);
        ASSERT_EQ(kit::typed(text, udf_types("F0:I G:U ")), (kit::typed_text{plain, types, letter}))
            << "seed " << seed;
    }
}

// Each of forty nested functions calls itself and the next one. To walk every body twice for each
// walk of the one around it would take 2 to the power of 40 walks, which no test lives to see.
TEST_F(TypePass, NestingOfDefinitionsIsNoMultiplier)
{
    std::string text = "(PROGN $1 1)", expected = text;
    for (int i = 40; i > 0; i--) {
        const std::string name = "F" + std::to_string(i);
        const std::string head = "(PROGN (DEFUN " + name + " ", tail = ") (" + name + " $1) ";
        const std::string around = i == 1 ? "0" : "F" + std::to_string(i - 1);
        const std::string own = i == 1 ? "(IADD 1 " : "(IADD (" + around + " $1) ";
        const std::string own_typed = "(IADD@J" + own.substr(5);
        text = head + text + tail + own + "(" + name + " 1)))";
        expected = head + expected + tail + own_typed + "(" + name + " 1)))";
    }
    const std::string checked = kit::checked(text);
    ASSERT_EQ(checked, text);
    EXPECT_EQ(kit::typed(checked).text, expected);
}

} // namespace
