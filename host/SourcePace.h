#pragma once

#include "sigweave/platform/Clock.h"

namespace host {

// The times from one block to the next, in milliseconds; all 0 before the first one.
class Intervals {
 public:
    void Add(double milliseconds);
    int Count() const { return count; }
    double Average() const { return average; }
    double Maximum() const { return maximum; }
    double StandardDeviation() const;

 private:
    int count = 0;
    double average = 0.0;
    double maximum = 0.0;
    double squares = 0.0;  // the sum of the squared distances from the average
};

// Makes a source work as fast as its signal runs: a block that covers 10 ms is followed by the next one 10 ms
// later. Each is due at its place in the signal, counted from the first block, so that what was late does not
// add up.
class SourcePace {
 public:
    // The clock must outlive it.
    explicit SourcePace(tc::Clock& runClock) : clock(runClock) {}

    // Before the source makes a block; where it made none since the last wait, there is nothing to wait for.
    // Ends early, and counts no interval, when the handle (null: none) is signalled.
    void Wait(void* stop);
    // After it: how much signal it has made in all. What is not more than before counts for nothing.
    void HasMade(double milliseconds);

    double SignalMade() const { return signal; }
    // From block to block.
    const Intervals& GetIntervals() const { return intervals; }

 private:
    tc::Clock& clock;
    Intervals intervals;
    double origin = 0.0;    // when the first block was there
    double previous = 0.0;  // when the wait before ended
    double signal = 0.0;
    bool isNew = false;  // a block was made since the wait before
};

}  // namespace host
