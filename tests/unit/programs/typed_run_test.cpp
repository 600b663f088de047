// Whole programs on two roads: with the type pass, whose suffixes choose the fast handlers, and
// without it. Both must do the same, whatever types a program mixes.

#include <gtest/gtest.h>
#include <tuple>

#include "frontend/isa.h"
#include "kestrin/errors.h"
#include "tests/kit/random_program.h"
#include "tests/kit/runner.h"
#include "vm/engine.h"

namespace {

constexpr int ticks_allowed = 60, stores_allowed = 6;
constexpr UCH too_long = 100; // the error of a run that has used up one of them
int ticks, stores;

// (TICK): bounds rounds and calls.
void func__tick(const ULO *, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    if (!noterror()) return;
    if (--ticks < 0) return rise_error_info(too_long, nullptr);
    answer(ret_dat, SLO(1));
}

// (GATE n) is n: bounds stores that may put an array into an array.
void func__gate(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    SLO index = 0;
    ret_dat->disable_ptr = 1;
    ret_ival(dat_ptr, &index);
    if (!noterror()) return;
    if (--stores < 0) return rise_error_info(too_long, nullptr);
    answer(ret_dat, index);
}

class TypedRuns : public testing::Test {
protected:
    void SetUp() override
    {
        kit::start_passes();
        scratch rows;
        assign(&rows.s, "(TICK 0 I \"\" " + std::to_string(ULO(func__tick)) + ")(GATE 1 I \"I\" " +
                            std::to_string(ULO(func__gate)) + ")");
        _internal_ISAext_COPs_set(rows.s);
        the_engine.small_arrays = 1;
    }
    void TearDown() override
    {
        _internal_ISAext_COPs_set(nullptr);
        the_engine.small_arrays = 0;
    }
};

kit::outcome run(const std::string &text, bool with_types)
{
    ticks = ticks_allowed;
    stores = stores_allowed;
    return kit::run_text(text, with_types);
}

// A variable of several suffixes has several numbers.
std::string without_place(const std::string &error)
{
    return error.substr(0, error.find(" (Dbg="));
}

// The one difference that programs may see: an array filled by a typed store refuses a member of
// another type that a generic store brings, which ends the run.
void compare(const std::string &text)
{
    const kit::outcome plain = run(text, false), typed = run(text, true);
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
        const kit::outcome typed = run(c.text, true);
        EXPECT_EQ(typed.value + without_place(typed.error), c.value) << c.text;
    }
}

// More random programs can be asked for from outside. In those that are not sound, where a type
// that counts as proved does not hold, values differ; all that stands is memory.
TEST_F(TypedRuns, RandomPrograms)
{
    const char *asked = getenv("KESTRIN_TEST_COUNT");
    const unsigned count = asked == nullptr ? 2000 : static_cast<unsigned>(atol(asked));
    for (unsigned seed = 0; seed < count && !HasFailure(); seed++)
        for (const bool sound : {true, false}) {
            SCOPED_TRACE(seed);
            kit::random_program source(seed, sound, "(TICK)", "(GATE");
            const std::string text = kit::squeezed(kit::checked(source.text()));
            ASSERT_EQ(text[0], '(') << text;
            if (sound)
                compare(text);
            else
                run(text, true);
        }
}

} // namespace
