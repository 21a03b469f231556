// Is replacing linear in the text, whatever the number of hits? (the time per byte stays, and stays near that
// of a std::string built anew) And do appends with a growth factor cost no more than those of std::string?
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "sigweave/foundation/TCString.h"

namespace {

constexpr const char* OLD_TEXT = "<<old>>";
constexpr const char* NEW_TEXT = "<<newer>>";

// `hits` occurrences, one in about 100 bytes.
std::string TextWithHits(std::int64_t hits) {
    std::string text;
    for (std::int64_t i = 0; i < hits; ++i)
        text += std::string(97, static_cast<char>('a' + i % 26)) + OLD_TEXT;
    return text;
}

void SetWork(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void BM_Replace_Sigweave(benchmark::State& state) {
    const std::string text = TextWithHits(state.range(0));
    for (auto _ : state) {
        TCString copy(text.data(), static_cast<int>(text.size()));
        if (copy.Replace(OLD_TEXT, NEW_TEXT) != state.range(0)) state.SkipWithError("wrong count");
        benchmark::DoNotOptimize(copy.LockBuffer());
    }
    SetWork(state, text.size());
}
BENCHMARK(BM_Replace_Sigweave)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000);

void BM_Replace_StdString(benchmark::State& state) {
    const std::string text = TextWithHits(state.range(0));
    for (auto _ : state) {
        const std::string copy(text);
        std::string result;
        std::size_t from = 0;
        for (std::size_t hit; (hit = copy.find(OLD_TEXT, from)) != std::string::npos;
             from = hit + std::strlen(OLD_TEXT))
            result.append(copy, from, hit - from).append(NEW_TEXT);
        result.append(copy, from);
        benchmark::DoNotOptimize(result.data());
    }
    SetWork(state, text.size());
}
BENCHMARK(BM_Replace_StdString)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000);

constexpr char PIECE[] = "0123456789abcdef";
constexpr int PIECE_LENGTH = sizeof PIECE - 1;

void BM_Append_Sigweave(benchmark::State& state) {
    for (auto _ : state) {
        TCString text;
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            std::memcpy(text.AllocAddBuffer(PIECE_LENGTH, 0.5), PIECE, PIECE_LENGTH);
            text.ReleaseBuffer(text.GetLength() + PIECE_LENGTH);
        }
        benchmark::DoNotOptimize(text.LockBuffer());
    }
    SetWork(state, static_cast<std::size_t>(state.range(0)) * PIECE_LENGTH);
}
BENCHMARK(BM_Append_Sigweave)->Arg(100)->Arg(10000)->Arg(100000);

void BM_Append_StdString(benchmark::State& state) {
    for (auto _ : state) {
        std::string text;
        for (std::int64_t i = 0; i < state.range(0); ++i) text.append(PIECE, PIECE_LENGTH);
        benchmark::DoNotOptimize(text.data());
    }
    SetWork(state, static_cast<std::size_t>(state.range(0)) * PIECE_LENGTH);
}
BENCHMARK(BM_Append_StdString)->Arg(100)->Arg(10000)->Arg(100000);

}  // namespace
