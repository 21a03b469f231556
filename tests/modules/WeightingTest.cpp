#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

struct Weighting : testing::Test {
    Weighting() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    std::vector<double> ImpulseResponse(const char* curve, double rate, int block = 1000) {
        std::vector<double> impulse(static_cast<std::size_t>(rate));
        impulse[0] = 1.0;
        EXPECT_TRUE(bench.Set(std::string("curve=") + curve)) << bench.Error();
        EXPECT_TRUE(bench.Start() && bench.Feed(0, impulse, {"test", rate, "P"}, block)) << bench.Error();
        EXPECT_TRUE(bench.Finish());
        return bench.Samples(0);
    }
    ModuleBench bench{"weighting", "Weighting"};
};

double Gain(const std::vector<double>& response, double frequency, double rate) {
    std::complex<double> sum;
    const std::complex<double> turn = std::polar(1.0, -2 * std::numbers::pi * frequency / rate);
    for (auto value = response.rbegin(); value != response.rend(); ++value) sum = sum * turn + *value;
    return 20 * std::log10(std::abs(sum));
}

// IEC 61672-1:2013, tables 2 and 3: A and C in dB at 10^(n / 10) Hz from n = 10, the limits of class 1.
const struct {
    double a, c, above, below;
} ROWS[] = {{-70.4, -14.3, 3, INFINITY}, {-63.4, -11.2, 2.5, INFINITY},
            {-56.7, -8.5, 2, 4},         {-50.5, -6.2, 2, 2},
            {-44.7, -4.4, 2, 1.5},       {-39.4, -3.0, 1.5, 1.5},
            {-34.6, -2.0, 1, 1},         {-30.2, -1.3, 1, 1},
            {-26.2, -0.8, 1, 1},         {-22.5, -0.5, 1, 1},
            {-19.1, -0.3, 1, 1},         {-16.1, -0.2, 1, 1},
            {-13.4, -0.1, 1, 1},         {-10.9, 0.0, 1, 1},
            {-8.6, 0.0, 1, 1},           {-6.6, 0.0, 1, 1},
            {-4.8, 0.0, 1, 1},           {-3.2, 0.0, 1, 1},
            {-1.9, 0.0, 1, 1},           {-0.8, 0.0, 1, 1},
            {0.0, 0.0, 0.7, 0.7},        {0.6, 0.0, 1, 1},
            {1.0, -0.1, 1, 1},           {1.2, -0.2, 1, 1},
            {1.3, -0.3, 1, 1},           {1.2, -0.5, 1, 1},
            {1.0, -0.8, 1, 1},           {0.5, -1.3, 1.5, 1.5},
            {-0.1, -2.0, 1.5, 2},        {-1.1, -3.0, 1.5, 2.5},
            {-2.5, -4.4, 2, 3},          {-4.3, -6.2, 2, 5},
            {-6.6, -8.5, 2.5, 16},       {-9.3, -11.2, 3, INFINITY}};

// The table is rounded to 0.1 dB. A filter by the bilinear transform alone is 16 dB off at 20 kHz and 48 kHz.
TEST_F(Weighting, IsTheTableOfTheStandard) {
    for (const double rate : {48000.0, 44100.0, 96000.0, 192000.0}) {
        const std::vector<double> a = ImpulseResponse("A", rate);
        const std::vector<double> c = ImpulseResponse("C", rate);
        double frequency = 10.0;
        for (const auto& row : ROWS) {
            EXPECT_NEAR(Gain(a, frequency, rate), row.a, 0.14) << frequency << " at " << rate;
            EXPECT_NEAR(Gain(c, frequency, rate), row.c, 0.14) << frequency << " at " << rate;
            frequency *= std::pow(10.0, 0.1);
        }
    }
}

TEST_F(Weighting, MeetsClass1AtLowRatesToo) {
    for (const double rate : {8000.0, 16000.0, 22050.0, 32000.0}) {
        const std::vector<double> a = ImpulseResponse("A", rate);
        const std::vector<double> c = ImpulseResponse("C", rate);
        double frequency = 10.0;
        for (const auto& row : ROWS) {
            if (frequency > rate / 2) break;
            for (const double error : {Gain(a, frequency, rate) - row.a, Gain(c, frequency, rate) - row.c}) {
                EXPECT_LT(error, row.above) << frequency << " at " << rate;
                EXPECT_GT(error, -row.below) << frequency << " at " << rate;
            }
            frequency *= std::pow(10.0, 0.1);
        }
    }
}

TEST_F(Weighting, PassesOnTheSignalHoweverItIsCut) {
    const std::vector<double> whole = ImpulseResponse("A", 8000.0);
    TCString unit;
    EXPECT_STREQ(bench.Blocks(0)[0].GetUnit().ToString(unit), "P");
    EXPECT_EQ(bench.States(0), "START BUSY BUSY BUSY BUSY BUSY BUSY STOP");
    EXPECT_EQ(ImpulseResponse("A", 8000.0, 1733), whole);
    const std::vector<double> same = ImpulseResponse("Z", 8000.0);
    EXPECT_EQ(same[0], 1.0);
    EXPECT_EQ(same[1], 0.0);
}

// A rate far outside of hearing has no table; what comes out is still a number.
TEST_F(Weighting, IsStableAtAnyRate) {
    for (const double rate : {1e-3, 1.0, 50.0, 1e7, 1e12}) {
        ASSERT_TRUE(bench.Set("curve=A"));
        ASSERT_TRUE(bench.Run(std::vector<double>(20000, 1.0), {"test", rate})) << bench.Error();
        for (const double value : bench.Samples(0)) ASSERT_LT(std::fabs(value), 2.0) << rate;
    }
    std::vector<double> samples(100, 1.0);
    samples[50] = NAN;
    ASSERT_TRUE(bench.Run(samples, {"test", 48000.0}));
    EXPECT_THAT(ModuleBench::TakeWarnings(), testing::HasSubstr("test: after a value that is not finite"));
}

}  // namespace
