#pragma once

#include <vector>

#include "modules/filter/Prototype.h"
#include "modules/filter/SectionCascade.h"

namespace tc {

enum class FilterBand { LOWPASS, HIGHPASS, BANDPASS, BANDSTOP };

// The sections of a digital filter: the analogue prototype, moved to the band and then to samples by the
// bilinear transform, with the corners corrected for its warping, so that the magnitude at each corner is
// that of the prototype at its own. Low and high pass have order / 2 sections (rounded up), the others
// `order`, for each of their sides has the full order. The sections come with the best damped first.
//
// Corners are parts of the samplerate, above 0 and below 0.5; `upper`, which must be above `corner`, counts
// only for BANDPASS and BANDSTOP.
std::vector<Section> DesignFilter(FilterBand band, const FilterShape& shape, long double corner,
                                  long double upper);
std::vector<Section> DesignButterworth(FilterBand band, int order, long double corner, long double upper);

// Lets pass all but a sine at `centre`, a part of the samplerate above 0 and below 0.5. `quality`, at least
// 1, is the centre by the width of the gap where a sine loses 3 dB.
Section DesignNotch(long double centre, double quality);

}  // namespace tc
