#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

constexpr double RATE = 48000.0;

std::vector<double> Noise(std::size_t count) {
    std::vector<double> samples(count);
    std::uint32_t state = 1;
    for (double& sample : samples) {
        state = state * 1664525U + 1013904223U;
        sample = state / 2147483648.0 - 1.0;
    }
    return samples;
}

struct Spectrogram : testing::Test {
    Spectrogram() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    void Measure(const std::string& settings, const std::vector<double>& samples, int block = 1000) {
        ASSERT_TRUE(bench.Set(settings)) << bench.Error();
        ASSERT_TRUE(bench.Start() && bench.Feed(0, samples, {"", RATE, "V", 1e12}, block)) << bench.Error();
        ASSERT_TRUE(bench.Finish());
    }
    ModuleBench bench{"spectrogram", "Spectrogram"};
};

// Made with scipy.signal.spectrogram of SciPy 1.10.1: the number of slices, and three cells.
TEST_F(Spectrogram, IsThatOfSciPy) {
    const struct {
        const char* settings;
        std::size_t bins, slices;
        struct {
            std::size_t bin, slice;
            double time, value;
        } cells[3];
    } rows[] = {{"window=hann\nlength=256\noverlap=0.5\nscale=density",
                 129,
                 22,
                 {{7, 0, 0.0026666666666666666, 9.89376050630308e-06},
                  {1, 3, 0.010666666666666666, 3.073240579137679e-05},
                  {100, 21, 0.058666666666666666, 2.6245028011026756e-06}}},
                {"window=hann\nlength=250\noverlap=0.9\nscale=power",
                 126,
                 111,
                 {{7, 0, 0.0026041666666666665, 0.004047938305936782},
                  {1, 3, 0.004166666666666667, 0.0029757198116660004},
                  {100, 110, 0.059895833333333336, 0.001556289508814978}}},
                {"window=blackman\nlength=333\noverlap=0\nscale=density",
                 167,
                 9,
                 {{7, 0, 0.00346875, 1.6374375151388774e-05},
                  {1, 3, 0.02428125, 1.9474693760343886e-06},
                  {100, 8, 0.05896875, 3.567388124037315e-05}}},
                {"window=kaiser\nlength=256\noverlap=0.75\nscale=power",
                 129,
                 43,
                 {{7, 0, 0.0026666666666666666, 0.0020024403399579076},
                  {1, 3, 0.006666666666666667, 0.0006913814530956993},
                  {100, 42, 0.058666666666666666, 0.0005705365385021277}}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.settings);
        Measure(row.settings, Noise(3000));
        const std::vector<double> whole = bench.Samples(0);
        ASSERT_EQ(bench.Blocks(0).size(), row.slices);
        ASSERT_EQ(whole.size(), row.slices * row.bins);
        for (const auto& cell : row.cells) {
            EXPECT_NEAR(whole[cell.slice * row.bins + cell.bin] / cell.value, 1.0, 1e-12) << cell.slice;
            EXPECT_NEAR(bench.Blocks(0)[cell.slice].GetTimestamp(), 1e12 + 1000.0 * cell.time, 1e-3);
        }
        Measure(row.settings, Noise(3000), 77);
        EXPECT_EQ(bench.Samples(0), whole) << "however it is cut";
    }
}

TEST_F(Spectrogram, IsASignalWithABlockForEachSlice) {
    Measure("length=1000\noverlap=0", Noise(3999));
    EXPECT_EQ(bench.States(0), "START BUSY STOP");
    const TCTypeInfo& ti = bench.Blocks(0)[1];
    TCString unit;
    EXPECT_STREQ(ti.GetUnit().ToString(unit), "V");
    EXPECT_STREQ(ti.GetSignalname(), "Signal") << "that of the port";
    EXPECT_EQ(ti.GetSamplerate(), 1000.0 / RATE);
    std::vector<double> samples(4000);
    for (std::size_t i = 2000; i < 3000; ++i) samples[i] = std::cos(M_PI * 0.1 * static_cast<double>(i));
    samples[0] = std::numeric_limits<double>::quiet_NaN();
    Measure("length=1000\noverlap=0\nwindow=rectangular", samples);
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("not finite: 1"));
    EXPECT_EQ(bench.Blocks(0).size(), 3U);
    EXPECT_EQ(bench.Result("slices", "Signal"), 3.0);
    EXPECT_NEAR(bench.Result("peak_value", "Signal"), std::sqrt(0.5), 1e-12);
    EXPECT_DOUBLE_EQ(bench.Result("peak_frequency", "Signal"), 2400.0);
    EXPECT_DOUBLE_EQ(bench.Result("peak_time", "Signal"), 2500.0 / RATE);
    Measure("length=1000", std::vector<double>(999, 1.0));
    EXPECT_TRUE(bench.Blocks(0).empty());
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("no spectrum of 999 samples"));
}

// A long block with short hops would put a thousand slices into the lines at once.
TEST_F(Spectrogram, SendsSomeSlicesAtATime) {
    ASSERT_TRUE(bench.Set("length=100\noverlap=0.99") && bench.Start());
    TCTypeInfo ti;
    ti.SetSamplerate(RATE);
    ti.SetState(COMPLETE);
    const std::vector<double> samples = Noise(1099);
    bench.Input(0).SetTI(&ti, false);
    bench.Input(0).WriteDblVec(samples.data(), static_cast<int>(samples.size()));
    ASSERT_TRUE(bench.Pump(1));
    EXPECT_LE(bench.Blocks(0).size(), 16U);
    ASSERT_TRUE(bench.Pump());
    EXPECT_EQ(bench.Blocks(0).size(), 1000U);
}

}  // namespace
