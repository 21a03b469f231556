// What does one more module in a graph cost? Chains of 1, 4 and 16 stages between a source and a sink, 1024
// doubles a block, under the real runner; beside it the bare copy of the same bytes through as many buffers.
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <vector>

#include "bench/RunnerChain.h"

namespace {

using bench::Copy;
using bench::Forward;

constexpr int BLOCKS = 2000;

template <class Stage>
void BM_Runner_Chain(benchmark::State& state) {
    bench::MeasureChain<bench::RunnerChain<Stage>>(state, BLOCKS);
}
BENCHMARK(BM_Runner_Chain<Copy>)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();
BENCHMARK(BM_Runner_Chain<Forward>)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();

template <class Stage>
void BM_Runner_AddedStages(benchmark::State& state) {
    bench::MeasureAddedStages<bench::RunnerChain<Stage>>(state, BLOCKS);
}
BENCHMARK(BM_Runner_AddedStages<Copy>)->UseManualTime();
BENCHMARK(BM_Runner_AddedStages<Forward>)->UseManualTime();

// Two buffers a stage in turns, each on a cache line, as the streams use their blocks.
void BM_Memcpy_AddedStages(benchmark::State& state) {
    struct alignas(64) Buffer {
        double values[bench::VALUES] = {};
    };
    std::vector<std::array<Buffer, 2>> stages(16);
    for (auto _ : state) {
        for (std::size_t block = 0; block < BLOCKS; ++block)
            for (std::size_t stage = 1; stage < stages.size(); ++stage) {
                std::memcpy(&stages[stage][block % 2], &stages[stage - 1][block % 2], sizeof(Buffer));
                benchmark::ClobberMemory();
            }
    }
    state.SetItemsProcessed(state.iterations() * BLOCKS * 15);
}
BENCHMARK(BM_Memcpy_AddedStages);

}  // namespace
