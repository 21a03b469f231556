#include "sigweave/services/SystemTime.h"

#include <cstdint>

#include "sigweave/platform/Clock.h"

namespace {

struct Anchor {
    double milliseconds;
    std::int64_t counter;
};

// At time-critical priority, so that nothing comes between the two readings.
Anchor TakeAnchor() {
    const tc::TimeCriticalThread urgent;
    const double milliseconds = tc::WallClockMilliseconds();
    return {milliseconds, tc::PerformanceCounter()};
}

}  // namespace

double TCSystemTime() {
    static const Anchor anchor = TakeAnchor();
    static const double frequency = static_cast<double>(tc::PerformanceFrequency());
    return anchor.milliseconds +
           static_cast<double>(tc::PerformanceCounter() - anchor.counter) * 1000.0 / frequency;
}
