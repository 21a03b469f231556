#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "tests/support/ModuleBench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<double> Noise() {
    std::vector<double> samples(3000);
    std::uint32_t state = 1;
    for (double& sample : samples) {
        state = state * 1664525U + 1013904223U;
        sample = state / 2147483648.0 - 1.0;
    }
    return samples;
}

struct Histogram : testing::Test {
    Histogram() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
        bench.WireOutput(1);
    }
    bool Count(const std::string& settings, const std::vector<double>& samples, int block = 1000) {
        return bench.Set(settings) && bench.Start() && bench.Feed(0, samples, {"test", 1000.0, "V"}, block) &&
               bench.Finish();
    }
    ModuleBench bench{"histogram", "Histogram"};
};

// Made with numpy.histogram of NumPy 1.24.2, of noise, of noise in steps of 0.1 whose values lie on edges,
// and of its cubes: bins, three edges, counts, and the density of a bin.
TEST_F(Histogram, IsThatOfNumPy) {
    const std::vector<double> noise = Noise();
    std::vector<double> steps, cubes, coarse;
    for (const double value : noise) {
        steps.push_back(std::nearbyint(value * 20) / 10);
        cubes.push_back(value * value * value);
        coarse.push_back(std::nearbyint(value * 0.55));
    }
    const std::vector<double> constant(5, 3.0);
    const struct {
        const char* settings;
        const std::vector<double>* samples;
        std::size_t bins;
        double second, last;
        std::vector<double> first;
        double density;
        std::size_t at;
    } rows[] = {{"bins=10",
                 &noise,
                 10,
                 -0.800019483268261,
                 0.9995266241021454,
                 {296, 300, 288, 313},
                 0.521798244654102,
                 3},
                {"bins=7\nfrom=-1.4\nto=1.4",
                 &steps,
                 7,
                 -1.0,
                 1.4,
                 {305, 300, 388, 203, 298, 331, 384},
                 0.43911272068809415,
                 2},
                {"bins=40",
                 &steps,
                 40,
                 -1.9,
                 2.0,
                 {38, 85, 73, 72, 62, 67, 159, 0, 71, 75, 147, 73},
                 0.5399999999999996,
                 13},
                {"",
                 &cubes,
                 61,
                 -0.9671450616992261,
                 0.998580544454582,
                 {20, 16, 17, 25, 24, 18},
                 0.29505644032121275,
                 20},
                {"",
                 &noise,
                 15,
                 -0.8666693390967946,
                 0.9995266241021454,
                 {206, 178, 212, 188},
                 0.5251324187413482,
                 5},
                {"from=-0.5\nto=1.5",
                 &cubes,
                 69,
                 -0.47101449275362317,
                 1.5,
                 {19, 31, 17, 25, 23, 35},
                 0.575213041867358,
                 23},
                {"", &coarse, 13, -0.8461538461538461, 1.0, {143, 0, 0, 0, 0, 0, 2717, 0}, 0.0, 4},
                {"", &constant, 1, 3.5, 3.5, {5}, 1.0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.settings);
        ASSERT_TRUE(Count(row.settings, *row.samples, 77)) << bench.Error();
        ASSERT_EQ(bench.Samples(0).size(), row.bins);
        ASSERT_EQ(bench.Samples(1).size(), row.bins + 1);
        EXPECT_DOUBLE_EQ(bench.Samples(1)[1], row.second);
        EXPECT_EQ(bench.Samples(1).back(), row.last);
        for (std::size_t i = 0; i < row.first.size(); ++i) EXPECT_EQ(bench.Samples(0)[i], row.first[i]) << i;
        ASSERT_TRUE(Count(std::string("scale=density\n") + row.settings, *row.samples)) << bench.Error();
        EXPECT_NEAR(bench.Samples(0)[row.at], row.density, 1e-12);
    }
}

TEST_F(Histogram, SaysWhatItsAxisIsAndWhatLiesOutside) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    ASSERT_TRUE(Count("bins=4\nfrom=0\nto=2\nscale=share", {-1, 0, 0.5, 0.6, 2, 2.1, 3, nan}));
    EXPECT_THAT(bench.Samples(0), ElementsAre(0.25, 0.5, 0, 0.25));
    EXPECT_THAT(bench.Samples(1), ElementsAre(0, 0.5, 1, 1.5, 2));
    EXPECT_EQ(bench.States(0), "COMPLETE");
    EXPECT_EQ(bench.Blocks(0)[0].GetSamplerate(), 2.0);
    TCString unit;
    EXPECT_STREQ(bench.Blocks(1)[0].GetUnit().ToString(unit), "V");
    EXPECT_EQ(bench.Result("inside"), 4.0);
    EXPECT_EQ(bench.Result("below"), 1.0);
    EXPECT_EQ(bench.Result("above"), 2.0);
    EXPECT_EQ(bench.Result("mode"), 0.75);
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("test: values left out that are not finite: 1"));
    ASSERT_TRUE(Count("scale=density", {1.0, 2.0}));
    EXPECT_STREQ(bench.Blocks(0)[0].GetUnit().ToString(unit), "m^-2 kg^-1 s^3 A") << "one by volts";
    ASSERT_TRUE(Count("from=5", {1.0, 2.0})) << "all of it lies below";
    EXPECT_THAT(bench.Samples(1), ElementsAre(5.0, 6.0));
    ASSERT_TRUE(Count("", {nan, nan}) && Count("", {})) << bench.Error();
    ModuleBench::TakeWarnings();
}

TEST_F(Histogram, RefusesWhatDoesNotFit) {
    EXPECT_FALSE(bench.Set("from=low\nto=1 Quark"));
    EXPECT_EQ(bench.Error(),
              "from: 'low' is not valid; expected a number and a unit, as 0.5 mV\n"
              "to: '1 Quark' is not valid; expected a number and a unit, as 0.5 mV");
    EXPECT_FALSE(Count("from=1 Pa", {1.0}));
    EXPECT_EQ(bench.Error(), "from: '1 Pa' is not valid; expected V, as the signal has");
    EXPECT_FALSE(Count("from=1\nto=900 mV", {1.0}));
    EXPECT_EQ(bench.Error(), "to: '900 mV' is not valid; expected more than 1");
    EXPECT_FALSE(Count("from=-1e308\nto=1e308", {1.0}));
    EXPECT_EQ(bench.Error(), "to: '1e308' is not valid; expected at most 1.7e308 more than from");
    ASSERT_TRUE(Count("bins=1", {1e300, 1e300})) << "1 more is the same number";
    EXPECT_GT(bench.Result("to"), bench.Result("from"));
    EXPECT_FALSE(Count("bins=3", {-1e308, 1e308}));
    EXPECT_THAT(bench.Error(), HasSubstr("there can be no bins from -1e+308 to 1e+308"));
    EXPECT_FALSE(Count("most_samples=2", {1.0, 2.0, 3.0}));
    EXPECT_THAT(bench.Error(), HasSubstr("most_samples: the signal 'test' has more than 2"));
    EXPECT_TRUE(Count("most_samples=2\nbins=3\nfrom=0\nto=1", {1.0, 2.0, 3.0})) << "nothing is kept";
}

}  // namespace
