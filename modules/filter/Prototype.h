#pragma once

#include <complex>
#include <vector>

namespace tc {

enum class FilterDesign { BUTTERWORTH, CHEBYSHEV1, CHEBYSHEV2, BESSEL };

// What an analogue low pass is like.
struct FilterShape {
    FilterDesign design = FilterDesign::BUTTERWORTH;
    int order = 1;  // 1 to 12
    // In decibels, above 0: what CHEBYSHEV1 loses most in the pass band, and what CHEBYSHEV2 loses at least
    // in the stop band.
    double ripple = 1.0;
    double attenuation = 40.0;
};

// The poles and zeros of a low pass with the corner 1, which passes a constant as it is but for the gain. The
// corner is where a sine loses 3 dB (BUTTERWORTH, BESSEL), the ripple for the last time (CHEBYSHEV1), or the
// attenuation for the first time (CHEBYSHEV2).
struct Prototype {
    struct Pair {
        std::complex<long double> pole;  // and its conjugate; a real pole is alone
        long double zero = 0;            // at plus and minus j times that; 0: none
    };
    std::vector<Pair> pairs;  // the best damped first
    long double gain = 1;
};

Prototype MakePrototype(const FilterShape& shape);

}  // namespace tc
