#pragma once

#include <vector>

#include "modules/filter/SectionCascade.h"

namespace tc {

enum class WeightingCurve { A, C, Z };

// The squared magnitude of a weighting of IEC 61672-1 at a frequency in Hz, by its formula; 1 at 1 kHz.
long double WeightingPower(WeightingCurve curve, long double frequency);

// The sections of a digital filter with that magnitude, at a samplerate above 0; none for Z. The corners
// below 1 kHz come by the bilinear transform. That would cut off the highest octave, so the double pole at 12
// kHz is the pole of the sampled exponential, and four zeros give the magnitude its right value at five
// frequencies between 0 and half the rate.
std::vector<Section> DesignWeighting(WeightingCurve curve, long double rate);

}  // namespace tc
