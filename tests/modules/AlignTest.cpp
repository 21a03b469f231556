#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "tests/support/ModuleBench.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr double START_TIME = 1.0e12;

// Samples whose values are their places on a time axis that all signals share.
std::vector<double> Places(int first, int end) {
    std::vector<double> values(static_cast<std::size_t>(end - first));
    std::iota(values.begin(), values.end(), static_cast<double>(first));
    return values;
}

// A stretch of a signal, cut into blocks.
struct Part {
    int input, first, end, block;
    bool begins = true;
    bool ends = true;
};

struct Align : testing::Test {
    Align() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
        for (const int output : {0, 1}) bench.WireOutput(output);
    }
    bool Start(const std::string& settings) { return bench.Set(settings) && bench.Start(); }
    // One block of 1000 samples per second.
    bool Send(int input, TCBLOCKSTATUS state, int first, int end, double rate = 1000.0) {
        TCTypeInfo ti;
        ti.SetState(state);
        ti.SetSamplerate(rate);
        ti.SetTimestamp(START_TIME + first);
        return bench.Send(input, ti, Places(first, end));
    }
    bool Feed(const std::vector<Part>& parts) {
        return std::ranges::all_of(parts, [this](const Part& part) {
            const TestSignal signal{"same name", 1000.0, "V", START_TIME + part.first};
            return bench.Feed(part.input, Places(part.first, part.end), signal, part.block, part.begins,
                              part.ends);
        });
    }
    std::vector<double> Figures(const std::string& input) const {
        std::vector<double> figures;
        for (const char* quantity : {"passed", "dropped", "padded"})
            figures.push_back(bench.Result(quantity, input));
        return figures;
    }
    // Both outputs consist of one signal in blocks of the same times.
    void ExpectAligned(double start) {
        ASSERT_FALSE(bench.Blocks(0).empty());
        ASSERT_EQ(bench.Blocks(0).size(), bench.Blocks(1).size());
        EXPECT_EQ(bench.Blocks(0)[0].GetTimestamp(), start);
        for (std::size_t i = 0; i < bench.Blocks(0).size(); ++i)
            EXPECT_EQ(bench.Blocks(0)[i].GetTimestamp(), bench.Blocks(1)[i].GetTimestamp());
        for (const int output : {0, 1})
            EXPECT_THAT(bench.States(output), testing::MatchesRegex("COMPLETE|START( BUSY)* STOP"));
    }
    ModuleBench bench{"align", "Align"};
};

TEST_F(Align, DropsWhatDoesNotOverlap) {
    const std::vector<std::vector<Part>> orders = {
        {{0, 0, 200000, 1000}, {1, 250, 150000, 77}},
        {{1, 250, 150000, 77}, {0, 0, 200000, 200000}},
        {{0, 0, 80000, 500, true, false},
         {1, 250, 80000, 999, true, false},
         {1, 80000, 150000, 999, false, true},
         {0, 80000, 200000, 512, false, true}},
    };
    for (const std::vector<Part>& parts : orders) {
        ASSERT_TRUE(Start("mode=drop") && Feed(parts) && bench.Finish()) << bench.Error();
        for (const int output : {0, 1}) EXPECT_EQ(bench.Samples(output), Places(250, 150000));
        ExpectAligned(START_TIME + 250);
        EXPECT_EQ(Figures("Signal 1"), (std::vector<double>{149750, 50250, 0}));
        EXPECT_EQ(Figures("Signal 2"), (std::vector<double>{149750, 0, 0}));
    }
    EXPECT_EQ(ModuleBench::TakeWarnings(), "");
}

TEST_F(Align, PadsWhereASignalHasNoSamples) {
    const std::vector<std::vector<Part>> orders = {
        {{0, 0, 3000, 1000}, {1, 100000, 150000, 640}},
        {{1, 100000, 150000, 50000}, {0, 0, 3000, 1}},
    };
    for (const std::vector<Part>& parts : orders) {
        ASSERT_TRUE(Start("mode=pad\nfill=-7") && Feed(parts) && bench.Finish()) << bench.Error();
        std::vector<double> expected = Places(0, 3000);
        expected.resize(150000, -7.0);
        EXPECT_EQ(bench.Samples(0), expected);
        expected = Places(0, 150000);
        std::fill_n(expected.begin(), 100000, -7.0);
        EXPECT_EQ(bench.Samples(1), expected);
        ExpectAligned(START_TIME);
        EXPECT_EQ(Figures("Signal 1"), (std::vector<double>{3000, 0, 147000}));
        EXPECT_EQ(Figures("Signal 2"), (std::vector<double>{50000, 0, 100000}));
    }
    ASSERT_TRUE(Start("mode=pad\nmost_padding=9"));
    EXPECT_FALSE(Feed({{0, 0, 5, 5}, {1, 10, 15, 5}}));
    EXPECT_THAT(bench.Error(), HasSubstr("\"Signal 2\" starts 10 samples after the input \"Signal 1\""));
}

