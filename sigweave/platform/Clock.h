#pragma once

#include <cstdint>
#include <span>

#include "sigweave/platform/Export.h"

// The two clocks of the machine. Any thread.
namespace tc {

// Ticks of the performance counter: monotonic, never set, of no particular origin.
TC_API std::int64_t PerformanceCounter();
// Ticks per second. Constant while the process lives.
TC_API std::int64_t PerformanceFrequency();

// The wall clock in whole milliseconds since 1970-01-01 00:00 UTC. It may be set at any time.
TC_API double WallClockMilliseconds();

// A clock that is handed to what waits by it, so that a test can move the time by hand. The machine's may be
// used by any thread.
class TC_API Clock {
 public:
    virtual ~Clock();
    // Monotonic, of no particular origin.
    virtual double Milliseconds() = 0;
    // Waits until it is that time, infinity included; false when the handle (see Event.h; null: none) is
    // signalled before.
    virtual bool WaitUntil(double milliseconds, void* stop) = 0;
    // Waits until one of the handles is signalled (its position) or it is that time, infinity included (-1).
    virtual int WaitForAny(std::span<void* const> handles, double milliseconds);
};

// The performance counter. It lives as long as the process.
TC_API Clock& MachineClock();

// While it lives, the thread that made it runs at time-critical priority, as far as the system permits that;
// then the previous priority is back.
class TC_API TimeCriticalThread {
 public:
    TimeCriticalThread();
    ~TimeCriticalThread();
    TimeCriticalThread(const TimeCriticalThread&) = delete;
    TimeCriticalThread& operator=(const TimeCriticalThread&) = delete;

 private:
    int policy = 0;
    int priority = 0;
    bool raised = false;
};

}  // namespace tc
