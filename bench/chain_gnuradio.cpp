// How does a chain of copying modules under the real runner compare with one of GNU Radio's copy blocks? Each
// framework works as it likes best: GNU Radio with a thread for each block and as many doubles a call as its
// buffers take, sigweave on one thread and with blocks of 1024. Wall time. GNU Radio's begins with the first
// call of its source, so that making its threads and buffers is not counted; sigweave's is that of the whole
// run.
#include <benchmark/benchmark.h>
#include <gnuradio/blocks/copy.h>
#include <gnuradio/blocks/null_sink.h>
#include <gnuradio/io_signature.h>
#include <gnuradio/sync_block.h>
#include <gnuradio/top_block.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "bench/RunnerChain.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int BLOCKS = 20000;

// Writes the values of an array, as the other source does, and ends.
class Source final : public gr::sync_block {
 public:
    explicit Source(std::uint64_t count)
        : gr::sync_block("source", gr::io_signature::make(0, 0, 0),
                         gr::io_signature::make(1, 1, sizeof(double))),
          left(count) {}

    int work(int wanted, gr_vector_const_void_star&, gr_vector_void_star& outputs) override {
        if (begin == Clock::time_point()) begin = Clock::now();
        if (left == 0) return WORK_DONE;
        if (values.size() < static_cast<std::size_t>(wanted))
            values.resize(static_cast<std::size_t>(wanted), 1.0);
        const auto count = std::min(left, static_cast<std::uint64_t>(wanted));
        std::copy_n(values.data(), count, static_cast<double*>(outputs[0]));
        left -= count;
        return static_cast<int>(count);
    }

    Clock::time_point Begin() const { return begin; }

 private:
    std::uint64_t left;
    std::vector<double> values;
    Clock::time_point begin{};
};

class PeerChain {
 public:
    PeerChain(int stageCount, int blockCount)
        : stages(stageCount), values(static_cast<std::uint64_t>(blockCount) * bench::VALUES) {}

    double SecondsOfRun() const {
        const gr::top_block_sptr graph = gr::make_top_block("chain");
        const auto source = gnuradio::make_block_sptr<Source>(values);
        const auto sink = gr::blocks::null_sink::make(sizeof(double));
        gr::basic_block_sptr last = source;
        for (int stage = 0; stage < stages; ++stage) {
            const auto copy = gr::blocks::copy::make(sizeof(double));
            graph->connect(last, 0, copy, 0);
            last = copy;
        }
        graph->connect(last, 0, sink, 0);
        graph->run();
        const auto end = Clock::now();
        if (sink->nitems_read(0) != values) std::abort();
        return std::chrono::duration<double>(end - source->Begin()).count();
    }

 private:
    int stages;
    std::uint64_t values;
};

void BM_ChainGnuRadio_Sigweave(benchmark::State& state) {
    bench::MeasureChain<bench::RunnerChain<bench::Copy>>(state, BLOCKS);
}
void BM_ChainGnuRadio_Peer(benchmark::State& state) {
    bench::MeasureChain<PeerChain>(state, BLOCKS);
}
BENCHMARK(BM_ChainGnuRadio_Sigweave)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();
BENCHMARK(BM_ChainGnuRadio_Peer)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();

void BM_ChainGnuRadio_SigweaveAdded(benchmark::State& state) {
    bench::MeasureAddedStages<bench::RunnerChain<bench::Copy>>(state, BLOCKS);
}
void BM_ChainGnuRadio_PeerAdded(benchmark::State& state) {
    bench::MeasureAddedStages<PeerChain>(state, BLOCKS);
}
BENCHMARK(BM_ChainGnuRadio_SigweaveAdded)->UseManualTime();
BENCHMARK(BM_ChainGnuRadio_PeerAdded)->UseManualTime();

}  // namespace
