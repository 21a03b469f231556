// What does looking cost the thread of a run? A sample added to a trace of each kind, with a picture that is
// asked for 60 times a second of a signal of 10 MS/s: there, 1 ns a sample is 1 % of the time of the run.
#include "studio/server/Trace.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

constexpr int BLOCK = 16384;
constexpr double RATE = 1e7;

void Add(benchmark::State& state, studio::Wish::Kind kind) {
    studio::Wish wish;
    wish.kind = kind;
    wish.seconds = kind == studio::Wish::Level ? 0.125 : 0.1;
    wish.samples = 4096;
    studio::Trace trace(wish);
    TCIOStream writer;
    TCIOStream reader;
    writer.AddOutputStream(reader.SetInputStream(9));
    TCTypeInfo info;
    info.SetSamplerate(RATE);
    info.SetState(START);
    std::vector<double> values(BLOCK);
    for (int i = 0; i < BLOCK; ++i) values[static_cast<std::size_t>(i)] = std::sin(0.001 * i);
    writer.SetTI(&info, false);
    writer.WriteDblVec(values.data(), BLOCK);
    trace.Add(*reader.GetWaitingBlock(0));
    reader.RemoveContents(true);
    info.SetState(BUSY);
    writer.SetTI(&info, false);
    writer.WriteDblVec(values.data(), BLOCK);
    const TCIOStream::Block& block = *reader.GetWaitingBlock(0);
    constexpr int BLOCKS_A_PICTURE = static_cast<int>(RATE / 60 / BLOCK);
    int blocks = 0;
    studio::Picture picture;
    for (auto _ : state) {
        trace.Add(block);
        if (++blocks % BLOCKS_A_PICTURE != 0) continue;
        state.PauseTiming();  // the other thread's work
        picture = {};
        trace.Take(picture);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * BLOCK);
    state.counters["percent_at_10MS"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * BLOCK / RATE / 100,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK_CAPTURE(Add, Envelope, studio::Wish::Envelope);
BENCHMARK_CAPTURE(Add, Samples, studio::Wish::Samples);
BENCHMARK_CAPTURE(Add, Level, studio::Wish::Level);
BENCHMARK_CAPTURE(Add, Spectrogram, studio::Wish::Spectrogram);

}  // namespace
