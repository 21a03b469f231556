#pragma once

#include <cstdint>

namespace tc {

// Wakes the thread that waits for it. Where the system has no timer left, the waits are plain sleeps.
class WaitableTimer {
 public:
    WaitableTimer();
    ~WaitableTimer();
    WaitableTimer(const WaitableTimer&) = delete;
    WaitableTimer& operator=(const WaitableTimer&) = delete;

    // Arms the timer and waits for it. Steps of 100 ns; nothing to wait for when not positive.
    void WaitFor(std::int64_t hundredNanoseconds);

 private:
    int descriptor;
};

}  // namespace tc
