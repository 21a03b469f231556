// Do the exact hexadecimal doubles keep up with a plain loop over the digits, written for normal numbers only
// and without a check of the text? (limit: 1.5 times its time) And how long does the C library take?
#include <benchmark/benchmark.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "sigweave/foundation/HexDouble.h"

namespace {

constexpr int TEXT_SIZE = 32;

const std::vector<double>& Values() {
    static const std::vector<double> values = [] {
        std::mt19937_64 random(42);
        std::uniform_real_distribution<double> uniform(-10, 10);
        std::vector<double> result(4096);
        for (double& value : result) value = uniform(random);
        return result;
    }();
    return values;
}

// All values, with a blank after each.
const std::string& Text() {
    static const std::string text = [] {
        std::string result;
        char one[TEXT_SIZE];
        for (const double value : Values())
            result.append(one, static_cast<std::size_t>(std::snprintf(one, TEXT_SIZE, "%.13a ", value)));
        return result;
    }();
    return text;
}

void PlainWrite(char* p, double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    if (bits >> 63) *p++ = '-';
    *p++ = '0';
    *p++ = 'x';
    *p++ = '1';
    *p++ = '.';
    for (int shift = 48; shift >= 0; shift -= 4) *p++ = "0123456789abcdef"[bits >> shift & 15];
    int exponent = static_cast<int>(bits >> 52 & 2047) - 1023;
    *p++ = 'p';
    *p++ = exponent < 0 ? '-' : '+';
    exponent = std::abs(exponent);
    char digits[4];
    int count = 0;
    do digits[count++] = static_cast<char>('0' + exponent % 10);
    while ((exponent /= 10) != 0);
    while (count > 0) *p++ = digits[--count];
    *p = '\0';
}

const std::array<signed char, 256> DIGITS = [] {
    std::array<signed char, 256> values{};
    values.fill(-1);
    for (int i = 0; i < 16; ++i)
        for (const char* digits : {"0123456789abcdef", "0123456789ABCDEF"})
            values[static_cast<unsigned char>(digits[i])] = static_cast<signed char>(i);
    return values;
}();

// Answers the end of the text, null when it is not of the form.
const char* PlainRead(const char* p, double& value) {
    const std::uint64_t sign = *p == '-' ? std::uint64_t{1} << 63 : 0;
    p += sign != 0;
    if (std::memcmp(p, "0x1.", 4) != 0) return nullptr;
    p += 4;
    std::uint64_t mantissa = 0;
    int all = 0;
    for (int i = 0; i < 13; ++i, ++p) {
        const int digit = DIGITS[static_cast<unsigned char>(*p)];
        all |= digit;
        mantissa = mantissa << 4 | static_cast<std::uint64_t>(digit & 15);
    }
    if (all < 0 || *p++ != 'p') return nullptr;
    const bool negative = *p++ == '-';
    int exponent = 0;
    while (*p >= '0' && *p <= '9') exponent = 10 * exponent + (*p++ - '0');
    const auto biased = static_cast<std::uint64_t>((negative ? -exponent : exponent) + 1023);
    value = std::bit_cast<double>(sign | biased << 52 | mantissa);
    return p;
}

template <class Write>
void WriteAll(benchmark::State& state, Write write) {
    char text[TEXT_SIZE];
    for (auto _ : state)
        for (const double value : Values()) {
            write(text, value);
            benchmark::DoNotOptimize(text);
        }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Values().size()));
}

// `read` answers where the number ends.
template <class Read>
void ReadAll(benchmark::State& state, Read read) {
    double value = 0;
    const char* p = Text().c_str();
    for (const double expected : Values()) {
        p = read(p, value) + 1;
        if (value != expected) state.SkipWithError("read wrongly");
    }
    for (auto _ : state) {
        double sum = 0;
        p = Text().c_str();
        for (std::size_t i = 0; i < Values().size(); ++i, sum += value) p = read(p, value) + 1;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Values().size()));
}

void BM_HexWrite_Sigweave(benchmark::State& state) {
    WriteAll(state, [](char* text, double value) { DoubleToHexString(text, TEXT_SIZE, value); });
}
void BM_HexWrite_PlainLoop(benchmark::State& state) {
    WriteAll(state, PlainWrite);
}
void BM_HexWrite_Printf(benchmark::State& state) {
    WriteAll(state, [](char* text, double value) { std::snprintf(text, TEXT_SIZE, "%.13a", value); });
}
void BM_HexRead_Sigweave(benchmark::State& state) {
    ReadAll(state, [](const char* p, double& value) {
        char* end = nullptr;
        value = HexString2Double(p, &end);
        return end;
    });
}
void BM_HexRead_PlainLoop(benchmark::State& state) {
    ReadAll(state, PlainRead);
}
void BM_HexRead_Strtod(benchmark::State& state) {
    ReadAll(state, [](const char* p, double& value) {
        char* end = nullptr;
        value = std::strtod(p, &end);
        return end;
    });
}

BENCHMARK(BM_HexWrite_Sigweave);
BENCHMARK(BM_HexWrite_PlainLoop);
BENCHMARK(BM_HexWrite_Printf);
BENCHMARK(BM_HexRead_Sigweave);
BENCHMARK(BM_HexRead_PlainLoop);
BENCHMARK(BM_HexRead_Strtod);

}  // namespace
