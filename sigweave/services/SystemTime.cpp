#include "sigweave/services/SystemTime.h"

#include <atomic>
#include <cstdint>

#include "sigweave/platform/Clock.h"

namespace {

struct Anchor {
    double milliseconds;
    std::int64_t counter;
    double millisecondsPerTick;
};

std::atomic<const Anchor*> anchor = nullptr;

// At time-critical priority, so that nothing comes between the two readings.
Anchor ReadClocks() {
    const tc::TimeCriticalThread urgent;
    const double milliseconds = tc::WallClockMilliseconds();
    return {milliseconds, tc::PerformanceCounter(), 1000.0 / static_cast<double>(tc::PerformanceFrequency())};
}

double TakeAnchor() {
    static const Anchor taken = ReadClocks();
    anchor.store(&taken, std::memory_order_release);
    return taken.milliseconds;
}

}  // namespace

double TCSystemTime() {
    const std::int64_t now = tc::PerformanceCounter();
    const Anchor* const taken = anchor.load(std::memory_order_acquire);
    if (taken == nullptr) return TakeAnchor();
    return taken->milliseconds + static_cast<double>(now - taken->counter) * taken->millisecondsPerTick;
}
