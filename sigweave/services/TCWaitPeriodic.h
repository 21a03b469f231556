#pragma once

#include <cstdint>
#include <memory>

#include "sigweave/platform/Export.h"

namespace tc {
class WaitableTimer;
}

// Paces a loop: each `Wait` returns when the next period is due. Times in milliseconds. Use one object on one
// thread at a time.
//
//     TCWaitPeriodic pace(10);
//     while (Measure()) pace.Wait(TCWaitPeriodic::FIXED_GRID, false);
class TC_API TCWaitPeriodic {
 public:
    enum MODE : int {
        FIXED_GRID = 0,  // the periods count from the first start: a late one is made up for
        FROM_NOW = 1     // the next period counts from the return of the wait: what was late stays late
    };

    // The period is 1 ms.
    TCWaitPeriodic();
    explicit TCWaitPeriodic(double periodMs);
    ~TCWaitPeriodic();
    TCWaitPeriodic(const TCWaitPeriodic&) = delete;
    TCWaitPeriodic& operator=(const TCWaitPeriodic&) = delete;

    // A period counts from the next due time on. Only a positive one replaces what was set; an infinite one
    // never ends.
    void SetWaitTime(double periodMs);
    // The first period begins now; its length as for SetWaitTime. Answers the performance counter's value.
    std::int64_t Start(double periodMs);
    // Waits for the end of the period; starts first where nothing was started. `exact` keeps the processor
    // busy for the last 0.4 ms, and returns within microseconds of the due time. Answers how long it took: 0
    // or little when the period has already ended.
    double Wait(MODE mode, bool exact);
    // The next wait starts anew.
    void Stop();

 private:
    std::unique_ptr<tc::WaitableTimer> timer;
    std::int64_t due = 0;  // counter value; 0: not started
    double ticksPerMs;
    double period = 1.0;
};
