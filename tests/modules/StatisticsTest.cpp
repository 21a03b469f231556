#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

std::vector<double> Sine(double amplitude, double offset, int periods, int samples) {
    std::vector<double> values(static_cast<std::size_t>(samples));
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double part = static_cast<double>(i) * periods / samples;
        values[i] = offset + amplitude * std::sin(2.0 * std::numbers::pi * part);
    }
    return values;
}

struct Statistics : testing::Test {
    Statistics() { bench.WireInputs({ModuleBench::TIME_DOMAIN}); }
    ModuleBench bench{"statistics", "Statistics"};
};

TEST_F(Statistics, OfASineAreItsClosedForms) {
    ASSERT_TRUE(bench.Run(Sine(3.0, 0.5, 16, 48000))) << bench.Error();
    EXPECT_EQ(bench.Result("samples"), 48000.0);
    EXPECT_NEAR(bench.Result("min"), -2.5, 1e-12);
    EXPECT_NEAR(bench.Result("max"), 3.5, 1e-12);
    EXPECT_NEAR(bench.Result("mean"), 0.5, 1e-15);
    EXPECT_NEAR(bench.Result("rms"), std::sqrt(0.25 + 4.5), 1e-14);
    EXPECT_NEAR(bench.Result("stddev"), 3.0 / std::numbers::sqrt2, 1e-14);
    EXPECT_TRUE(std::isnan(bench.Result("nan")));
}

// Sums in plain doubles lose the spread of such a signal altogether: its squares need 85 bits.
TEST_F(Statistics, KeepASmallSpreadOnAHugeOffset) {
    std::vector<double> ramp(1000001);
    for (std::size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = 1e9 + (static_cast<double>(i) - 500000.0) * 0x1p-20;
    ASSERT_TRUE(bench.Run(ramp));
    const double count = 1000001.0;
    EXPECT_EQ(bench.Result("mean"), 1e9);
    EXPECT_NEAR(bench.Result("stddev") / (std::sqrt((count * count - 1) / 12) * 0x1p-20), 1.0, 1e-12);
}

TEST_F(Statistics, StayFiniteForHugeValues) {
    ASSERT_TRUE(bench.Run({3e153, -3e153, 3e153, -3e153, 3e153, -3e153, 3e153, -3e153}));
    EXPECT_EQ(bench.Result("mean"), 0.0);
    EXPECT_DOUBLE_EQ(bench.Result("stddev"), 3e153);
    ASSERT_TRUE(bench.Run({1e200, -1e200}));
    EXPECT_EQ(bench.Result("rms"), INF);
}

TEST_F(Statistics, CountWhatIsNoFiniteNumberApart) {
    ASSERT_TRUE(bench.Run({1.0, NOT_A_NUMBER, 3.0, INF, -INF, NOT_A_NUMBER, NOT_A_NUMBER}));
    EXPECT_EQ(bench.Result("samples"), 2.0);
    EXPECT_EQ(bench.Result("nan"), 3.0);
    EXPECT_EQ(bench.Result("infinite"), 2.0);
    EXPECT_EQ(bench.Result("min"), 1.0);
    EXPECT_EQ(bench.Result("max"), 3.0);
    EXPECT_EQ(bench.Result("rms"), std::sqrt(5.0));
    EXPECT_THAT(ModuleBench::TakeWarnings(),
                testing::AllOf(testing::HasSubstr("not a number 3"), testing::HasSubstr("infinite 2")));
}

TEST(StatisticsOfSeveral, HaveTheirOwnNamesAndUnitsAndASecondRunIsTheSame) {
    ModuleBench bench("statistics", "Statistics");
    bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(bench.Start());
        ASSERT_TRUE(bench.Feed(1, {4.0, 6.0}, {"", 10.0, "m s^-2"}));
        ASSERT_TRUE(bench.Feed(0, {1.0, 2.0}, {"left", 10.0, "V * 1e-003"}));
        ASSERT_TRUE(bench.Finish());
        EXPECT_EQ(bench.Module().GetResults().GetSize(), 12);
        EXPECT_EQ(bench.Result("mean", "left"), 1.5);
        EXPECT_EQ(bench.Result("mean", "Signal 2"), 5.0);
        EXPECT_STREQ(bench.Module().GetResults()[3].unit, "V * 1e-003");
        EXPECT_STREQ(bench.Module().GetResults()[6].unit, "");
        EXPECT_STREQ(bench.Module().GetResults()[9].unit, "m s^-2");
    }
}

}  // namespace
