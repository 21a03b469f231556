#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>

#include "modules/plot/Envelope.h"
#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

TEST(Envelope, KeepsASingleSpikeInBoundedMemory) {
    Envelope envelope(64);
    std::vector<double> silence(100000, 0.25);
    silence[99] = std::numeric_limits<double>::quiet_NaN();
    for (int i = 0; i < 1000; ++i) {
        silence[4711] = i == 617 ? -9.0 : 0.25;
        envelope.Add(silence.data(), silence.size());
    }
    EXPECT_EQ(envelope.Samples(), 100000000);
    EXPECT_EQ(envelope.NotFinite(), 1000);
    EXPECT_LE(envelope.Stretches().size(), 64U);
    const auto at = static_cast<std::size_t>(61704711 / envelope.SamplesPerStretch());
    for (std::size_t i = 0; i < envelope.Stretches().size(); ++i) {
        EXPECT_EQ(envelope.Stretches()[i].minimum, i == at ? -9.0 : 0.25) << i;
        EXPECT_EQ(envelope.Stretches()[i].maximum, 0.25) << i;
    }
}

struct Plot : testing::Test {
    bool Draw(const std::string& file, const std::string& more = "") {
        const std::vector<double> wave = {0.0, 1.0, 0.5, -1.0, 0.25};
        return bench.Set("file=\"" + file + "\"\n" + more) && bench.Start() &&
               bench.Feed(0, wave, {"It's `echo run` \"a_b\" <1>", 10.0, "V * 1e-003", 1772366400250.0}) &&
               bench.Feed(1, {0.1, 10.0, 1.0}, {"spectrum", 2.0, "V"}) && bench.Finish();
    }
    Plot() { bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::FREQ_DOMAIN}); }
    ModuleBench bench{"plot", "Plot"};
};

TEST_F(Plot, TellsNameUnitAndStartInThePicture) {
    const std::string file = FreshFile("it's a plot.svg");
    ASSERT_TRUE(Draw(file)) << bench.Error();
    const std::string picture = ReadText(file);
    for (const char* text : {"It's `echo run` \"a_b\" &lt;1>", "[mV]", "Time [s]",
                             "2026-03-01 12:00:00.250 UTC", "Frequency [Hz]", "dB re 1 V"}) {
        EXPECT_NE(picture.find(text), std::string::npos) << text;
    }
    const std::string png = FreshFile("plot.png");
    ASSERT_TRUE(Draw(png, "layout=overlay\nlog_frequency=yes")) << bench.Error();
    EXPECT_EQ(ReadText(png).substr(1, 3), "PNG");
}

TEST_F(Plot, RefusesWhatItCannotWriteOrDraw) {
    EXPECT_FALSE(bench.Set("file=plot.bmp"));
    EXPECT_THAT(bench.Error(),
                HasSubstr("file: 'plot.bmp' is not valid; expected a name that ends in .svg or .png"));
    EXPECT_FALSE(Draw("/no/such/folder/plot.svg"));
    EXPECT_THAT(bench.Error(), HasSubstr("/no/such/folder/plot.svg cannot be written: No such file"));
    for (const double rate : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_FALSE(bench.Set("file=plot.svg") && bench.Start() && bench.Feed(0, {1.0}, {"wave", rate}));
        EXPECT_THAT(bench.Error(), HasSubstr("the input \"Signal 1\" has the samplerate "));
        EXPECT_TRUE(bench.Finish()) << "no picture of it is tried";
    }
    ModuleBench integers("plot", "Plot");
    integers.WireInputs({"TYPEINFO{TypeInfo} SWORD[]{BIN}"});
    EXPECT_FALSE(integers.Set("file=plot.svg") && integers.Start());
    EXPECT_THAT(integers.Error(), HasSubstr("SWORD[]{BIN}"));
}

TEST_F(Plot, DrawsAsLittleAsOneSample) {
    const double huge = 1.7e308;
    const std::vector<double> rows[] = {{1.0}, {0.0}, {1.0, 2.0}, {huge}, {-huge, huge}, {5e-324, 1e-323}};
    for (const std::vector<double>& samples : rows) {
        const std::string file = FreshFile("little.svg");
        ASSERT_TRUE(bench.Set("file=\"" + file + "\"\nlog_frequency=yes") && bench.Start());
        ASSERT_TRUE(bench.Feed(0, samples) && bench.Feed(1, samples));
        EXPECT_TRUE(bench.Finish()) << samples[0] << ": " << bench.Error();
        EXPECT_TRUE(std::filesystem::exists(file));
    }
}

TEST_F(Plot, SaysThatGnuplotIsMissing) {
    const std::string path = std::getenv("PATH");
    setenv("PATH", "/nonexistent", 1);
    EXPECT_FALSE(Draw(FreshFile("missing.svg")));
    setenv("PATH", path.c_str(), 1);
    EXPECT_THAT(bench.Error(), HasSubstr("gnuplot is not in the PATH"));
    EXPECT_FALSE(std::filesystem::exists("missing.svg"));
}

}  // namespace
