#pragma once

#include <algorithm>

// Powers of ten, each the double nearest to the true value. Internal.
namespace tc {

inline constexpr int MIN_EXPONENT = -324;  // its power is 0 as a double
inline constexpr int MAX_EXPONENT = 308;
inline constexpr int POWER_COUNT = MAX_EXPONENT - MIN_EXPONENT + 1;

// 10^(index + MIN_EXPONENT) at each index.
extern const double POWERS_OF_TEN[POWER_COUNT];

// Exponents outside the table take its first or last entry.
inline double PowerOfTen(int exponent) {
    return POWERS_OF_TEN[std::clamp(exponent, MIN_EXPONENT, MAX_EXPONENT) - MIN_EXPONENT];
}

// The greatest e with 10^e <= value, for a value above 0; 0 for 0.
int DecimalExponent(double value);

}  // namespace tc
