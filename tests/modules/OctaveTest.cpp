#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "modules/octave/BandMeter.h"
#include "sigweave/signal/TCBusSerializeHelper.h"
#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

const double G = std::pow(10.0, 0.3);

double LimitAt(double place, const std::vector<std::pair<double, double>>& points) {
    for (std::size_t i = 1; i < points.size(); ++i) {
        const auto& [left, below] = points[i - 1];
        const auto& [right, above] = points[i];
        if (place <= right) return below + (above - below) * (place - left) / (right - left);
    }
    return points.back().second;
}

// The breakpoint G^exponent of octaves for bands of that fraction (IEC 61260-1:2014, its formula 10); its
// logarithm, since limits are linear in that.
double Breakpoint(int fraction, double exponent) {
    const double scale = (std::pow(G, 0.5 / fraction) - 1) / (std::sqrt(G) - 1);
    return std::log(1 + scale * (std::pow(G, exponent) - 1));
}

// IEC 61260-1:2014, table 1, class 1: the least and the greatest relative attenuation.
std::pair<double, double> Class1(int fraction, double place) {
    static const std::pair<double, double> PASS[] = {
        {0, 0.4}, {0.125, 0.5}, {0.25, 0.7}, {0.375, 1.4}, {0.5, 5.3}};
    static const std::pair<double, double> STOP[] = {{0.5, 1.2}, {1, 16.6}, {2, 40.5}, {3, 60}, {4, 70}};
    std::vector<std::pair<double, double>> pass, stop;
    for (const auto& [exponent, limit] : PASS) pass.emplace_back(Breakpoint(fraction, exponent), limit);
    for (const auto& [exponent, limit] : STOP) stop.emplace_back(Breakpoint(fraction, exponent), limit);
    const bool inside = place < pass.back().first;
    return {inside ? -0.4 : LimitAt(place, stop), inside ? LimitAt(place, pass) : INFINITY};
}

// Tones through all bands at once, so that what halving the rate folds into a band counts too.
void ExpectClass1(int fraction, double rate, double lowest, int tonesPerOctave) {
    const std::vector<tc::OctaveBand> bands = tc::FindBands(fraction, lowest, 20000.0, rate);
    const double seconds = 16.0 / bands.front().Width() * (bands.front().Width() < 10.0 ? 1.0 : 1.5);
    const auto half = static_cast<std::int64_t>(seconds * rate / 2);
    for (double tone = lowest / 2; tone < 0.499 * rate; tone *= std::pow(2.0, 1.0 / tonesPerOctave)) {
        tc::BandMeter meter(bands, rate, half);
        std::vector<double> samples(static_cast<std::size_t>(2 * half));
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = std::sin(2 * std::numbers::pi * tone * static_cast<double>(i) / rate);
        std::vector<double> rows;
        meter.Add(samples.data(), static_cast<int>(samples.size()), rows);
        for (std::size_t i = 0; i < bands.size(); ++i) {
            const double middle = std::pow(10.0, 0.1 * bands[i].number);
            const double attenuation = -10 * std::log10(2 * rows[bands.size() + i]);  // once settled
            const auto [least, greatest] = Class1(fraction, std::fabs(std::log(tone / middle)));
            ASSERT_GE(attenuation, least) << bands[i].NominalName() << ", " << tone << " Hz at " << rate;
            ASSERT_LE(attenuation, greatest) << bands[i].NominalName() << ", " << tone << " Hz at " << rate;
        }
    }
}

TEST(OctaveBands, MeetClass1) {
    ExpectClass1(3, 48000.0, 100.0, 24);
    ExpectClass1(1, 48000.0, 63.0, 16);
    ExpectClass1(3, 44100.0, 160.0, 24);
    ExpectClass1(1, 25600.0, 125.0, 16);
}

// The lowest bands, far below the rate; each octave is as the one above it, so few tones do.
TEST(OctaveBands, MeetClass1FarBelowTheRate) {
    ExpectClass1(3, 48000.0, 16.0, 2);
}

