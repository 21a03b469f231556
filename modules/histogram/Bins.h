#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tc {

// Counts values in bins of equal width between two ends. A bin contains its lower edge and not its upper one,
// the last one both.
class Bins {
 public:
    Bins() = default;
    // `to` must be above `from`, both finite; at least one bin.
    Bins(double from, double to, int count);

    // Values below and above, and those that are not finite, are counted apart.
    void Add(std::span<const double> values);

    const std::vector<double>& Edges() const { return edges; }  // one more than bins
    const std::vector<std::int64_t>& Counts() const { return counts; }
    std::int64_t Inside() const { return inside; }
    std::int64_t Below() const { return below; }
    std::int64_t Above() const { return above; }
    std::int64_t NotFinite() const { return notFinite; }

 private:
    std::size_t Find(double value) const;

    std::vector<double> edges;
    std::vector<std::int64_t> counts;
    double perValue = 0.0;
    std::int64_t inside = 0;
    std::int64_t below = 0;
    std::int64_t above = 0;
    std::int64_t notFinite = 0;
};

// The ends of what is finite in the values, moved apart by 1 where they are the same; 0 to 1 without any.
void FindEnds(std::span<const double> values, double& from, double& to);

// How many bins suit the values between the ends: the smaller width of that by Sturges, span / (lb n + 1),
// and that by Freedman and Diaconis, 2 IQR / cbrt(n), unless that is 0. At most `most`. Changes the order of
// the values.
int SuitableBins(std::vector<double>& values, double from, double to, int most);

}  // namespace tc
