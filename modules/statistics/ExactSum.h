#pragma once

#include <cmath>

namespace tc {

// A number of twice the precision of a double (about 31 digits), as the unevaluated sum of two doubles.
// Not to be compiled with options that let the compiler reorder floating-point operations.
struct ExactSum {
    double high = 0.0;
    double low = 0.0;

    void Add(double value) {
        const double sum = high + value;
        const double part = sum - high;
        low += (high - (sum - part)) + (value - part);
        high = sum;
    }
    // Adds value * value without rounding it.
    void AddSquare(double value) {
        const double square = value * value;
        Add(square);
        low += std::fma(value, value, -square);
    }
    // Infinite when the sum is beyond the range of a double.
    double Value() const { return std::isfinite(high) ? high + low : high; }
    // Times two to the power of `exponent`, exactly.
    ExactSum Scaled(int exponent) const { return {std::ldexp(high, exponent), std::ldexp(low, exponent)}; }
};

// a * b, to the full precision of both.
inline ExactSum Product(const ExactSum& a, const ExactSum& b) {
    ExactSum product{a.high * b.high, 0.0};
    product.low = std::fma(a.high, b.high, -product.high) + (a.high * b.low + a.low * b.high);
    return product;
}

inline ExactSum Difference(const ExactSum& a, const ExactSum& b) {
    ExactSum difference = a;
    difference.Add(-b.high);
    difference.Add(-b.low);
    return difference;
}

}  // namespace tc
