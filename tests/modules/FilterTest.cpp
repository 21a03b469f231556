#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <numbers>

#include "tests/support/ModuleBench.h"

namespace {

constexpr double RATE = 48000.0;

struct Filter : testing::Test {
    Filter() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    std::vector<double> Pass(const std::string& settings, const std::vector<double>& samples) {
        EXPECT_TRUE(bench.Set(settings)) << bench.Error();
        EXPECT_TRUE(bench.Run(samples, {"test", RATE})) << bench.Error();
        return bench.Samples(0);
    }
    // The transfer function, of an impulse that has died away within that number of samples.
    std::vector<std::complex<double>> Response(const std::string& settings,
                                               const std::vector<double>& frequencies, std::size_t samples) {
        std::vector<double> impulse(samples);
        impulse[0] = 1.0;
        const std::vector<double> answer = Pass(settings, impulse);
        std::vector<std::complex<double>> response;
        for (const double frequency : frequencies) {
            std::complex<long double> sum;
            for (std::size_t i = 0; i < answer.size(); ++i)
                sum += std::polar<long double>(answer[i], -2 * std::numbers::pi_v<long double> * frequency /
                                                              RATE * static_cast<long double>(i));
            response.emplace_back(sum);
        }
        return response;
    }
    ModuleBench bench{"filter", "Filter"};
};

std::vector<double> Noise(std::size_t samples) {
    std::vector<double> values(samples);
    std::uint32_t state = 1;
    for (double& value : values) {
        state = state * 1664525U + 1013904223U;
        value = state / 2147483648.0 - 1.0;
    }
    return values;
}

struct Row {
    const char* settings;
    struct {
        double frequency;
        std::complex<double> response;
    } points[2];
    double outputs[2];  // of the samples 40 and 2999 of the noise
    double peak;        // of all 3000
};

// Made by filter_table.py with SciPy 1.10.1.
const Row ROWS[] = {
    {"type=lowpass\norder=1\ncorner=1000",
     {{800.0, {0.6100011077035158, -0.48774968611368547}},
      {1100.0, {0.452339788051932, -0.4977233209294746}}},
     {0.27016838108482744, 0.05163070801754559},
     0.4924391263231759},
    {"type=lowpass\norder=4\ncorner=1000",
     {{800.0, {-0.6632696485083821, -0.6456863165530486}},
      {1100.0, {-0.5296774631188425, 0.19242732008330077}}},
     {-0.07707215700791273, -0.13497889884131276},
     0.3746574826561851},
    {"type=lowpass\norder=12\ncorner=480",
     {{384.0, {0.8887999397540498, -0.45315315295348435}},
      {528.0, {-0.06615812449455964, 0.29606174573344635}}},
     {-6.822862873822099e-06, 0.13670429623300004},
     0.21289351109683194},
    {"type=highpass\norder=5\ncorner=9600",
     {{7680.0, {0.10006905657643458, -0.21897182389202519}},
      {10560.0, {-0.8746667267864964, -0.14324011023071537}}},
     {0.3526061315228154, 0.4800490737021653},
     1.3472657729436892},
    {"type=highpass\norder=12\ncorner=480",
     {{384.0, {0.060991090418221025, -0.031096204768800022}},
      {528.0, {-0.20780483144266604, 0.9299396202475163}}},
     {0.07458301126859103, 0.026291396068939155},
     1.643906301706374},
    {"type=bandpass\norder=1\ncorner=3000\nupper_corner=6000",
     {{2400.0, {0.26149461732832247, 0.43944872560588516}},
      {6600.000000000001, {0.3677805584385948, -0.4822012228034996}}},
     {0.23060071818406358, 0.13575285629081557},
     0.7865514845760864},
    {"type=bandpass\norder=5\ncorner=2400\nupper_corner=19200",
     {{1920.0, {0.0858333937725245, -0.26753721586177126}},
      {21120.0, {0.05481613358566323, 0.020352672989089857}}},
     {-0.24457364526303138, -0.15148711067132242},
     1.6448883385223603},
    {"type=bandpass\norder=12\ncorner=4800\nupper_corner=5760",
     {{3840.0, {-2.2835476458830485e-07, -2.8336347723590437e-07}},
      {6336.000000000001, {-0.00011941820546200043, -8.896323697677503e-05}}},
     {-7.235168883116325e-06, 0.17705282329104907},
     0.36752564758608663},
    {"type=bandstop\norder=3\ncorner=3000\nupper_corner=6000",
     {{2400.0, {0.2794226814149505, -0.9377716878136798}},
      {6600.000000000001, {-0.13657255345394526, 0.9038063264439427}}},
     {0.6966797944368436, -0.10770964491984636},
     1.6788295730683522},
    {"type=bandstop\norder=12\ncorner=4800\nupper_corner=14400",
     {{3840.0, {0.8933682463712695, 0.4490447869210561}},
      {15840.000000000002, {0.9835178299790525, -0.1789715115665725}}},
     {0.015729838115923322, -0.6012268480347762},
     1.75831920790917},
};

TEST_F(Filter, AgreesWithSciPy) {
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.settings);
        const auto response =
            Response(row.settings, {row.points[0].frequency, row.points[1].frequency}, 10000);
        const std::vector<double> output = Pass(row.settings, Noise(3000));
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_LT(std::abs(response[i] - row.points[i].response), 1e-12) << row.points[i].frequency;
            EXPECT_NEAR(output[i == 0 ? 40 : 2999], row.outputs[i], 1e-12 * row.peak);
        }
    }
}

