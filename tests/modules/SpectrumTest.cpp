#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

constexpr double PI = std::numbers::pi;

std::vector<double> Cosines(int samples, int period, std::vector<std::pair<int, double>> parts,
                            double offset) {
    std::vector<double> values(static_cast<std::size_t>(samples), offset);
    for (std::size_t i = 0; i < values.size(); ++i) {
        for (const auto& [bin, amplitude] : parts) {
            values[i] += amplitude * std::cos(2 * PI * bin * static_cast<double>(i) / period);
        }
    }
    return values;
}

struct Spectrum : testing::Test {
    void Measure(const std::string& settings, const std::vector<double>& samples,
                 const TestSignal& signal = {}) {
        EXPECT_TRUE(bench.Set(settings)) << bench.Error();
        EXPECT_TRUE(bench.Run(samples, signal)) << bench.Error();
    }
    Spectrum() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    ModuleBench bench{"spectrum", "Spectrum"};
};

// A cosine in the middle of bin k reaches amplitude * sum of the window / 2 there, and the window's own
// coefficients beside it.
TEST_F(Spectrum, OfACosineIsTheWindowsOwnSpectrum) {
    const struct {
        const char* window;
        double peak, beside, next;
    } rows[] = {{"rectangular", 1.0, 0.0, 0.0},
                {"hann", 0.5, 0.25, 0.0},
                {"hamming", 0.54, 0.23, 0.0},
                {"blackman", 0.42, 0.25, 0.04}};
    for (const auto& row : rows) {
        Measure(std::string("length=1000\nwindow=") + row.window, Cosines(1000, 1000, {{50, 2.0}}, 7.0));
        const std::vector<double>& bins = bench.Samples(0);
        ASSERT_EQ(bins.size(), 501U) << row.window;
        EXPECT_NEAR(bins[50], 1000.0 * row.peak, 1e-9) << row.window;
        EXPECT_NEAR(bins[51], 1000.0 * row.beside, 1e-9) << row.window;
        EXPECT_NEAR(bins[48], 1000.0 * row.next, 1e-9) << row.window;
        EXPECT_NEAR(bins[0], 0.0, 1e-9) << row.window;
        EXPECT_EQ(bench.Result("peak_bin"), 50.0);
        EXPECT_EQ(bench.Result("peak_frequency"), 50.0);
        EXPECT_NEAR(bench.Result("peak_magnitude"), 1000.0 * row.peak, 1e-9);
        EXPECT_NEAR(bench.Result("peak_amplitude"), 2.0, 1e-12);
    }
}

// Half way between bins all terms of a window add up, so that a wrong sign of any shows; by the definition.
TEST_F(Spectrum, OfACosineBetweenBinsIsWhatTheDefinitionSays) {
    const std::tuple<const char*, double, double> rows[] = {
        {"rectangular", 209.12037102505354, 633.5610924634686},
        {"hann", 84.88247483755828, 424.4133382784961},
        {"hamming", 61.363220889988874, 441.1449350873127},
        {"blackman", 123.68606910206968, 370.0883507185735}};
    std::vector<double> samples(1000);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = 2.0 * std::cos(2 * PI * 50.5 * static_cast<double>(i) / 1000);
    for (const auto& [window, at49, at50] : rows) {
        Measure(std::string("length=1000\nwindow=") + window, samples);
        EXPECT_NEAR(bench.Samples(0)[49], at49, 1e-9) << window;
        EXPECT_NEAR(bench.Samples(0)[50], at50, 1e-9) << window;
    }
}

TEST_F(Spectrum, OutputTellsItsAxisAndUnit) {
    Measure("length=8192\nscale=amplitude", Cosines(20000, 8192, {{100, 3.0}}, 0.0),
            {"voice", 48000.0, "V", 1e12});
    ASSERT_EQ(bench.States(0), "COMPLETE");
    const TCTypeInfo& ti = bench.Blocks(0)[0];
    EXPECT_EQ(ti.GetSamplerate(), 8192.0 / 48000.0);
    EXPECT_EQ(ti.GetTimestamp(), 1e12);
    EXPECT_STREQ(ti.GetSignalname(), "voice");
    EXPECT_NEAR(bench.Samples(0)[100], 3.0, 1e-12);
    EXPECT_STREQ(bench.Module().GetResults()[1].unit, "Hz");
    EXPECT_STREQ(bench.Module().GetResults()[2].unit, "V");
    Measure("length=2", {1.0, -1.0}, {""});
    EXPECT_STREQ(bench.Blocks(0)[0].GetSignalname(), "Signal") << "that of the port";
}

// Of nine segments of 256 with half overlap four are loud, four silent, and one is half of each; without
// overlap two, two and one.
TEST_F(Spectrum, PowerIsTheRootOfTheMeanSquareOfAllSegments) {
    std::vector<double> samples = Cosines(1280, 256, {{16, 1.0}}, 0.0);
    for (std::size_t i = 640; i < samples.size(); ++i) samples[i] = 0.0;
    Measure("length=256\nwindow=rectangular\naverage=power\noverlap=0.5", samples);
    EXPECT_NEAR(bench.Samples(0)[16], 128.0 * std::sqrt((4.0 + 0.25) / 9.0), 1e-9);
    Measure("length=256\nwindow=rectangular\naverage=power", samples);
    EXPECT_NEAR(bench.Samples(0)[16], 128.0 * std::sqrt((2.0 + 0.25) / 5.0), 1e-9);
    Measure("length=256\nwindow=rectangular\naverage=first", samples);
    EXPECT_NEAR(bench.Samples(0)[16], 128.0, 1e-9);
}

