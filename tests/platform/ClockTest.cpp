#include <gtest/gtest.h>

#include <limits>

#include "sigweave/platform/Clock.h"
#include "sigweave/platform/Event.h"

// Other work may delay every wait here: only what such a delay cannot break is expected.

TEST(MachineClock, WaitsUntilTheTimeOrTheHandle) {
    tc::Clock& clock = tc::MachineClock();
    tc::Event stop;
    const double begin = clock.Milliseconds();
    EXPECT_TRUE(clock.WaitUntil(begin - 1.0, stop.GetHandle())) << "that time has passed";
    EXPECT_TRUE(clock.WaitUntil(begin + 1.0, nullptr));
    EXPECT_GE(clock.Milliseconds(), begin + 1.0);
    stop.Set();
    EXPECT_FALSE(clock.WaitUntil(std::numeric_limits<double>::infinity(), stop.GetHandle()));
}

TEST(WaitForAnyHandle, AnswersTheFirstThatIsSignalled) {
    tc::Event a;
    tc::Event b;
    tc::Event c;
    void* const handles[] = {a.GetHandle(), b.GetHandle(), c.GetHandle()};
    EXPECT_EQ(tc::WaitForAnyHandle(handles, 0.0), -1) << "none is";
    c.Set();
    b.Set();
    EXPECT_EQ(tc::WaitForAnyHandle(handles, 1e9), 1);
    b.Reset();
    EXPECT_EQ(tc::WaitForAnyHandle(handles, 1e9), 2);
    void* const withNone[] = {c.GetHandle(), nullptr};
    EXPECT_EQ(tc::WaitForAnyHandle(withNone, 1e9), -1);
    EXPECT_EQ(tc::WaitForAnyHandle({}, 0.0), -1);
}