// At 1/10000 of the rate sections in direct form are good to 1e-9. What is right is known: the square of the
// magnitude is 1 / (1 + (tan(pi f / rate) / tan(pi corner / rate))^24).
TEST_F(Filter, KeepsItsDigitsAtALowCorner) {
    const double corner = RATE / 10000;
    const std::vector<double> frequencies = {0.0, 0.9 * corner, corner, 2 * corner};
    const auto response = Response("type=lowpass\norder=12\ncorner=4.8", frequencies, 500000);
    for (std::size_t i = 0; i < frequencies.size(); ++i) {
        const double ratio =
            std::tan(std::numbers::pi * frequencies[i] / RATE) / std::tan(std::numbers::pi * corner / RATE);
        EXPECT_NEAR(std::abs(response[i]), 1 / std::sqrt(1 + std::pow(ratio, 24)), 1e-12) << frequencies[i];
    }
}

TEST_F(Filter, ForgetsItsStateOnlyWhereASignalBegins) {
    std::vector<double> samples = Noise(2000);
    samples.resize(6000);  // rings out into silence
    const std::vector<double> whole =
        Pass("type=bandpass\norder=3\ncorner=4000\nupper_corner=15000", samples);
    for (const int block : {1, 7, 333, 1999}) {
        ASSERT_TRUE(bench.Start());
        for (int signal = 0; signal < 2; ++signal)
            ASSERT_TRUE(bench.Feed(0, samples, {"test", RATE}, block)) << bench.Error();
        std::vector<double> twice = whole;
        twice.insert(twice.end(), whole.begin(), whole.end());
        EXPECT_EQ(bench.Samples(0), twice) << block;
        EXPECT_TRUE(bench.Finish());
    }
}

TEST_F(Filter, PassesOnWhatDescribesTheSignal) {
    ASSERT_TRUE(bench.Set("corner=100"));
    ASSERT_TRUE(bench.Run(Noise(2500), {"voice", 8000.0, "V * 1e-003", 1e12})) << bench.Error();
    ASSERT_EQ(bench.States(0), "START BUSY STOP");
    const TCTypeInfo& last = bench.Blocks(0)[2];
    TCString unit;
    EXPECT_STREQ(last.GetUnit().ToString(unit), "V * 1e-003");
    EXPECT_STREQ(last.GetSignalname(), "voice");
    EXPECT_EQ(last.GetSamplerate(), 8000.0);
    EXPECT_EQ(last.GetTimestamp(), 1e12 + 250.0);
    EXPECT_EQ(last.GetRangeMax(), std::numeric_limits<double>::max());  // unknown
}

