#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "sigweave/signal/TCBusSerializeHelper.h"
#include "tests/support/ModuleBench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Trigger : testing::Test {
    Trigger() {
        bench.WireInputs({ModuleBench::TIME_DOMAIN});
        bench.WireOutput(0);
    }
    // One sample a second, so that times are places. The place of each hit, which is the first sample of its
    // piece unless the settings say otherwise.
    std::vector<int> Hits(const std::string& settings, const std::vector<double>& samples, int block = 1000) {
        const std::string piece = settings.find("after=") == settings.npos ? "before=0\nafter=1\n" : "";
        EXPECT_TRUE(bench.Set(piece + settings)) << bench.Error();
        EXPECT_TRUE(bench.Start() && bench.Feed(0, samples, {"test", 1.0, "V"}, block)) << bench.Error();
        EXPECT_TRUE(bench.Finish());
        std::vector<int> hits;
        for (const TCTypeInfo& ti : bench.Blocks(0))
            if (ti.GetState() == START || ti.GetState() == COMPLETE)
                hits.push_back(static_cast<int>(std::lround((ti.GetTimestamp() - 1e12) / 1000.0)));
        return hits;
    }
    ModuleBench bench{"trigger", "Trigger"};
};

TEST_F(Trigger, FindsWhatItsModeSays) {
    //                                    0  1  2  3    4  5  6   7  8  9  10 11
    const std::vector<double> samples = {3, 0, 2, 2, 1.5, 2, 1, -3, 0, 5, 5, 1};
    const struct {
        const char* settings;
        std::vector<int> hits;
    } rows[] = {{"level=2", {2, 5, 9}},
                {"level=2\nhysteresis=0.5", {2, 9}},
                {"level=2000 mV\nhysteresis=0.49", {2, 5, 9}},
                {"mode=falling\nlevel=1", {1, 6, 11}},
                {"mode=falling\nlevel=1\nhysteresis=1", {1, 11}},
                {"mode=both\nlevel=1.6", {1, 2, 4, 5, 6, 9, 11}},
                {"mode=above\nlevel=2", {0, 2, 3, 5, 9, 10}},
                {"mode=above\nlevel=2\nhold_off=3", {0, 3, 9}},
                {"mode=below\nlevel=0", {1, 7, 8}},
                {"mode=slope\nslope=2", {2, 8}},
                {"mode=slope\nslope=-3 V/s", {7, 11}},
                {"mode=enter\nlevel=0\nupper_level=1", {1, 6, 8, 11}},
                {"mode=enter\nlevel=0\nupper_level=1\nhysteresis=1", {1, 8, 11}},
                {"mode=leave\nlevel=0\nupper_level=2", {7, 9}},
                {"level=2\nhold_off=4", {2, 9}},
                {"level=2\nbefore=0\nafter=3", {2, 5, 9}},
                {"level=2\nbefore=0\nafter=4", {2, 9}}};
    for (const auto& row : rows)
        for (const int block : {1000, 5, 1})
            EXPECT_EQ(Hits(row.settings, samples, block), row.hits) << row.settings << block;
}

TEST_F(Trigger, CutsAPieceOfItsOwnForEachHit) {
    std::vector<double> samples(1000, -1.0);
    for (const std::size_t hit : {5, 300, 640, 995}) samples[hit] = static_cast<double>(hit);
    for (const int block : {1000, 100, 7}) {
        EXPECT_THAT(Hits("level=1\nbefore=10\nafter=20", samples, block), ElementsAre(0, 290, 630, 985));
        ASSERT_EQ(bench.Samples(0).size(), 25U + 30U + 30U + 15U);
        EXPECT_EQ(bench.Samples(0)[5], 5.0);
        EXPECT_EQ(bench.Samples(0)[25 + 10], 300.0);
        EXPECT_EQ(bench.Samples(0)[25 + 30 + 10], 640.0);
        EXPECT_EQ(bench.Samples(0)[25 + 60 + 10], 995.0);
        EXPECT_EQ(bench.Result("hits"), 4.0);
        EXPECT_EQ(bench.Result("cut_short"), 1.0);
        EXPECT_EQ(bench.Result("first_hit"), 5.0);
        EXPECT_EQ(bench.Result("last_hit"), 995.0);
    }
    Hits("level=1\nbefore=10\nafter=20", samples, 1000);
    EXPECT_EQ(bench.States(0), "COMPLETE COMPLETE COMPLETE COMPLETE");
}

