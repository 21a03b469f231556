#pragma once

#include <cstddef>
#include <cstdint>

namespace tc {

// The checksum of packed frames (stored; never change). The bytes are words of 8, little-endian, numbered
// from 0. Four sums modulo 2^64 are formed: of the words, of their high halves, and of both multiplied by the
// number of their word. The checksum is ((words * K + halves) * K + numbered words) * K + numbered halves.
//
// The sums see every change within one word or in two of them, words that changed places included, and of all
// other damage all but one case in 2^64. They can be formed while the bytes are copied, as fast as memory is.
class FrameChecksum {
 public:
    static constexpr std::uint64_t K = 0x9E3779B97F4A7C15;

    // Adds the next words; the second form copies them too. The addresses need no alignment.
    void Add(const char* bytes, std::size_t words);
    void AddCopy(char* dst, const char* bytes, std::size_t words);
    std::uint64_t Value() const { return ((words * K + halves) * K + numberedWords) * K + numberedHalves; }

 private:
    template <bool COPY>
    void AddEach(char* dst, const char* bytes, std::size_t words);

    std::uint64_t count = 0;
    std::uint64_t words = 0;
    std::uint64_t halves = 0;
    std::uint64_t numberedWords = 0;
    std::uint64_t numberedHalves = 0;
};

}  // namespace tc
