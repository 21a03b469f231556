#include "modules/level/LevelMeter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tc {

namespace {

constexpr double TIME_CONSTANTS[] = {0.125, 1.0, 0.035};  // s, by weighting
constexpr double DECAY = 1.5;                             // s, of the peak detector
constexpr double SETTLED = 4.0;                           // time constants

// The histogram's classes: what is below the first, or above the last, counts there.
constexpr double LOWEST = -400.0;  // dB
constexpr double CLASSES_PER_DECIBEL = 100.0;
constexpr std::size_t CLASSES = 80000;

}  // namespace

LevelMeter::LevelMeter(TimeWeighting weighting, double rate, std::int64_t samplesPerInterval)
    : holds(weighting == TimeWeighting::IMPULSE),
      interval(samplesPerInterval),
      least(std::numeric_limits<double>::infinity()),
      histogram(CLASSES) {
    const double constant = TIME_CONSTANTS[static_cast<int>(weighting)];
    share = -std::expm1(-1.0 / (rate * constant));
    remaining = std::exp(-1.0 / (rate * DECAY));
    settledAfter = static_cast<std::int64_t>(std::min(SETTLED * constant * rate, 9e18));
}

void LevelMeter::Add(const double* values, int count, std::vector<double>& levels) {
    for (int i = 0; i < count; ++i) {
        const double square = values[i] * values[i];
        if (std::isfinite(square)) {
            ++samples;
            sum += square;
            peak = std::max(peak, square);
            average += share * (square - average);
            held = holds ? std::max(average, held * remaining) : average;
            greatest = std::max(greatest, held);
            if (HasSettled()) least = std::min(least, held);
        } else {
            ++leftOut;
        }
        if (++inInterval == interval) EndInterval(levels);
    }
}

void LevelMeter::EndInterval(std::vector<double>& levels) {
    total += sum;
    sum = 0.0;
    inInterval = 0;
    levels.push_back(held);
    if (HasSettled()) Count(held);
}

void LevelMeter::Count(double power) {
    const double place = (10.0 * std::log10(power) - LOWEST) * CLASSES_PER_DECIBEL;
    ++histogram[static_cast<std::size_t>(std::clamp(place, 0.0, static_cast<double>(CLASSES - 1)))];
    ++counted;
}

double LevelMeter::MeanPower() const {
    return static_cast<double>((total + sum) / static_cast<long double>(samples));
}

// Linear within the class in which the share is reached.
double LevelMeter::ExceededPower(double part) const {
    const double wanted = part * static_cast<double>(counted);
    double above = 0.0;
    std::size_t at = CLASSES;
    while (at > 0) {
        const auto here = static_cast<double>(histogram[--at]);
        if (here > 0.0 && above + here >= wanted) {
            const double place = static_cast<double>(at) + 1.0 - (wanted - above) / here;
            return std::pow(10.0, (place / CLASSES_PER_DECIBEL + LOWEST) / 10.0);
        }
        above += here;
    }
    return 0.0;
}

}  // namespace tc
