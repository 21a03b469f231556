#include "sigweave/foundation/NumberFormat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>

#include "sigweave/foundation/PowersOfTen.h"

namespace {

// --- Scaling by powers of ten --------------------------------------------------------------------

// Takes 10^exponent to `value` by `apply` in steps that each are in the table.
template <typename Apply>
double Scale(double value, int exponent, Apply apply) {
    constexpr int LARGEST_STEP = 308;
    constexpr int SMALLEST_STEP = -307;
    constexpr int ENOUGH = 4 * LARGEST_STEP;  // takes every finite value to 0 or infinity
    exponent = std::clamp(exponent, -ENOUGH, ENOUGH);
    for (; exponent < SMALLEST_STEP; exponent -= SMALLEST_STEP)
        value = apply(value, tc::PowerOfTen(SMALLEST_STEP));
    for (; exponent >= LARGEST_STEP; exponent -= LARGEST_STEP)
        value = apply(value, tc::PowerOfTen(LARGEST_STEP));
    return apply(value, tc::PowerOfTen(exponent));
}

// The digits of a number: value * 10^shift as an integer.
std::uint64_t ScaledInteger(double value, int shift) {
    return static_cast<std::uint64_t>(Scale(value, shift, std::multiplies<>()) + 0.5);
}

// --- Decimal digits ------------------------------------------------------------------------------

constexpr int MAX_DIGITS = 17;  // after the first one
constexpr int EXPONENT_WIDTH = 5;

constexpr auto INTEGER_POWERS = [] {
    std::array<std::uint64_t, 20> powers{};
    std::uint64_t power = 1;
    for (std::uint64_t& entry : powers) {
        entry = power;
        power *= 10;
    }
    return powers;
}();

constexpr auto DIGIT_PAIRS = [] {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

int CountDigits(std::uint64_t number) {
    const auto above = std::upper_bound(INTEGER_POWERS.begin() + 1, INTEGER_POWERS.end(), number);
    return static_cast<int>(above - INTEGER_POWERS.begin());
}

// Exactly `count` digits before `end`, with leading zeros.
void PutDigits(char* end, std::uint64_t number, int count) {
    for (; count >= 2; count -= 2) {
        end -= 2;
        std::memcpy(end, &DIGIT_PAIRS[2 * (number % 100)], 2);
        number /= 100;
    }
    if (count == 1) end[-1] = static_cast<char>('0' + number % 10);
}

char* Fill(char* at, char character, int count) {
    if (count <= 0) return at;
    std::memset(at, character, static_cast<std::size_t>(count));
    return at + count;
}

// A number without its exponent: `digits` * 10^-fraction, followed by zeros.
struct Mantissa {
    std::uint64_t digits = 0;
    int fraction = 0;       // negative: as many zeros before the separator
    int trailingZeros = 0;  // at the end of the fraction
    bool negative = false;

    void DropZeros() {
        trailingZeros = 0;
        while (fraction > 0 && digits % 10 == 0) {
            digits /= 10;
            --fraction;
            if (digits == 0) fraction = 0;
        }
    }
};

char* PutMantissa(char* at, const Mantissa& number, char separator, int width) {
    const int fraction = std::max(number.fraction, 0);
    const int zeros = std::max(number.trailingZeros, 0);
    const bool small = fraction >= static_cast<int>(INTEGER_POWERS.size());
    const std::uint64_t divisor = small ? 0 : INTEGER_POWERS[static_cast<std::size_t>(fraction)];
    const std::uint64_t integer = small ? 0 : number.digits / divisor;
    const int integerDigits = CountDigits(integer);
    const int integerZeros = integer != 0 ? std::max(-number.fraction, 0) : 0;
    const int decimals = fraction + zeros;
    const int length = number.negative + integerDigits + integerZeros + (decimals > 0 ? decimals + 1 : 0);

    at = Fill(at, ' ', width - length);
    if (number.negative) *at++ = '-';
    at += integerDigits;
    PutDigits(at, integer, integerDigits);
    at = Fill(at, '0', integerZeros);
    if (decimals == 0) return at;
    *at++ = separator;
    at += fraction;
    PutDigits(at, small ? number.digits : number.digits - integer * divisor, fraction);
    return Fill(at, '0', zeros);
}

char* PutExponent(char* at, int exponent) {
    *at++ = 'e';
    *at++ = exponent < 0 ? '-' : '+';
    at += 3;
    PutDigits(at, static_cast<std::uint64_t>(std::abs(exponent)), 3);
    return at;
}

Mantissa FixedMantissa(double magnitude, int exponent, int digits) {
    const int shift = std::min(digits, MAX_DIGITS - exponent);
    return {ScaledInteger(magnitude, shift), shift, digits - std::max(shift, 0)};
}

// Raises the exponent when rounding makes a further digit, as 9.96 becomes 1.0e+001.
Mantissa ExponentialMantissa(double magnitude, int& exponent, int digits) {
    const int decimals = std::clamp(digits, 0, MAX_DIGITS);
    std::uint64_t scaled = ScaledInteger(magnitude, decimals - exponent);
    if (scaled >= INTEGER_POWERS[static_cast<std::size_t>(decimals) + 1]) {
        ++exponent;
        scaled = ScaledInteger(magnitude, decimals - exponent);
    }
    return {scaled, decimals, digits - decimals};
}

// --- Styles --------------------------------------------------------------------------------------

struct Style {
    bool fixed;
    bool dropZeros;
    int digits;
};

Style SignificantStyle(int exponent, int digits) {
    constexpr long MAX_DECIMALS = 16;
    const bool fixed = (digits == 0 && exponent == 0) || (exponent >= -4 && exponent < digits);
    const long decimals = std::max(long{digits}, 1L) - 1 - (fixed ? exponent : 0);
    return {fixed, true, static_cast<int>(std::clamp(decimals, 0L, MAX_DECIMALS))};
}

Style AutomaticStyle(int exponent) {
    constexpr int EXPONENTIAL_DECIMALS = 5;
    if (exponent < -5 || exponent > 10) return {false, true, EXPONENTIAL_DECIMALS};
    return {true, true, 9 - std::clamp(exponent, 0, 9)};
}

Style ResolveStyle(StringFormat format, int exponent, int digits) {
    switch (format) {
        case FORMAT_SIGNIFICANT:
            return SignificantStyle(exponent, digits);
        case FORMAT_AUTOMATIC:
            return AutomaticStyle(exponent);
        default:
            return {format == FORMAT_FIXED, false, digits};
    }
}

using RoundingStep = double (*)(double);

double RoundTo(double value, int decimals, RoundingStep step) {
    const double factor = tc::PowerOfTen(decimals);
    return step(value * factor) / factor;
}

}  // namespace

int ftoa(double value, char* buffer, StringFormat format, bool comma, const char* suffix, int width,
         int digits) {
    if (!std::isfinite(value)) return std::sprintf(buffer, "%f", value);
    const double magnitude = std::abs(value);
    int exponent = tc::DecimalExponent(magnitude);
    const Style style = ResolveStyle(format, exponent, digits);
    Mantissa mantissa = style.fixed ? FixedMantissa(magnitude, exponent, style.digits)
                                    : ExponentialMantissa(magnitude, exponent, style.digits);
    mantissa.negative = value < 0;
    if (style.dropZeros) mantissa.DropZeros();

    width = std::max(width, 0) - (style.fixed ? 0 : EXPONENT_WIDTH);
    char* end = PutMantissa(buffer, mantissa, comma ? ',' : '.', width);
    if (!style.fixed) end = PutExponent(end, exponent);
    if (suffix != nullptr) end = stpcpy(end, suffix);
    *end = '\0';
    return static_cast<int>(end - buffer);
}

int Round(double value) {
    using Limits = std::numeric_limits<int>;
    if (std::isnan(value)) return 0;
    const double rounded = value >= 0 ? value + 0.5 : value - 0.5;
    if (rounded >= Limits::max()) return Limits::max();
    if (rounded <= Limits::min()) return Limits::min();
    return static_cast<int>(rounded);
}

double Round(double value, int decimals) {
    return RoundTo(value, decimals,
                   [](double x) { return x >= 0 ? std::floor(x + 0.5) : std::ceil(x - 0.5); });
}

double Round0(double value, int decimals) {
    return RoundTo(value, decimals, [](double x) { return std::floor(x); });
}

double Round1(double value, int decimals) {
    return RoundTo(value, decimals, [](double x) { return std::ceil(x); });
}

double ExpMul(double value, int exponent) {
    return Scale(value, exponent, std::multiplies<>());
}

double ExpDiv(double value, int exponent) {
    return Scale(value, exponent, std::divides<>());
}

std::string tc::ShortestText(double value) {
    if (std::isnan(value)) return "nan";
    const double size = std::abs(value);
    const bool plain = value == 0.0 || (size >= 1e-5 && size < 1e16);
    const auto format = plain ? std::chars_format::fixed : std::chars_format::scientific;
    char text[40];
    return {text, std::to_chars(text, std::end(text), value, format).ptr};
}

TCString ToString(int value) {
    return TCString::FormatS("%d", value);
}

const char* ToString(bool value) {
    return value ? "true" : "false";
}

const char* ToStaticString(int value) {
    static char text[32];
    std::snprintf(text, sizeof text, "%d", value);
    return text;
}
