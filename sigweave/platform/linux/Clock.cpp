#include "sigweave/platform/Clock.h"

#include <pthread.h>
#include <sched.h>
#include <time.h>

#include "sigweave/platform/Event.h"

namespace tc {

namespace {
constexpr std::int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr double NANOSECONDS_PER_MILLISECOND = 1e6;

timespec Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now;
}
}  // namespace

std::int64_t PerformanceCounter() {
    const timespec now = Now(CLOCK_MONOTONIC);
    return now.tv_sec * NANOSECONDS_PER_SECOND + now.tv_nsec;
}

std::int64_t PerformanceFrequency() {
    return NANOSECONDS_PER_SECOND;
}

Clock::~Clock() = default;

int Clock::WaitForAny(std::span<void* const> handles, double milliseconds) {
    return WaitForAnyHandle(handles, milliseconds - Milliseconds());
}

namespace {

class Machine final : public Clock {
 public:
    double Milliseconds() override {
        return static_cast<double>(PerformanceCounter()) / NANOSECONDS_PER_MILLISECOND;
    }
    bool WaitUntil(double milliseconds, void* stop) override {
        void* const handles[] = {stop};
        const std::span<void* const> awaited(handles, stop != nullptr ? 1 : 0);
        for (double rest; (rest = milliseconds - Milliseconds()) > 0.0;)
            if (WaitForAnyHandle(awaited, rest) >= 0) return false;
        return true;
    }
};

}  // namespace

Clock& MachineClock() {
    static Machine clock;
    return clock;
}

double WallClockMilliseconds() {
    const timespec now = Now(CLOCK_REALTIME);
    return static_cast<double>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000);
}

TimeCriticalThread::TimeCriticalThread() {
    sched_param before{};
    if (pthread_getschedparam(pthread_self(), &policy, &before) != 0) return;
    priority = before.sched_priority;
    const sched_param highest{sched_get_priority_max(SCHED_FIFO)};
    raised = pthread_setschedparam(pthread_self(), SCHED_FIFO, &highest) == 0;
}

TimeCriticalThread::~TimeCriticalThread() {
    const sched_param before{priority};
    if (raised) pthread_setschedparam(pthread_self(), policy, &before);
}

}  // namespace tc
