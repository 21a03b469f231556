#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <vector>

namespace tc {

// What a peak must have at least. The defaults allow all.
struct PeakLimits {
    double height = -std::numeric_limits<double>::infinity();
    double distance = 1.0;  // samples, at least 1; rounded up
    double prominence = 0.0;
    double width = 0.0;  // samples, at half of the prominence
    bool needsWidth = false;
};

struct Peak {
    std::size_t position = 0;  // of the sample; of a plateau the middle one, rounded down
    double height = 0.0;
    double prominence = 0.0;
    double width = 0.0;  // samples; 0 unless it is needed
};

// The peaks of a whole signal, in its order: samples, or plateaus, whose neighbours are less. They are
// narrowed down by height first, then by distance (of two that are closer the higher one stays, of equal ones
// the later), then by prominence and by width. The prominence is the height above the higher one of the two
// lowest values that lie between the peak and the next greater value, or the end, on each side. The width is
// taken at half of the prominence, with linear interpolation. A value that is not a number is neither less
// nor greater.
std::vector<Peak> FindPeaks(std::span<const double> values, const PeakLimits& limits);

}  // namespace tc
