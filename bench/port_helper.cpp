// What does a stage cost that passes blocks on through its port helper, beside the plain copy? Arguments: the
// stages, and the doubles in a block; the blocks of one double show the helper alone.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "sigweave/module/TCPortHelper.h"

namespace {

constexpr TCPortHelper::TYPE SIGNAL = TCPortHelper::TYPE_TYPEINFO | TCPortHelper::TYPE_DOUBLEARRAY;
constexpr std::size_t MOST_VALUES = 1024;

// A source, a number of stages with one input and one output, and a sink.
class Chain {
 public:
    explicit Chain(const benchmark::State& state) : values(static_cast<unsigned long>(state.range(1))) {
        for (std::size_t i = 0; i < static_cast<std::size_t>(state.range(0)) + 2; ++i) {
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
            helpers.front()->WriteDblData(0, values, data.data());
            for (std::size_t i = 1; i + 1 < helpers.size(); ++i)
                if (helpers[i]->Fetch() == 0) pass(*helpers[i]);
            benchmark::DoNotOptimize(helpers.back()->TakeBlock(0));
        }
        state.counters["stages/s"] = benchmark::Counter(static_cast<double>(helpers.size() - 2),
                                                        benchmark::Counter::kIsIterationInvariantRate);
    }

 private:
    std::vector<std::unique_ptr<TCPortHelper>> helpers;
    unsigned long values;
    std::vector<double> data = std::vector<double>(MOST_VALUES, 1.0);
};

void BM_PortHelper_TakeAndWrite(benchmark::State& state) {
    Chain(state).Run(state, [](TCPortHelper& stage) {
        int count = 0;
        stage.TakeBlock(0);
        const double* values = stage.AccessDblData(0, count);
        stage.WriteDblData(0, static_cast<unsigned long>(count), values);
    });
}

void BM_PortHelper_ReadAndWrite(benchmark::State& state) {
    std::vector<double> buffer(MOST_VALUES);
    Chain(state).Run(state, [&buffer](TCPortHelper& stage) {
        unsigned long count = MOST_VALUES;
        stage.ReadDblData(0, count, buffer.data());
        stage.WriteDblData(0, count, buffer.data());
    });
}

void BM_PortHelper_Forward(benchmark::State& state) {
    Chain(state).Run(state, [](TCPortHelper& stage) { stage.ForwardBlock(0, 0); });
}

// The peer: nothing but the copies, each into the next stage's memory, which lies as well as the blocks do.
void BM_PlainCopy(benchmark::State& state) {
    struct alignas(64) Block {
        double values[MOST_VALUES];
    };
    const auto stages = static_cast<std::size_t>(state.range(0));
    const std::size_t bytes = static_cast<std::size_t>(state.range(1)) * sizeof(double);
    std::vector<Block> blocks(stages + 2);
    for (auto _ : state) {
        for (std::size_t i = 0; i <= stages; ++i) {
            std::memcpy(blocks[i + 1].values, blocks[i].values, bytes);
            benchmark::ClobberMemory();
        }
    }
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgsProduct({{0, 1, 4, 16}, {1, MOST_VALUES}});
}

BENCHMARK(BM_PlainCopy)->Apply(Sizes);
BENCHMARK(BM_PortHelper_TakeAndWrite)->Apply(Sizes);
BENCHMARK(BM_PortHelper_ReadAndWrite)->Apply(Sizes);
BENCHMARK(BM_PortHelper_Forward)->Apply(Sizes);

}  // namespace
