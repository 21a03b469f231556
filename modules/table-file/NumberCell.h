#pragma once

#include <cstdint>

namespace tc {

// The exact powers of ten of double.
inline constexpr double POWERS_OF_TEN[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                           1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                           1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// What ReadNumberCell answers, for every number.
const char* ReadAnyNumberCell(const char* text, char point, double& value);

// Reads a number as tables have it: a sign, digits with the decimal sign `point`, an exponent; also nan and
// inf in any case. Correctly rounded. Answers where it ends, null when there is none. The text must end with
// a byte that belongs to no number, as a line feed.
inline const char* ReadNumberCell(const char* text, char point, double& value) {
    const auto isDigit = [](char byte) { return static_cast<unsigned char>(byte - '0') < 10; };
    const char* at = text + (*text == '-');
    const char* const first = at;
    std::uint64_t digits = 0;
    for (; isDigit(*at); ++at) digits = 10 * digits + static_cast<std::uint64_t>(*at - '0');
    std::int64_t count = at - first;
    std::int64_t decimals = 0;
    if (*at == point) {
        const char* const fraction = ++at;
        for (; isDigit(*at); ++at) digits = 10 * digits + static_cast<std::uint64_t>(*at - '0');
        decimals = at - fraction;
        count += decimals;
    }
    constexpr std::uint64_t MOST_EXACT = std::uint64_t{1} << 53;
    if (count == 0 || count > 19 || decimals > 22 || digits > MOST_EXACT || (*at | 0x20) == 'e')
        return ReadAnyNumberCell(text, point, value);
    const double magnitude = static_cast<double>(digits) / POWERS_OF_TEN[decimals];
    value = first != text ? -magnitude : magnitude;
    return at;
}

}  // namespace tc
