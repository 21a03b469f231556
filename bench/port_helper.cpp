// What does a stage cost that passes blocks of 1024 doubles on through its port helper, beside the plain
// copy?
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "sigweave/module/TCPortHelper.h"

namespace {

constexpr TCPortHelper::TYPE SIGNAL = TCPortHelper::TYPE_TYPEINFO | TCPortHelper::TYPE_DOUBLEARRAY;
constexpr unsigned VALUES = 1024;

// A source, a number of stages with one input and one output, and a sink.
class Chain {
 public:
    explicit Chain(std::size_t stages) {
        for (std::size_t i = 0; i < stages + 2; ++i) {
            helpers.push_back(std::make_unique<TCPortHelper>(nullptr));
            helpers[i]->SetPort(INPUT, 0, "Signal", SIGNAL);
            helpers[i]->SetPort(OUTPUT, 0, "Signal", SIGNAL);
            if (i == 0) continue;
            helpers[i]->UseTypeInfoFromInput(0, 0);
            helpers[i - 1]->AddOutputStream(0, helpers[i]->SetInputStream(0, 0, 3));
        }
        TCTypeInfo ti;
        ti.SetSignalname("Channel 1");
        ti.SetTimestamp(1.0);
        ti.SetState(COMPLETE);
        helpers.front()->SetTypeInfo(0, ti);
    }

    template <class Pass>
    void Run(benchmark::State& state, Pass pass) {
        for (auto _ : state) {
            helpers.front()->WriteDblData(0, VALUES, data.data());
            for (std::size_t i = 1; i + 1 < helpers.size(); ++i) pass(*helpers[i]);
            benchmark::DoNotOptimize(helpers.back()->TakeBlock(0));
        }
        state.counters["stages/s"] = benchmark::Counter(static_cast<double>(helpers.size() - 2),
                                                        benchmark::Counter::kIsIterationInvariantRate);
    }

 private:
    std::vector<std::unique_ptr<TCPortHelper>> helpers;
    std::vector<double> data = std::vector<double>(VALUES, 1.0);
};

void BM_PortHelper_TakeAndWrite(benchmark::State& state) {
    Chain(static_cast<std::size_t>(state.range(0))).Run(state, [](TCPortHelper& stage) {
        int count = 0;
        stage.TakeBlock(0);
        const double* values = stage.AccessDblData(0, count);
        stage.WriteDblData(0, static_cast<unsigned long>(count), values);
    });
}

void BM_PortHelper_ReadAndWrite(benchmark::State& state) {
    std::vector<double> buffer(VALUES);
    Chain(static_cast<std::size_t>(state.range(0))).Run(state, [&buffer](TCPortHelper& stage) {
        unsigned long count = VALUES;
        stage.ReadDblData(0, count, buffer.data());
        stage.WriteDblData(0, count, buffer.data());
    });
}

void BM_PortHelper_Forward(benchmark::State& state) {
    Chain(static_cast<std::size_t>(state.range(0))).Run(state, [](TCPortHelper& stage) {
        stage.ForwardBlock(0, 0);
    });
}

// The peer: nothing but the copies, each into the next stage's memory.
void BM_PlainCopy(benchmark::State& state) {
    const auto stages = static_cast<std::size_t>(state.range(0));
    std::vector<std::vector<double>> blocks(stages + 2, std::vector<double>(VALUES, 1.0));
    for (auto _ : state) {
        for (std::size_t i = 0; i <= stages; ++i) {
            std::memcpy(blocks[i + 1].data(), blocks[i].data(), VALUES * sizeof(double));
            benchmark::ClobberMemory();
        }
    }
}

BENCHMARK(BM_PlainCopy)->Arg(0)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_PortHelper_TakeAndWrite)->Arg(0)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_PortHelper_ReadAndWrite)->Arg(1)->Arg(4)->Arg(16);
BENCHMARK(BM_PortHelper_Forward)->Arg(1)->Arg(4)->Arg(16);

}  // namespace
