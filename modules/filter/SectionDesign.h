#pragma once

#include <array>

#include "modules/filter/SectionCascade.h"

namespace tc {

// Weights of an analogue section's outputs, as functions of s: the input, its band pass s / q and its low
// pass 1 / q, where q = s^2 + damping s + 1.
struct Taps {
    long double direct;
    long double band;
    long double low;
};

// The analogue section with the poles of q at the radius, in units of twice the samplerate, moved to samples
// by the bilinear transform.
Section MakeSection(long double radius, long double damping, const Taps& taps);

// One real pole at the radius: the second integrator alone.
Section MakeFirstOrder(long double radius, const Taps& taps);

// The section with a quotient of polynomials in 1/z: numerator[0] + numerator[1] / z + numerator[2] / z^2
// over the same of the denominator, whose zeros lie within the unit circle and away from z = 1.
Section MakeSection(const std::array<long double, 3>& numerator,
                    const std::array<long double, 3>& denominator);

}  // namespace tc
