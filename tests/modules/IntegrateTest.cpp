#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Integrate : testing::Test {
    Integrate() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    std::vector<double> Run(const std::string& settings, const std::vector<double>& samples, double rate,
                            int block = 1000) {
        EXPECT_TRUE(bench.Set(settings)) << bench.Error();
        EXPECT_TRUE(bench.Start() && bench.Feed(0, samples, {"test", rate, "m s^-2"}, block))
            << bench.Error();
        EXPECT_TRUE(bench.Finish());
        return bench.Samples(0);
    }
    ModuleBench bench{"integrate", "Integrate"};
};

// cumulative_trapezoid([1, 2, 4, -3, 0], dx=0.5, initial=0) of SciPy, and that once more.
TEST_F(Integrate, IsTheTrapezoidalRule) {
    for (const int block : {1000, 1, 2}) {
        EXPECT_THAT(Run("", {1, 2, 4, -3, 0}, 2.0, block), ElementsAre(0, 0.75, 2.25, 2.5, 1.75));
        EXPECT_THAT(Run("times=2", {1, 2, 4, -3, 0}, 2.0, block),
                    ElementsAre(0, 0.1875, 0.9375, 2.125, 3.1875));
    }
    TCString unit;
    EXPECT_STREQ(bench.Blocks(0)[0].GetUnit().ToString(unit), "m");
}

// A vibration of amplitude a at w has a velocity of a / w, however large the sensor's offset is.
TEST_F(Integrate, KeepsAnOffsetFromRunningAway) {
    std::vector<double> samples(200000);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = 9.81 + 3.0 * std::sin(2 * std::numbers::pi * 100.0 * static_cast<double>(i) / 10000.0);
    const std::vector<double> velocity = Run("highpass=1 Hz", samples, 10000.0);
    double peak = 0.0;
    for (std::size_t i = 150000; i < velocity.size(); ++i) peak = std::max(peak, std::fabs(velocity[i]));
    EXPECT_NEAR(peak, 3.0 / (2 * std::numbers::pi * 100.0), 1e-5);
    EXPECT_GT(Run("", samples, 10000.0).back(), 190.0);
    EXPECT_EQ(Run("highpass=1 Hz", samples, 10000.0, 7777), velocity);
}

// A sum in plain doubles is 1e-10 off by then.
TEST_F(Integrate, LosesNoDigitsInALongSignal) {
    const std::vector<double> samples(2000000, 0.1);
    EXPECT_NEAR(Run("", samples, 1000.0).back(), 0.1 * 1999.999, 1e-12);
}

TEST_F(Integrate, SaysWhatIsWrong) {
    ASSERT_TRUE(bench.Set("highpass=500"));
    EXPECT_FALSE(bench.Run({1.0}, {"test", 1000.0}));
    EXPECT_EQ(
        bench.Error(),
        "highpass: '500' is not valid for 'test' at 1000 samples per second; expected less than 500 Hz");
    Run("", {1.0, std::numeric_limits<double>::infinity(), 1.0}, 1.0);
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("test: after a value that is not finite"));
}

}  // namespace
