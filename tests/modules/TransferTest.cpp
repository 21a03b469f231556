#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

std::vector<double> Noise(std::size_t samples, std::uint32_t state) {
    std::vector<double> values(samples);
    for (double& value : values) {
        state = state * 1664525U + 1013904223U;
        value = state / 2147483648.0 - 1.0;
    }
    return values;
}

// y[i] = 0.2 x[i] + 0.3 x[i - 1] + 0.5 y[i - 1]
std::vector<double> Filtered(const std::vector<double>& x) {
    std::vector<double> y(x.size());
    for (std::size_t i = 0; i < x.size(); ++i)
        y[i] = 0.2 * x[i] + (i > 0 ? 0.3 * x[i - 1] + 0.5 * y[i - 1] : 0.0);
    return y;
}

struct Transfer : testing::Test {
    Transfer() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
        for (int output = 0; output < 3; ++output) bench.WireOutput(output);
    }
    void Measure(const std::string& settings, const std::vector<double>& x, const std::vector<double>& y,
                 int block = 1000) {
        ASSERT_TRUE(bench.Set(settings)) << bench.Error();
        ASSERT_TRUE(bench.Start() && bench.Feed(0, x, {"force", 1000.0, "N"}, block) &&
                    bench.Feed(1, y, {"answer", 1000.0, "m s^-2"}, 777))
            << bench.Error();
        ASSERT_TRUE(bench.Finish());
    }
    ModuleBench bench{"transfer", "Transfer"};
};

// Made with welch, csd and coherence of SciPy 1.10.1: 256 samples a segment, half overlap.
TEST_F(Transfer, AgreesWithSciPy) {
    const struct {
        std::size_t bin;
        double h1, h2, phase, coherence;
    } rows[] = {
        {1, 1.0062249712518048, 1.111418892610033, -0.04376069407745526, 0.9053516886768112},
        {30, 0.6334280285890055, 0.753051822747226, -0.8984437483840046, 0.8411479920175771},
        {100, 0.20234508414641986, 0.6920286396250304, -1.9621569876960923, 0.29239408972446396},
    };
    const std::vector<double> x = Noise(6000, 1);
    const std::vector<double> noise = Noise(6000, 7);
    std::vector<double> y = Filtered(x);
    for (std::size_t i = 0; i < y.size(); ++i) y[i] += 0.3 * noise[i];
    for (const int block : {1000, 6000, 13}) {
        Measure("length=256\nestimator=H2", x, y, block);
        for (const auto& row : rows) EXPECT_NEAR(bench.Samples(0)[row.bin] / row.h2, 1.0, 1e-11);
        Measure("length=256", x, y, block);
        for (const auto& row : rows) {
            EXPECT_NEAR(bench.Samples(0)[row.bin] / row.h1, 1.0, 1e-11);
            EXPECT_NEAR(bench.Samples(1)[row.bin], row.phase, 1e-11);
            EXPECT_NEAR(bench.Samples(2)[row.bin] / row.coherence, 1.0, 1e-11);
        }
        EXPECT_EQ(bench.Result("segments", "answer"), 45.0);
    }
}

// The transfer function of a filter is that of its difference equation.
TEST_F(Transfer, OfAFilterIsItsFormula) {
    const std::vector<double> x = Noise(200000, 3);
    Measure("length=1024", x, Filtered(x));
    for (std::size_t k = 1; k < 512; ++k) {
        const std::complex<double> z = std::polar(1.0, -2 * std::numbers::pi * static_cast<double>(k) / 1024);
        const std::complex<double> exact = (0.2 + 0.3 * z) / (1.0 - 0.5 * z);
        EXPECT_NEAR(std::abs(std::polar(bench.Samples(0)[k], bench.Samples(1)[k]) - exact), 0.0, 0.005) << k;
        EXPECT_GT(bench.Samples(2)[k], 0.999) << k;
    }
    TCString unit;
    EXPECT_STREQ(bench.Blocks(0)[0].GetUnit().ToString(unit), "kg^-1");
    EXPECT_STREQ(bench.Blocks(2)[0].GetUnit().ToString(unit), "");
    EXPECT_EQ(bench.Blocks(1)[0].GetSamplerate(), 1.024);
    EXPECT_STREQ(bench.Blocks(1)[0].GetSignalname(), "answer");
}

TEST_F(Transfer, FindsTheDelay) {
    const std::vector<double> x = Noise(20000, 1);
    for (const int delay : {0, 3, 100, -57}) {
        std::vector<double> y(x.size());
        for (int i = 0; i < 20000; ++i)
            if (i >= delay && i - delay < 20000)
                y[static_cast<std::size_t>(i)] = x[static_cast<std::size_t>(i - delay)];
        Measure("length=1024", x, y);
        EXPECT_NEAR(bench.Result("delay", "answer"), delay / 1000.0, 2e-5);
    }
}

TEST_F(Transfer, SaysWhatDoesNotBelongTogether) {
    const std::vector<double> x = Noise(300, 1);
    ASSERT_TRUE(bench.Set("length=256"));
    ASSERT_TRUE(bench.Start());
    ASSERT_TRUE(bench.Feed(0, x, {"force", 1000.0, "N"}));
    EXPECT_FALSE(bench.Feed(1, x, {"answer", 1000.0, "N", 1.0e12 + 1.0}));
    EXPECT_THAT(bench.Error(), HasSubstr("Align makes signals begin together"));
    bench.Finish();
    ModuleBench::TakeWarnings();
    Measure("length=256", x, Noise(310, 1));
    EXPECT_THAT(
        ModuleBench::TakeWarnings(),
        testing::AllOf(
            HasSubstr("force: segments averaged: 1; with fewer than 5"),
            HasSubstr(
                "the input \"Signal 2\" goes on where another signal has ended; samples left out: 10")));
    std::vector<double> spoilt = Noise(3000, 1);
    spoilt[5] = std::numeric_limits<double>::infinity();
    Measure("length=256", spoilt, Noise(3000, 1));
    EXPECT_THAT(ModuleBench::TakeWarnings(),
                HasSubstr("force: segments left out for values that are not finite: 1"));
    EXPECT_NEAR(bench.Samples(0)[7], 1.0, 1e-12);
    ModuleBench alone("transfer", "Transfer");
    alone.WireInputs({ModuleBench::TIME_DOMAIN});
    ASSERT_TRUE(alone.Set(""));
    EXPECT_FALSE(alone.Start());
    EXPECT_THAT(alone.Error(), HasSubstr("expected the reference and at least one more"));
}

}  // namespace
