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
    *calls_left = LEFT_ALONE;
    if (the_engine.native != nullptr) the_engine.native->function(image);
}

hot_counters fresh_counters()
{
    const native_maker *native = the_engine.native;
    hot_counters counters;
    std::fill_n(counters.rounds, hot_counters::COUNT,
                native == nullptr ? LEFT_ALONE : native->rounds);
    std::fill_n(counters.calls, hot_counters::COUNT,
                native == nullptr ? LEFT_ALONE : native->calls);
    return counters;
}
