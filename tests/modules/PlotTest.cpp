#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>

#include "modules/plot/Envelope.h"
#include "modules/plot/Heatmap.h"
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

TEST(Heatmap, KeepsASingleLineInBoundedMemory) {
    Heatmap map(64, 50);
    std::vector<double> values(129, 0.25);
    for (int i = 0; i < 100000; ++i) {
        values[100] = i == 61704 ? 9.0 : 0.25;
        values[3] = i == 5 ? std::numeric_limits<double>::quiet_NaN() : 0.25;
        ASSERT_TRUE(map.Add(values.data(), values.size(), 1e12 + 10.0 * i));
    }
    EXPECT_FALSE(map.Add(values.data(), 128, 2e12)) << "another length";
    EXPECT_EQ(map.NotFinite(), 1);
    EXPECT_EQ(map.BinsPerRow(), 3U);
    EXPECT_EQ(map.Rows(), 43U);
    ASSERT_LE(map.Columns(), 64U);
    const auto at = static_cast<std::size_t>(617.04 / map.SecondsPerColumn());
    for (std::size_t column = 0; column < map.Columns(); ++column)
        for (std::size_t row = 0; row < map.Rows(); ++row)
            ASSERT_EQ(map.Cell(column, row), column == at && row == 33 ? 9.0 : 0.25) << column << " " << row;
}

