#include "modules/filter/Butterworth.h"

#include <cmath>
#include <complex>
#include <numbers>

#include "modules/filter/SectionDesign.h"

namespace tc {

namespace {

using Real = long double;
using Complex = std::complex<Real>;

constexpr Real PI = std::numbers::pi_v<Real>;

// The poles of the prototype in the upper half plane, the best damped first; of an odd order the real one
// comes before them.
std::vector<Complex> PrototypePoles(int order) {
    std::vector<Complex> poles;
    for (int i = 1 - order % 2; i < order; i += 2)
        poles.push_back(-std::polar<Real>(1, -PI * i / (2 * order)));
    return poles;
}

// Low pass and high pass of one prototype pole; a high pass is what the low pass and the damping leave over.
Section MakeOneSided(bool high, const Complex& prototype, Real radius) {
    if (prototype.imag() == 0) return MakeFirstOrder(radius, high ? Taps{1, 0, -1} : Taps{0, 0, 1});
    const Real damping = -2 * prototype.real();
    return MakeSection(radius, damping, high ? Taps{1, -damping, -1} : Taps{0, 0, 1});
}

// A band around the centre has two poles for each of the prototype: the roots of s^2 - width p s + centre^2.
// The larger comes from the sum, the other from their product, so that none is lost between numbers that
// nearly cancel.
void AddTwoSided(bool stop, const Complex& prototype, Real width, Real centre,
                 std::vector<Section>& sections) {
    const Complex half = prototype * (width / 2);
    Complex root = std::sqrt(half * half - centre * centre);
    if ((std::conj(root) * half).real() < 0) root = -root;
    const Complex outer = half + root;
    const auto add = [&](Real radius, Real damping) {
        const Real ratio = centre / radius;
        sections.push_back(MakeSection(
            radius, damping, stop ? Taps{1, -damping, ratio * ratio - 1} : Taps{0, width / radius, 0}));
    };
    if (prototype.imag() == 0) return add(centre, width / centre);
    for (const Complex& pole : {outer, centre * centre / outer})
        add(std::abs(pole), -2 * pole.real() / std::abs(pole));
}

}  // namespace

std::vector<Section> DesignButterworth(FilterBand band, int order, long double corner, long double upper) {
    const Real low = std::tan(PI * corner);
    const Real high = std::tan(PI * upper);
    // high - low, without what a narrow band would lose.
    const Real width = std::sin(PI * (upper - corner)) / (std::cos(PI * corner) * std::cos(PI * upper));
    const bool twoSided = band == FilterBand::BANDPASS || band == FilterBand::BANDSTOP;
    std::vector<Section> sections;
    for (const Complex& pole : PrototypePoles(order)) {
        if (twoSided)
            AddTwoSided(band == FilterBand::BANDSTOP, pole, width, std::sqrt(low * high), sections);
        else
            sections.push_back(MakeOneSided(band == FilterBand::HIGHPASS, pole, low));
    }
    return sections;
}

}  // namespace tc
