// What does it cost to hand one block of 1024 doubles to K receivers and to take it off again, per receiver,
// against shared_ptr in std::deque? A second thread exists, so that shared_ptr counts as it does in real
// programs.
#include <benchmark/benchmark.h>

#include <deque>
#include <memory>
#include <thread>
#include <vector>

#include "sigweave/signal/TCIOStream.h"

namespace {

// Started once and never in the way: it only has to have existed while the process runs.
void StartSecondThread() {
    static std::jthread idle([](std::stop_token stop) {
        while (!stop.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    });
}

using Inputs = std::vector<TCIOStream>;

void Wire(TCIOStream& writer, Inputs& inputs) {
    for (TCIOStream& input : inputs) writer.AddOutputStream(input.SetInputStream(3));
}

// On both sides the owner keeps the block, and every receiver gets it in its queue and takes it off.
void BM_Handoff_Stream(benchmark::State& state) {
    StartSecondThread();
    Inputs receivers(static_cast<std::size_t>(state.range(0)));
    TCIOStream owner, source, writer;
    source.AddOutputStream(owner.SetInputStream(3));
    Wire(writer, receivers);
    const std::vector<double> values(1024, 1.0);
    source.WriteDblVec(values.data(), 1024);
    for (auto _ : state) {
        writer.ForwardBlock(owner, true);
        for (TCIOStream& input : receivers) input.RemoveContents(false);
    }
    if (owner.GetBlockLen(0, 0) != 1024) state.SkipWithError("the block was lost");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Handoff_SharedPtr(benchmark::State& state) {
    StartSecondThread();
    using Block = std::shared_ptr<const std::vector<double>>;
    std::vector<std::deque<Block>> queues(static_cast<std::size_t>(state.range(0)));
    const Block fixed = std::make_shared<std::vector<double>>(1024, 1.0);
    for (auto _ : state) {
        Block block = fixed;
        for (auto& queue : queues) queue.push_back(block);
        block.reset();
        for (auto& queue : queues) {
            const Block taken = std::move(queue.front());
            queue.pop_front();
            benchmark::DoNotOptimize(taken.get());
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Writing a block of shared values and reading its first one everywhere, on both sides.
void BM_Handoff_StreamRead(benchmark::State& state) {
    StartSecondThread();
    Inputs receivers(static_cast<std::size_t>(state.range(0)));
    TCIOStream writer;
    Wire(writer, receivers);
    const std::vector<double> values(1024, 1.0);
    double sum = 0;
    for (auto _ : state) {
        writer.WriteDblMat(values.data(), 1, 1024);
        for (TCIOStream& input : receivers) {
            double* read = nullptr;
            int rows, cols;
            input.ReadDblMat(&read, rows, cols);
            sum += read[0];
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Handoff_SharedPtrRead(benchmark::State& state) {
    StartSecondThread();
    using Block = std::shared_ptr<const std::vector<double>>;
    std::vector<std::deque<Block>> queues(static_cast<std::size_t>(state.range(0)));
    const std::vector<double> values(1024, 1.0);
    double sum = 0;
    for (auto _ : state) {
        Block block(std::make_shared<int>(), &values);  // counted, and the values are not copied
        for (auto& queue : queues) queue.push_back(block);
        block.reset();
        for (auto& queue : queues) {
            const Block taken = std::move(queue.front());
            queue.pop_front();
            sum += (*taken)[0];
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_Handoff_Stream)->Arg(1)->Arg(8)->Arg(64);
BENCHMARK(BM_Handoff_SharedPtr)->Arg(1)->Arg(8)->Arg(64);
BENCHMARK(BM_Handoff_StreamRead)->Arg(1)->Arg(8)->Arg(64);
BENCHMARK(BM_Handoff_SharedPtrRead)->Arg(1)->Arg(8)->Arg(64);

}  // namespace
