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
     {{384.0, {0.8887999397540493, -0.4531531529534839}},
      {528.0, {-0.0661581244945596, 0.29606174573344624}}},
     {-6.822862873822091e-06, 0.13670429623300165},
     0.21289351109683027},
    {"type=highpass\norder=5\ncorner=9600",
     {{7680.0, {0.10006905657643457, -0.21897182389202519}},
      {10560.0, {-0.8746667267864964, -0.14324011023071534}}},
     {0.3526061315228154, 0.4800490737021653},
     1.3472657729436892},
    {"type=highpass\norder=12\ncorner=480",
     {{384.0, {0.06099109041822093, -0.03109620476880023}},
      {528.0, {-0.20780483144266607, 0.9299396202475163}}},
     {0.07458301126857987, 0.026291396068935824},
     1.6439063017063746},
    {"type=bandpass\norder=1\ncorner=3000\nupper_corner=6000",
     {{2400.0, {0.26149461732832247, 0.43944872560588516}},
      {6600.000000000001, {0.3677805584385948, -0.4822012228034996}}},
     {0.23060071818406358, 0.13575285629081557},
     0.7865514845760864},
    {"type=bandpass\norder=5\ncorner=2400\nupper_corner=19200",
     {{1920.0, {0.08583339377252545, -0.2675372158617713}},
      {21120.0, {0.05481613358566318, 0.02035267298908979}}},
     {-0.24457364526303038, -0.15148711067132217},
     1.6448883385223616},
    {"type=bandpass\norder=12\ncorner=4800\nupper_corner=5760",
     {{3840.0, {-2.2835476458830192e-07, -2.83363477235902e-07}},
      {6336.000000000001, {-0.00011941820546199997, -8.896323697677414e-05}}},
     {-7.235168883116267e-06, 0.1770528232910476},
     0.3675256475860863},
    {"type=bandstop\norder=3\ncorner=3000\nupper_corner=6000",
     {{2400.0, {0.2794226814149507, -0.9377716878136799}},
      {6600.000000000001, {-0.1365725534539453, 0.9038063264439427}}},
     {0.6966797944368436, -0.10770964491984636},
     1.6788295730683522},
    {"type=bandstop\norder=12\ncorner=4800\nupper_corner=14400",
     {{3840.0, {0.8933682463712679, 0.44904478692105954}},
      {15840.000000000002, {0.9835178299790562, -0.17897151156657176}}},
     {0.0157298381159231, -0.6012268480347794},
     1.7583192079091705},
    {"type=lowpass\norder=1\ncorner=1000\ndesign=chebyshev1\nripple=1",
     {{800.0, {0.8579701568767182, -0.349080745366537}}, {1100.0, {0.7613315958194243, -0.4262696294910921}}},
     {0.44055657496321726, 0.06327737860833696},
     0.6714618532231749},
    {"type=lowpass\norder=6\ncorner=1000\ndesign=chebyshev1\nripple=0.1",
     {{800.0, {-0.7289149611552491, 0.6751059504601891}},
      {1100.0, {0.6621305336581336, -0.11371837047181804}}},
     {-0.06658783163064083, -0.17145550032125528},
     0.3745341130271867},
    {"type=highpass\norder=7\ncorner=480\ndesign=chebyshev1\nripple=3",
     {{384.0, {-0.009247220143045253, -0.01261051081762484}},
      {528.0, {0.47621676154433484, 0.5280301638866332}}},
     {0.14339757276973653, -0.15099517169679189},
     1.4750294608565224},
    {"type=bandpass\norder=4\ncorner=3000\nupper_corner=6000\ndesign=chebyshev1\nripple=0.5",
     {{2400.0, {0.044855263093216545, -0.05065470471611941}},
      {6600.000000000001, {0.06916063064484841, 0.24470228216909512}}},
     {0.1705429531317606, 0.039155319914733276},
     0.7656283261545723},
    {"type=bandstop\norder=5\ncorner=4800\nupper_corner=14400\ndesign=chebyshev1\nripple=1",
     {{3840.0, {-0.9372071167147221, 0.07534474029419336}},
      {15840.000000000002, {-0.8942160890516273, -0.21219964929374566}}},
     {0.22753016508500007, 0.7187271193584095},
     1.5173560170773066},
    {"type=lowpass\norder=4\ncorner=1000\ndesign=chebyshev2\nattenuation=40",
     {{800.0, {-0.018719538785484373, 0.07811838955259226}},
      {1100.0, {-0.00044977558159010905, -0.001431625855363293}}},
     {-0.03372141688537347, -0.10273937150089074},
     0.21936740109012526},
    {"type=lowpass\norder=7\ncorner=5000\ndesign=chebyshev2\nattenuation=60",
     {{4000.0, {0.05991924050669783, -0.04425328482201978}},
      {5500.0, {0.00038633821532555373, 0.0009222320950329775}}},
     {0.11870260850401765, 0.1647424741424143},
     0.7022407697841226},
    {"type=highpass\norder=12\ncorner=480\ndesign=chebyshev2\nattenuation=80",
     {{384.0, {7.270563144935236e-06, 1.0741351909108727e-05}},
      {528.0, {0.0010711284473759687, -0.010212146284347376}}},
     {0.10201793630214923, 0.03685002862196668},
     1.6636911768256928},
    {"type=bandpass\norder=5\ncorner=2400\nupper_corner=9600\ndesign=chebyshev2\nattenuation=40",
     {{1920.0, {-0.007876567323498831, 0.00023434012743209334}},
      {10560.0, {-0.00953458517565691, -0.002652055896955633}}},
     {0.061754746066192065, 0.2820087673444395},
     0.869633612031},
    {"type=bandstop\norder=4\ncorner=3000\nupper_corner=6000\ndesign=chebyshev2\nattenuation=30",
     {{2400.0, {-0.6734287769047903, -0.43275259637147245}},
      {6600.000000000001, {-0.29060142187519816, -0.14706728170326827}}},
     {0.6892186249876086, 0.11383285614727975},
     1.6613004093031871},
    {"type=bandstop\norder=3\ncorner=4800\nupper_corner=5760\ndesign=chebyshev2\nattenuation=50",
     {{3840.0, {-0.42165769133307773, -0.10470062279866284}},
      {6336.000000000001, {-0.07983411080745595, -0.05021244069093525}}},
     {0.690273668375551, -0.012100748985440363},
     1.537264657340005},
    {"type=lowpass\norder=1\ncorner=1000\ndesign=bessel",
     {{800.0, {0.6100011077035157, -0.4877496861136858}},
      {1100.0, {0.45233978805193176, -0.4977233209294748}}},
     {0.2701683810848273, 0.051630708017545546},
     0.492439126323176},
    {"type=lowpass\norder=4\ncorner=1000\ndesign=bessel",
     {{800.0, {-0.09554428817722709, -0.8013841057628741}},
      {1100.0, {-0.4420175872257819, -0.4792347301264232}}},
     {-0.07731567722290736, 0.0016482525506371776},
     0.4087564268870905},
    {"type=lowpass\norder=12\ncorner=4800\ndesign=bessel",
     {{3840.0, {-0.8064679794051239, -0.010495149561329678}},
      {5280.0, {-0.20860585917645588, 0.6180538963664164}}},
     {0.11349417832442893, -0.0012239456232192268},
     0.8556430456948718},
    {"type=highpass\norder=7\ncorner=480\ndesign=bessel",
     {{384.0, {-0.49035179626992237, -0.2993239559049998}}, {528.0, {-0.6746760116124805, 0.33292427328313}}},
     {0.46945285771908646, -0.21783643820779125},
     1.4866986094735117},
    {"type=bandpass\norder=5\ncorner=2400\nupper_corner=9600\ndesign=bessel",
     {{1920.0, {-0.4844230380620252, -0.09371577029745047}},
      {10560.0, {-0.5782827577261972, -0.12174939149309984}}},
     {0.3049813090309851, 0.38301646581515336},
     1.0218167875127047},
    {"type=bandstop\norder=3\ncorner=3000\nupper_corner=6000\ndesign=bessel",
     {{2400.0, {0.44864966176096555, -0.7713620408895089}},
      {6600.000000000001, {0.19235171812302765, 0.8020468284214219}}},
     {0.669818106360399, -0.20227796094243095},
     1.5748121830231718},
    {"type=notch\ncorner=1000\nquality=5",
     {{800.0, {0.834894031472367, -0.37127616094248933}},
      {1020.0, {0.037739455310257075, 0.1905654449871873}}},
     {0.8323457774433473, -0.07264133247136825},
     1.1163303051587348},
    {"type=notch\ncorner=6000\nquality=2",
     {{4800.0, {0.43173959154157077, -0.49531860114181914}},
      {6120.0, {0.0061035892268012145, 0.07788668323502065}}},
     {0.8762318285246231, -0.1083614825687666},
     1.3648834844930615},
    {"type=notch\ncorner=23000\nquality=3",
     {{18400.0, {0.3138933189646873, -0.4640735968292319}},
      {23460.0, {0.02386043968232285, 0.1526142820986595}}},
     {0.6587632476024396, -0.054187962909158324},
     1.1699398413581006},
};

