#include "host/SourcePace.h"

namespace host {

void SourcePace::Wait() {
    if (signal > 0.0) wait.Wait(TCWaitPeriodic::FIXED_GRID, false);
    intervals.Stop();
    intervals.Start();
}

void SourcePace::HasMade(std::int64_t blocks, double blockMilliseconds) {
    const double made = static_cast<double>(blocks - counted) * blockMilliseconds;
    if (signal == 0.0)
        wait.Start(made);
    else
        wait.SetWaitTime(made);
    counted = blocks;
    signal += made;
}

}  // namespace host
