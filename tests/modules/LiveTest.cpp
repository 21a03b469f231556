// Parameters that change while their module runs.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "sigweave/recording/RecordingReader.h"
#include "sigweave/signal/forms/StreamRecord.h"
#include "tests/support/ModuleBench.h"

namespace {

constexpr double PI = std::numbers::pi;

void SetLive(ModuleBench& bench, const char* name, double value) {
    TCString error;
    EXPECT_TRUE(bench.Module().SetLive(name, std::to_string(value).c_str(), error)) << error;
}

std::vector<double> Noise(std::size_t samples) {
    std::vector<double> values(samples);
    std::uint32_t state = 1;
    for (double& value : values) {
        state = state * 1664525U + 1013904223U;
        value = state / 2147483648.0 - 1.0;
    }
    return values;
}

// v1' = w (x - v2 - v1 * root 2), v2' = w v1 by the trapezoidal rule with a w that depends on time: an
// analogue low pass of second order whose corner moves, and whose v1 and v2 have no jumps.
struct MovingLowPass {
    double Step(double x, double corner, double rate) {
        const double damping = std::numbers::sqrt2;
        const double w = std::tan(PI * corner / rate);
        const double b = v2 + w * v1;
        v1 = (v1 + w * slope + w * x - w * b) / (1 + w * damping + w * w);
        v2 = b + w * v1;
        slope = x - v2 - damping * v1;
        return v2;
    }
    double v1 = 0.0, v2 = 0.0, slope = 0.0;
};

TEST(LiveFilter, FollowsTheAnalogueFilterWhoseCornerMoves) {
    constexpr double RATE = 8000.0;
    ModuleBench bench("filter", "Filter");
    bench.WireInputs({ModuleBench::TIME_DOMAIN});
    bench.WireOutput(0);
    ASSERT_TRUE(bench.Set("order=2\ncorner=100") && bench.Start()) << bench.Error();
    const double corners[] = {100.0, 3900.0, 0.5, 400.0, 399.0};
    const std::vector<double> noise = Noise(1000);
    MovingLowPass wanted;
    for (int block = 0; block < 5; ++block) {
        SetLive(bench, "corner", corners[block]);
        ASSERT_TRUE(bench.Feed(0, noise, {"test", RATE}, 1000, block == 0, block == 4));
        for (std::size_t i = 0; i < noise.size(); ++i)
            ASSERT_NEAR(bench.Samples(0)[static_cast<std::size_t>(block) * 1000 + i],
                        wanted.Step(noise[i], corners[block], RATE), 1e-11)
                << block << " " << i;
    }
    TCString error;
    EXPECT_FALSE(bench.Module().SetLive("corner", "0", error));
    EXPECT_STREQ(error,
                 "corner: '0' is not valid; expected more than 0 Hz and less than half the samplerate");
}

TEST(LiveFilter, RefusesWhatTheSignalCannotHaveAndIsNeverUnstable) {
    for (const char* const type : {"lowpass", "highpass", "bandpass", "bandstop"}) {
        ModuleBench bench("filter", "Filter");
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
        ASSERT_TRUE(bench.Set(std::string("order=12\ncorner=1\nupper_corner=2\ntype=") + type));
        ASSERT_TRUE(bench.Start()) << bench.Error();
        TCString error;
        ASSERT_TRUE(bench.Feed(0, Noise(64), {"test", 8000.0}, 64, true, false));
        EXPECT_FALSE(bench.Module().SetLive("corner", "4000", error));
        EXPECT_THAT(
            static_cast<const char*>(error),
            testing::StartsWith(type[0] == 'b' ? "upper_corner: '2' is not valid;"
                                               : "corner: '4000' is not valid for 'test' at 8000 samples"));
        const std::vector<double> places = Noise(400);
        for (std::size_t i = 0; i + 1 < places.size(); i += 2) {
            const double a = 2000.0 + 1999.0 * places[i], b = 2000.0 + 1999.9 * places[i + 1];
            const TCBaseModuleEx::LiveValue corners[] = {{2, std::min(a, b)}, {3, std::max(a, b)}};
            ASSERT_TRUE(bench.Module().SetLive(corners, error)) << error;
            ASSERT_TRUE(bench.Feed(0, Noise(16), {"test", 8000.0}, 16, false, false));
        }
        for (const double value : bench.Samples(0)) ASSERT_LT(std::fabs(value), 1e4) << type;
    }
}

// The rate of a signal that is still to come is foretold, or waits at the input.
TEST(LiveFilter, RefusesWhatASignalToComeCannotHave) {
    ModuleBench bench("filter", "Filter");
    bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
    bench.WireOutput(0);
    bench.WireOutput(1);
    ASSERT_TRUE(bench.Set("corner=100"));
    TCForetoldSignal foretold[2];
    foretold[1].samplerate = 1000.0;
    TCStartCheck check;
    check.inputs = foretold;
    bench.Module().CheckStart(check);
    ASSERT_TRUE(bench.Start()) << bench.Error();
    TCString error;
    EXPECT_FALSE(bench.Module().SetLive("corner", "500", error));
    EXPECT_STREQ(error,
                 "corner: '500' is not valid for 'Signal 2' at 1000 samples per second; expected more than 0 "
                 "Hz and less than 500 Hz");
    EXPECT_TRUE(bench.Module().SetLive("corner", "499", error)) << error;
    TCTypeInfo slow;
    slow.SetSignalname("slow");
    slow.SetSamplerate(100.0);
    slow.SetState(START);
    bench.Write(0, slow, Noise(8));
    EXPECT_FALSE(bench.Module().SetLive("corner", "50", error));
    EXPECT_THAT(static_cast<const char*>(error), testing::HasSubstr("'slow' at 100 samples"));
    EXPECT_TRUE(bench.Module().SetLive("corner", "49", error)) << error;
    EXPECT_TRUE(bench.Pump()) << bench.Error();
}

TEST(LiveGenerator, ThePhaseGoesOn) {
    ModuleBench bench("generator", "Generator");
    bench.WireOutput(0);
    for (const std::string form : {"sine", "square"}) {
        ASSERT_TRUE(bench.Set("form=" + form + "\nrate=8000\nfrequency=101\nphase=30\nblock=100\n" +
                              "duration=0.05\nstart=2026-01-01") &&
                    bench.Start());
        const double frequencies[] = {101.0, 333.3, 0.0, 20.5};
        double cycles = 30.0 / 360.0;
        for (int block = 0; block < 4; ++block) {
            SetLive(bench, "frequency", frequencies[block]);
            SetLive(bench, "amplitude", 1.0 + block);
            ASSERT_TRUE(bench.Pump(1));
            EXPECT_EQ(bench.Blocks(0).back().GetRangeMax(), 1.0 + block);
            for (int i = 0; i < 100; ++i) {
                const double sine = std::sin(2 * PI * (cycles + frequencies[block] * i / 8000.0));
                ASSERT_NEAR(bench.Samples(0)[static_cast<std::size_t>(block * 100 + i)],
                            (1.0 + block) * (form == "sine" ? sine
                                             : sine >= 0    ? 1.0
                                                            : -1.0),
                            1e-9)
                    << form << block << " " << i;
            }
            cycles += frequencies[block] * 100 / 8000.0;
        }
        bench.Finish();
        EXPECT_TRUE(bench.Start() && bench.Pump(1));
        EXPECT_EQ(bench.Blocks(0)[0].GetRangeMax(), 1.0) << "each run begins with the settings";
        bench.Finish();
    }
}

TEST(LiveGenerator, ASweepGoesOnToItsEndFrequency) {
    ModuleBench bench("generator", "Generator");
    bench.WireOutput(0);
    ASSERT_TRUE(
        bench.Set("form=sweep\nrate=8000\nfrequency=100\nend_frequency=500\nblock=400\nduration=0.1"));
    ASSERT_TRUE(bench.Start() && bench.Pump(1));
    SetLive(bench, "frequency", 700.0);
    ASSERT_TRUE(bench.Pump());
    // 100 Hz + 4000 Hz/s for half of 0.1 s, then 700 Hz - 4000 Hz/s
    const double before = 100.0 * 0.05 + 2000.0 * 0.05 * 0.05;
    for (int i = 0; i < 400; ++i) {
        const double t = i / 8000.0;
        ASSERT_NEAR(bench.Samples(0)[static_cast<std::size_t>(400 + i)],
                    std::sin(2 * PI * (before + 700.0 * t - 2000.0 * t * t)), 1e-9)
            << i;
    }
}

TEST(LiveMath, ScaleAndOffsetHoldForTheBlocksThatFollow) {
    ModuleBench bench("math", "Math");
    bench.WireInputs({ModuleBench::TIME_DOMAIN});
    bench.WireOutput(0);
    ASSERT_TRUE(bench.Set("offset=1") && bench.Start());
    ASSERT_TRUE(bench.Feed(0, {1.0, 2.0}, {}, 2, true, false));
    SetLive(bench, "scale", -3.0);
    ASSERT_TRUE(bench.Feed(0, {1.0, 2.0}, {}, 2, false, false));
    SetLive(bench, "offset", 0.5);
    ASSERT_TRUE(bench.Feed(0, {1.0, 2.0}, {}, 2, false, true));
    EXPECT_THAT(bench.Samples(0), testing::ElementsAre(2.0, 3.0, -2.0, -5.0, -2.5, -5.5));
}

TEST(LiveCsvWriter, LeavesRowsOutAndKeepsTheirTime) {
    const std::string path = FreshFile("gap.csv");
    ModuleBench bench("csv-writer", "CsvWriter");
    bench.WireInputs({ModuleBench::TIME_DOMAIN});
    ASSERT_TRUE(bench.Set("on=no\nfile=\"" + path + "\"") && bench.Start());
    TCString error;
    for (int block = 0; block < 4; ++block) {
        EXPECT_TRUE(bench.Module().SetLive("on", block % 2 == 1 ? "yes" : "no", error)) << error;
        ASSERT_TRUE(bench.Feed(0, {2.0 * block, 2.0 * block + 1}, {"x", 10.0}, 2, block == 0, block == 3));
    }
    ASSERT_TRUE(bench.Finish());
    EXPECT_EQ(ReadText(path), "time,x\ns,\nsamplerate,10\n0.2,2\n0.3,3\n0.6,6\n0.7,7\n");
}

// The states and the first values of what is recorded.
template <class Reader>
std::string Recorded(const std::string& path) {
    Reader reader;
    EXPECT_TRUE(reader.Open(path.c_str())) << reader.GetError();
    std::string found;
    while (reader.Next() == 1) {
        const TCTypeInfo& ti = *reader.GetBlock().GetTI();
        const TCIOStream::DataSegment* const values = reader.GetBlock().Segment(0);
        found += std::to_string(ti.GetState()) + "@" + std::to_string(static_cast<int>(ti.GetTimestamp())) +
                 (values != nullptr ? ":" + std::to_string(static_cast<int>(values->GetDoubles()[0])) : "") +
                 " ";
    }
    return found;
}

class LiveRecorder : public testing::TestWithParam<const char*> {};

TEST_P(LiveRecorder, RecordsWholeSignals) {
    const bool isXml = GetParam() == std::string("XmlRecorder");
    const std::string path = FreshFile(isXml ? "gap.xml" : "gap.mcap");
    ModuleBench bench(isXml ? "xml-recorder" : "recorder", GetParam());
    bench.WireInputs({ModuleBench::TIME_DOMAIN});
    for (const char* const overwrite : {"no", "yes"}) {
        ASSERT_TRUE(bench.Set("file=\"" + path + "\"\noverwrite=" + overwrite) && bench.Start());
        TCString error;
        const std::string script = "y y n n y n y n";  // of blocks 0 to 7 of one signal
        for (int block = 0; block < 8; ++block) {
            const bool isOn = script[static_cast<std::size_t>(2 * block)] == 'y';
            EXPECT_TRUE(bench.Module().SetLive("on", isOn ? "yes" : "no", error)) << error;
            TCTypeInfo ti;
            ti.SetSamplerate(1000.0);
            ti.SetTimestamp(block);
            ti.SetState(block == 0 ? START : block == 6 ? STOP : BUSY);
            ASSERT_TRUE(bench.Send(0, ti, {10.0 + block})) << bench.Error();
        }
        ASSERT_TRUE(bench.Finish());
        // START 0, BUSY 1, STOP 2, COMPLETE 3
        EXPECT_EQ(isXml ? Recorded<tc::StreamRecordReader>(path) : Recorded<tc::RecordingReader>(path),
                  "0@0:10 1@1:11 2@2 0@4:14 2@5 3@6:16 ");
    }
}

INSTANTIATE_TEST_SUITE_P(Live, LiveRecorder, testing::Values("Recorder", "XmlRecorder"));

}  // namespace