struct CourseRow {
    const char* settings;
    double outputs[3];  // of the samples 0, 40 and 2999 of the noise and 3
    double peak;        // of all 3000
};

// By the same program.
const CourseRow COURSE_ROWS[] = {
    {"type=lowpass\norder=4\ncorner=1000\ninitial=settled",
     {2.4729110505431735, 2.9774320057632133, 2.8650211011586677},
     3.3746574826561635},
    {"type=lowpass\norder=4\ncorner=1000\nzero_phase=yes",
     {2.459186172051556, 3.036931120040449, 3.053213838039213},
     3.343053806583791},
    {"type=highpass\norder=5\ncorner=9600\ninitial=settled",
     {0.0, 0.3526042983840046, 0.4800490737021651},
     1.3472657729436892},
    {"type=highpass\norder=5\ncorner=9600\nzero_phase=yes",
     {0.00015531668048689162, 0.19835513679506686, 0.0017462511326561264},
     1.2506873676406094},
    {"type=bandpass\norder=5\ncorner=2400\nupper_corner=19200\ninitial=settled",
     {0.0, -0.25636151458644607, -0.1514871106713221},
     1.6448883385223614},
    {"type=bandpass\norder=5\ncorner=2400\nupper_corner=19200\nzero_phase=yes",
     {-0.0034168546110083797, 0.657020331323394, -0.02937677109488185},
     1.2792517106255237},
    {"type=bandstop\norder=12\ncorner=4800\nupper_corner=14400\ninitial=settled",
     {2.472911050543189, 3.0211525582044345, 2.3987731519652176},
     4.438086256511683},
    {"type=bandstop\norder=12\ncorner=4800\nupper_corner=14400\nzero_phase=yes",
     {2.471925761598054, 3.502181103291629, 2.982767378548489},
     4.359215076080327},
    {"type=lowpass\norder=7\ncorner=5000\ndesign=chebyshev2\nattenuation=60\ninitial=settled",
     {2.472911050543188, 3.1050170318094787, 3.164742474142414},
     3.681426011306158},
    {"type=lowpass\norder=7\ncorner=5000\ndesign=chebyshev2\nattenuation=60\nzero_phase=yes",
     {2.46084816477335, 3.3051609223108533, 2.9699865625098685},
     3.671776287164874},
    {"type=highpass\norder=7\ncorner=480\ndesign=bessel\ninitial=settled",
     {-2.220446049250313e-15, 0.45285036871245876, -0.2178364382077962},
     1.4866987056048375},
    {"type=highpass\norder=7\ncorner=480\ndesign=bessel\nzero_phase=yes",
     {-0.07021016602556368, 0.8892837891294607, 0.07736922094021753},
     1.1560680895636928},
    {"type=notch\ncorner=6000\nquality=2\ninitial=settled",
     {2.472911050543189, 3.876269872054129, 2.8916385174312347},
     4.364883484493061},
    {"type=notch\ncorner=6000\nquality=2\nzero_phase=yes",
     {2.457876201912822, 3.6966018116723114, 2.9999842620096095},
     4.182778287895182},
};

