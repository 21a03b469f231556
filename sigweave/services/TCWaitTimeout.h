#pragma once

#include "sigweave/services/TCExactTimeDiff.h"

// Waits in steps, or for an event, until a time-out has passed since the clock was last started. Times in
// milliseconds. A time-out that is zero, negative or not a number has passed at once, an infinite one never
// does. Use one object on one thread at a time.
//
// An event is the handle of a `tc::Event`, which must outlive the waits.
class TC_API TCWaitTimeout : public TCExactTimeDiff {
 public:
    // The constructors start the clock. Without a time-out it has passed.
    TCWaitTimeout();
    TCWaitTimeout(const double& timeoutMs, int sleepStepMs);
    // Resets the event, too.
    TCWaitTimeout(const double& timeoutMs, void* event);

    // Starts the clock again.
    void Set(const double& timeoutMs);

    double GetExpired() const { return GetTimeDiff(); }
    double GetTimeout() const { return timeout; }
    // Nothing is left when the clock does not run.
    double GetRest() const { return Running() ? timeout - GetExpired() : 0.0; }

    // False when the time-out has passed; else sleeps for `ms` (-1: one step), but not beyond the whole
    // milliseconds of the rest.
    bool Sleep(int ms) const;
    // True when the handle was signalled within the whole milliseconds of the rest. Null means the event of
    // the constructor. Without either, and when the time-out has passed, false at once: there is no wait.
    // `result` (may be null) takes a `tc::WaitResult` when there was one, and is unchanged otherwise.
    bool Wait(void* handle, unsigned long* result);

 private:
    double timeout = 0.0;
    int sleepStep = 1;
    void* event = nullptr;
};