TEST_F(Filter, PassesOnABlockWithoutSamples) {
    ASSERT_TRUE(bench.Set("corner=100") && bench.Start());
    TCTypeInfo ti;
    ti.SetSamplerate(RATE);
    for (const auto& [state, samples] : {std::pair{START, 0U}, {BUSY, 5U}, {STOP, 0U}, {INVALID, 2U}}) {
        ti.SetState(state);
        ASSERT_TRUE(bench.Send(0, ti, Noise(samples))) << bench.Error();
    }
    EXPECT_EQ(bench.States(0), "START BUSY STOP COMPLETE");
    EXPECT_EQ(bench.Samples(0).size(), 7U);
}

TEST_F(Filter, RefusesImpossibleCorners) {
    const struct {
        const char *settings, *message;
    } rows[] = {
        {"corner=0", "corner: '0' is not valid; expected more than 0 Hz and less than half the"},
        {"corner=-3", "corner: '-3' is not valid"},
        {"corner=nan", "corner: 'nan' is not valid; expected a number"},
        {"order=3", "corner: must be given"},
        {"type=bandpass\ncorner=50", "upper_corner: '0' is not valid; expected more than 50 Hz"},
        {"type=bandstop\ncorner=50\nupper_corner=50", "upper_corner: '50' is not valid"},
        {"corner=50\norder=13", "an integer from 1 to 12"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(bench.Set(row.settings)) << row.settings;
        EXPECT_THAT(bench.Error(), testing::HasSubstr(row.message));
    }
    for (const char* settings : {"corner=500", "type=bandpass\ncorner=499\nupper_corner=500"}) {
        ASSERT_TRUE(bench.Set(settings));
        EXPECT_FALSE(bench.Run({1.0, 2.0}, {"voice", 1000.0}));
        EXPECT_THAT(bench.Error(), testing::ContainsRegex("^(upper_)?corner: '500' is not valid for 'voice' "
                                                          "at 1000 samples per second; .* less than 500 Hz"));
    }
}

TEST_F(Filter, HoldsForOneSamplerate) {
    ASSERT_TRUE(bench.Set("corner=100"));
    ASSERT_TRUE(bench.Start());
    EXPECT_TRUE(bench.Feed(0, {1.0, 2.0}, {"test", 1000.0}));
    EXPECT_TRUE(bench.Feed(0, {1.0, 2.0}, {"test", 2000.0}, 2, true, false)) << bench.Error();
    EXPECT_FALSE(bench.Feed(0, {1.0, 2.0}, {"test", 1000.0}, 2, false, true));
    EXPECT_THAT(bench.Error(),
                testing::HasSubstr("changes its samplerate within a signal, from 2000 to 1000"));
}

TEST_F(Filter, RefusesASignalWithoutASamplerate) {
    ASSERT_TRUE(bench.Set("corner=100"));
    EXPECT_FALSE(bench.Run({1.0, 2.0}, {"test", 0.0}));
    EXPECT_THAT(bench.Error(), testing::HasSubstr("has the samplerate 0"));
}

TEST_F(Filter, RecoversFromWhatIsNotFinite) {
    std::vector<double> samples(3000, 1.0);
    samples[1500] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(Pass("corner=1000", samples).back()));
    EXPECT_THAT(ModuleBench::TakeWarnings(), testing::HasSubstr("test: after a value that is not finite"));
    EXPECT_NEAR(Pass("corner=1000", std::vector<double>(3000, 1.0)).back(), 1.0, 1e-12);
    samples.assign(100000, 0.0);
    samples[0] = 1.0;
    EXPECT_EQ(Pass("corner=1000", samples).back(), 0.0);  // not a tail that never ends
    EXPECT_EQ(ModuleBench::TakeWarnings(), "");
}

}  // namespace