TEST_F(Align, FailsOverADifferenceWhenTold) {
    ASSERT_TRUE(Start("mode=fail") && Feed({{0, 0, 100, 7}}));
    const TestSignal late{"late", 1000.0, "A", START_TIME + 0.4};
    ASSERT_TRUE(bench.Feed(1, Places(0, 100), late, 100) && bench.Finish()) << bench.Error();
    EXPECT_EQ(bench.Samples(1), Places(0, 100));
    ASSERT_TRUE(Start("mode=fail"));
    EXPECT_FALSE(Feed({{0, 1, 100, 7}, {1, 0, 100, 7}}));
    EXPECT_THAT(bench.Error(), HasSubstr("\"Signal 1\" starts 1 samples after the input \"Signal 2\""));
    for (const int first : {0, 1}) {
        ASSERT_TRUE(Start("mode=fail"));
        EXPECT_FALSE(Feed({{first, 0, 100 + first, 10}, {1 - first, 0, 101 - first, 10}}));
        EXPECT_THAT(bench.Error(), HasSubstr("the input \"Signal 1\" ends after 100 samples and the input "
                                             "\"Signal 2\" goes on;"));
    }
}

TEST_F(Align, RefusesSignalsThatCannotBeAligned) {
    ASSERT_TRUE(Start("") && Send(0, START, 0, 10));
    EXPECT_FALSE(Send(1, START, 0, 10, 2000.0));
    EXPECT_THAT(bench.Error(), HasSubstr("the input \"Signal 2\" has the samplerate 2000 and the input "
                                         "\"Signal 1\" 1000;"));
    for (const double rate : {0.0, -1.0, double{NAN}}) {
        ASSERT_TRUE(Start(""));
        EXPECT_FALSE(Send(0, START, 0, 10, rate));
        EXPECT_THAT(bench.Error(), HasSubstr("\"Signal 1\" has the samplerate"));
    }
    for (const double timestamp : {0.0, -1.0, double{NAN}}) {
        ASSERT_TRUE(Start(""));
        EXPECT_FALSE(bench.Feed(1, Places(0, 10), {"no time", 1000.0, "", timestamp}));
        EXPECT_THAT(bench.Error(), AllOf(HasSubstr("\"Signal 2\""), HasSubstr("start time")));
    }
    ASSERT_TRUE(Start("") && Send(0, START, 0, 10));
    EXPECT_FALSE(Send(0, BUSY, 10, 20, 500.0));
    EXPECT_THAT(bench.Error(), HasSubstr("samplerate within a signal, from 1000 to 500"));
}

TEST_F(Align, AlignsOneSignalOfEachInputAfterTheOther) {
    // The first input's second signal waits; the other's first has no end but a new start.
    ASSERT_TRUE(Start("") && Feed({{0, 0, 100, 10}, {0, 1000, 1100, 10}, {1, 50, 100, 50, true, false}}));
    ASSERT_TRUE(Send(1, START, 1050, 1080) && Send(1, STOP, 0, 0));
    EXPECT_EQ(bench.States(0), "COMPLETE COMPLETE");
    EXPECT_EQ(bench.Samples(0), bench.Samples(1));
    EXPECT_EQ(bench.Blocks(1)[1].GetTimestamp(), START_TIME + 1050);
    ASSERT_TRUE(Feed({{0, 0, 10, 10}, {1, 20, 30, 10}}));
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("no time in common"));
    ASSERT_TRUE(Feed({{0, 0, 25, 5}}) && bench.Finish());
    EXPECT_EQ(Figures("Signal 1"), (std::vector<double>{80, 130, 0}));
    EXPECT_EQ(bench.Result("held", "Signal 1"), 25.0);
    EXPECT_EQ(Figures("Signal 2"), (std::vector<double>{80, 10, 0}));
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("Signal 1: 25 samples were not passed"));
}

}  // namespace
