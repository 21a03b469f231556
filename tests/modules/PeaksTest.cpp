#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>

#include "tests/support/ModuleBench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

struct Peaks : testing::Test {
    Peaks() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    std::vector<int> Find(const std::string& settings, const std::vector<double>& samples, double rate = 1.0,
                          int block = 1000) {
        EXPECT_TRUE(bench.Set(settings)) << bench.Error();
        EXPECT_TRUE(bench.Start() && bench.Feed(0, samples, {"test", rate, "V * 1e-003"}, block))
            << bench.Error();
        EXPECT_TRUE(bench.Finish());
        std::vector<int> positions;
        for (std::size_t i = 0; i < bench.Samples(0).size(); ++i)
            if (bench.Samples(0)[i] != 0.0) positions.push_back(static_cast<int>(i));
        return positions;
    }
    ModuleBench bench{"peaks", "Peaks"};
};

// What scipy.signal.find_peaks of SciPy 1.10.1 answers; a distance or width of 2.5 s is one of 2.5 samples.
TEST_F(Peaks, AreThoseOfSciPy) {
    const struct {
        const char* settings;
        std::vector<double> samples;
        std::vector<int> positions;
    } rows[] = {{"", {0, 1, 1, 0}, {1}},
                {"", {0, 1, 1, 1, 0}, {2}},
                {"", {2, 1, 0.5, 1, 2}, {}},
                {"", {0, 1, 1}, {}},
                {"", {0, NOT_A_NUMBER, 0, 1, 0}, {3}},
                {"", {0, 1, NOT_A_NUMBER, 3, 0}, {}},
                {"height=1", {0, 1, 0, 2, 0}, {1, 3}},
                {"height=1100 uV", {0, 1, 0, 2, 0}, {3}},
                {"distance=2", {0, 1, 0, 2, 0}, {1, 3}},
                {"distance=2.1", {0, 1, 0, 2, 0}, {3}},
                {"distance=3", {0, 1, 0, 1, 0}, {3}},
                {"prominence=1", {0, 3, 1, 2, 0.5, 4, 0}, {1, 3, 5}},
                {"prominence=1.1", {0, 3, 1, 2, 0.5, 4, 0}, {1, 5}},
                {"width=2", {0, 1, 2, 1, 0}, {2}},
                {"width=2.01", {0, 1, 2, 1, 0}, {}},
                // The peak that removes another one falls itself afterwards.
                {"distance=3\nprominence=1", {0, 6, 0, 8, 7.9, 8.5, 30, 0}, {6}}};
    for (const auto& row : rows)
        EXPECT_EQ(Find(row.settings, row.samples), row.positions)
            << row.settings << " " << row.samples.size();
    ASSERT_THAT(Find("", {0, 3, 1, 2, 0.5, 4, 0}), ElementsAre(1, 3, 5));
    EXPECT_DOUBLE_EQ(bench.Result("prominence_mean"), (2.5 + 1.0 + 4.0) / 3);
}

constexpr const char* SCIPY = R"(
import numpy, sys
from scipy import misc, signal
if numpy.lib.NumpyVersion(numpy.__version__) >= '1.25.0':
    sys.exit('this NumPy has another sort, which decides between equal peaks')
rng = numpy.random.default_rng(5)
ecg = misc.electrocardiogram()
cases = [(ecg, 360, 0.5, 1.0, 0.25, 0), (numpy.round(40 * ecg), 360, 1, 20, 0.3, 0), (ecg, 360, None, 0.3, 0, 0.02), (ecg[:20000], 360, None, None, 0.1, 0),
         (numpy.cumsum(rng.normal(size=30000)), 1000, None, 2.0, 0, 0.004),
         (rng.normal(size=30000), 1000, 0.5, 1.5, 0.003, 0.001),
         (numpy.round(5 * numpy.sin(numpy.arange(5000) / 50) + rng.normal(size=5000)), 100, None, 2, 0, 0.03)]
for values, rate, height, prominence, distance, width in cases:
    samples = [distance * rate if distance else None, width * rate if width else None]
    found = signal.find_peaks(values, height=height, prominence=prominence, distance=samples[0], width=samples[1])
    settings = [f'{n}={v}' for n, v in (('height', height), ('prominence', prominence), ('distance', distance),
                                        ('width', width)) if v]
    print(rate, len(values), len(found[0]), len(settings), *settings)
    print(*(repr(float(v)) for v in values))
    print(*found[0])
    print(*([float(numpy.mean(found[1]['prominences'])) if prominence else 0,
             float(numpy.mean(found[1]['widths'])) / rate if width else 0]))
)";

