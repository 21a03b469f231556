#pragma once

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "host/Runner.h"
#include "sigweave/module/TCBaseModuleEx.h"

// A chain of modules under the host's real runner, for the benchmarks: a source, some stages, a sink.
namespace bench {

constexpr int VALUES = 1024;  // doubles in a block

class Module : public TCBaseModuleEx {
 public:
    Module() : TCBaseModuleEx(0, {}) {}
    const char* GetModuleId() const override { return "Bench"; }
    const char* GetDescription() const override { return ""; }
    const char* GetBaseName() const override { return "Bench"; }
};

class Source final : public Module {
 public:
    explicit Source(int count) : blocks(count), values(VALUES, 1.0) {
        DeclareSource();
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->UseAutoTypeInfo(0, false, true, false, false, false, false);
    }
    int Init() override {
        left = blocks;
        return Module::Init();
    }
    int Execute() override {
        if (--left == 0) portHelper->SetReadyFlag(false);
        return portHelper->WriteDblData(0, VALUES, values.data());
    }

 private:
    int blocks;
    std::vector<double> values;
    int left = 0;
};

class Copy final : public Module {
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

class Forward final : public Module {
 public:
    Forward() {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "", true);
    }
    int Execute() override { return portHelper->ForwardBlock(0, 0) < 0 ? -1 : 0; }
};

class Sink final : public Module {
 public:
    Sink() { portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "", true); }
    int Execute() override {
        portHelper->TakeBlock(0);
        return 0;
    }
};

template <class Stage>
class RunnerChain {
 public:
    RunnerChain(int count, int blockCount)
        : blocks(blockCount), source(blockCount), stages(static_cast<std::size_t>(count)) {
        modules.push_back({"source", &source});
        for (Stage& stage : stages) modules.push_back({"stage", &stage});
        modules.push_back({"sink", &sink});
        for (int index = 0; index + 1 < static_cast<int>(modules.size()); ++index)
            lines.push_back({index, 0, index + 1, 0});
    }

    // Of one run, from the wiring to the taking apart.
    double SecondsOfRun() {
        const host::RunReport report = host::Runner(modules, lines).Run();
        if (report.verdict != host::Verdict::Complete || report.lines.back().blocks != blocks) std::abort();
        return report.seconds;
    }

 private:
    int blocks;
    Source source;
    std::vector<Stage> stages;
    Sink sink;
    std::vector<host::RunModule> modules;
    std::vector<host::RunLine> lines;
};

// Whole runs of a chain of range(0) stages, which has SecondsOfRun(). An item is one block through one stage;
// the source and the sink are part of its time.
template <class AnyChain>
void MeasureChain(benchmark::State& state, int blocks) {
    AnyChain chain(static_cast<int>(state.range(0)), blocks);
    for (auto _ : state) state.SetIterationTime(chain.SecondsOfRun());
    state.SetItemsProcessed(state.iterations() * blocks * state.range(0));
    state.counters["doubles/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * blocks * VALUES, benchmark::Counter::kIsRate);
}

// The time of 15 stages: a chain of 16 less one of 1, run in turns. An item is one block through one stage.
template <class AnyChain>
void MeasureAddedStages(benchmark::State& state, int blocks) {
    AnyChain longChain(16, blocks);
    AnyChain shortChain(1, blocks);
    for (auto _ : state) state.SetIterationTime(longChain.SecondsOfRun() - shortChain.SecondsOfRun());
    state.SetItemsProcessed(state.iterations() * blocks * 15);
}

}  // namespace bench
