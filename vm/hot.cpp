#include "vm/hot.h"

#include <algorithm>

bool go_on_natively(const ULO *dat_ptr, kestrin_data *ret_dat, unsigned *rounds_left)
{
    const native_maker *native = the_engine.native;
    if (native == nullptr) return false;
    const auto rest = native->loop(dat_ptr - 1);
    *rounds_left = rest == nullptr ? LEFT_ALONE : native->rounds;
    return rest != nullptr && rest(dat_ptr, ret_dat);
}

void make_function_native(const ULO *image, unsigned *calls_left)
{
    const native_maker *native = the_engine.native;
    hot_counters *counters = rt_ctrl->counters;
    unsigned *last = &counters->called[counter_of(image)];
    const auto name = static_cast<unsigned>(reinterpret_cast<ULO>(image) / sizeof(ULO));
    *calls_left = LEFT_ALONE;
    if (native == nullptr) return;
    if (native->calls == 1 || *last == name || counters->patience == 0)
        return native->function(image);
    counters->patience--;
    *last = name;
    *calls_left = native->calls - 1;
}

hot_counters fresh_counters()
{
    const native_maker *native = the_engine.native;
    hot_counters counters;
    std::fill_n(counters.rounds, hot_counters::COUNT,
                native == nullptr ? LEFT_ALONE : native->rounds);
    std::fill_n(counters.calls, hot_counters::COUNT, native == nullptr ? LEFT_ALONE : 1);
    std::fill_n(counters.called, hot_counters::COUNT, 0);
    counters.patience = PATIENCE;
    return counters;
}
