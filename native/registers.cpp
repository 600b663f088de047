// Which variables stand in registers: those that are used most, by their loops.

#include <algorithm>

#include "native/region.h"

namespace native {

namespace {

constexpr unsigned DEEPEST_LOOP = 8;

void weigh(region *r)
{
    for (unsigned i = 0; i < r->items.size(); i = (*r)[i].by_handler ? (*r)[i].end : i + 1) {
        const item &it = (*r)[i];
        const bool is_use = it.what == work::READ || it.what == work::SETQ || it.what == work::FOR;
        if (!it.by_handler && is_use)
            r->locals[it.variable].weight += ULO(1) << 3 * std::min(it.loops, DEEPEST_LOOP);
    }
}

bool calls_nobody(const region &r)
{
    return std::none_of(r.items.begin(), r.items.end(), [](const item &it) {
        return it.by_handler || it.what == work::CALL || it.calls_operation();
    });
}

} // namespace

// A register that calls lose serves where there are no calls.
void allot_registers(region *r)
{
    weigh(r);
    std::vector<local *> by_weight;
    for (local &v : r->locals)
        if (v.type != 0 && v.weight != 0) by_weight.push_back(&v);
    std::stable_sort(by_weight.begin(), by_weight.end(),
                     [](const local *a, const local *b) { return a->weight > b->weight; });
    std::vector<reg> wholes(std::begin(kept), std::end(kept));
    if (calls_nobody(*r)) wholes.push_back(LOST);
    std::size_t whole_count = 0, real_count = 0;
    for (local *v : by_weight) {
        if (v->type == 'I' && whole_count < wholes.size())
            v->in = wholes[whole_count++];
        else if (v->type == 'F' && real_count < std::size(real_variables))
            v->in = real_variables[real_count++];
    }
}

} // namespace native
