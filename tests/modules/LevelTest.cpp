#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

constexpr double RATE = 48000.0;

// A sine of that root mean square, from one time to another within so many seconds of silence.
std::vector<double> Burst(double frequency, double rms, double from, double to, double seconds) {
    std::vector<double> values(static_cast<std::size_t>(seconds * RATE));
    const auto first = static_cast<std::size_t>(std::llround(from * RATE));
    const auto end = static_cast<std::size_t>(std::llround(to * RATE));
    for (std::size_t i = first; i < end; ++i)
        values[i] = rms * std::numbers::sqrt2 *
                    std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / RATE);
    return values;
}

struct Level : testing::Test {
    Level() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    void Measure(const std::string& settings, const std::vector<double>& samples, const char* unit = "P",
                 int block = 1000) {
        ASSERT_TRUE(bench.Set(settings)) << bench.Error();
        ASSERT_TRUE(bench.Start() && bench.Feed(0, samples, {"test", RATE, unit}, block)) << bench.Error();
        ASSERT_TRUE(bench.Finish());
    }
    ModuleBench bench{"level", "Level"};
};

// IEC 61672-1:2013, table 4: the response to 4 kHz tonebursts, for a steady tone of 0 dB; rounded to 0.1 dB.
TEST_F(Level, OfToneburstsIsTheTableOfTheStandard) {
    const struct {
        double milliseconds, fast, slow, exposure;
    } rows[] = {{1000, 0.0, -2.0, 0.0},    {500, -0.1, -4.1, -3.0},  {200, -1.0, -7.4, -7.0},
                {100, -2.6, -10.2, -10.0}, {50, -4.8, -13.1, -13.0}, {20, -8.3, -17.0, -17.0},
                {10, -11.1, -20.0, -20.0}, {5, -14.1, -23.0, -23.0}, {2, -18.0, -27.0, -27.0},
                {1, -21.0, NAN, -30.0},    {0.5, -24.0, NAN, -33.0}, {0.25, -27.0, NAN, -36.0}};
    for (const auto& row : rows) {
        const std::vector<double> burst = Burst(4000.0, 1.0, 0.5, 0.5 + row.milliseconds / 1000, 2.0);
        Measure("time=fast\nreference=1", burst);
        EXPECT_NEAR(bench.Result("Lmax_dB"), row.fast, 0.06) << row.milliseconds;
        EXPECT_NEAR(bench.Result("LE_dB"), row.exposure, 0.06) << row.milliseconds;
        Measure("time=slow\nreference=1", burst);
        if (std::isnan(row.slow)) continue;
        EXPECT_NEAR(bench.Result("Lmax_dB"), row.slow, 0.06) << row.milliseconds;
    }
}

// F decays by 10 lg e / 0.125 dB in a second, S by a quarter of 17.37, and I by 10 lg e / 1.5.
TEST_F(Level, DecaysAsItsTimeWeightingSays) {
    const std::tuple<const char*, double> rows[] = {{"fast", 34.7436}, {"slow", 4.3429}, {"impulse", 2.8953}};
    for (const auto& [weighting, decay] : rows) {
        Measure(std::string("interval=0.5\ntime=") + weighting, Burst(1000.0, 1.0, 0.0, 10.0, 12.0));
        const std::vector<double>& levels = bench.Samples(0);
        ASSERT_EQ(levels.size(), 24U);
        EXPECT_NEAR(levels[19], 93.9794, 0.02) << weighting;
        EXPECT_NEAR(levels[21] - levels[23], decay, 0.01) << weighting;
    }
}

