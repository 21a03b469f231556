#include "modules/weighting/FrequencyWeighting.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>

#include "modules/filter/SectionDesign.h"

namespace tc {

namespace {

using Real = long double;
using Complex = std::complex<Real>;

constexpr Real PI = std::numbers::pi_v<Real>;
constexpr int ZEROS = 4;

// In Hz, as the standard derives them from its corners: C is 3 dB down at 10^1.5 and 10^3.9 Hz.
struct Poles {
    Real lowest, low, middle, highest;
};

Poles StandardPoles() {
    const Real reference = 1e6L;  // 1 kHz, squared
    const Real low = std::pow(10.0L, 3.0L);
    const Real high = std::pow(10.0L, 7.8L);
    const Real half = std::sqrt(0.5L);
    const Real b = (reference + low * high / reference - half * (low + high)) / (1 - half);
    const Real c = low * high;
    const Real root = std::sqrt(b * b - 4 * c);
    const Real highest = (-b + root) / 2;
    const Real side = std::pow(10.0L, 2.45L);
    return {std::sqrt(c / highest), (3 - std::sqrt(5.0L)) / 2 * side, (3 + std::sqrt(5.0L)) / 2 * side,
            std::sqrt(highest)};
}

Real HighpassPower(Real corner, Real frequency) {
    const Real ratio = frequency * frequency / (corner * corner);
    return ratio / (1 + ratio);
}

Real PowerOf(WeightingCurve curve, Real frequency) {
    const Poles poles = StandardPoles();
    const Real lowpass = 1 - HighpassPower(poles.highest, frequency);
    const Real highpass = HighpassPower(poles.lowest, frequency);
    Real power = lowpass * lowpass * highpass * highpass;
    if (curve == WeightingCurve::A)
        power *= HighpassPower(poles.low, frequency) * HighpassPower(poles.middle, frequency);
    return power;
}

// The high pass at a corner below half the rate, and what it passes of the power at the angle w.
struct Highpass {
    Real radius;

    Highpass(Real corner, Real rate) : radius(std::tan(PI * std::min(corner / rate, 0.49L))) {}
    Real Power(Real w) const { return HighpassPower(radius, std::tan(w / 2)); }
};

using Coefficients = std::array<Real, ZEROS + 1>;  // [i] is that of x^i

// The polynomial through the values at the places (Newton's divided differences).
Coefficients Interpolate(const Coefficients& places, Coefficients values) {
    for (int order = 1; order <= ZEROS; ++order)
        for (int i = ZEROS; i >= order; --i)
            values[i] = (values[i] - values[i - 1]) / (places[i] - places[i - order]);
    Coefficients sum{};
    for (int i = ZEROS; i >= 0; --i) {
        for (int power = ZEROS; power > 0; --power) sum[power] = sum[power - 1] - places[i] * sum[power];
        sum[0] = values[i] - places[i] * sum[0];
    }
    return sum;
}

// By Weierstrass' iteration for all at once.
std::array<Complex, ZEROS> FindRoots(const Coefficients& polynomial) {
    std::array<Complex, ZEROS> roots;
    for (int i = 0; i < ZEROS; ++i) roots[i] = std::pow(Complex(0.4L, 0.9L), i);
    for (int step = 0; step < 500; ++step) {
        for (int i = 0; i < ZEROS; ++i) {
            Complex value = polynomial[ZEROS];
            for (int power = ZEROS - 1; power >= 0; --power) value = value * roots[i] + polynomial[power];
            Complex others = polynomial[ZEROS];
            for (int k = 0; k < ZEROS; ++k)
                if (k != i) others *= roots[i] - roots[k];
            roots[i] -= value / others;
        }
    }
    return roots;
}

// The zero within the unit circle for which z + 1 / z is twice x.
Complex ZeroFor(const Complex& x) {
    const Complex root = std::sqrt(x * x - Complex(1));
    const Complex zero = x + root;
    return std::abs(zero) < 1 ? zero : x - root;
}

// Of four zeros, real ones and conjugate pairs, the polynomials of two and two.
std::array<std::array<Real, 3>, 2> PairZeros(std::array<Complex, ZEROS> zeros) {
    // Conjugate zeros have one real part, and come together.
    std::sort(zeros.begin(), zeros.end(), [](const Complex& a, const Complex& b) {
        const bool aIsReal = std::fabs(a.imag()) < 1e-9L;
        const bool bIsReal = std::fabs(b.imag()) < 1e-9L;
        if (aIsReal != bIsReal) return bIsReal;
        return a.real() < b.real();
    });
    std::array<std::array<Real, 3>, 2> pairs;
    for (int i = 0; i < 2; ++i) {
        const Complex& a = zeros[2 * i];
        const Complex& b = zeros[2 * i + 1];
        pairs[i] = {1, -(a + b).real(), (a * b).real()};
    }
    return pairs;
}

Real PowerOf(const std::array<Real, 3>& polynomial, Real w) {
    return std::norm(polynomial[0] + polynomial[1] * std::polar<Real>(1, -w) +
                     polynomial[2] * std::polar<Real>(1, -2 * w));
}

}  // namespace

long double WeightingPower(WeightingCurve curve, long double frequency) {
    return curve == WeightingCurve::Z ? 1 : PowerOf(curve, frequency) / PowerOf(curve, 1000);
}

std::vector<Section> DesignWeighting(WeightingCurve curve, long double rate) {
    if (curve == WeightingCurve::Z) return {};
    const Poles poles = StandardPoles();
    const Highpass lowest(poles.lowest, rate);
    const Highpass low(poles.low, rate);
    const Highpass middle(poles.middle, rate);
    const Real pole = std::exp(-2 * PI * poles.highest / rate);
    const std::array<Real, 3> denominator = {1, -2 * pole, pole * pole};
    const auto target = [&](Real w) {
        Real passed = lowest.Power(w) * lowest.Power(w);
        if (curve == WeightingCurve::A) passed *= low.Power(w) * middle.Power(w);
        return WeightingPower(curve, w * rate / (2 * PI)) / passed * PowerOf(denominator, w);
    };
    Coefficients places;
    Coefficients values;
    for (int i = 0; i <= ZEROS; ++i) {
        const Real w = PI * (static_cast<Real>(i) + 0.5L) / (ZEROS + 1);
        places[i] = std::cos(w);
        values[i] = target(w);
    }
    std::array<Complex, ZEROS> zeros = FindRoots(Interpolate(places, values));
    for (Complex& zero : zeros) zero = ZeroFor(zero);
    std::array<std::array<Real, 3>, 2> pairs = PairZeros(zeros);
    const Real w = PI * 0.5L / (ZEROS + 1);
    const Real gain = std::sqrt(values[0] / (PowerOf(pairs[0], w) * PowerOf(pairs[1], w)));
    for (Real& coefficient : pairs[0]) coefficient *= gain;
    std::vector<Section> sections = {MakeSection(lowest.radius, 2, {1, -2, -1}),
                                     MakeSection(pairs[0], denominator), MakeSection(pairs[1], {1, 0, 0})};
    if (curve == WeightingCurve::A) {
        sections.insert(sections.begin() + 1, MakeFirstOrder(low.radius, {1, 0, -1}));
        sections.insert(sections.begin() + 2, MakeFirstOrder(middle.radius, {1, 0, -1}));
    }
    return sections;
}

}  // namespace tc
