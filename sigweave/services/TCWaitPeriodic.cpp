#include "sigweave/services/TCWaitPeriodic.h"

#include <limits>

#include "sigweave/platform/Clock.h"
#include "sigweave/platform/WaitableTimer.h"

namespace {

constexpr double TIMER_TICKS_PER_MS = 10'000;
constexpr double SPIN_MS = 0.4;

// Saturates: a period may be longer than the counter can count.
std::int64_t Later(std::int64_t counter, double ticks) {
    constexpr std::int64_t LAST = std::numeric_limits<std::int64_t>::max();
    if (ticks >= static_cast<double>(LAST - counter)) return LAST;
    return counter + static_cast<std::int64_t>(ticks);
}

}  // namespace

TCWaitPeriodic::TCWaitPeriodic() : ticksPerMs(static_cast<double>(tc::PerformanceFrequency()) / 1000) {}

TCWaitPeriodic::TCWaitPeriodic(double periodMs) : TCWaitPeriodic() {
    SetWaitTime(periodMs);
}

TCWaitPeriodic::~TCWaitPeriodic() = default;

void TCWaitPeriodic::SetWaitTime(double periodMs) {
    if (periodMs > 0) period = periodMs;
}

std::int64_t TCWaitPeriodic::Start(double periodMs) {
    SetWaitTime(periodMs);
    if (timer == nullptr) {
        timer = std::make_unique<tc::WaitableTimer>();
        timer->WaitFor(1);  // so that the first real wait does not pay the set-up
    }
    const std::int64_t now = tc::PerformanceCounter();
    due = Later(now, period * ticksPerMs);
    return now;
}

double TCWaitPeriodic::Wait(MODE mode, bool exact) {
    const std::int64_t begin = tc::PerformanceCounter();
    if (timer == nullptr || due == 0) Start(-1);
    const auto rest = static_cast<double>(due - tc::PerformanceCounter()) / ticksPerMs;
    if (rest > 0) {
        const double timed = exact ? rest - SPIN_MS : rest;
        if (timed > 0) timer->WaitFor(static_cast<std::int64_t>(timed * TIMER_TICKS_PER_MS));
        while (exact && tc::PerformanceCounter() < due) continue;
    }
    const std::int64_t now = tc::PerformanceCounter();
    due = Later(mode == FROM_NOW ? now : due, period * ticksPerMs);
    return static_cast<double>(now - begin) / ticksPerMs;
}

void TCWaitPeriodic::Stop() {
    timer.reset();
    due = 0;
}
