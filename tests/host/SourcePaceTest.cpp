#include <gtest/gtest.h>

#include <limits>

#include "host/SourcePace.h"
#include "tests/support/HandMovedClock.h"

namespace {

TEST(SourcePace, WaitsOnceForEachBlockByItsPlaceInTheSignal) {
    HandMovedClock clock;
    host::SourcePace pace(clock);
    const double begin = clock.Milliseconds();
    pace.Wait(nullptr);
    clock.Move(3);  // that the first block took
    pace.HasMade(20);
    pace.HasMade(20);
    EXPECT_EQ(pace.GetIntervals().Count(), 0) << "no block was due yet";
    for (int i = 0; i < 3; ++i) pace.Wait(nullptr);
    EXPECT_EQ(clock.Milliseconds(), begin + 23) << "it made nothing that the others could wait for";
    clock.Move(50);  // late
    pace.HasMade(30);
    pace.Wait(nullptr);
    EXPECT_EQ(clock.Milliseconds(), begin + 73) << "due already";
    pace.HasMade(90);
    pace.Wait(nullptr);
    EXPECT_EQ(clock.Milliseconds(), begin + 93) << "what was late does not add up";
    EXPECT_EQ(pace.GetIntervals().Count(), 3);  // 23, 50 and 20 ms
    EXPECT_DOUBLE_EQ(pace.GetIntervals().Average(), 31.0);
    EXPECT_EQ(pace.GetIntervals().Maximum(), 50.0);
    EXPECT_NEAR(pace.GetIntervals().StandardDeviation(), std::sqrt((64.0 + 361.0 + 121.0) / 3.0), 1e-12);
}

TEST(SourcePace, EndsAWaitThatIsInterrupted) {
    HandMovedClock clock;
    tc::Event stop;
    host::SourcePace pace(clock);
    pace.Wait(stop.GetHandle());
    pace.HasMade(std::numeric_limits<double>::infinity());
    stop.Set();
    pace.Wait(stop.GetHandle());
    EXPECT_EQ(pace.GetIntervals().Count(), 0);
}

}  // namespace
