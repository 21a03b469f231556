#include "modules/filter/Prototype.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tc {

namespace {

using Real = long double;
using Complex = std::complex<Real>;

constexpr Real PI = std::numbers::pi_v<Real>;

// 10^(decibels / 10) - 1
Real PowerLess1(double decibels) {
    return std::expm1(static_cast<Real>(decibels) * std::numbers::ln10_v<Real> / 10);
}

// The poles of Butterworth filters lie on a circle, those of Chebyshev's on an ellipse through whose points
// `place` leads: the angle from the real axis is handed to it.
template <class Place>
Prototype MakeOnCurve(int order, Place place) {
    Prototype prototype;
    for (int i = 1 - order % 2; i < order; i += 2) prototype.pairs.push_back(place(PI * i / (2 * order)));
    return prototype;
}

Prototype MakeButterworth(int order) {
    return MakeOnCurve(order, [](Real angle) { return Prototype::Pair{-std::polar<Real>(1, -angle)}; });
}

Prototype MakeChebyshev1(int order, double ripple) {
    const Real power = PowerLess1(ripple);
    const Real size = std::asinh(1 / std::sqrt(power)) / order;
    Prototype prototype = MakeOnCurve(order, [&](Real angle) {
        return Prototype::Pair{{-std::sinh(size) * std::cos(angle), std::cosh(size) * std::sin(angle)}};
    });
    // Of even order the constant is where the ripple is deepest.
    if (order % 2 == 0) prototype.gain = 1 / std::sqrt(1 + power);
    return prototype;
}

Prototype MakeChebyshev2(int order, double attenuation) {
    const Real size = std::asinh(std::sqrt(PowerLess1(attenuation))) / order;
    return MakeOnCurve(order, [&](Real angle) {
        const Complex inverse(-std::sinh(size) * std::cos(angle), -std::cosh(size) * std::sin(angle));
        const Real sine = std::sin(angle);
        return Prototype::Pair{angle == 0 ? Complex(1 / inverse.real()) : Real(1) / inverse,
                               angle == 0 ? 0 : 1 / sine};
    });
}

// The reverse Bessel polynomial: the coefficient of s^k is (2n - k)! / (2^(n-k) k! (n-k)!).
std::vector<Real> BesselPolynomial(int order) {
    std::vector<Real> coefficients(static_cast<std::size_t>(order) + 1, 1);
    for (int k = order - 1; k >= 0; --k) {
        const auto at = static_cast<std::size_t>(k);
        coefficients[at] = coefficients[at + 1] * (2 * order - k) * (k + 1) / (2 * (order - k));
    }
    return coefficients;
}

Complex At(const std::vector<Real>& polynomial, const Complex& s) {
    Complex value;
    for (auto next = polynomial.rbegin(); next != polynomial.rend(); ++next) value = value * s + *next;
    return value;
}

// All roots at once, by the method of Durand and Kerner, from points on a circle around them.
std::vector<Complex> Roots(const std::vector<Real>& polynomial) {
    constexpr int MOST_ROUNDS = 500;
    const std::size_t order = polynomial.size() - 1;
    const Real radius = std::pow(polynomial.front(), Real(1) / static_cast<Real>(order));
    std::vector<Complex> roots(order);
    for (std::size_t i = 0; i < order; ++i)
        roots[i] = std::polar<Real>(radius, PI * (2 * static_cast<Real>(i) + Real(1.5)) / order);
    Real moved = 1;
    for (int round = 0; round < MOST_ROUNDS && moved > Real(1e-18); ++round) {
        moved = 0;
        for (std::size_t i = 0; i < order; ++i) {
            Complex step = At(polynomial, roots[i]);
            for (std::size_t k = 0; k < order; ++k)
                if (k != i) step /= roots[i] - roots[k];
            roots[i] -= step;
            moved = std::max(moved, std::abs(step) / radius);
        }
    }
    return roots;
}

// Where the polynomial's magnitude is its constant times the root of 2: it grows with the frequency.
Real CornerOf(const std::vector<Real>& polynomial) {
    Real below = 0;
    Real above = 100;
    for (int i = 0; i < 100; ++i) {
        const Real middle = (below + above) / 2;
        const bool isBelow =
            std::norm(At(polynomial, Complex(0, middle))) < 2 * polynomial[0] * polynomial[0];
        (isBelow ? below : above) = middle;
    }
    return below;
}

Prototype MakeBessel(int order) {
    const std::vector<Real> polynomial = BesselPolynomial(order);
    const Real corner = CornerOf(polynomial);
    Prototype prototype;
    for (const Complex& root : Roots(polynomial)) {
        const Complex pole = root / corner;
        const bool isReal = std::fabs(pole.imag()) < Real(1e-9);
        if (isReal) prototype.pairs.push_back({Complex(pole.real())});
        if (!isReal && pole.imag() > 0) prototype.pairs.push_back({pole});
    }
    std::ranges::sort(prototype.pairs, {},
                      [](const Prototype::Pair& pair) { return pair.pole.real() / std::abs(pair.pole); });
    return prototype;
}

}  // namespace

Prototype MakePrototype(const FilterShape& shape) {
    switch (shape.design) {
        case FilterDesign::CHEBYSHEV1:
            return MakeChebyshev1(shape.order, shape.ripple);
        case FilterDesign::CHEBYSHEV2:
            return MakeChebyshev2(shape.order, shape.attenuation);
        case FilterDesign::BESSEL:
            return MakeBessel(shape.order);
        default:
            return MakeButterworth(shape.order);
    }
}

}  // namespace tc
