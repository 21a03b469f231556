#include "sigweave/signal/forms/FrameChecksum.h"

#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "words are summed as they lie in memory");

namespace {

constexpr std::size_t WORD = 8;
constexpr std::size_t FEW = 32;  // words, summed one by one
constexpr std::size_t STEP = 8;  // words

// One word in each lane of a register of the processor.
template <std::size_t LANES>
struct Register {
    using Words [[gnu::vector_size(WORD * LANES)]] = std::uint64_t;
};

struct Sums {
    std::uint64_t words = 0, halves = 0, numberedWords = 0, numberedHalves = 0;
};

// The sum of the words of one lane, each times its number; `first` is that of the first. `running` is the sum
// of the sums after each step, where a word counts once for every step from its own to the last.
std::uint64_t Numbered(std::uint64_t sum, std::uint64_t running, std::uint64_t first, std::uint64_t steps,
                       std::uint64_t lanes) {
    return first * sum + lanes * (steps * sum - running);
}

// Numbers the words from 0.
template <std::size_t LANES, bool COPY>
[[gnu::always_inline]] inline void SumLanes(Sums& sums, char* dst, const char* bytes, std::size_t steps) {
    using Words = typename Register<LANES>::Words;
    Words words{}, halves{}, runningWords{}, runningHalves{};
#pragma GCC unroll 4
    for (std::size_t i = 0; i < steps; ++i) {
        Words next;
        std::memcpy(&next, bytes + i * sizeof next, sizeof next);
        if constexpr (COPY) std::memcpy(dst + i * sizeof next, &next, sizeof next);
        words += next;
        halves += next >> 32;
        runningWords += words;
        runningHalves += halves;
    }
    for (std::size_t lane = 0; lane < LANES; ++lane) {
        sums.words += words[lane];
        sums.halves += halves[lane];
        sums.numberedWords += Numbered(words[lane], runningWords[lane], lane, steps, LANES);
        sums.numberedHalves += Numbered(halves[lane], runningHalves[lane], lane, steps, LANES);
    }
}

template <bool COPY>
void SumNarrow(Sums& sums, char* dst, const char* bytes, std::size_t steps) {
    SumLanes<2, COPY>(sums, dst, bytes, 4 * steps);
}

template <bool COPY>
[[gnu::target("avx2")]] void SumWide(Sums& sums, char* dst, const char* bytes, std::size_t steps) {
    SumLanes<4, COPY>(sums, dst, bytes, 2 * steps);
}

template <bool COPY>
[[gnu::target("avx512f")]] void SumWidest(Sums& sums, char* dst, const char* bytes, std::size_t steps) {
    SumLanes<8, COPY>(sums, dst, bytes, steps);
}

// Eight words a step, by the widest registers that the processor has.
template <bool COPY>
void Sum(Sums& sums, char* dst, const char* bytes, std::size_t steps) {
    using Work = void (*)(Sums&, char*, const char*, std::size_t);
    static const Work work = __builtin_cpu_supports("avx512f") ? SumWidest<COPY>
                             : __builtin_cpu_supports("avx2")  ? SumWide<COPY>
                                                               : SumNarrow<COPY>;
    work(sums, dst, bytes, steps);
}

}  // namespace

template <bool COPY>
void tc::FrameChecksum::AddEach(char* dst, const char* bytes, std::size_t wordCount) {
    if (wordCount == 0) return;
    Sums piece;
    std::size_t i = wordCount < FEW ? 0 : wordCount / STEP * STEP;
    if (i > 0) Sum<COPY>(piece, dst, bytes, i / STEP);
    for (; i < wordCount; ++i) {
        std::uint64_t word;
        std::memcpy(&word, bytes + WORD * i, WORD);
        if constexpr (COPY) std::memcpy(dst + WORD * i, &word, WORD);
        piece.words += word;
        piece.halves += word >> 32;
        piece.numberedWords += i * word;
        piece.numberedHalves += i * (word >> 32);
    }
    words += piece.words;
    halves += piece.halves;
    numberedWords += piece.numberedWords + count * piece.words;
    numberedHalves += piece.numberedHalves + count * piece.halves;
    count += wordCount;
}

void tc::FrameChecksum::Add(const char* bytes, std::size_t wordCount) {
    AddEach<false>(nullptr, bytes, wordCount);
}

void tc::FrameChecksum::AddCopy(char* dst, const char* bytes, std::size_t wordCount) {
    AddEach<true>(dst, bytes, wordCount);
}
