// How far is writing and reading the values of a block from two plain copies of the same bytes?
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench/Arrays.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

void BM_BlockValues_Stream(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    Arrays arrays(static_cast<std::size_t>(count));
    TCIOStream writer, input;
    writer.AddOutputStream(input.SetInputStream(3));
    for (auto _ : state) {
        writer.WriteDblVec(arrays[0], count);
        input.ReadDblVec(arrays[1], nullptr);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * 2 * count * 8);
}

void BM_BlockValues_TwoCopies(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    Arrays arrays(count);
    for (auto _ : state) {
        std::copy_n(arrays[0], count, arrays[2]);
        benchmark::ClobberMemory();
        std::copy_n(arrays[2], count, arrays[1]);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * 2 * state.range(0) * 8);
}

BENCHMARK(BM_BlockValues_Stream)->Arg(1024)->Arg(65536);
BENCHMARK(BM_BlockValues_TwoCopies)->Arg(1024)->Arg(65536);

}  // namespace