// A sine of amplitude 3, samplerate and length 1000: its mean square is 4.5, and a window of the noise
// bandwidth 1.5 bins, or 3.770246447 (Hann, flat top), spreads that over so many Hz.
TEST_F(Spectrum, ScalesAsItSays) {
    const struct {
        const char *window, *scale;
        double peak;
        const char* unit;
    } rows[] = {{"hann", "amplitude", 3.0, "m"},
                {"hann", "rms", std::sqrt(4.5), "m"},
                {"flattop", "power", 4.5, "m^2"},
                {"rectangular", "density", 4.5, "m^2 s"},
                {"hann", "density", 3.0, "m^2 s"},
                {"flattop", "density", 1.193555929, "m^2 s"},
                {"hann", "root_density", std::sqrt(3.0), ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.window) + " " + row.scale);
        Measure(std::string("length=1000\nwindow=") + row.window + "\nscale=" + row.scale,
                Cosines(1000, 1000, {{50, 3.0}}, 2.0), {"test", 1000.0, "m"});
        EXPECT_NEAR(bench.Samples(0)[50], row.peak, 1e-9);
        EXPECT_NEAR(bench.Result("peak_amplitude"), 3.0, 1e-12);
        EXPECT_EQ(std::isnan(bench.Result("peak_value")), std::string("amplitude") == row.scale);
        TCString unit;
        EXPECT_STREQ(bench.Blocks(0)[0].GetUnit().ToString(unit), row.unit);
    }
}

// Made with scipy.signal.welch of SciPy 1.10.1: 256 samples a segment, 128 overlap, at 48 kHz. The bins 1, 7
// and 128, which is half the rate.
TEST_F(Spectrum, AgreesWithWelchOfSciPy) {
    const struct {
        const char *window, *scale;
        double bins[3];
    } rows[] = {
        {"hann", "density", {1.1476873261215892e-05, 1.6301580589928953e-05, 7.140624248313941e-06}},
        {"hann", "power", {0.00322787060471697, 0.004584819540917518, 0.0020083005698382957}},
        {"rectangular", "density", {1.6078769275185942e-05, 1.7078488075526865e-05, 4.151074931478915e-06}},
        {"hamming", "power", {0.003136452218138344, 0.004183784357125007, 0.0017275315476187514}},
        {"blackman", "density", {1.0809638752718522e-05, 1.5849400371158617e-05, 7.708278907501025e-06}},
        {"flattop", "density", {1.0057967040951968e-05, 1.402902075088957e-05, 8.219134684967537e-06}},
        {"flattop", "power", {0.007110190219622298, 0.009917412308840922, 0.005810280627573361}},
        {"kaiser", "density", {1.0835886101621312e-05, 1.5847772664784865e-05, 7.701458955364135e-06}},
        {"kaiser", "power", {0.0034973694818937638, 0.005114996222183973, 0.0024857078843342445}}};
    std::vector<double> samples(3000);
    std::uint32_t state = 1;
    for (double& sample : samples) {
        state = state * 1664525U + 1013904223U;
        sample = state / 2147483648.0 - 1.0;
    }
    for (const auto& row : rows) {
        Measure(std::string("length=256\noverlap=0.5\nwindow=") + row.window + "\nscale=" + row.scale,
                samples, {"test", 48000.0});
        const std::size_t places[] = {1, 7, 128};
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(bench.Samples(0)[places[i]] / row.bins[i], 1.0, 1e-12)
                << row.window << row.scale << i;
    }
}

TEST_F(Spectrum, LeavesOutSegmentsThatAreNotFinite) {
    std::vector<double> samples = Cosines(3000, 1000, {{50, 1.0}}, 0.0);
    samples[10] = std::numeric_limits<double>::quiet_NaN();
    samples[1500] = std::numeric_limits<double>::infinity();
    Measure("length=1000", samples);
    EXPECT_NEAR(bench.Result("peak_amplitude"), 1.0, 1e-12);
    EXPECT_EQ(bench.Blocks(0)[0].GetTimestamp(), 1e12 + 2000.0);
    EXPECT_THAT(ModuleBench::TakeWarnings(), testing::HasSubstr("not finite: 2"));
}

TEST_F(Spectrum, SaysThatAShortSignalHasNone) {
    Measure("length=1000", std::vector<double>(999, 1.0));
    EXPECT_TRUE(bench.Blocks(0).empty());
    EXPECT_EQ(bench.Module().GetResults().GetSize(), 0);
    EXPECT_THAT(ModuleBench::TakeWarnings(), testing::HasSubstr("999 samples"));
    ASSERT_TRUE(bench.Start() && bench.Feed(0, {1.0, 2.0}, {}, 1000, true, false) && bench.Finish());
    EXPECT_THAT(ModuleBench::TakeWarnings(), testing::HasSubstr(" 2 samples")) << "its end did not come";
}

}  // namespace
