#include "modules/filter/FilterDesign.h"

#include <cmath>
#include <complex>
#include <numbers>

#include "modules/filter/SectionDesign.h"

namespace tc {

namespace {

using Real = long double;
using Complex = std::complex<Real>;

constexpr Real PI = std::numbers::pi_v<Real>;

// The quotient of high s^2 + middle s + low and s^2 + damping s + 1, s in units of the radius.
Section MakeQuotient(Real radius, Real damping, Real high, Real middle, Real low) {
    return MakeSection(radius, damping, {high, middle - high * damping, low - high});
}

// Low pass and high pass of one pole of the prototype and its conjugate.
Section MakeOneSided(bool high, const Prototype::Pair& pair, Real corner) {
    const Real size = std::abs(pair.pole);
    const Real radius = high ? corner / size : corner * size;
    if (pair.pole.imag() == 0) return MakeFirstOrder(radius, high ? Taps{1, 0, -1} : Taps{0, 0, 1});
    const Real damping = -2 * pair.pole.real() / size;
    const Real zero = pair.zero == 0 ? 0 : (size / pair.zero) * (size / pair.zero);
    return high ? MakeQuotient(radius, damping, 1, 0, zero) : MakeQuotient(radius, damping, zero, 0, 1);
}

struct Band {
    bool stop;
    Real width;
    Real centre;
};

// What becomes of a zero at j: two, and `upper` is the one above the centre.
Real UpperZero(const Band& band, Real zero) {
    const Real half = (band.stop ? band.width / zero : band.width * zero) / 2;
    return half + std::hypot(half, band.centre);
}

// A band around the centre has two poles for each of the prototype: the roots of s^2 - width p s + centre^2,
// of a band stop with 1 / p. The larger comes from the sum, the other from their product, so that none is
// lost between numbers that nearly cancel.
void AddTwoSided(const Band& band, const Prototype::Pair& pair, std::vector<Section>& sections) {
    const Real centre = band.centre;
    const Real size = std::abs(pair.pole);
    const bool isReal = pair.pole.imag() == 0;
    // Of a band stop without zeros of the prototype, they are at the centre.
    const auto add = [&](Real radius, Real damping, Real zero) {
        const Real ratio = zero / radius;
        if (band.stop)
            sections.push_back(MakeQuotient(radius, damping, 1, 0, ratio * ratio));
        else if (pair.zero == 0)
            sections.push_back(MakeQuotient(radius, damping, 0, size * band.width / radius, 0));
        else
            sections.push_back(
                MakeQuotient(radius, damping, size / pair.zero, 0, size / pair.zero * ratio * ratio));
    };
    if (isReal) return add(centre, (band.stop ? band.width / size : band.width * size) / centre, centre);
    const Complex half = (band.stop ? Real(1) / pair.pole : pair.pole) * (band.width / 2);
    Complex root = std::sqrt(half * half - centre * centre);
    if ((std::conj(root) * half).real() < 0) root = -root;
    const Complex first = half + root;
    const Complex second = centre * centre / first;
    const Real upper = pair.zero == 0 ? centre : UpperZero(band, pair.zero);
    const bool isUpper = std::abs(first) > centre;
    for (const auto& [pole, above] : {std::pair{first, isUpper}, {second, !isUpper}})
        add(std::abs(pole), -2 * pole.real() / std::abs(pole), above ? upper : centre * centre / upper);
}

}  // namespace

std::vector<Section> DesignFilter(FilterBand band, const FilterShape& shape, long double corner,
                                  long double upper) {
    const Real low = std::tan(PI * corner);
    const Real high = std::tan(PI * upper);
    const bool twoSided = band == FilterBand::BANDPASS || band == FilterBand::BANDSTOP;
    // high - low, without what a narrow band would lose.
    const Real width = std::sin(PI * (upper - corner)) / (std::cos(PI * corner) * std::cos(PI * upper));
    const Prototype prototype = MakePrototype(shape);
    std::vector<Section> sections;
    for (const Prototype::Pair& pair : prototype.pairs) {
        if (twoSided)
            AddTwoSided({band == FilterBand::BANDSTOP, width, std::sqrt(low * high)}, pair, sections);
        else
            sections.push_back(MakeOneSided(band == FilterBand::HIGHPASS, pair, low));
    }
    const auto gain = static_cast<double>(prototype.gain);
    for (double* tap : {&sections.front().direct, &sections.front().band, &sections.front().low})
        *tap *= gain;
    return sections;
}

std::vector<Section> DesignButterworth(FilterBand band, int order, long double corner, long double upper) {
    return DesignFilter(band, {.design = FilterDesign::BUTTERWORTH, .order = order}, corner, upper);
}

Section DesignNotch(long double centre, double quality) {
    const Real damping = 2 * std::tan(PI * centre / quality) / std::sin(2 * PI * centre);
    return MakeQuotient(std::tan(PI * centre), damping, 1, 0, 1);
}

}  // namespace tc
