#include <gmock/gmock.h>

#include <numeric>

#include "tests/support/ModuleBench.h"

namespace {

struct Delay : testing::Test {
    Delay() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    // At 100 samples a second.
    std::vector<double> Pass(const std::string& settings, const std::vector<double>& samples,
                             int block = 1000) {
        EXPECT_TRUE(bench.Set(settings)) << bench.Error();
        EXPECT_TRUE(bench.Start() && bench.Feed(0, samples, {"test", 100.0, "V"}, block)) << bench.Error();
        EXPECT_TRUE(bench.Finish());
        return bench.Samples(0);
    }
    ModuleBench bench{"delay", "Delay"};
};

TEST_F(Delay, ComesLaterByWhatIsGiven) {
    const std::vector<double> samples = {1, 2, 3, 4, 5};
    const struct {
        const char* settings;
        std::vector<double> delayed;
        const char* states;  // in blocks of two
    } rows[] = {{"time=20 ms", {0, 0, 1, 2, 3, 4, 5}, "START BUSY BUSY STOP"},
                {"time=0.024", {0, 0, 1, 2, 3, 4, 5}, "START BUSY BUSY STOP"},
                {"by=samples\nsamples=1\nfill=-7", {-7, 1, 2, 3, 4, 5}, "START BUSY BUSY STOP"},
                {"by=samples\nsamples=3\nend=cut", {0, 0, 0, 1, 2}, "START BUSY STOP"},
                {"by=samples\nsamples=6\nend=cut", {0, 0, 0, 0, 0}, "START BUSY STOP"},
                {"by=samples\nsamples=6", {0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5}, "START BUSY BUSY STOP"},
                {"", samples, "START BUSY STOP"}};
    for (const auto& row : rows) {
        EXPECT_EQ(Pass(row.settings, samples), row.delayed) << row.settings;
        EXPECT_EQ(Pass(row.settings, samples, 2), row.delayed) << row.settings;
        EXPECT_EQ(bench.States(0), row.states) << row.settings;
        EXPECT_EQ(bench.Blocks(0)[0].GetTimestamp(), 1e12);
        const double last = bench.Blocks(0).size() == 4 ? 50.0 : 40.0;  // milliseconds
        EXPECT_EQ(bench.Blocks(0).back().GetTimestamp(), 1e12 + last);
    }
    Pass("by=samples\nsamples=1\nfill=-7", samples);
    EXPECT_EQ(bench.Blocks(0)[0].GetRangeMin(), -7.0);
}

// What waits is more than memory is meant for, and comes in blocks at the end.
TEST_F(Delay, KeepsALongDelay) {
    std::vector<double> samples(100000);
    std::iota(samples.begin(), samples.end(), 1.0);
    const std::vector<double> delayed = Pass("by=samples\nsamples=150000", samples);
    ASSERT_EQ(delayed.size(), 250000U);
    EXPECT_EQ(delayed[149999], 0.0);
    EXPECT_TRUE(std::equal(samples.begin(), samples.end(), delayed.begin() + 150000));
    for (const TCTypeInfo& ti : bench.Blocks(0)) EXPECT_NE(ti.GetState(), COMPLETE);
}

TEST_F(Delay, BeginsAnewWithEachSignalAndRefusesTooMuch) {
    ASSERT_TRUE(bench.Set("by=samples\nsamples=2") && bench.Start());
    for (int signal = 0; signal < 2; ++signal) ASSERT_TRUE(bench.Feed(0, {5.0}, {"test", 100.0}));
    EXPECT_THAT(bench.Samples(0), testing::ElementsAre(0, 0, 5, 0, 0, 5));
    EXPECT_EQ(bench.States(0), "START STOP START STOP");
    ASSERT_TRUE(bench.Finish() && bench.Set("time=1e8"));
    EXPECT_FALSE(bench.Run({1.0}, {"test", 100.0}));
    EXPECT_EQ(bench.Error(),
              "time: '1e8' is not valid at 100 samples per second; expected at most a billion samples");
}

}  // namespace
