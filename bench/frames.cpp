// What does it cost to pack a block into a frame and to unpack it again, against copying its numbers there
// and back?
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>

#include "bench/Arrays.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

constexpr int FRAME_OVERHEAD = 4096;

// Of random values.
Arrays MakeArrays(std::int64_t size) {
    Arrays arrays(static_cast<std::size_t>(size), FRAME_OVERHEAD);
    std::mt19937_64 random(42);
    std::uniform_real_distribution<double> uniform(-10, 10);
    for (double& value : arrays.All()) value = uniform(random);
    return arrays;
}

// The block waits at `source`, from where it is shared as often as it is packed.
void BM_Frames_PackUnpack(benchmark::State& state) {
    Arrays arrays = MakeArrays(state.range(0));
    TCIOStream writer, source, packing, unpacking, target;
    writer.AddOutputStream(source.SetInputStream(3));
    packing.SetInputStream(3);
    unpacking.AddOutputStream(target.SetInputStream(3));
    writer.WriteDblVec(arrays[0], static_cast<int>(state.range(0)));
    char* const frame = reinterpret_cast<char*>(arrays[2]);
    for (auto _ : state) {
        packing.CopyBlockRefs(source);
        const int size = packing.SerializeBlock(frame);
        if (unpacking.DeSerializeBlock(frame, size) != 1) state.SkipWithError("not unpacked");
        benchmark::DoNotOptimize(target.StartReadSegments());
    }
    state.SetBytesProcessed(2 * state.iterations() * state.range(0) * 8);
}

void BM_Frames_TwoCopies(benchmark::State& state) {
    Arrays arrays = MakeArrays(state.range(0));
    for (auto _ : state) {
        std::copy_n(arrays[0], state.range(0), arrays[2]);
        benchmark::ClobberMemory();
        std::copy_n(arrays[2], state.range(0), arrays[1]);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(2 * state.iterations() * state.range(0) * 8);
}

BENCHMARK(BM_Frames_PackUnpack)->Arg(1024)->Arg(65536)->Arg(1 << 20);
BENCHMARK(BM_Frames_TwoCopies)->Arg(1024)->Arg(65536)->Arg(1 << 20);

}  // namespace
