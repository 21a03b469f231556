#include "host/SourcePace.h"

#include <algorithm>
#include <cmath>

namespace host {
namespace {

constexpr double LONGEST_STEP = 100.0;  // ms, in which an interrupt is noticed
constexpr double MOST_STEPS = 1e15;

}  // namespace

void SourcePace::Wait(const std::atomic<bool>* interrupt) {
    if (signal > 0.0 && steps == 0) return;
    for (; steps > 0; --steps) {
        if (interrupt != nullptr && *interrupt) return;
        wait.Wait(TCWaitPeriodic::FIXED_GRID, false);
    }
    if (signal > 0.0) intervals.Stop();
    intervals.Start();
}

void SourcePace::HasMade(double milliseconds) {
    const double made = milliseconds - signal;
    if (!(made > 0.0)) return;
    steps = static_cast<std::int64_t>(std::clamp(std::ceil(made / LONGEST_STEP), 1.0, MOST_STEPS));
    const double period = std::min(made / static_cast<double>(steps), LONGEST_STEP);
    if (signal == 0.0)
        wait.Start(period);
    else
        wait.SetWaitTime(period);
    signal = milliseconds;
}

}  // namespace host
