#pragma once

#include <cstdint>

#include "sigweave/platform/Export.h"

// Measures one interval with the performance counter. Times in milliseconds. Use one object on one thread at
// a time.
class TC_API TCExactTimeDiff {
 public:
    void Start();
    // Forgets the start.
    virtual void Reset();
    bool Running() const { return start != 0; }
    // Since the start; 0 when there was none.
    double GetTimeDiff() const;

 protected:
    std::int64_t start = 0;  // counter value; 0: not running
};

// Measures many intervals, each from a `Start` to the next `Stop`, and keeps their statistics, among others
// the jitter of a loop. The average and the deviation are 0 before the first interval.
class TC_API TCExactTimeDiffPeriodic : public TCExactTimeDiff {
 public:
    // Ends the interval and counts it; without a start, one of 0.
    void Stop();
    // Forgets all intervals.
    void Reset() override;

    double GetSum() const { return sum; }
    int GetCount() const { return count; }
    double GetAvr() const { return average; }
    double GetMax() const { return maximum; }
    // The standard deviation. It is estimated on the way, each interval against the average of its moment.
    double GetStabw() const;

 private:
    int count = 0;
    double maximum = 0.0;
    double sum = 0.0;
    double average = 0.0;
    double variance = 0.0;  // ms^2
};

// Keeps the processor busy until at least that many milliseconds have passed; answers how many did. Nothing
// is waited for when `ms` is negative or not finite.
TC_API double TCBusyWaiting(double ms);
