// Values that move in place of being copied, and arrays that own few of their places: programs see
// no difference.

#include <gtest/gtest.h>
#include <tuple>

#include "tests/kit/bounded_runs.h"
#include "tests/kit/random_program.h"
#include "tests/kit/value_program.h"

namespace {

int ended_well;

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

struct Moves : kit::bounded_runs {
    Moves() : bounded_runs(kit::unit_row("SHOW 1 I \"S\"", func__show)) { ended_well = 0; }
};

kit::outcome run(const std::string &text, bool with_types, bool moving)
{
    the_engine.moves = the_engine.small_arrays = moving;
    return kit::run_bounded(text, with_types);
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

TEST_F(Moves, AreNotSeenByProgramsOnValues)
{
    const int count = static_cast<int>(kit::programs_asked(1000));
    for (int seed = 0; seed < count && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        compare(kit::value_program(static_cast<unsigned>(seed)).text());
    }
    EXPECT_GT(ended_well, count / 2) << "of " << 2 * count << " runs";
}

TEST_F(Moves, AreNotSeenByProgramsOfAllKinds)
{
    for (unsigned seed = 0; seed < kit::programs_asked(1000) && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        compare(kit::random_program(seed, true, "(TICK)", "(GATE").text());
    }
}

} // namespace
