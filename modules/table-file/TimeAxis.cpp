#include "modules/table-file/TimeAxis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace tc {

namespace {

constexpr int MOST_DIGITS = 15;

double Rounded(double value, int digits) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*e", digits - 1, value);
    return std::strtod(text, nullptr);
}

// The fewest digits with which `rate(digits)` fits, MOST_DIGITS + 1 when none does.
template <class Rate>
int FewestDigits(double periods, double span, double doubt, Rate rate) {
    int digits = 1;
    while (digits <= MOST_DIGITS && !(std::fabs(span - periods / rate(digits)) <= doubt)) ++digits;
    return digits;
}

constexpr double MANY = 10.0;         // periods: what begins anew after so many need not fit the times before
constexpr double NEARLY_WHOLE = 0.1;  // periods

// The longest part without a step that is too long to be one of the usual ones, rounded.
std::span<const double> LongestRun(std::span<const double> times, double resolution) {
    std::vector<double> steps;
    for (std::size_t i = 1; i < times.size(); ++i) steps.push_back(times[i] - times[i - 1]);
    std::vector<double> sorted = steps;
    std::ranges::sort(sorted);
    const double longest = 1.5 * sorted[sorted.size() / 2] + 2.0 * resolution;
    std::span<const double> run;
    for (std::size_t begin = 0, i = 0; i <= steps.size(); ++i) {
        if (i < steps.size() && steps[i] < longest) continue;
        if (i + 1 - begin > run.size()) run = times.subspan(begin, i + 1 - begin);
        begin = i + 1;
    }
    return run.size() > 1 ? run : times;
}

// The step between times that are written exactly: all steps but gaps and steps back are the same. 0 when
// they are not.
double ExactStep(std::span<const double> times) {
    std::vector<double> steps;
    for (std::size_t i = 1; i < times.size(); ++i) steps.push_back(times[i] - times[i - 1]);
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::ranges::nth_element(steps, middle);
    const double step = *middle;
    const double doubt = 1e-6 * step + 1e-15 * std::fabs(times.back());
    const bool isExact = std::ranges::all_of(steps, [&](double each) {
        return std::fabs(each - step) <= doubt || each >= 1.5 * step || each <= -0.5 * step;
    });
    return isExact ? step : 0.0;
}

}  // namespace

bool TimeAxis::Learn(std::span<const double> all, double resolution) {
    const std::span<const double> times = ExactStep(all) > 0.0 ? all : LongestRun(all, resolution);
    double span = times.back() - times.front();
    double periods = static_cast<double>(times.size() - 1);
    double doubt = resolution;
    if (const double step = ExactStep(times); step > 0.0) {
        if (std::fabs(span - periods * step) > 0.5 * step) span = periods * step;
        doubt = 1e-9 * step;
    }
    if (!(span > 0.0) || !std::isfinite(periods / span)) return false;
    doubt = std::max(doubt, 1e-15 * std::fabs(times.back()));
    const auto direct = [&](int digits) { return Rounded(periods / span, digits); };
    const auto inverse = [&](int digits) { return 1.0 / Rounded(span / periods, digits); };
    const int ofRate = FewestDigits(periods, span, doubt, direct);
    const int ofPeriod = FewestDigits(periods, span, doubt, inverse);
    double known = periods / span;
    if (std::min(ofRate, ofPeriod) <= MOST_DIGITS)
        known = ofRate <= ofPeriod + 1 ? direct(ofRate) : inverse(ofPeriod);
    Learn(times, doubt, known);
    return true;
}

void TimeAxis::Learn(std::span<const double> times, double resolution, double known) {
    rate = known;
    learned = static_cast<double>(std::max<std::size_t>(times.size(), 1));
    worst = 0.0;
    for (std::size_t i = 0; i < times.size(); ++i) {
        const double apart = std::fabs(times[i] - times.front() - static_cast<double>(i) / rate);
        if (apart <= resolution) worst = std::max(worst, apart);
    }
    position = 0;
}

bool TimeAxis::IsGap(double apart) const {
    const double periods = apart * rate;
    const double whole = std::round(periods);
    return periods >= MANY || (whole >= 1.0 && std::fabs(periods - whole) <= NEARLY_WHOLE + Doubt() * rate);
}

std::int64_t TimeAxis::Missing(double time) const {
    constexpr double MOST = 1e15;
    return std::llround(std::clamp((time - Expected()) * rate, 1.0, MOST));
}

double TimeAxis::MissingSeconds(double time) const {
    const auto missing = static_cast<double>(Missing(time));
    const double apart = time - Expected();
    return std::fabs(apart * rate - missing) <= NEARLY_WHOLE + Doubt() * rate ? missing / rate : apart;
}

}  // namespace tc
