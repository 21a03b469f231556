#pragma once

#include <cmath>

// Arithmetic beyond the precision of a double, by carrying along what each addition rounds away. Not to be
// compiled with options that let the compiler reorder floating-point operations.
namespace tc {

// a + b without loss: the answer is the rounded sum, `rest` what was rounded away.
inline double TwoSum(double a, double b, double& rest) {
    const double sum = a + b;
    const double part = sum - a;
    rest = (a - (sum - part)) + (b - part);
    return sum;
}

// A number of about 31 digits: the unevaluated sum of two doubles, the second far smaller than the first.
struct Wide {
    double high = 0.0;
    double low = 0.0;

    double Value() const { return high + low; }
    // Times two to the power of `exponent`, exactly.
    Wide Scaled(int exponent) const { return {std::ldexp(high, exponent), std::ldexp(low, exponent)}; }
};

inline Wide Product(const Wide& a, const Wide& b) {
    Wide product{a.high * b.high, 0.0};
    product.low = std::fma(a.high, b.high, -product.high) + (a.high * b.low + a.low * b.high);
    return product;
}

inline Wide Difference(const Wide& a, const Wide& b) {
    Wide difference;
    difference.high = TwoSum(a.high, -b.high, difference.low);
    difference.low += a.low - b.low;
    return difference;
}

// A running sum that is still good to 31 digits after any number of additions.
class ExactSum {
 public:
    void Add(double value) {
        double rest;
        high = TwoSum(high, value, rest);
        AddSmall(rest);
    }
    // Adds value * value without rounding it.
    void AddSquare(double value) {
        const double square = value * value;
        Add(square);
        AddSmall(std::fma(value, value, -square));
    }
    // Infinite when the sum is beyond the range of a double.
    Wide Total() const {
        if (!std::isfinite(high)) return {high, 0.0};
        double rest;
        const double sum = TwoSum(high, middle, rest);
        Wide total;
        total.high = TwoSum(sum, rest + low, total.low);
        return total;
    }

 private:
    void AddSmall(double value) {
        double rest;
        middle = TwoSum(middle, value, rest);
        low += rest;
    }

    double high = 0.0;
    double middle = 0.0;
    double low = 0.0;
};

}  // namespace tc
