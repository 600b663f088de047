// Whole programs on two roads: with the type pass, whose suffixes choose the fast handlers, and
// without it. Both must do the same, whatever types a program mixes.

#include <gtest/gtest.h>
#include <tuple>

#include "tests/kit/bounded_runs.h"
#include "tests/kit/random_program.h"

namespace {

struct TypedRuns : kit::bounded_runs {
    TypedRuns() { the_engine.small_arrays = 1; }
};

// A variable of several suffixes has several numbers.
std::string without_place(const std::string &error)
{
    return error.substr(0, error.find(" (Dbg="));
}

// The one difference that programs may see: an array filled by a typed store refuses a member of
// another type that a generic store brings, which ends the run.
void compare(const std::string &text)
{
    const kit::outcome plain = kit::run_bounded(text, false), typed = kit::run_bounded(text, true);
    if (typed.error_code == ECODE_RT__ARR_TYPEMISMATCH) {
        EXPECT_EQ(plain.output.substr(0, typed.output.size()), typed.output) << text;
        return;
    }
    EXPECT_EQ(std::tie(typed.output, typed.value, typed.error_code),
              std::tie(plain.output, plain.value, plain.error_code))
        << text;
    EXPECT_EQ(without_place(typed.error), without_place(plain.error)) << text;
}

struct run_case {
    const char *text, *value; // the shown value, or the text of the error
};

const run_case settled[] = {
    // A shorter copy over an array leaves none of its members behind.
    {"(PROGN (ARSETQ P 2 3) (ARSETQ P 1 2) (ARSETQ P 0 1) (SETQ Q P) (SETQ Q (ALINDEX P 2)) (INDEX "
     "Q 2))",
     "Array_getval: array member was not initialized before use!"},
    {R"((PROGN (ARSETQ P 2 "c") (ARSETQ P 1 "b") (ARSETQ P 0 "a") (SETQ Q P) (SETQ Q (ALINDEX P 2)) Q))",
     "{[128] S a, 1: S b}"},
    // A number read behind a text operand, from an array or a variable of another type.
    {"(PROGN (ARSETQ Q 0 2.5) (ARSETQ Q 1 2.5) (SUBSTR (STR 12345) 2 Q))", "S 23"},
    {"(PROGN (ARSETQ Q 0 \"2\") (ARSETQ Q 1 \"3\") (LEFT (STR 12345) Q))", "S 12"},
    // An argument made from an array is no array.
    {"(PROGN (DEFUN F (INDEX $1 1)) (ARSETQ R 0 7) (ARSETQ R 1 8) (F (LEFT (STR R) 40)))",
     "Array_getval: array member was not initialized yet!"},
    {"(PROGN (DEFUN F (ALINDEX $1 2)) (ARSETQ R 0 7) (ARSETQ R 1 8) (F (INDICES R)))",
     "Array_getvals: array members were not initialized yet!"},
    // An assignment to what was an array until a FOR over its name.
    {"(PROGN (ARSETQ Q 0 1) (ARSETQ Q 1 2) (FOR Q 1 1 2 0) (SETQ Q 5) (INDEX Q 1))",
     "Array_getval: array member was not initialized yet!"},
};

TEST_F(TypedRuns, MixedTypes)
{
    for (const run_case &c : settled) {
        ASSERT_EQ(kit::squeezed(kit::checked(c.text)), c.text);
        compare(c.text);
        const kit::outcome typed = kit::run_bounded(c.text, true);
        EXPECT_EQ(typed.value + without_place(typed.error), c.value) << c.text;
    }
}

// In programs that are not sound, where a type that counts as proved does not hold, values differ
// between the roads; but no run reads what it has not written, so that it is the same twice.
TEST_F(TypedRuns, RandomPrograms)
{
    for (unsigned seed = 0; seed < kit::programs_asked(2000) && !HasFailure(); seed++)
        for (const bool sound : {true, false}) {
            SCOPED_TRACE(seed);
            kit::random_program source(seed, sound, "(TICK)", "(GATE");
            const std::string text = kit::squeezed(kit::checked(source.text()));
            ASSERT_EQ(text[0], '(') << text;
            if (sound)
                compare(text);
            else
                EXPECT_EQ(kit::run_bounded(text, true).value, kit::run_bounded(text, true).value);
        }
}

} // namespace
