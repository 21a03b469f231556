#include "sigweave/services/TCExactTimeDiff.h"

#include <algorithm>
#include <cmath>

#include "sigweave/platform/Clock.h"

void TCExactTimeDiff::Start() {
    start = tc::PerformanceCounter();
}

void TCExactTimeDiff::Reset() {
    start = 0;
}

double TCExactTimeDiff::GetTimeDiff() const {
    if (!Running()) return 0;
    return static_cast<double>(tc::PerformanceCounter() - start) * 1000 /
           static_cast<double>(tc::PerformanceFrequency());
}

void TCExactTimeDiffPeriodic::Stop() {
    const double interval = GetTimeDiff();
    TCExactTimeDiff::Reset();
    ++count;
    sum += interval;
    maximum = std::max(maximum, interval);
    average = sum / count;
    const double share = 1.0 / count;
    const double deviation = interval - average;
    variance = (1 - share) * variance + deviation * deviation * share;
}

void TCExactTimeDiffPeriodic::Reset() {
    *this = TCExactTimeDiffPeriodic();
}

double TCExactTimeDiffPeriodic::GetStabw() const {
    return std::sqrt(variance);
}

double TCBusyWaiting(double ms) {
    TCExactTimeDiff clock;
    clock.Start();
    double passed = 0;
    do {
        passed = clock.GetTimeDiff();
    } while (passed < ms && std::isfinite(ms));
    return passed;
}