// Nominal and exact middles of IEC 61260-1; 31.5 is 31.6228 Hz.
TEST(OctaveBands, HaveTheNamesAndEdgesOfTheStandard) {
    const std::vector<tc::OctaveBand> thirds = tc::FindBands(3, 10.0, 20000.0, 48000.0);
    const char* names[] = {"10",   "12.5", "16",   "20",    "25",    "31.5",  "40",   "50",   "63",
                           "80",   "100",  "125",  "160",   "200",   "250",   "315",  "400",  "500",
                           "630",  "800",  "1000", "1250",  "1600",  "2000",  "2500", "3150", "4000",
                           "5000", "6300", "8000", "10000", "12500", "16000", "20000"};
    ASSERT_EQ(thirds.size(), std::size(names));
    for (std::size_t i = 0; i < thirds.size(); ++i) EXPECT_EQ(thirds[i].NominalName(), names[i]);
    EXPECT_NEAR(thirds[5].lower, 28.183829, 1e-6);
    EXPECT_NEAR(thirds[33].upper, 22387.211386, 1e-5);
    const std::vector<tc::OctaveBand> octaves = tc::FindBands(1, 31.5, 16000.0, 44100.0);
    ASSERT_EQ(octaves.size(), 9U) << "the highest ends at 22387 Hz, above half the rate";
    EXPECT_EQ(octaves[0].NominalName(), "31.5");
    EXPECT_NEAR(octaves[8].upper, 11220.184543, 1e-5);
    EXPECT_EQ(tc::FindBands(3, 0.1, 0.2, 48000.0)[1].NominalName(), "0.125");
}

struct Octave : testing::Test {
    Octave() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    void Measure(const std::string& settings, double seconds, int block) {
        std::vector<double> samples(static_cast<std::size_t>(seconds * 48000.0));
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = 2.0 * std::sin(2 * std::numbers::pi * static_cast<double>(i) / 48.0);
        ASSERT_TRUE(bench.Set(settings)) << bench.Error();
        ASSERT_TRUE(bench.Start() && bench.Feed(0, samples, {"mic", 48000.0, "P * 1e-003"}, block))
            << bench.Error();
        ASSERT_TRUE(bench.Finish());
    }
    ModuleBench bench{"octave", "Octave"};
};

TEST_F(Octave, MeasuresBandsInTheUnitOrInDecibels) {
    Measure("fraction=1/1\nlowest=500\nhighest=2000\nscale=rms", 2.0, 1000);
    EXPECT_NEAR(bench.Result("band_1000_Hz", "mic"), std::numbers::sqrt2, 0.005);
    EXPECT_LT(bench.Result("band_500_Hz", "mic"), 0.1);
    EXPECT_STREQ(bench.Module().GetResults()[1].unit, "P * 1e-003");
    Measure("fraction=1/1\nlowest=500\nhighest=2000", 2.0, 1000);
    // 2 / sqrt(2) mPa against 20 uPa
    EXPECT_NEAR(bench.Result("band_1000_Hz_dB", "mic"), 36.9897, 0.02);
    EXPECT_NEAR(bench.Result("reference", "mic"), 20e-6, 1e-18);
}

TEST_F(Octave, SendsABusWithAChannelForEachBand) {
    std::vector<double> first;
    for (const int block : {1000, 7919}) {
        Measure("lowest=800\nhighest=1250\ninterval=0.25\nscale=rms", 1.1, block);
        TCIOStream& bus = bench.Stream(0);
        std::vector<double> values;
        std::string states;
        while (bus.StartReadSegments(true) > 0) {
            ASSERT_EQ(bus.SegmentCnt(), 3);
            TCTypeInfo ti;
            const TCIOStream::DataSegment* segment = bus.ReadBusSegment(1, &ti);
            ASSERT_NE(segment, nullptr);
            EXPECT_EQ(ti.GetTimestamp(), 1e12 + 250.0 * static_cast<double>(values.size()));
            values.insert(values.end(), segment->GetDoubles(),
                          segment->GetDoubles() + segment->GetElementCount());
            states += TCTypeInfo::BlockStateToString(ti.GetState()) + std::string(" ");
            EXPECT_STREQ(ti.GetSignalname(), "mic 1000 Hz");
            EXPECT_EQ(ti.GetSamplerate(), 4.0);
        }
        EXPECT_EQ(states, block == 1000 ? "START BUSY BUSY STOP " : "START BUSY STOP ");
        ASSERT_EQ(values.size(), 4U);
        EXPECT_NEAR(values[3], std::numbers::sqrt2, 0.005);
        if (first.empty()) first = values;
        EXPECT_EQ(values, first);
    }
}

TEST_F(Octave, SaysWhatItCannotMeasure) {
    EXPECT_FALSE(bench.Set("lowest=100\nhighest=50"));
    EXPECT_THAT(bench.Error(),
                HasSubstr("highest: '50' is not valid; expected at least the 100 Hz of lowest"));
    ASSERT_TRUE(bench.Set("lowest=4000"));
    EXPECT_FALSE(bench.Run({1.0}, {"mic", 8000.0}));
    EXPECT_THAT(bench.Error(), HasSubstr("lowest: '4000' is not valid for 'mic' at 8000 samples per second; "
                                         "expected a band that ends below 3840 Hz"));
    Measure("", 0.1, 1000);
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("mic: 0.1 s are too short for bands up to 125 Hz"));
}

}  // namespace