// On a recording of a heart, noise, and values with many plateaus, however they are cut.
TEST_F(Peaks, OfRecordingsAreThoseOfSciPy) {
    std::ofstream("peaks.py") << SCIPY;
    if (std::system("/usr/bin/python3 peaks.py >peaks.txt 2>peaks.err") != 0)
        GTEST_SKIP() << "python3 with SciPy and its electrocardiogram is not there: "
                     << ReadText("peaks.err");
    std::ifstream file("peaks.txt");
    double rate = 0.0;
    std::size_t samples = 0, peaks = 0, count = 0;
    int cases = 0;
    for (; file >> rate >> samples >> peaks >> count; ++cases) {
        std::string settings, setting;
        for (; count > 0 && file >> setting; --count) settings += setting + "\n";
        SCOPED_TRACE(settings);
        std::vector<double> values(samples);
        std::vector<int> positions(peaks);
        for (double& value : values) file >> value;
        for (int& position : positions) file >> position;
        double prominence = 0.0, width = 0.0;
        file >> prominence >> width;
        EXPECT_GT(peaks, 100U);
        EXPECT_EQ(Find(settings, values, rate), positions);
        EXPECT_EQ(Find(settings, values, rate, 777), positions);
        EXPECT_NEAR(prominence > 0.0 ? bench.Result("prominence_mean") / prominence : 1.0, 1.0, 1e-12);
        EXPECT_NEAR(width > 0.0 ? bench.Result("width_mean") / width : 1.0, 1.0, 1e-12);
    }
    EXPECT_EQ(cases, 7);
}

TEST_F(Peaks, SayHowFarApartTheyAre) {
    std::vector<double> samples(10000);
    for (const int position : {100, 1100, 1900, 3100}) samples[static_cast<std::size_t>(position)] = 2.0;
    EXPECT_THAT(Find("", samples, 1000.0), ElementsAre(100, 1100, 1900, 3100));
    EXPECT_EQ(bench.Result("peaks"), 4.0);
    EXPECT_EQ(bench.Result("height_mean"), 2.0);
    EXPECT_EQ(bench.Samples(0)[1900], 2.0) << "its prominence";
    EXPECT_DOUBLE_EQ(bench.Result("interval_mean"), 1.0);
    EXPECT_DOUBLE_EQ(bench.Result("interval_min"), 0.8);
    EXPECT_DOUBLE_EQ(bench.Result("interval_max"), 1.2);
    EXPECT_NEAR(bench.Result("interval_stddev"), std::sqrt(0.08 / 3), 1e-12);
    EXPECT_DOUBLE_EQ(bench.Result("rate"), 1.0);
    EXPECT_STREQ(bench.Module().GetResults()[1].unit, "V * 1e-003");
    EXPECT_STREQ(bench.Module().GetResults()[7].unit, "Hz");
    EXPECT_EQ(bench.States(0), "START BUSY STOP");
    EXPECT_EQ(bench.Blocks(0)[1].GetTimestamp(), 1e12 + 4096.0);
}

TEST_F(Peaks, RefuseWhatDoesNotFit) {
    EXPECT_FALSE(bench.Set("height=much\nprominence=1 °C"));
    EXPECT_EQ(bench.Error(),
              "height: 'much' is not valid; expected a number and a unit, as 0.5 mV\n"
              "prominence: '1 °C' is not valid; expected a number and a unit, as 0.5 mV");
    ASSERT_TRUE(bench.Set("height=1 Pa"));
    EXPECT_FALSE(bench.Run({0, 1, 0}, {"test", 1.0, "V"}));
    EXPECT_EQ(bench.Error(), "height: '1 Pa' is not valid; expected V, as the signal has");
    ASSERT_TRUE(bench.Set("most_samples=2"));
    EXPECT_FALSE(bench.Run({0, 1, 0}));
    EXPECT_THAT(bench.Error(), HasSubstr("most_samples: the signal 'test' has more than 2"));
}

}  // namespace