// 1 Pa is 93.9794 dB; the levels of ISO 1683.
TEST_F(Level, RefersToTheUnitOfTheSignal) {
    const std::vector<double> tone = Burst(1000.0, 1.0, 0.0, 1.0, 1.0);
    const struct {
        const char *reference, *unit;
        double level;
        const char* shown;
    } rows[] = {{"", "P", 93.9794001, "P"},
                {"", "P * 1e-003", 33.9794001, "P"},
                {"1 uPa", "P", 120.0, "P"},
                {"20e-6", "P", 93.9794001, "P"},
                {"", "m s^-2", 120.0, "m s^-2"},
                {"50 nm/s", "m s^-1 * 1e-003", 86.0205999, "m s^-1"},
                {"", "V", 0.0, "V"},
                {"0.774596669241 V", "V", 2.2184875, "V"},
                {"2", "", -6.0205999, ""}};
    for (const auto& row : rows) {
        Measure(std::string("reference=\"") + row.reference + "\"", tone, row.unit);
        EXPECT_NEAR(bench.Result("Leq_dB"), row.level, 1e-6) << row.reference << row.unit;
        EXPECT_STREQ(bench.Module().GetResults()[0].unit, row.shown);
    }
    EXPECT_NEAR(bench.Result("Lpeak_dB"), -3.0103, 0.001);
    for (const char* wrong : {"0", "-1 V", "1 Quark", "V", "20 degC", "3e", "1,5"}) {
        EXPECT_FALSE(bench.Set(std::string("reference=\"") + wrong + "\"")) << wrong;
        EXPECT_THAT(bench.Error(), HasSubstr("reference: '")) << wrong;
    }
    ASSERT_TRUE(bench.Set("reference=\"1 V\""));
    EXPECT_FALSE(bench.Run(tone, {"test", RATE, "P"}));
    EXPECT_EQ(bench.Error(), "reference: '1 V' is not valid; expected Pa, as the signal has");
}

// 15 s at 94 dB, 40 at 84, 45 at 74; each change takes a while.
TEST_F(Level, CountsPercentiles) {
    std::vector<double> samples;
    for (const auto& [seconds, value] : {std::pair{45.0, 0.1}, {40.0, std::sqrt(0.1)}, {15.0, 1.0}})
        samples.insert(samples.end(), static_cast<std::size_t>(seconds * RATE), value);
    Measure("", samples);
    EXPECT_NEAR(bench.Result("L1_dB"), 93.979, 0.01);
    EXPECT_NEAR(bench.Result("L5_dB"), 93.979, 0.01);
    EXPECT_NEAR(bench.Result("L50_dB"), 83.979, 0.1);
    EXPECT_NEAR(bench.Result("L90_dB"), 73.979, 0.01);
    EXPECT_NEAR(bench.Result("L99_dB"), 73.979, 0.1) << "the first second has settled by then";
    EXPECT_NEAR(bench.Result("Lmin_dB"), 73.90, 0.02) << "0.08 dB are missing after four time constants";
    EXPECT_NEAR(bench.Result("Leq_dB"), 10 * std::log10((0.45 * 0.01 + 0.4 * 0.1 + 0.15) / 4e-10), 1e-9);
}

TEST_F(Level, DoesNotDependOnTheBlocks) {
    std::vector<double> samples = Burst(100.0, 3.0, 0.2, 0.7, 1.0);
    samples[20000] = std::numeric_limits<double>::quiet_NaN();
    Measure("interval=0.01", samples);
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("test: values left out that are not finite: 1"));
    const std::vector<double> levels = bench.Samples(0);
    const double least = bench.Result("Lmin_dB");
    EXPECT_EQ(levels.size(), 100U);
    EXPECT_EQ(levels[0], -std::numeric_limits<double>::infinity()) << "silence";
    Measure("interval=0.01", samples, "P", 7777);
    EXPECT_EQ(bench.Samples(0), levels);
    EXPECT_EQ(bench.Result("Lmin_dB"), least);
    EXPECT_EQ(bench.States(0), "START BUSY BUSY BUSY BUSY BUSY STOP");
    EXPECT_EQ(bench.Blocks(0)[1].GetSamplerate(), 100.0);
    // 16 intervals fit in the first block; the next level is that of the sample before 0.17 s.
    EXPECT_NEAR(bench.Blocks(0)[1].GetTimestamp(), 1e12 + 170.0 - 1000.0 / RATE, 1e-3);
}

}  // namespace
