#include <gmock/gmock.h>

#include <cmath>
#include <numeric>

#include "tests/support/ModuleBench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<double> Ramp(std::size_t count, double first = 0.0) {
    std::vector<double> values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}

TCTypeInfo Metadata(TCBLOCKSTATUS state, double timestamp, double rate = 1000.0) {
    TCTypeInfo ti;
    ti.SetState(state);
    ti.SetTimestamp(timestamp);
    ti.SetSamplerate(rate);
    return ti;
}

struct Reblock : testing::Test {
    Reblock() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    bool Start(const std::string& settings) { return bench.Set(settings) && bench.Start(); }
    std::vector<double> Timestamps() const {
        std::vector<double> times;
        for (const TCTypeInfo& ti : bench.Blocks(0)) times.push_back(ti.GetTimestamp());
        return times;
    }
    ModuleBench bench{"reblock", "Reblock"};
};

TEST_F(Reblock, CutsAnySizeIntoTheOneAskedFor) {
    for (const int block : {1, 7, 100, 250, 2000}) {
        ASSERT_TRUE(Start("size=100") && bench.Feed(0, Ramp(1050), {"ramp", 1000.0, "V", 1e6}, block));
        ASSERT_TRUE(bench.Finish());
        EXPECT_EQ(bench.Samples(0), Ramp(1050)) << block;
        EXPECT_EQ(bench.States(0), "START BUSY BUSY BUSY BUSY BUSY BUSY BUSY BUSY BUSY STOP") << block;
        for (std::size_t i = 0; i < 11; ++i)
            EXPECT_EQ(bench.Blocks(0)[i].GetTimestamp(), 1e6 + 100.0 * static_cast<double>(i)) << block;
        EXPECT_STREQ(bench.Blocks(0)[10].GetSignalname(), "ramp");
    }
    EXPECT_EQ(ModuleBench::TakeWarnings(), "");
}

TEST_F(Reblock, EndsEverySignalWithItsLastSample) {
    ASSERT_TRUE(Start("size=4"));
    EXPECT_TRUE(bench.Feed(0, Ramp(8), {}, 4));                 // comes out even
    EXPECT_TRUE(bench.Feed(0, Ramp(3)));                        // in one short block
    EXPECT_TRUE(bench.Send(0, Metadata(INVALID, 1e6), {1.0}));  // without a state
    EXPECT_TRUE(bench.Feed(0, Ramp(4), {}, 2, true, false));    // the end has no samples
    EXPECT_TRUE(bench.Send(0, Metadata(STOP, 2e6), {}));        //
    EXPECT_TRUE(bench.Feed(0, Ramp(5), {}, 5, true, false));    // without an end
    EXPECT_TRUE(bench.Feed(0, Ramp(9), {}, 9, true, false));    // in the way of one that is sent at once
    EXPECT_TRUE(bench.Send(0, Metadata(START, 3e6), {}));       // begins without samples
    EXPECT_TRUE(bench.Send(0, Metadata(STOP, 3e6), Ramp(6)));   //
    EXPECT_EQ(bench.States(0), "START STOP COMPLETE COMPLETE COMPLETE START STOP START BUSY STOP START STOP");
    EXPECT_EQ(bench.Samples(0).size(), 8u + 3 + 1 + 4 + 5 + 9 + 6);
    EXPECT_TRUE(bench.Feed(0, Ramp(5), {"broken"}, 5, true, false) && bench.Finish());
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("broken: the signal did not end; 1 samples"));
}

TEST_F(Reblock, TimesBlocksByTheirFirstSample) {
    ASSERT_TRUE(Start("size=4"));
    for (const auto& [state, timestamp] :
         {std::pair{START, 1000.0}, {BUSY, 1000.0}, {BUSY, 0.0}, {BUSY, NAN}, {BUSY, 2000.3}, {STOP, 2003.4}})
        ASSERT_TRUE(bench.Send(0, Metadata(state, timestamp), Ramp(3)));
    // There is a gap before sample 12; all others are counted.
    EXPECT_THAT(Timestamps(), ElementsAre(1000.0, 1004.0, 1008.0, 2000.3, 2004.3));
    ASSERT_TRUE(Start("size=4") && bench.Send(0, Metadata(COMPLETE, -5.0), Ramp(8)));
    EXPECT_EQ(Timestamps()[0], bench.Module().GetPortHelper()->SyncTime());
    EXPECT_DOUBLE_EQ(Timestamps()[1], Timestamps()[0] + 4.0);
}

TEST_F(Reblock, FailsWhereABlockCannotBeTimed) {
    for (const auto& [rate, text] : {std::pair{0.0, "0"}, {-8.0, "-8"}, {double{NAN}, "nan"}}) {
        ASSERT_TRUE(Start("size=4"));
        EXPECT_FALSE(bench.Send(0, Metadata(START, 1e6, rate), {1.0}));
        EXPECT_EQ(bench.Error(), std::string("the input \"Signal\" has the samplerate ") + text +
                                     "; allowed are numbers above 0");
    }
    ASSERT_TRUE(Start("size=4") && bench.Feed(0, Ramp(2), {"a", 1000.0}, 2, true, false));
    EXPECT_FALSE(bench.Feed(0, Ramp(2), {"a", 2000.0}, 2, false, true));
    EXPECT_THAT(bench.Error(), HasSubstr("samplerate within a signal, from 1000 to 2000"));
    ASSERT_TRUE(Start("size=4") && bench.Feed(0, Ramp(2), {"a", 1000.0, "V"}, 2, true, false));
    EXPECT_FALSE(bench.Feed(0, Ramp(2), {"a", 1000.0, "A"}, 2, false, true));
    EXPECT_THAT(bench.Error(), HasSubstr("unit within a signal, from \"V\" to \"A\""));
}

TEST_F(Reblock, CutsAHugeBlock) {
    ASSERT_TRUE(Start("size=3"));
    ASSERT_TRUE(bench.Feed(0, Ramp(100000), {}, 100000));
    EXPECT_EQ(bench.Samples(0), Ramp(100000));
    EXPECT_EQ(bench.Blocks(0).size(), 33334u);
    ASSERT_TRUE(Start("size=16777216") && bench.Feed(0, Ramp(5), {}, 2));
    EXPECT_EQ(bench.States(0), "COMPLETE");
}

}  // namespace
