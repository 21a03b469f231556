#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

constexpr double PI = std::numbers::pi;

struct Generator : testing::Test {
    const std::vector<double>& Make(const std::string& settings) {
        EXPECT_TRUE(bench.Set("start=2026-03-01T12:00:00Z\n" + settings)) << bench.Error();
        EXPECT_TRUE(bench.Run()) << bench.Error();
        return bench.Samples(0);
    }
    Generator() { bench.WireOutput(0); }
    ModuleBench bench{"generator", "Generator"};
};

TEST_F(Generator, MakesEachFormByItsFormula) {
    const std::string common = "rate=8000\nduration=0.5\namplitude=2\noffset=1\nfrequency=440\n";
    const auto expect = [&](const char* form, auto formula) {
        const std::vector<double>& samples = Make(common + form);
        ASSERT_EQ(samples.size(), 4000U);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            ASSERT_NEAR(samples[i], 1.0 + 2.0 * formula(static_cast<double>(i) / 8000.0), 1e-11) << form << i;
        }
    };
    expect("form=sine\nphase=90", [](double t) { return std::cos(2 * PI * 440 * t); });
    expect("form=square\nphase=1",
           [](double t) { return std::sin(2 * PI * 440 * t + PI / 180) >= 0 ? 1 : -1; });
    expect("form=sweep\nend_frequency=1440",
           [](double t) { return std::sin(2 * PI * (440 + 1000 * t) * t); });
    expect("form=dc", [](double) { return 1.0; });
    const std::vector<double>& edges = Make("form=square");  // of 1 kHz at 48 kHz they are at samples
    for (std::size_t i = 0; i < edges.size(); ++i) ASSERT_EQ(edges[i], i % 48 < 24 ? 1.0 : -1.0) << i;
}

TEST_F(Generator, NoiseIsUniformAndFollowsTheSeed) {
    const std::vector<double> one = Make("form=noise\namplitude=3\nduration=10\nseed=7");
    EXPECT_EQ(Make("form=noise\namplitude=3\nduration=10\nseed=7"), one);
    EXPECT_NE(Make("form=noise\namplitude=3\nduration=10\nseed=8"), one);
    double squares = 0.0;
    for (const double value : one) squares += value * value;
    EXPECT_NEAR(std::sqrt(squares / 480000.0), std::sqrt(3.0), 0.01);  // amplitude / sqrt 3
    EXPECT_THAT(one, testing::Each(testing::AllOf(testing::Ge(-3.0), testing::Lt(3.0))));
}

TEST_F(Generator, BlocksCarryTheSignalsMetadata) {
    Make("rate=1000\nduration=2.5\nunit=V\namplitude=2\noffset=-1");
    EXPECT_EQ(bench.States(0), "START BUSY STOP");
    const TCTypeInfo& last = bench.Blocks(0)[2];
    EXPECT_EQ(last.GetTimestamp(), 1772366400000.0 + 2048.0);
    EXPECT_EQ(last.GetSamplerate(), 1000.0);
    EXPECT_EQ(last.GetRangeMin(), -3.0);
    EXPECT_EQ(last.GetRangeMax(), 1.0);
    EXPECT_STREQ(last.GetSignalname(), "sine");
    TCString unit;
    EXPECT_STREQ(last.GetUnit().ToString(unit), "V");
    Make("rate=1000\nduration=0.001");
    EXPECT_EQ(bench.States(0), "COMPLETE");
}

TEST_F(Generator, BeginsWhenItIsTold) {
    const std::pair<const char*, double> rows[] = {{"1970-01-02", 86400e3},
                                                   {"2026-03-01T12:34", 1772368440e3},
                                                   {"2026-03-01 12:34:56Z", 1772368496e3},
                                                   {"2026-03-01T23:59:59.125", 1772409599125.0},
                                                   {"2000-02-29T00:00:00.0005Z", 951782400000.5}};
    for (const auto& [start, milliseconds] : rows) {
        ASSERT_TRUE(bench.Set(std::string("duration=0.001\nstart=") + start) && bench.Run()) << start;
        EXPECT_EQ(bench.Blocks(0)[0].GetTimestamp(), milliseconds) << start;
    }
}

TEST_F(Generator, RefusesWhatMakesNoSignal) {
    const char* const settings[] = {"duration=0",
                                    "rate=1e9\nduration=1e9",
                                    "unit=furlong",
                                    "unit=V * 1e400",
                                    "unit=V * 1e-400",
                                    "unit=m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10",
                                    "start=yesterday",
                                    "start=2026-02-30",
                                    "start=1969-12-31",
                                    "start=2026-03-01T",
                                    "start=2026-03-01T25:00"};
    for (const char* setting : settings) {
        EXPECT_FALSE(bench.Set(setting)) << setting;
        EXPECT_THAT(bench.Error(), testing::HasSubstr("is not valid")) << setting;
    }
}

}  // namespace
