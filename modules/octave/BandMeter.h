#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "modules/filter/SectionCascade.h"
#include "modules/octave/Decimator.h"

namespace tc {

// A band of IEC 61260-1, base 10, by its number: the middle is 10^(number / 10) Hz.
struct OctaveBand {
    int number;
    double lower, upper;  // Hz

    double Width() const { return upper - lower; }
    std::string NominalName() const;  // of the middle, as "31.5"
};

// The bands of one octave or a third of one (`fraction` 1 or 3) whose middles lie between those that are
// nearest to the two frequencies, as far as a signal of that rate has them: the upper edge must be below 0.48
// of it.
std::vector<OctaveBand> FindBands(int fraction, double lowest, double highest, double rate);

// The power in each band, over intervals and over everything: Butterworth band passes of eighth order, which
// meet class 1 of IEC 61260-1, the lower ones at a rate that is halved as often as is possible. All powers
// are squares of the samples' unit. How samples are shared out among calls makes no difference, to the last
// bit. Values that are not finite count as 0. Steady flow allocates nothing.
class BandMeter {
 public:
    BandMeter() = default;
    // An interval has that many samples, at least one.
    BandMeter(std::vector<OctaveBand> bands, double rate, std::int64_t interval);

    // Adds to `rows` the mean power of each band in each interval that these samples complete.
    void Add(const double* values, int count, std::vector<double>& rows);

    const std::vector<OctaveBand>& Bands() const { return bands; }
    std::int64_t Samples() const { return samples; }
    std::int64_t LeftOut() const { return leftOut; }
    double MeanPower(std::size_t band) const;

 private:
    struct Band {
        SectionCascade cascade;
        int halvings = 0;
        double sum = 0.0;  // of squares, in the interval
        std::int64_t count = 0;
        long double total = 0.0L;
        std::int64_t totalCount = 0;
        double last = 0.0;  // of the last interval in which a sample came
    };

    void AddPart(const double* values, int count);
    void EndInterval(std::vector<double>& rows);

    std::vector<OctaveBand> bands;
    std::vector<Band> meters;
    std::vector<Decimator> decimators;
    std::vector<double> part;
    std::vector<double> filtered;
    std::int64_t interval = 1;
    std::int64_t inInterval = 0;
    std::int64_t samples = 0;
    std::int64_t leftOut = 0;
};

}  // namespace tc
