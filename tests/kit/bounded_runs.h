// Instructions that end the runs of random programs: (TICK) counts their rounds and calls, and
// (GATE n), which is n, the stores that may put an array into an array.
#pragma once

#include <string>

#include "frontend/isa.h"
#include "kestrin/errors.h"
#include "tests/kit/runner.h"
#include "vm/engine.h"

namespace kit {

constexpr UCH too_long = 100; // the error of a run that has used one of them up
inline int ticks, stores;

inline void spend(int *left, SLO value, kestrin_data *ret_dat)
{
    if (!noterror()) return;
    if (--*left < 0) return rise_error_info(too_long, nullptr);
    answer(ret_dat, value);
}

inline void func__tick(const ULO *, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    spend(&ticks, 1, ret_dat);
}

inline void func__gate(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    SLO index = 0;
    ret_dat->disable_ptr = 1;
    ret_ival(dat_ptr, &index);
    spend(&stores, index, ret_dat);
}

inline std::string unit_row(const char *text, fcall handler)
{
    return "(" + std::string(text) + " " + std::to_string(ULO(handler)) + ")";
}

// A fixture whose programs have these instructions and those of `more` rows.
struct bounded_runs : testing::Test {
    explicit bounded_runs(const std::string &more = "")
    {
        start_passes();
        scratch rows;
        assign(&rows.s, unit_row("TICK 0 I \"\"", func__tick) +
                            unit_row("GATE 1 I \"I\"", func__gate) + more);
        _internal_ISAext_COPs_set(rows.s);
    }
    ~bounded_runs() override
    {
        _internal_ISAext_COPs_set(nullptr);
        the_engine.moves = 1;
        the_engine.small_arrays = 0;
    }
};

inline outcome run_bounded(const std::string &text, bool with_types)
{
    ticks = 60;
    stores = 6;
    return run_text(text, with_types);
}

// How many random programs are tried: as many as KESTRIN_TEST_COUNT asks for.
inline unsigned programs_asked(unsigned otherwise)
{
    const char *asked = getenv("KESTRIN_TEST_COUNT");
    return asked == nullptr ? otherwise : static_cast<unsigned>(atol(asked));
}

} // namespace kit
