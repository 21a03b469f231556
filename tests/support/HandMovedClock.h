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
    int WaitForAny(std::span<void* const> handles, double milliseconds) override {
        const int found = tc::WaitForAnyHandle(handles, std::isfinite(milliseconds) ? 0.0 : INFINITY);
        if (found < 0 && std::isfinite(milliseconds)) now = std::max(now, milliseconds);
        return found;
    }
    void Move(double milliseconds) { now += milliseconds; }

 private:
    double now = 1e6;
};
