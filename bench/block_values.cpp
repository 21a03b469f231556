// How far is writing and reading the values of a block from two plain copies of the same bytes?
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "sigweave/signal/TCIOStream.h"

namespace {

// Three arrays on cache lines, as the values in blocks are, that begin at different places of a page: luck in
// either would decide the comparison.
class Arrays {
 public:
    explicit Arrays(std::size_t size) : step((size / 512 + 1) * 512 + 136), memory(3 * step + 8, 1.0) {
        while (reinterpret_cast<std::uintptr_t>(memory.data() + offset) % 64 != 0) ++offset;
    }
    double* operator[](std::size_t index) { return memory.data() + offset + index * step; }

 private:
    std::size_t step;  // a multiple of 8
    std::size_t offset = 0;
    std::vector<double> memory;
};

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
