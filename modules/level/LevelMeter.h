#pragma once

#include <cstdint>
#include <vector>

namespace tc {

enum class TimeWeighting { FAST, SLOW, IMPULSE };

// The time weightings of sound level meters: an exponential average of the square with a time constant of
// 125 ms (fast), 1 s (slow) or 35 ms (impulse), the last with a peak detector after it that decays with 1.5
// s; and what is counted of it. All powers are squares of the samples' unit. How samples are shared out among
// calls makes no difference, to the last bit. Values that are not finite are counted and left out. Steady
// flow allocates nothing.
class LevelMeter {
 public:
    LevelMeter() = default;
    // The weighted power is sampled after every `interval` samples, at least one.
    LevelMeter(TimeWeighting weighting, double rate, std::int64_t interval);

    // Adds to `levels` the weighted power at the end of each interval that these samples complete.
    void Add(const double* values, int count, std::vector<double>& levels);

    std::int64_t Samples() const { return samples; }  // finite ones
    std::int64_t LeftOut() const { return leftOut; }
    double MeanPower() const;  // without time weighting; there must be samples
    double PeakPower() const { return peak; }
    double GreatestPower() const { return greatest; }
    // From here on, four time constants, the average is within 0.1 dB of a steady power; the least power and
    // the percentiles count what comes after.
    bool HasSettled() const { return samples > settledAfter; }
    double LeastPower() const { return least; }
    // The power that was exceeded in that share of the intervals, 0 to 1, to a hundredth of a decibel; there
    // must be a settled interval.
    double ExceededPower(double share) const;
    std::int64_t SettledIntervals() const { return counted; }

 private:
    void EndInterval(std::vector<double>& levels);
    void Count(double power);

    double share = 1.0;      // of a new square in the average
    double remaining = 0.0;  // of the peak detector after a sample
    bool holds = false;
    std::int64_t interval = 1;
    std::int64_t settledAfter = 0;

    std::int64_t samples = 0;
    std::int64_t leftOut = 0;
    std::int64_t inInterval = 0;
    double average = 0.0;
    double held = 0.0;  // what the detector shows: the average, or its decaying peak
    double sum = 0.0;   // of squares in the interval
    long double total = 0.0L;
    double peak = 0.0;
    double greatest = 0.0;
    double least = 0.0;
    std::vector<std::int64_t> histogram;  // of settled intervals, by level
    std::int64_t counted = 0;
};

}  // namespace tc
