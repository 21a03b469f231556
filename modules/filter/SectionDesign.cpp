#include "modules/filter/SectionDesign.h"

#include <cmath>

namespace tc {

namespace {

using Real = long double;

// The same polynomial as one in s, where z = (1 + s) / (1 - s), times (1 - s)^2: [2] is that of s^2.
std::array<Real, 3> InS(const std::array<Real, 3>& c) {
    return {c[0] + c[1] + c[2], 2 * (c[0] - c[2]), c[0] - c[1] + c[2]};
}

}  // namespace

Section MakeSection(Real radius, Real damping, const Taps& taps) {
    const Real scale = 1 / (1 + radius * (radius + damping));
    const Real drive = 2 * radius * scale;
    return {static_cast<double>(drive),          static_cast<double>((radius + damping) * drive),
            static_cast<double>(radius * drive), static_cast<double>(taps.direct),
            static_cast<double>(taps.band / 2),  static_cast<double>(taps.low / 2)};
}

Section MakeFirstOrder(Real radius, const Taps& taps) {
    return {0.0,
            0.0,
            static_cast<double>(2 * radius / (1 + radius)),
            static_cast<double>(taps.direct),
            0.0,
            static_cast<double>(taps.low / 2)};
}

Section MakeSection(const std::array<Real, 3>& numerator, const std::array<Real, 3>& denominator) {
    const std::array<Real, 3> n = InS(numerator);
    const std::array<Real, 3> d = InS(denominator);
    const Real radius = std::sqrt(d[0] / d[2]);
    const Real damping = d[1] / (d[2] * radius);
    const Real direct = n[2] / d[2];
    const Real band = n[1] / (d[2] * radius);
    const Real low = n[0] / d[0];
    return MakeSection(radius, damping, {direct, band - direct * damping, low - direct});
}

}  // namespace tc
