#pragma once

#include <atomic>
#include <cstdint>

#include "sigweave/services/TCExactTimeDiff.h"
#include "sigweave/services/TCWaitPeriodic.h"

namespace host {

// Makes a source work as fast as its signal runs: a block that covers 10 ms is followed by the next 10 ms
// later. Blocks are on a grid from the first one on, so that what was late does not add up. Where their
// length changes, they may leave the grid by up to 100 ms, which does not add up either.
class SourcePace {
 public:
    // Before the source makes a block; where it made none since the last wait, there is nothing to wait for.
    // Ends early, and counts no interval, when the interrupt (may be null) is set.
    void Wait(const std::atomic<bool>* interrupt);
    // After it: how much signal it has made in all. What is not more than before counts for nothing.
    void HasMade(double milliseconds);

    // In milliseconds: of several sources the one with the least is due next.
    double SignalMade() const { return signal; }
    // From block to block.
    const TCExactTimeDiffPeriodic& Intervals() const { return intervals; }

 private:
    TCWaitPeriodic wait;
    TCExactTimeDiffPeriodic intervals;
    std::int64_t steps = 0;  // of the wait for the next block
    double signal = 0.0;
};

}  // namespace host
