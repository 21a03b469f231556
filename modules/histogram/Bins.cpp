#include "modules/histogram/Bins.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tc {

Bins::Bins(double from, double to, int count) : counts(static_cast<std::size_t>(count)) {
    const double width = (to - from) / count;
    for (int i = 0; i < count; ++i) edges.push_back(from + i * width);
    edges.push_back(to);
    perValue = count / (to - from);
}

void Bins::Add(std::span<const double> values) {
    for (const double value : values) {
        if (!std::isfinite(value)) {
            ++notFinite;
        } else if (value < edges.front()) {
            ++below;
        } else if (value > edges.back()) {
            ++above;
        } else {
            ++counts[Find(value)];
            ++inside;
        }
    }
}

// The edges decide; the quotient may be off by a rounding.
std::size_t Bins::Find(double value) const {
    const std::size_t last = counts.size() - 1;
    const double place = (value - edges.front()) * perValue;
    std::size_t bin = place < static_cast<double>(last) ? static_cast<std::size_t>(place) : last;
    if (value < edges[bin]) --bin;
    if (bin < last && value >= edges[bin + 1]) ++bin;
    return bin;
}

void FindEnds(std::span<const double> values, double& from, double& to) {
    from = std::numeric_limits<double>::infinity();
    to = -from;
    for (const double value : values) {
        if (!std::isfinite(value)) continue;
        from = std::min(from, value);
        to = std::max(to, value);
    }
    if (from > to) from = 0.0, to = 1.0;
    if (from == to) from -= 0.5, to += 0.5;
}

namespace {

// Between two values in proportion.
double Quantile(std::vector<double>& values, double share) {
    const double place = share * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(below);
    std::nth_element(values.begin(), at, values.end());
    const double lower = *at;
    if (below + 1 == values.size()) return lower;
    const double upper = *std::min_element(at + 1, values.end());
    return lower + (place - static_cast<double>(below)) * (upper - lower);
}

}  // namespace

int SuitableBins(std::vector<double>& values, double from, double to, int most) {
    std::erase_if(values, [&](double value) { return !(value >= from && value <= to); });
    if (values.empty()) return 1;
    const auto count = static_cast<double>(values.size());
    const auto [least, greatest] = std::minmax_element(values.begin(), values.end());
    double width = (*greatest - *least) / (std::log2(count) + 1.0);
    const double quartiles = Quantile(values, 0.75) - Quantile(values, 0.25);
    const double byQuartiles = 2.0 * quartiles / std::cbrt(count);
    if (byQuartiles > 0.0) width = std::min(width, byQuartiles);
    if (!(width > 0.0)) return 1;
    return static_cast<int>(std::clamp(std::ceil((to - from) / width), 1.0, static_cast<double>(most)));
}

}  // namespace tc
