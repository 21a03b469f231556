// How far is cutting a signal into blocks of another size from two plain copies of the same bytes?
#include "modules/reblock/Reblock.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>

namespace {

constexpr int SAMPLES = 65536;

struct alignas(64) Signal {
    double samples[SAMPLES] = {};
};

// The module between two streams. It is fed without a copy, and what it writes is taken off unread.
class Bench {
 public:
    explicit Bench(int size) : module(0) {
        TCString error;
        module.SetSettings(TCString::FormatS("size=%d", size), error);
        writer.AddOutputStream(module.SetInputStream(0, 0, 3));
        module.AddOutputStream(0, reader.SetInputStream(3));
        metadata.SetTimestamp(1e12);
        metadata.SetState(BUSY);
        module.Init();
    }
    void Send(const double* samples, int count) {
        writer.SetTI(&metadata, false);
        writer.WriteDblMat(samples, 1, count);
        while (module.Fetch() == 0) {
            module.Execute();
            reader.RemoveContents(true);
        }
    }

 private:
    Reblock module;
    TCIOStream writer, reader;
    TCTypeInfo metadata;
};

void BM_Reblock_Module(benchmark::State& state) {
    const int in = static_cast<int>(state.range(0));
    const auto signal = std::make_unique<Signal>();
    Bench bench(static_cast<int>(state.range(1)));
    for (auto _ : state)
        for (int at = 0; at < SAMPLES; at += in) bench.Send(signal->samples + at, in);
    state.SetItemsProcessed(state.iterations() * SAMPLES);
}

// From the input into a block that is filled, and from there into the one that is sent.
void BM_Reblock_TwoCopies(benchmark::State& state) {
    const int in = static_cast<int>(state.range(0));
    const int out = static_cast<int>(state.range(1));
    const auto signal = std::make_unique<Signal>(), filling = std::make_unique<Signal>(),
               written = std::make_unique<Signal>();
    for (auto _ : state)
        for (int at = 0; at < SAMPLES;) {
            const int filled = at % out;
            const int count = std::min(in - at % in, out - filled);
            std::copy_n(signal->samples + at, count, filling->samples + filled);
            benchmark::ClobberMemory();
            at += count;
            if (at % out == 0) std::copy_n(filling->samples, out, written->samples);
            benchmark::ClobberMemory();
        }
    state.SetItemsProcessed(state.iterations() * SAMPLES);
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Args({1024, 4096})->Args({4096, 1024})->Args({4096, 16384})->Args({16384, 4096});
}
BENCHMARK(BM_Reblock_Module)->Apply(Sizes);
BENCHMARK(BM_Reblock_TwoCopies)->Apply(Sizes);

}  // namespace