// A step ends one piece, so that receivers can take it before the next one begins.
TEST_F(Trigger, SendsOnePieceAtATime) {
    ASSERT_TRUE(bench.Set("before=0\nafter=1\nlevel=1"));
    ASSERT_TRUE(bench.Start());
    TCTypeInfo ti;
    ti.SetState(COMPLETE);
    TCIOStream& input = bench.Input(0);
    const std::vector<double> samples = {0, 1, 0, 1, 0, 1};
    input.SetTI(&ti, false);
    input.WriteDblVec(samples.data(), 6);
    for (std::size_t pieces = 1; pieces <= 3; ++pieces) {
        ASSERT_TRUE(bench.Pump(1)) << bench.Error();
        EXPECT_EQ(bench.Blocks(0).size(), pieces);
    }
}

TEST_F(Trigger, BeginsAnewWithEachSignal) {
    ASSERT_TRUE(bench.Set("before=2\nafter=1\nlevel=1") && bench.Start());
    ASSERT_TRUE(bench.Feed(0, {7, 7, 0}, {"a", 1.0}));
    ASSERT_TRUE(bench.Feed(0, {2, 0, 2}, {"b", 1.0}));
    EXPECT_THAT(bench.Samples(0), ElementsAre(2, 0, 2)) << "nothing of the signal before";
    EXPECT_TRUE(bench.Finish());
    EXPECT_THAT(Hits("level=1", {0, std::numeric_limits<double>::quiet_NaN(), 0, 3}), ElementsAre(3));
}

TEST_F(Trigger, RefusesWhatDoesNotFit) {
    EXPECT_FALSE(bench.Set("level=high\nhysteresis=-1 mV\nslope=0"));
    EXPECT_EQ(bench.Error(),
              "level: 'high' is not valid; expected a number and a unit, as 0.5 mV\n"
              "hysteresis: '-1 mV' is not valid; expected at least 0\n"
              "slope: '0' is not valid; expected a number above or below 0");
    const std::tuple<const char*, const char*> rows[] = {
        {"level=1 Pa", "level: '1 Pa' is not valid; expected V, as the signal has"},
        {"mode=slope\nslope=1 V", "slope: '1 V' is not valid; expected V/s, as the signal has"},
        {"mode=enter\nlevel=2\nupper_level=2",
         "upper_level: '2' is not valid; expected more than the level, 2"},
        {"before=1e6",
         "before: '1e6' is not valid at 48000 samples per second; expected at most a billion samples"}};
    for (const auto& [settings, message] : rows) {
        ASSERT_TRUE(bench.Set(settings)) << bench.Error();
        EXPECT_FALSE(bench.Run({1.0}, {"test", 48000.0, "V"})) << settings;
        EXPECT_EQ(bench.Error(), message);
    }
}

