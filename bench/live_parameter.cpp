// What does it cost to read a parameter that may change in a run, beside a variable of the module's own? A
// read for each of 4096 values, so that it counts.
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>

#include "sigweave/module/TCBaseModuleEx.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "offset", .kind = TCModuleParameter::NUMBER, .defaultValue = "0", .live = true},
    {.name = "factor", .kind = TCModuleParameter::NUMBER, .defaultValue = "1.5", .live = true}};

class Reader final : public TCBaseModuleEx {
 public:
    Reader() : TCBaseModuleEx(0, PARAMETERS) {}
    const char* GetModuleId() const override { return "Reader"; }
    const char* GetDescription() const override { return "Reads its parameter"; }
    int Execute() override { return 0; }

    double Live() const { return live; }
    double Own() const { return own; }
    double ByIndex() const { return ParamDbl(index); }
    double ByName() const { return ParamDbl("factor"); }

 private:
    const double& live = LiveDbl("factor");
    double own = 1.5;
    int index = ParamIndex("factor");
};

template <auto READ>
void BM_LiveParameter(benchmark::State& state) {
    Reader module;
    std::array<double, 4096> values{};
    for (auto _ : state) {
        for (double& value : values) {
            benchmark::ClobberMemory();  // nothing is known of the value before
            value += (module.*READ)();
        }
        benchmark::DoNotOptimize(values);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 4096);
}
BENCHMARK(BM_LiveParameter<&Reader::Live>)->Name("BM_LiveParameter_Live");
BENCHMARK(BM_LiveParameter<&Reader::Own>)->Name("BM_LiveParameter_Own");
BENCHMARK(BM_LiveParameter<&Reader::ByIndex>)->Name("BM_LiveParameter_ByIndex");
BENCHMARK(BM_LiveParameter<&Reader::ByName>)->Name("BM_LiveParameter_ByName");

}  // namespace