TEST_F(Filter, AgreesWithSciPy) {
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.settings);
        const auto response =
            Response(row.settings, {row.points[0].frequency, row.points[1].frequency}, 40000);
        const std::vector<double> output = Pass(row.settings, Noise(3000));
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_LT(std::abs(response[i] - row.points[i].response), 1e-12) << row.points[i].frequency;
            EXPECT_NEAR(output[i == 0 ? 40 : 2999], row.outputs[i], 1e-12 * row.peak);
        }
    }
}

TEST_F(Filter, BeginsAndTurnsBackAsSciPyDoes) {
    std::vector<double> samples = Noise(3000);
    for (double& sample : samples) sample += 3.0;
    for (const CourseRow& row : COURSE_ROWS) {
        SCOPED_TRACE(row.settings);
        const std::vector<double> output = Pass(row.settings, samples);
        ASSERT_EQ(output.size(), samples.size());
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(output[i == 0 ? 0 : i == 1 ? 40 : 2999], row.outputs[i], 1e-12 * row.peak);
        ASSERT_TRUE(bench.Start() && bench.Feed(0, samples, {"test", RATE}, 77)) << bench.Error();
        EXPECT_EQ(bench.Samples(0), output) << "however it is cut";
        EXPECT_TRUE(bench.Finish());
    }
}

// A signal with fewer samples than the filter would put before it has as many put there as it has.
TEST_F(Filter, KeepsTheWholeSignalForZeroPhase) {
    const std::string settings = "corner=1000\nzero_phase=yes\nmost_samples=10000\n";
    for (const std::size_t count : {0U, 1U, 2U, 10000U})
        EXPECT_EQ(Pass(settings, std::vector<double>(count, 2.0)).size(), count);
    EXPECT_NEAR(bench.Samples(0)[9999], 2.0, 1e-12);
    EXPECT_EQ(bench.States(0), "START BUSY STOP");
    EXPECT_NEAR(bench.Blocks(0)[1].GetTimestamp(), 1e12 + 4096 * 1000 / RATE, 1e-3);
    EXPECT_FALSE(bench.Run(std::vector<double>(10001), {"test", RATE}));
    EXPECT_THAT(bench.Error(), testing::HasSubstr("most_samples: the signal 'test' has more than 10000"));
    std::vector<double> samples(100, 1.0);
    samples[50] = std::numeric_limits<double>::infinity();
    Pass(settings, samples);
    EXPECT_THAT(ModuleBench::TakeWarnings(), testing::HasSubstr("test: a value is not finite"));
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
        {"corner=50\nripple=0", "ripple: '0' is not valid; expected a number from 0.001 to 20"},
        {"type=notch\ncorner=50\nquality=0.5", "quality: '0.5' is not valid; expected a number from 1 to"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(bench.Set(row.settings)) << row.settings;
        EXPECT_THAT(bench.Error(), testing::HasSubstr(row.message));
    }
    for (const char* settings :
         {"corner=500", "type=notch\ncorner=500", "type=bandpass\ncorner=499\nupper_corner=500"}) {
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