// Spectra may be missing, and have no times.
TEST(Heatmap, LeavesGapsAndCountsWhereTimesDoNotGrow) {
    Heatmap map(64, 50);
    const double one = 1.0;
    for (const double time : {0.0, 500.0, 2000.0}) ASSERT_TRUE(map.Add(&one, 1, time));
    ASSERT_EQ(map.Columns(), 5U);
    EXPECT_EQ(map.Cell(2, 0), Heatmap::NOTHING);
    EXPECT_EQ(map.Cell(4, 0), 1.0);
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(map.Add(&one, 1, 0.0));
    EXPECT_EQ(map.Columns(), 15U);
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

struct Curve {
    const char* type;
    TestSignal signal;
    std::vector<double> samples;
    int block = 1000;
};

// A script that is run in place of gnuplot.
struct FakeGnuplot {
    explicit FakeGnuplot(const std::string& commands) {
        namespace fs = std::filesystem;
        fs::create_directories("script");
        std::ofstream("script/gnuplot") << "#!/bin/sh\n" << commands;
        fs::permissions("script/gnuplot", fs::perms::owner_all);
        setenv("PATH", (fs::absolute("script").string() + ":" + path).c_str(), 1);
    }
    ~FakeGnuplot() { setenv("PATH", path.c_str(), 1); }
    const std::string path = std::getenv("PATH");
};

// What gnuplot is given to draw.
std::string ScriptOf(const std::string& settings, const std::vector<Curve>& curves) {
    const FakeGnuplot fake("cat >" + FreshFile("script.txt") + "\necho '</svg>'\n");
    ModuleBench bench("plot", "Plot");
    std::vector<const char*> types;
    for (const Curve& curve : curves) types.push_back(curve.type);
    bench.WireInputs(types);
    bool well = bench.Set("file=\"" + FreshFile("script.svg") + "\"\n" + settings) && bench.Start();
    for (std::size_t i = 0; i < curves.size() && well; ++i)
        well = bench.Feed(static_cast<int>(i), curves[i].samples, curves[i].signal, curves[i].block);
    EXPECT_TRUE(bench.Finish() && well) << bench.Error();
    return ReadText("script.txt");
}

TEST_F(Plot, DrawsPointsAxesAndHeadline) {
    const Curve wave{
        ModuleBench::TIME_DOMAIN, {"wave", 8.0, "V", 1772366400250.0}, {0.0, 1.0, 0.5, -1.0, 0.25}};
    const Curve spectrum{ModuleBench::FREQ_DOMAIN, {"lines", 2.0, "V"}, {0.1, 9.0, 0.0}};
    const Curve force{ModuleBench::TIME_DOMAIN, {"force", 50.0, "N"}, {3.0}};
    std::vector<double> many(10000);  // in strokes of 4, every second one downwards
    for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<double>(i);
    const Curve ramp{ModuleBench::TIME_DOMAIN, {"ramp", 8.0}, many};
    // Slices of three bins 2 Hz apart; blocks are as far apart as three samples, 6 s.
    const Curve map{ModuleBench::FREQ_DOMAIN, {"map", 0.5, "V"}, {0.1, 10.0, 1.0, 0.0, 0.01, 100.0}, 3};
    const struct {
        const char* settings;
        std::vector<Curve> curves;
        std::vector<const char*> lines;
    } rows[] = {
        {"decibels=60",
         {wave, map},
         {"set rmargin at screen 0.86\n", "set title \"wave\"\n",
          "$map << EOD\n-10 -10\n20 -10\n0 40\nEOD\nset palette defined (0 '#440154'",
          "set cbrange [-10:50]\n", "set cblabel \"Level [dB re 1 V]\"\n", "set xlabel \"Time [s]\"",
          "set ylabel \"Frequency [Hz]\"", "set xrange [0:9.25]\n", "set yrange [0:4]\n",
          "matrix using (0.25+$1*6):(0+$2*2):3 with image notitle"}},
        {"quantity=power\nlog_frequency=yes",
         {map},
         {"set cbrange [-90:30]\n", "set yrange [0:0.6020599913279624]\n",
          "set ytics (\"1\" 0, \"2\" 0.3010299956639812)\n"}},
        {"spectra=last", {map}, {"$d0 << EOD\n0 -70\n2 -40\n4 40\nEOD\n"}},
        {"spectra=over_time\ndecibels=60", {spectrum}, {"$map << EOD\n-20 -20\n19.08 19.08\n-40 -40\nEOD\n"}},
        {"title=Bench\ndecibels=60",
         {wave, spectrum},
         {"set multiplot title \"Bench, start 2026-03-01 12:00:00.250 UTC\"\n",
          "$d0 << EOD\n0 0\n0.125 1\n0.25 0.5\n0.375 -1\n0.5 0.25\nEOD\n", "set xrange [0:0.5]\n",
          "set yrange [*:*] noextend\n", "set ytics 0.5\n", "linespoints pt 7", "set title \"wave\"\n",
          "set ylabel \"Value [V]\"\n", "set xlabel \"Time [s]\"\n",
          "$d0 << EOD\n0 -20\n0.5 19.084850188786497\n1 -40\nEOD\n", "set yrange [-40:20]\n",
          "set xrange [0:1]\n", "set ytics 10\n", "unset logscale x\n", " size 1000,696 "}},
        {"log_frequency=yes\nwidth=700\nheight=500",
         {spectrum},
         {"set logscale x\n", "set xrange [0.5:1]\n", "set yrange [-100:20]\n", "set ytics 20\n",
          " size 700,500 ", "set multiplot title \"\"\n", "with lines lw"}},
        {"",
         {force},
         {"$d0 << EOD\n0 3\nEOD\n", "set xrange [0:0.02]\n", "set yrange [1.5:4.5]\n", "set ytics autofreq\n",
          "\"start 2001-09-09 01:46:40.000 UTC\"\n", "[N]"}},
        {"",
         {ramp},
         {"$d0 << EOD\n0 0\n0 3\n0.5 7\n0.5 4\n1 8\n1 11\n", "set xrange [0:1249.875]\n", "with lines lw",
          "set ytics 2000\n", "set ylabel \"Value\"\n"}},
        {"layout=overlay\ntitle=Both",
         {wave, force, spectrum},
         {"\"Both, start 2026-03-01 12:00:00.250 UTC\"", "plot $d0 using 1:2 with linespoints pt 7",
          "title \"wave [V]\", $d1 using", "title \"force [N]\"\n", "set ylabel \"Value\"\n",
          "set xrange [0:0.5]\n", "set ytics 1\n", "set ylabel \"Level [dB re 1 V]\"\n"}},
        {"",
         {wave, wave, force, spectrum},
         {"unset xlabel\nset format x \"\\045g s\"", "set format x \"\\045g Hz\"", "set ytics 50\n"}}};
    for (const auto& row : rows) {
        const std::string script = ScriptOf(row.settings, row.curves);
        for (const char* line : row.lines) EXPECT_THAT(script, HasSubstr(line)) << row.settings;
    }
}

// From the top: the headline, and of each panel its name, its curves and the numbers of its axis.
TEST_F(Plot, LeavesRoomForWhatIsAroundThePanels) {
    const Curve wave{ModuleBench::TIME_DOMAIN, {"wave", 8.0, "V"}, {0.0, 1.0}};
    for (const std::size_t panels : {1U, 3U, 4U, 7U}) {
        const std::string script = ScriptOf("", std::vector<Curve>(panels, wave));
        const auto numberAfter = [&](const std::string& word, std::size_t from) {
            return std::stod(script.substr(script.find(word, from) + word.size()));
        };
        const double height = numberAfter("size 1000,", 0);
        double above = height - 36;
        for (std::size_t i = 0, at = 0; i < panels; ++i) {
            at = script.find("set tmargin", at + 1);
            ASSERT_NE(at, std::string::npos) << panels;
            const double top = height * numberAfter("screen ", at);
            const double bottom = height * numberAfter("screen ", script.find("set bmargin", at));
            const double name = height * numberAfter("screen 0.55,screen ", at);
            EXPECT_LE(top, above - 30) << panels << " " << i;
            EXPECT_GT(name, top);
            EXPECT_LT(name, above);
            EXPECT_GT(top - bottom, 60) << panels << " " << i;
            above = bottom - 30;
        }
        EXPECT_GE(above, 0.0) << panels;
    }
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
    EXPECT_FALSE(bench.Set("file=plot.svg\nspectra=over_time") && bench.Start() &&
                 bench.Feed(1, {1.0, 2.0, 3.0, 4.0, 5.0}, {"map", 1.0}, 3));
    EXPECT_THAT(bench.Error(),
                HasSubstr("\"Signal 2\": a spectrum has 2 values, the first one 3; over time"));
    EXPECT_TRUE(bench.Finish());
    ModuleBench integers("plot", "Plot");
    integers.WireInputs({"TYPEINFO{TypeInfo} SWORD[]{BIN}"});
    EXPECT_FALSE(integers.Set("file=plot.svg") && integers.Start());
    EXPECT_THAT(integers.Error(), HasSubstr("SWORD[]{BIN}"));
}

TEST_F(Plot, DrawsAsLittleAsOneSample) {
    const double huge = 1.7e308;
    const std::vector<double> rows[] = {{1.0}, {0.0}, {1.0, 2.0}, {huge}, {-huge, huge}, {5e-324, 1e-323}};
    for (const std::vector<double>& samples : rows)
        for (const std::string settings :
             {"log_frequency=yes", "spectra=over_time", "spectra=over_time\nlog_frequency=yes"}) {
            const std::string file = FreshFile("little.svg");
            ASSERT_TRUE(bench.Set("file=\"" + file + "\"\n" + settings) && bench.Start());
            ASSERT_TRUE(bench.Feed(0, samples) && bench.Feed(1, samples));
            EXPECT_TRUE(bench.Finish()) << samples[0] << ": " << bench.Error();
            EXPECT_TRUE(std::filesystem::exists(file)) << settings;
        }
}

TEST_F(Plot, SaysWhatGnuplotComplainedOfLast) {
    const std::pair<const char*, const char*> rows[] = {
        {"printf 'first\\nline 0: bad\\n   ^\\nWarning: odd\\n\\n' >&2\nexit 1\n", "no picture: line 0: bad"},
        {"printf '<svg></svg>'\nexit 1\n", "no picture: it gave no reason"},
        {"printf '<svg>'\n", "no picture: it gave no reason"}};  // half of one
    for (const auto& [commands, reason] : rows) {
        const FakeGnuplot fake("cat >script.txt\n" + std::string(commands));
        EXPECT_FALSE(Draw(FreshFile("failed.svg")));
        EXPECT_THAT(bench.Error(), testing::EndsWith(reason));
        EXPECT_FALSE(std::filesystem::exists("failed.svg"));
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
