#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>

#include "modules/plot/Envelope.h"
#include "sigweave/persistence/TCXML.h"
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

// "\xE9" alone is no UTF-8.
TEST_F(Plot, DrawsAnyTextIntoAPictureThatABrowserOpens) {
    for (const std::string name : {"'",
                                   "''"
                                   "''",
                                   "'a'' 'b", "a]]>b", "caf\xE9", "\xED\xA0\x80\xEF\xBF\xBF",
                                   "tab\tline\nend\x7F", "`echo 1`", "\\n %s {a_b} @x", "12'34"}) {
        const std::string file = FreshFile("text.svg");
        ASSERT_TRUE(bench.Set("file=" + file) && bench.Start() && bench.Feed(0, {1.0, 2.0}, {name, 10.0}) &&
                    bench.Feed(1, {1.0, 2.0}, {name + "2", 10.0}) && bench.Finish())
            << name << ": " << bench.Error();
        TCXML picture;
        EXPECT_TRUE(picture.Load(file.c_str())) << name << ": " << std::string(picture.GetError());
    }
    EXPECT_NE(ReadText("text.svg").find(">12'342</text>"), std::string::npos) << "the last one's second";
}

TEST_F(Plot, SaysStartOnlyWhereItIsKnown) {
    const std::string file = FreshFile("start.svg");
    const struct {
        int input;
        bool begins, isTold;
    } rows[] = {{0, true, true}, {0, false, false}, {1, true, false}};
    for (const auto& row : rows) {
        ASSERT_TRUE(
            bench.Set("file=" + file) && bench.Start() &&
            bench.Feed(row.input, {1.0, 2.0}, {"x", 10.0, "", 1772366400250.0}, 2, row.begins, true) &&
            bench.Finish());
        EXPECT_EQ(ReadText(file).find("start 2026-03-01") != std::string::npos, row.isTold) << row.input;
    }
}

TEST_F(Plot, KeepsLinksModesAndFilesThatOthersMade) {
    namespace fs = std::filesystem;
    const std::string file = FreshFile("real.svg"), link = FreshFile("link.svg");
    std::ofstream(file) << "old";
    std::ofstream(file + ".part") << "precious";
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(file, link);
    ASSERT_TRUE(Draw(link)) << bench.Error();
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_NE(ReadText(file).find("</svg>"), std::string::npos);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(ReadText(file + ".part"), "precious");
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
