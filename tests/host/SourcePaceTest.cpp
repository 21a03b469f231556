#include <gtest/gtest.h>

#include <atomic>

#include "host/SourcePace.h"

TEST(SourcePace, WaitsOnceForEachBlock) {
    std::atomic<bool> interrupt = false;
    host::SourcePace pace;
    pace.Wait(&interrupt);
    pace.Wait(&interrupt);
    pace.HasMade(20);
    EXPECT_EQ(pace.Intervals().GetCount(), 0) << "no block was due yet";
    pace.HasMade(20);
    for (int i = 0; i < 3; ++i) pace.Wait(&interrupt);
    EXPECT_EQ(pace.Intervals().GetCount(), 1) << "it made nothing that the others could wait for";
    EXPECT_GE(pace.Intervals().GetSum(), 19.9);
    pace.HasMade(2e9);
    interrupt = true;
    pace.Wait(&interrupt);
    EXPECT_EQ(pace.Intervals().GetCount(), 1);
    EXPECT_EQ(pace.SignalMade(), 2e9);
}
