// What does it cost to pack a block into a frame and to unpack it again, against copying its numbers there
// and back?
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "sigweave/signal/TCIOStream.h"

namespace {

constexpr int FRAME_OVERHEAD = 4096;

std::vector<double> Values(std::int64_t count) {
    std::mt19937_64 random(42);
    std::uniform_real_distribution<double> uniform(-10, 10);
    std::vector<double> values(static_cast<std::size_t>(count));
    for (double& value : values) value = uniform(random);
    return values;
}

// The block waits at `source`, from where it is shared as often as it is packed.
void BM_Frames_PackUnpack(benchmark::State& state) {
    const std::vector<double> values = Values(state.range(0));
    TCIOStream writer, source, packing, unpacking, target;
    writer.AddOutputStream(source.SetInputStream(3));
    packing.SetInputStream(3);
    unpacking.AddOutputStream(target.SetInputStream(3));
    writer.WriteDblVec(values.data(), static_cast<int>(values.size()));
    std::vector<char> frame(values.size() * sizeof(double) + FRAME_OVERHEAD);
    for (auto _ : state) {
        packing.CopyBlockRefs(source);
        const int size = packing.SerializeBlock(frame.data());
        if (unpacking.DeSerializeBlock(frame.data(), size) != 1) state.SkipWithError("not unpacked");
        benchmark::DoNotOptimize(target.StartReadSegments());
    }
    state.SetBytesProcessed(2 * state.iterations() * state.range(0) * 8);
}

void BM_Frames_TwoCopies(benchmark::State& state) {
    const std::vector<double> values = Values(state.range(0));
    std::vector<double> frame(values.size()), target(values.size());
    for (auto _ : state) {
        std::copy(values.begin(), values.end(), frame.begin());
        benchmark::ClobberMemory();
        std::copy(frame.begin(), frame.end(), target.begin());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(2 * state.iterations() * state.range(0) * 8);
}

BENCHMARK(BM_Frames_PackUnpack)->Arg(1024)->Arg(65536)->Arg(1 << 20);
BENCHMARK(BM_Frames_TwoCopies)->Arg(1024)->Arg(65536)->Arg(1 << 20);

}  // namespace
