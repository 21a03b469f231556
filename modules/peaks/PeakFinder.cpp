#include "modules/peaks/PeakFinder.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>
#include <utility>

namespace tc {

namespace {

std::vector<Peak> FindMaxima(std::span<const double> values) {
    std::vector<Peak> peaks;
    for (std::size_t i = 1; i + 1 < values.size(); ++i) {
        if (!(values[i - 1] < values[i])) continue;
        std::size_t end = i + 1;
        while (end + 1 < values.size() && values[end] == values[i]) ++end;
        if (!(values[end] < values[i])) continue;
        peaks.push_back({.position = (i + end - 1) / 2, .height = values[i]});
        i = end - 1;
    }
    return peaks;
}

// Peaks by their height, the numbers of equal ones in the order in which the quicksort of NumPy's argsort
// leaves them. That is deliberate: of equal peaks that are too near to each other SciPy keeps the one that
// comes last in it, and users compare.
void SortAsNumPyDoes(std::span<std::size_t> order, const std::vector<Peak>& peaks, int depth) {
    constexpr std::size_t FEW = 16;
    const auto isLower = [&](std::size_t a, std::size_t b) { return peaks[a].height < peaks[b].height; };
    while (order.size() > FEW && depth-- > 0) {
        const std::size_t last = order.size() - 1;
        const std::size_t middle = last / 2;
        if (isLower(order[middle], order[0])) std::swap(order[middle], order[0]);
        if (isLower(order[last], order[middle])) std::swap(order[last], order[middle]);
        if (isLower(order[middle], order[0])) std::swap(order[middle], order[0]);
        const std::size_t pivot = order[middle];
        std::swap(order[middle], order[last - 1]);
        std::size_t low = 0;
        std::size_t high = last - 1;
        for (;;) {
            do ++low;
            while (isLower(order[low], pivot));
            do --high;
            while (isLower(pivot, order[high]));
            if (low >= high) break;
            std::swap(order[low], order[high]);
        }
        std::swap(order[low], order[last - 1]);
        const auto lower = order.first(low);
        const auto higher = order.subspan(low + 1);
        const bool isLowerLess = lower.size() < higher.size();
        SortAsNumPyDoes(isLowerLess ? lower : higher, peaks, depth);
        order = isLowerLess ? higher : lower;
    }
    std::stable_sort(order.begin(), order.end(), isLower);
}

// The highest first.
void ThinOut(std::vector<Peak>& peaks, double distance) {
    const double least = std::ceil(distance);
    if (least <= 1.0) return;
    std::vector<std::size_t> order(peaks.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    SortAsNumPyDoes(order, peaks, 2 * static_cast<int>(std::bit_width(order.size())));
    std::vector<bool> dropped(peaks.size());
    const auto isNear = [&](std::size_t a, std::size_t b) {
        return static_cast<double>(peaks[b].position - peaks[a].position) < least;
    };
    for (auto next = order.rbegin(); next != order.rend(); ++next) {
        if (dropped[*next]) continue;
        for (std::size_t i = *next; i-- > 0 && isNear(i, *next);) dropped[i] = true;
        for (std::size_t i = *next + 1; i < peaks.size() && isNear(*next, i); ++i) dropped[i] = true;
    }
    std::size_t index = 0;
    std::erase_if(peaks, [&](const Peak&) { return dropped[index++]; });
}

struct Bases {
    std::size_t left, right;
};

// For each peak the lowest value between it and the next greater one, on one side. Peaks that are lower than
// the current one cannot end the search for a later one, so each is passed over only once.
class Valleys {
 public:
    explicit Valleys(std::span<const double> signal) : values(signal) {}

    // `position` goes one way from call to call. Answers the place of the lowest value.
    std::size_t Lowest(std::size_t position, int step, std::size_t stop) {
        Known now{position, position};
        std::size_t at = position;
        while (at != stop) {
            if (!known.empty() && known.back().peak == at) {
                // What lies beyond a lower peak, up to a greater value, is known.
                if (!(values[at] <= values[position])) break;
                if (values[known.back().lowest] < values[now.lowest]) now.lowest = known.back().lowest;
                at = known.back().end;
                known.pop_back();
                continue;
            }
            if (!(values[at] <= values[position])) break;
            if (values[at] < values[now.lowest]) now.lowest = at;
            at = Next(at, step);
        }
        now.end = at;
        known.push_back(now);
        return now.lowest;
    }

 private:
    struct Known {
        std::size_t peak;
        std::size_t lowest;
        std::size_t end = 0;  // the greater value, or the stop
    };

    static std::size_t Next(std::size_t at, int step) {
        return step > 0 ? at + 1 : at - 1;  // -1 after 0 is the stop
    }

    std::span<const double> values;
    std::vector<Known> known;
};

std::vector<Bases> FindBases(std::span<const double> values, const std::vector<Peak>& peaks) {
    std::vector<Bases> bases(peaks.size());
    Valleys left(values);
    for (std::size_t i = 0; i < peaks.size(); ++i)
        bases[i].left = left.Lowest(peaks[i].position, -1, static_cast<std::size_t>(-1));
    Valleys right(values);
    for (std::size_t i = peaks.size(); i-- > 0;)
        bases[i].right = right.Lowest(peaks[i].position, 1, values.size());
    return bases;
}

// Where the signal falls to that height on the way from the peak to the base, in samples.
double Crossing(std::span<const double> values, std::size_t peak, std::size_t base, int step, double height) {
    std::size_t at = peak;
    while (at != base && height < values[at]) at = step > 0 ? at + 1 : at - 1;
    const auto place = static_cast<double>(at);
    if (!(values[at] < height)) return place;
    const double before = values[step > 0 ? at - 1 : at + 1];
    return place - step * (height - values[at]) / (before - values[at]);
}

}  // namespace

std::vector<Peak> FindPeaks(std::span<const double> values, const PeakLimits& limits) {
    std::vector<Peak> peaks = FindMaxima(values);
    std::erase_if(peaks, [&](const Peak& peak) { return peak.height < limits.height; });
    ThinOut(peaks, limits.distance);
    const std::vector<Bases> bases = FindBases(values, peaks);
    std::vector<Peak> found;
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        Peak peak = peaks[i];
        peak.prominence = peak.height - std::max(values[bases[i].left], values[bases[i].right]);
        if (peak.prominence < limits.prominence) continue;
        if (limits.needsWidth) {
            const double height = peak.height - peak.prominence * 0.5;
            peak.width = Crossing(values, peak.position, bases[i].right, 1, height) -
                         Crossing(values, peak.position, bases[i].left, -1, height);
            if (peak.width < limits.width) continue;
        }
        found.push_back(peak);
    }
    return found;
}

}  // namespace tc
