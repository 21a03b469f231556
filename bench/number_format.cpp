// Is `ftoa` at least as fast as std::to_chars when both write the same digits?
#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <random>
#include <vector>

#include "sigweave/foundation/NumberFormat.h"

namespace {

constexpr std::size_t COUNT = 4096;

std::vector<double> Values(double lowest, double highest) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> exponent(lowest, highest);
    std::vector<double> values(COUNT);
    for (double& value : values) value = std::pow(10.0, exponent(random)) * (random() % 2 != 0 ? 1 : -1);
    return values;
}

template <typename Writer>
void Run(benchmark::State& state, double lowest, double highest, Writer write) {
    const std::vector<double> values = Values(lowest, highest);
    char buffer[512];
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(values[i++ % COUNT], buffer));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

template <StringFormat FORMAT, int DIGITS>
auto Ours() {
    return [](double value, char* buffer) { return ftoa(value, buffer, FORMAT, false, nullptr, 0, DIGITS); };
}

template <std::chars_format FORMAT, int DIGITS>
auto Peer() {
    return [](double value, char* buffer) {
        return std::to_chars(buffer, buffer + 512, value, FORMAT, DIGITS).ptr - buffer;
    };
}

void BM_NumberFormat_Fixed6(benchmark::State& state) {
    Run(state, -3, 6, Ours<FORMAT_FIXED, 6>());
}
void BM_NumberFormat_Fixed6_ToChars(benchmark::State& state) {
    Run(state, -3, 6, Peer<std::chars_format::fixed, 6>());
}
void BM_NumberFormat_Significant9(benchmark::State& state) {
    Run(state, -9, 12, Ours<FORMAT_SIGNIFICANT, 9>());
}
void BM_NumberFormat_Significant9_ToChars(benchmark::State& state) {
    Run(state, -9, 12, Peer<std::chars_format::general, 9>());
}
void BM_NumberFormat_Exponential5(benchmark::State& state) {
    Run(state, -99, 99, Ours<FORMAT_EXPONENTIAL, 5>());
}
void BM_NumberFormat_Exponential5_ToChars(benchmark::State& state) {
    Run(state, -99, 99, Peer<std::chars_format::scientific, 5>());
}
void BM_NumberFormat_Exponential16(benchmark::State& state) {
    Run(state, -99, 99, Ours<FORMAT_EXPONENTIAL, 16>());
}
void BM_NumberFormat_Exponential16_ToChars(benchmark::State& state) {
    Run(state, -99, 99, Peer<std::chars_format::scientific, 16>());
}

BENCHMARK(BM_NumberFormat_Fixed6);
BENCHMARK(BM_NumberFormat_Fixed6_ToChars);
BENCHMARK(BM_NumberFormat_Significant9);
BENCHMARK(BM_NumberFormat_Significant9_ToChars);
BENCHMARK(BM_NumberFormat_Exponential5);
BENCHMARK(BM_NumberFormat_Exponential5_ToChars);
BENCHMARK(BM_NumberFormat_Exponential16);
BENCHMARK(BM_NumberFormat_Exponential16_ToChars);

}  // namespace
