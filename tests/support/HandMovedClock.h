#pragma once

#include <algorithm>
#include <cmath>

#include "sigweave/platform/Clock.h"
#include "sigweave/platform/Event.h"

// Time passes only where a test or a wait says so; no wait takes any.
class HandMovedClock final : public tc::Clock {
 public:
    double Milliseconds() override { return now; }
    bool WaitUntil(double milliseconds, void* stop) override {
        if (stop != nullptr && tc::WaitForHandle(stop, 0.0) == tc::WAIT_SIGNALLED) return false;
        if (std::isfinite(milliseconds)) now = std::max(now, milliseconds);
        return true;
    }
    void Move(double milliseconds) { now += milliseconds; }

 private:
    double now = 1e6;
};
