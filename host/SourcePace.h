#pragma once

#include <cstdint>

#include "sigweave/services/TCExactTimeDiff.h"
#include "sigweave/services/TCWaitPeriodic.h"

namespace host {

// Makes a source work as fast as its signal runs: a block that covers 10 ms is followed by the next 10 ms
// later. Blocks are on a grid from the first one on, so that what was late does not add up. Where their
// length changes, the grid follows one block later.
class SourcePace {
 public:
    // Before the source makes a block.
    void Wait();
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
    double signal = 0.0;
};

}  // namespace host
