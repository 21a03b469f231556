#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// Sets the checksum right, so that what follows it is tried.
inline void SignFrame(std::string& frame) {
    const std::uint64_t factor = 0x9E3779B97F4A7C15;
    std::uint64_t sums[4] = {};
    for (std::size_t i = 0; 24 + 8 * i + 8 <= frame.size(); ++i) {
        std::uint64_t word;
        std::memcpy(&word, frame.data() + 24 + 8 * i, 8);
        const std::uint64_t terms[] = {word, word >> 32, i * word, i * (word >> 32)};
        for (int sum = 0; sum < 4; ++sum) sums[sum] += terms[sum];
    }
    const std::uint64_t value = ((sums[0] * factor + sums[1]) * factor + sums[2]) * factor + sums[3];
    std::memcpy(frame.data() + 16, &value, 8);
}
