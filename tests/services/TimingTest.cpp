#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

#include "sigweave/platform/Event.h"
#include "sigweave/services/TCExactTimeDiff.h"
#include "sigweave/services/TCWaitPeriodic.h"
#include "sigweave/services/TCWaitTimeout.h"

// Other work may delay every wait here: only what such a delay cannot break is expected.

namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

TEST(ExactTimeDiff, MeasuresFromItsStart) {
    TCExactTimeDiff clock;
    EXPECT_FALSE(clock.Running());
    EXPECT_EQ(clock.GetTimeDiff(), 0);
    clock.Start();
    const double waited = TCBusyWaiting(2);
    EXPECT_GE(waited, 2);
    EXPECT_GE(clock.GetTimeDiff(), waited);
    clock.Reset();
    EXPECT_FALSE(clock.Running());
    for (const double none : {0.0, -1.0, INFINITE, NOT_A_NUMBER}) EXPECT_LT(TCBusyWaiting(none), 1000);
}

TEST(ExactTimeDiff, KeepsRunningStatistics) {
    TCExactTimeDiffPeriodic clock;
    clock.Stop();
    EXPECT_EQ(clock.GetCount(), 1) << "counts without a start, too";
    EXPECT_EQ(clock.GetSum() + clock.GetStabw(), 0);
    clock.Reset();
    double sum = 0;
    double maximum = 0;
    double variance = 0;
    for (int i = 1; i <= 3; ++i) {
        clock.Start();
        TCBusyWaiting(i);
        clock.Stop();
        const double interval = clock.GetSum() - sum;
        EXPECT_GE(interval, i);
        sum = clock.GetSum();
        maximum = std::max(maximum, interval);
        const double deviation = interval - sum / i;
        variance = variance * (i - 1) / i + deviation * deviation / i;
    }
    EXPECT_EQ(clock.GetCount(), 3);
    EXPECT_FALSE(clock.Running());
    EXPECT_DOUBLE_EQ(clock.GetAvr(), sum / 3);
    EXPECT_NEAR(clock.GetMax(), maximum, 1e-9);
    EXPECT_NEAR(clock.GetStabw(), std::sqrt(variance), 1e-6);
    clock.Reset();
    EXPECT_EQ(clock.GetCount() + clock.GetSum() + clock.GetMax() + clock.GetAvr() + clock.GetStabw(), 0);
}

TEST(WaitTimeout, SleepsInStepsUntilItHasPassed) {
    TCWaitTimeout timeout(35.0, 10);
    int steps = 0;
    while (timeout.Sleep(-1)) ++steps;
    EXPECT_GE(timeout.GetExpired(), 35);
    EXPECT_LE(timeout.GetRest(), 0);
    EXPECT_GE(steps, 1);
    EXPECT_FALSE(timeout.Sleep(10));
    timeout.Set(1e6);
    EXPECT_EQ(timeout.GetTimeout(), 1e6);
    EXPECT_TRUE(timeout.Sleep(0));
    EXPECT_TRUE(timeout.Sleep(-7));
    const double rest = timeout.GetRest();
    EXPECT_TRUE(timeout.Sleep(-1));
    EXPECT_GE(rest - timeout.GetRest(), 9.9) << "a step of the constructor's length";
}

TEST(WaitTimeout, EndsAtOnceWhenThereIsNoTime) {
    tc::Event event;
    event.Set();
    unsigned long result = 7;
    for (const double none : {0.0, -1.0, -INFINITE, NOT_A_NUMBER}) {
        TCWaitTimeout timeout(none, 10);
        EXPECT_FALSE(timeout.Sleep(-1)) << none;
        EXPECT_FALSE(timeout.Wait(event.GetHandle(), &result)) << none;
    }
    EXPECT_FALSE(TCWaitTimeout().Sleep(-1));
    TCWaitTimeout stopped(INFINITE, 10);
    stopped.Reset();
    EXPECT_FALSE(stopped.Sleep(-1)) << "no clock runs that could end the wait";
    EXPECT_FALSE(TCWaitTimeout(10.0, 1).Wait(nullptr, &result)) << "no event";
    EXPECT_EQ(result, 7u);
}

TEST(WaitTimeout, WaitsForItsEvent) {
    tc::Event event;
    event.Set();
    unsigned long result = 7;
    TCWaitTimeout reset(3.0, event.GetHandle());
    EXPECT_FALSE(reset.Wait(nullptr, &result)) << "the constructor resets";
    EXPECT_EQ(result, tc::WAIT_TIMED_OUT);
    TCWaitTimeout endless(INFINITE, event.GetHandle());
    EXPECT_TRUE(endless.Sleep(1));
    std::thread setter([&event] { event.Set(); });
    EXPECT_TRUE(endless.Wait(nullptr, &result));
    EXPECT_EQ(result, tc::WAIT_SIGNALLED);
    EXPECT_TRUE(endless.Wait(event.GetHandle(), nullptr)) << "it stays set";
    setter.join();
    EXPECT_FALSE(endless.Wait(reinterpret_cast<void*>(999999), &result));
    EXPECT_EQ(result, tc::WAIT_FAILED);
}

// How long three waits took that follow an overrun of three periods of 20 ms.
double AfterOverrun(TCWaitPeriodic::MODE mode, bool exact) {
    TCWaitPeriodic pace(20);
    pace.Start(-1);
    TCBusyWaiting(85);
    TCExactTimeDiff clock;
    clock.Start();
    for (int i = 0; i < 3; ++i) pace.Wait(mode, exact);
    return clock.GetTimeDiff();
}

TEST(WaitPeriodic, MakesUpForAnOverrunOnTheGridOnly) {
    for (const bool exact : {false, true}) {
        EXPECT_LT(AfterOverrun(TCWaitPeriodic::FIXED_GRID, exact), 39);
        EXPECT_GE(AfterOverrun(TCWaitPeriodic::FROM_NOW, exact), 39.9);
    }
}

TEST(WaitPeriodic, KeepsTheGridOfItsStart) {
    for (const bool exact : {false, true}) {
        TCExactTimeDiff clock;
        clock.Start();
        TCWaitPeriodic pace;
        for (int i = 0; i < 20; ++i) pace.Wait(TCWaitPeriodic::FIXED_GRID, exact);
        EXPECT_GE(clock.GetTimeDiff(), 20 - 0.001);
        pace.SetWaitTime(NOT_A_NUMBER);
        pace.SetWaitTime(-3);
        pace.Start(0);
        EXPECT_GT(pace.Wait(TCWaitPeriodic::FIXED_GRID, exact), 0.2) << "the period is still 1 ms";
        pace.Stop();
        EXPECT_GT(pace.Wait(TCWaitPeriodic::FROM_NOW, exact), 0.9) << "starts anew";
        EXPECT_GT(pace.Start(INFINITE), 0);
    }
}

}  // namespace
