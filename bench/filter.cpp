// What does a filter cost as a module, blocks, metadata and queues included, beside the plain loop over the
// same second-order sections on one array? A low pass of order 4, and of order 12, on blocks of 1024 doubles.
#include "modules/filter/Filter.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int VALUES = 1024;

std::vector<double> Noise() {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<double> values(VALUES);
    for (double& value : values) value = uniform(random);
    return values;
}

void BM_Filter_Module(benchmark::State& state) {
    const std::vector<double> values = Noise();
    const std::string settings = "corner=4800\norder=" + std::to_string(state.range(0));
    TCString error;
    Filter filter(0);
    TCIOStream source;
    TCIOStream sink;
    filter.AddLine(INPUT, 0);
    filter.AddLine(OUTPUT, 0);
    source.AddOutputStream(filter.SetInputStream(0, 0, 3));
    filter.AddOutputStream(0, sink.SetInputStream(3));
    if (!filter.SetSettings(settings.c_str(), error) || filter.Init() < 0) std::abort();
    TCTypeInfo ti;
    ti.SetSamplerate(48000.0);
    ti.SetState(START);
    for (auto _ : state) {
        source.SetTI(&ti, false);
        source.WriteDblVec(values.data(), VALUES);
        if (filter.Fetch() != 0 || filter.Execute() < 0) std::abort();
        if (sink.RemoveContents(false) != 1) std::abort();
        ti.SetState(BUSY);
    }
    state.SetItemsProcessed(state.iterations() * VALUES);
    filter.DeleteStreams();
}
BENCHMARK(BM_Filter_Module)->Arg(4)->Arg(12);

struct DirectForm {
    double b0, b1, b2, a1, a2;
    double s1 = 0.0;
    double s2 = 0.0;
};

// The same low passes as scipy.signal.butter(order, 0.2, output="sos") gives them.
const std::vector<DirectForm> ORDER_4 = {{0.004824343357716228, 0.009648686715432456, 0.004824343357716228,
                                          -1.0485995763626117, 0.2961403575616696},
                                         {1.0, 2.0, 1.0, -1.3209134308194264, 0.6327387928852766}};
const std::vector<DirectForm> ORDER_12 = {{1.1822462597764357e-07, 2.3644925195528713e-07,
                                           1.1822462597764357e-07, -1.022288530819024, 0.26361811671070223},
                                          {1.0, 2.0, 1.0, -1.0485995763626117, 0.2961403575616696},
                                          {1.0, 2.0, 1.0, -1.1034647630219414, 0.36395745787081585},
                                          {1.0, 2.0, 1.0, -1.191640135558701, 0.47294821226761863},
                                          {1.0, 2.0, 1.0, -1.3209134308194264, 0.6327387928852766},
                                          {1.0, 2.0, 1.0, -1.5027415936867445, 0.8574907624131849}};

void BM_Filter_PlainLoop(benchmark::State& state) {
    const std::vector<double> values = Noise();
    std::vector<double> results(VALUES);
    std::vector<DirectForm> sections = state.range(0) == 4 ? ORDER_4 : ORDER_12;
    for (auto _ : state) {
        for (std::size_t i = 0; i < VALUES; ++i) {
            double x = values[i];
            for (DirectForm& section : sections) {
                const double y = section.b0 * x + section.s1;
                section.s1 = section.b1 * x - section.a1 * y + section.s2;
                section.s2 = section.b2 * x - section.a2 * y;
                x = y;
            }
            results[i] = x;
        }
        benchmark::DoNotOptimize(results.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * VALUES);
}
BENCHMARK(BM_Filter_PlainLoop)->Arg(4)->Arg(12);

}  // namespace
