#include <gtest/gtest.h>

#include <chrono>

#include "sigweave/services/SystemTime.h"

namespace {

double WallClock() {
    using Milliseconds = std::chrono::duration<double, std::milli>;
    return Milliseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

TEST(SystemTime, StartsAtTheWallClockAndNeverRunsBackwards) {
    const double before = WallClock();
    double last = TCSystemTime();
    const double after = WallClock();
    EXPECT_GE(last, before - 1);
    EXPECT_LE(last, after + 1);
    int steps = 0;
    for (int i = 0; i < 100000; ++i) {
        const double now = TCSystemTime();
        ASSERT_GE(now, last);
        steps += now > last && now < last + 0.1;
        last = now;
    }
    EXPECT_GT(steps, 100) << "finer than a millisecond";
}

}  // namespace