struct BusTrigger : testing::Test {
    // A block of a bus with two channels, each with its own number of values and samplerate.
    void Send(TCBLOCKSTATUS state, const std::vector<double>& volts, const std::vector<double>& amperes,
              double second = 0.0, double rate = 1.0) {
        const std::tuple<const char*, const std::vector<double>&, double> channels[] = {
            {"volts", volts, 1.0}, {"amperes", amperes, rate}};
        TCIOStream& bus = bench.Input(0);
        bus.StartWriteSegments();
        int index = 4;
        for (const auto& [name, values, samplerate] : channels) {
            TCTypeInfo ti;
            ti.SetSignalname((std::string("of ") + name).c_str());
            ti.SetSamplerate(samplerate);
            ti.SetTimestamp(1e12 + 1000.0 * second);
            ti.SetState(state);
            const int extents[] = {static_cast<int>(values.size())};
            const TCString segment = TCBusSerializeHelper::GenSegmentName(TCPortHelper::TYPE_DOUBLEARRAY, "",
                                                                          0, index++, name, "test");
            bus.WriteBusSegment(segment, TCIOStream::DOUBLE, 1, extents, values.data(), true, &ti);
        }
        bus.EndWriteSegments();
    }
    // All that comes out: of each channel "name:state@second=values".
    std::string Take() {
        std::string text;
        TCIOStream& bus = bench.Stream(0);
        while (bench.Module().Fetch() == 0) {
            if (!bench.Pump(1)) return bench.Error();
            while (bus.StartReadSegments(true) != 0)
                for (int i = 0; i < bus.SegmentCnt(); ++i) {
                    TCBusSerializeHelper name;
                    name.ParseSegmentName(bus.SegmentName(i));
                    TCTypeInfo ti;
                    const TCIOStream::DataSegment* values = bus.ReadBusSegment(i, &ti);
                    text += std::string(name.GetSegmentName()) + ":" +
                            TCTypeInfo::BlockStateToString(ti.GetState()) + "@" +
                            std::to_string(std::lround((ti.GetTimestamp() - 1e12) / 1000.0)) + "=";
                    for (int k = 0; k < values->GetElementCount(); ++k)
                        text += std::to_string(std::lround(values->GetDoubles()[k])) + " ";
                }
        }
        return text;
    }
    bool Begin(const std::string& settings) {
        bench.WireInputs({"STRUCT_BUS{BUS}"});
        bench.WireOutput(0);
        return bench.Set(settings) && bench.Start();
    }
    ModuleBench bench{"bus-trigger", "BusTrigger"};
};

TEST_F(BusTrigger, CutsAllChannelsAtTheHitsOfOne) {
    ASSERT_TRUE(Begin("level=5\nbefore=1\nafter=2\nchannel=amperes")) << bench.Error();
    Send(START, {1, 2, 3, 4, 5, 6}, {0, 0, 9, 0, 0, 9});
    EXPECT_EQ(Take(),
              "volts:COMPLETE@1=2 3 4 amperes:COMPLETE@1=0 9 0 "
              "volts:START@4=5 6 amperes:START@4=0 9 ");
    Send(STOP, {7, 8}, {0, 9}, 6.0);
    EXPECT_EQ(Take(), "volts:STOP@6=7 amperes:STOP@6=0 volts:COMPLETE@6=7 8 amperes:COMPLETE@6=0 9 ");
    ASSERT_TRUE(bench.Finish());
    EXPECT_EQ(bench.Result("hits", "amperes"), 3.0);
    EXPECT_EQ(bench.Result("cut_short", "amperes"), 1.0);
    EXPECT_EQ(bench.Result("last_hit", "amperes"), 7.0);
}

TEST_F(BusTrigger, NeedsChannelsThatBelongTogether) {
    const struct {
        const char* settings;
        std::vector<double> amperes;
        double rate;
        const char* message;
    } rows[] = {
        {"channel=ohms",
         {1.0},
         1.0,
         "channel: the bus has none that is called 'ohms'; there are 'volts', 'amperes'"},
        {"", {1.0, 2.0}, 1.0, "the channels \"volts\" and \"amperes\" have different numbers of values"},
        {"", {1.0}, 2.0, "the channels \"volts\" and \"amperes\" have different numbers of values"},
        {"level=1 V", {1.0}, 1.0, "level: '1 V' is not valid; expected a number without a unit"}};
    for (const auto& row : rows) {
        ASSERT_TRUE(Begin(row.settings)) << bench.Error();
        Send(COMPLETE, {1.0}, row.amperes, 0.0, row.rate);
        EXPECT_FALSE(bench.Pump());
        EXPECT_THAT(bench.Error(), HasSubstr(row.message)) << row.settings;
        bench.Finish();
    }
}

}  // namespace
