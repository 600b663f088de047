// Values that move in place of being copied, and arrays that own few of their places: programs see
// no difference.

#include <gtest/gtest.h>
#include <tuple>

#include "kestrin/errors.h"
#include "tests/kit/random_program.h"
#include "tests/kit/runner.h"
#include "tests/kit/value_program.h"
#include "vm/engine.h"

namespace {

constexpr UCH too_long = 100;
int ticks, stores, ended_well;

void func__tick(const ULO *, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    if (!noterror()) return;
    if (--ticks < 0) return rise_error_info(too_long, nullptr);
    answer(ret_dat, SLO(1));
}

void func__gate(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    SLO index = 0;
    ret_dat->disable_ptr = 1;
    ret_ival(dat_ptr, &index);
    if (!noterror()) return;
    if (--stores < 0) return rise_error_info(too_long, nullptr);
    answer(ret_dat, index);
}

// (SHOW x) leaves the whole value in the captured output.
void func__show(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    kestrin_data slot = borrowing_slot;
    ret_dat->disable_ptr = 1;
    eval_operand(dat_ptr, &slot);
    if (noterror()) {
        scratch text;
        assign(&text.s, kit::shown(slot) + "\n");
        cat(&rt_ctrl->rt_captured, text.s);
        answer(ret_dat, SLO(0));
    }
    if (slot.disable_ptr) free_kst_data(&slot);
}

class Moves : public testing::Test {
protected:
    void SetUp() override
    {
        kit::start_passes();
        scratch rows;
        const auto row = [](const char *text, fcall f) {
            return text + std::to_string(ULO(f)) + ")";
        };
        assign(&rows.s, row("(TICK 0 I \"\" ", func__tick) + row("(GATE 1 I \"I\" ", func__gate) +
                            row("(SHOW 1 I \"S\" ", func__show));
        _internal_ISAext_COPs_set(rows.s);
        ended_well = 0;
    }
    void TearDown() override
    {
        _internal_ISAext_COPs_set(nullptr);
        the_engine.moves = 1;
        the_engine.small_arrays = 0;
    }
};

kit::outcome run(const std::string &text, bool with_types, bool moving)
{
    ticks = 60;
    stores = 6;
    the_engine.moves = the_engine.small_arrays = moving;
    return kit::run_text(text, with_types);
}

void compare(const std::string &program)
{
    const std::string text = kit::squeezed(kit::checked(program));
    ASSERT_EQ(text.substr(0, 6), "(PROGN") << text << program;
    for (const bool with_types : {true, false}) {
        const kit::outcome copied = run(text, with_types, false);
        const kit::outcome moved = run(text, with_types, true);
        EXPECT_EQ(std::tie(moved.output, moved.value, moved.error, moved.error_code),
                  std::tie(copied.output, copied.value, copied.error, copied.error_code))
            << text;
        ended_well += copied.error_code == 0;
    }
}

int programs_asked()
{
    const char *asked = getenv("KESTRIN_TEST_COUNT");
    return asked == nullptr ? 1000 : static_cast<int>(atol(asked));
}

TEST_F(Moves, AreNotSeenByProgramsOnValues)
{
    int seed = 0;
    for (; seed < programs_asked() && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        compare(kit::value_program(static_cast<unsigned>(seed)).text());
    }
    EXPECT_GT(ended_well, seed / 2) << "of " << 2 * seed << " runs";
}

TEST_F(Moves, AreNotSeenByProgramsOfAllKinds)
{
    for (int seed = 0; seed < programs_asked() && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        compare(kit::random_program(static_cast<unsigned>(seed), true, "(TICK)", "(GATE").text());
    }
}

} // namespace
