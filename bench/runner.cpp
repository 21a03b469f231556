// What does one more module in a graph cost? Chains of 1, 4 and 16 stages between a source and a sink, 1024
// doubles a block, under the real runner; beside it the bare copy of the same bytes through as many buffers.
#include "host/Runner.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"

namespace {

constexpr int VALUES = 1024;
constexpr int BLOCKS = 2000;

class BenchModule : public TCBaseModuleEx {
 public:
    BenchModule() : TCBaseModuleEx(0, {}) {}
    const char* GetModuleId() const override { return "Bench"; }
    const char* GetDescription() const override { return ""; }
    const char* GetBaseName() const override { return "Bench"; }
};

class Source final : public BenchModule {
 public:
    Source() : values(VALUES, 1.0) {
        DeclareSource();
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->UseAutoTypeInfo(0, false, true, false, false, false, false);
    }
    int Init() override {
        left = BLOCKS;
        return BenchModule::Init();
    }
    int Execute() override {
        if (--left == 0) portHelper->SetReadyFlag(false);
        return portHelper->WriteDblData(0, VALUES, values.data());
    }

 private:
    std::vector<double> values;
    int left = 0;
};

class Copy final : public BenchModule {
 public:
    Copy() {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->UseTypeInfoFromInput(0, 0);
    }
    int Execute() override {
        portHelper->TakeBlock(0);
        int count = 0;
        const double* values = portHelper->AccessDblData(0, count);
        return portHelper->WriteDblData(0, static_cast<unsigned long>(count), values);
    }
};

class Forward final : public BenchModule {
 public:
    Forward() {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "", true);
    }
    int Execute() override { return portHelper->ForwardBlock(0, 0) < 0 ? -1 : 0; }
};

class Sink final : public BenchModule {
 public:
    Sink() { portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "", true); }
    int Execute() override {
        portHelper->TakeBlock(0);
        return 0;
    }
};

template <class Stage>
class Chain {
 public:
    explicit Chain(int count) : stages(static_cast<std::size_t>(count)) {
        modules.push_back({"source", &source});
        for (Stage& stage : stages) modules.push_back({"stage", &stage});
        modules.push_back({"sink", &sink});
        for (int index = 0; index + 1 < static_cast<int>(modules.size()); ++index)
            lines.push_back({index, 0, index + 1, 0});
    }

    double SecondsOfRun() {
        const host::RunReport report = host::Runner(modules, lines).Run();
        if (report.verdict != host::Verdict::Complete || report.lines.back().blocks != BLOCKS) std::abort();
        return report.seconds;
    }

 private:
    Source source;
    std::vector<Stage> stages;
    Sink sink;
    std::vector<host::RunModule> modules;
    std::vector<host::RunLine> lines;
};

template <class Stage>
void BM_Runner_Chain(benchmark::State& state) {
    Chain<Stage> chain(static_cast<int>(state.range(0)));
    for (auto _ : state) state.SetIterationTime(chain.SecondsOfRun());
    state.SetItemsProcessed(state.iterations() * BLOCKS);
}
BENCHMARK(BM_Runner_Chain<Copy>)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();
BENCHMARK(BM_Runner_Chain<Forward>)->Arg(1)->Arg(4)->Arg(16)->UseManualTime();

// The time of 15 stages: a chain of 16 less one of 1, run in turns. An item is one block through one stage.
template <class Stage>
void BM_Runner_AddedStages(benchmark::State& state) {
    Chain<Stage> longChain(16);
    Chain<Stage> shortChain(1);
    for (auto _ : state) state.SetIterationTime(longChain.SecondsOfRun() - shortChain.SecondsOfRun());
    state.SetItemsProcessed(state.iterations() * BLOCKS * 15);
}
BENCHMARK(BM_Runner_AddedStages<Copy>)->UseManualTime();
BENCHMARK(BM_Runner_AddedStages<Forward>)->UseManualTime();

// Two buffers a stage in turns, each on a cache line, as the streams use their blocks.
void BM_Memcpy_AddedStages(benchmark::State& state) {
    struct alignas(64) Buffer {
        double values[VALUES] = {};
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
