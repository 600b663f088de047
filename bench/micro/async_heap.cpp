// The cost of finding a block of the async heap by its address, as blocks become more: it should
// grow with the logarithm of their number.

#include <benchmark/benchmark.h>
#include <random>
#include <vector>

#include "vm/async_heap.h"

namespace {

void look_up(benchmark::State &state)
{
    const ULO count = static_cast<ULO>(state.range(0));
    std::vector<ULO> blocks(count);
    for (ULO &block : blocks) block = create_block(16);
    std::mt19937_64 random(1);
    for (auto _ : state) benchmark::DoNotOptimize(find_block(blocks[random() % count]));
    for (ULO block : blocks) delete_block(find_block(block));
    state.SetComplexityN(state.range(0));
}

} // namespace

BENCHMARK(look_up)->RangeMultiplier(10)->Range(100, 1000000)->Complexity(benchmark::oLogN);
