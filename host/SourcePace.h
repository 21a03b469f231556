#pragma once

#include <atomic>
#include <cstdint>

#include "sigweave/services/TCExactTimeDiff.h"
#include "sigweave/services/TCWaitPeriodic.h"

namespace host {

// Makes a source work as fast as its signal runs: a block that covers 10 ms is followed by the next 10 ms
// later. Blocks are on a grid from the first one on, so that what was late does not add up.
class SourcePace {
 public:
    // Before the source makes a block. Ends early, and counts no interval, when the interrupt (may be null)
    // is set.
    void Wait(const std::atomic<bool>* interrupt);
    // After it: how many it has made in all, and how long the signal of the last one is.
    void HasMade(std::int64_t blocks, double blockMilliseconds);

    // How much signal there is, in milliseconds: of several sources the one with the least is due next.
    double SignalMade() const { return signal; }
    // From block to block.
    const TCExactTimeDiffPeriodic& Intervals() const { return intervals; }

 private:
    TCWaitPeriodic wait;
    TCExactTimeDiffPeriodic intervals;
    std::int64_t counted = 0;
    std::int64_t steps = 1;  // of the wait for a block
    double signal = 0.0;
};

}  // namespace host
