#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

constexpr double TURN = 2 * std::numbers::pi;

struct Resample : testing::Test {
    Resample() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    static std::vector<double> Tone(double frequency, double rate, int samples) {
        std::vector<double> values(static_cast<std::size_t>(samples));
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = std::sin(TURN * frequency * static_cast<double>(i) / rate);
        return values;
    }
    std::vector<double> Convert(double rate, const std::vector<double>& samples, double to,
                                int block = 1000) {
        EXPECT_TRUE(bench.Set("rate=" + std::to_string(to))) << bench.Error();
        EXPECT_TRUE(bench.Start() && bench.Feed(0, samples, {"test", rate, "V"}, block)) << bench.Error();
        EXPECT_TRUE(bench.Finish());
        return bench.Samples(0);
    }
    ModuleBench bench{"resample", "Resample"};
};

// A tone within the band comes out as the same tone at the same time, apart from the signal's ends.
TEST_F(Resample, MakesTheSameToneAtAnyRate) {
    const std::pair<double, double> rates[] = {
        {48000, 44100}, {44100, 48000}, {48000, 12000}, {8000, 96000}, {1000, 1000 * std::numbers::pi / 3}};
    for (const auto& [from, to] : rates) {
        SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
        const double frequency = 0.1 * std::min(from, to);
        const std::vector<double> output = Convert(from, Tone(frequency, from, 20000), to);
        const double rate = bench.Blocks(0)[0].GetSamplerate();
        ASSERT_EQ(output.size(), static_cast<std::size_t>(std::llround(20000 * rate / from)));
        for (std::size_t i = output.size() / 4; i < 3 * output.size() / 4; ++i)
            ASSERT_NEAR(output[i], std::sin(TURN * frequency * static_cast<double>(i) / rate), 1e-6) << i;
        EXPECT_EQ(bench.Blocks(0)[0].GetTimestamp(), 1e12);
        EXPECT_NEAR(bench.Blocks(0).back().GetTimestamp(),
                    1e12 + 1000.0 * static_cast<double>(output.size()) / rate, 2000.0);
    }
}

// A ratio that is no quotient of small numbers.
TEST_F(Resample, KeepsTheTimeInALongSignal) {
    const double to = 44100.1;
    const double frequency = 0.3 * to;
    const std::vector<double> output = Convert(48000, Tone(frequency, 48000, 1000000), to, 100000);
    for (std::size_t i = output.size() - 2000; i < output.size() - 1000; ++i)
        ASSERT_NEAR(output[i], std::sin(TURN * frequency * static_cast<double>(i) / to), 1e-6) << i;
}

TEST_F(Resample, StopsWhatTheNewRateCannotHave) {
    for (const double value : Convert(48000, Tone(15000, 48000, 48000), 24000))
        ASSERT_LT(std::fabs(value), 0.5);
    const std::vector<double> output = bench.Samples(0);
    for (std::size_t i = 6000; i < 18000; ++i) ASSERT_NEAR(output[i], 0.0, 1e-6);
}

TEST_F(Resample, DoesNotDependOnTheBlocks) {
    const std::vector<double> samples = Tone(440, 8000, 30000);
    const std::vector<double> whole = Convert(8000, samples, 11025, 30000);
    EXPECT_EQ(bench.States(0), "COMPLETE");
    for (const int block : {100, 7777}) {
        const std::vector<double> cut = Convert(8000, samples, 11025, block);
        ASSERT_EQ(cut.size(), whole.size());
        for (std::size_t i = 0; i < whole.size(); ++i) ASSERT_NEAR(cut[i], whole[i], 1e-12) << i;
    }
    EXPECT_EQ(bench.Blocks(0).front().GetState(), START);
    EXPECT_EQ(bench.Blocks(0).back().GetState(), STOP);
}

TEST_F(Resample, KeepsGoingAfterWhatIsNotFinite) {
    std::vector<double> samples(4000, 1.0);
    samples[1000] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_NEAR(Convert(8000, samples, 16000)[6000], 1.0, 1e-3);
    EXPECT_THAT(ModuleBench::TakeWarnings(),
                testing::HasSubstr("test: values that are not finite, counted as 0: 1"));
    EXPECT_EQ(Convert(8000, {1.0}, 16000).size(), 2U);
    EXPECT_EQ(Convert(8000, {1.0}, 1000).size(), 0U);
    EXPECT_EQ(bench.States(0), "COMPLETE") << "its end still gets there";
}

}  // namespace
