#include <gmock/gmock.h>

#include <string>

#include "sigweave/module/TCBusValidation.h"
#include "sigweave/signal/TCBusSerializeHelper.h"
#include "tests/support/ModuleBench.h"

namespace {

using Helper = TCPortHelper;

constexpr const char* BUS = "STRUCT_BUS{BUS}";

// The channels of the block that waits at a bus output: index, name, type, and for each of its blocks the
// number of elements and the signal name.
std::string TakeChannels(TCIOStream& bus) {
    std::string channels;
    if (bus.StartReadSegments(true) == 0) return "nothing";
    for (int i = 0; i < bus.SegmentCnt(); ++i) {
        TCBusSerializeHelper name;
        EXPECT_TRUE(name.ParseSegmentName(bus.SegmentName(i)));
        const Helper::TYPE type = TCBusValidation::GetDataType(name.GetValidation()) & 0xffffff;
        channels += std::to_string(name.PortIdx()) + " " + std::string(name.GetSegmentName()) + " " +
                    std::to_string(type);
        TCTypeInfo ti;
        while (const TCIOStream::DataSegment* values = bus.ReadBusSegment(i, &ti)) {
            channels += " " + std::to_string(values->GetElementCount()) + ti.GetSignalname();
        }
        channels += "; ";
    }
    return channels;
}

struct BusSelectBench {
    void Select(const std::string& settings) {
        ASSERT_TRUE(bench.Set(settings)) << bench.Error();
        bench.WireInputs({BUS});
        bench.WireOutput(0);
        ASSERT_TRUE(bench.Start());
    }
    void Add(int index, const char* name, Helper::TYPE type, TCIOStream::DATATYPE element, int dimensions,
             const void* values) {
        const int extents[] = {2, 2};
        const int single[] = {1};
        TCTypeInfo ti;
        ti.SetSignalname((std::string("of ") + name).c_str());
        TCIOStream& bus = bench.Input(0);
        ASSERT_EQ(bus.StartWriteSegments(), 1);
        const TCString segment = TCBusSerializeHelper::GenSegmentName(type, "", 0, index, name, "test");
        EXPECT_EQ(bus.WriteBusSegment(segment, element, dimensions > 0 ? dimensions : 1,
                                      dimensions > 0 ? extents : single, values, true, &ti),
                  0);
    }
    // Channels of every kind.
    bool Send() {
        const int ints[] = {1, 2, 3, 4};
        const double doubles[] = {0.5, 1.5, 2.5, 3.5};
        const TCString texts[] = {"a", "b"};
        Add(3, "count", Helper::TYPE_SWORD1, TCIOStream::INT, 0, ints);
        Add(5, "mic 1", Helper::TYPE_DOUBLEARRAY, TCIOStream::DOUBLE, 1, doubles);
        Add(5, "mic 1", Helper::TYPE_DOUBLEARRAY, TCIOStream::DOUBLE, 1, doubles + 2);
        Add(6, "image", Helper::TYPE_SWORDMATRIX, TCIOStream::INT, 2, ints);
        Add(9, "notes", Helper::TYPE_TEXTARRAY, TCIOStream::STRING, 1, texts);
        bench.Input(0).EndWriteSegments();
        return bench.Pump();
    }
    ModuleBench bench{"bus-select", "BusSelect"};
};

TEST(BusSelect, PassesOnChannelsOfEveryKindAsTheyAre) {
    BusSelectBench select;
    select.Select("expression=\"o|i\"\n");
    for (int block = 0; block < 2; ++block) {
        ASSERT_TRUE(select.Send()) << select.bench.Error();
        EXPECT_EQ(TakeChannels(select.bench.Stream(0)),
                  "3 count 2 1of count; 5 mic 1 64 2of mic 1 2of mic 1; 6 image 8 4of image; "
                  "9 notes 512 2of notes; ");
    }
}

TEST(BusSelect, TakesPartsOfNamesOrWholeOnesOrTheOthers) {
    const struct {
        const char* settings;
        const char* channels;
    } rows[] = {
        {"expression=\"mic\"\nsignals=0\n", "5 mic 1 64 2of mic 1 2of mic 1; "},
        {"expression=\"mic\"\nmatch=whole\n", "nothing"},
        {"expression=\"[a-z]*\"\nmatch=whole\ninvert=yes\n", "5 mic 1 64 2of mic 1 2of mic 1; "},
    };
    for (const auto& row : rows) {
        ModuleBench::TakeWarnings();
        BusSelectBench select;
        ModuleBench& bench = select.bench;
        select.Select(row.settings);
        ASSERT_TRUE(select.Send() && select.Send()) << bench.Error();
        EXPECT_EQ(TakeChannels(bench.Stream(0)), row.channels) << row.settings;
        const std::string warnings = ModuleBench::TakeWarnings();
        const bool none = std::string(row.channels) == "nothing";
        EXPECT_EQ(warnings.find("\"count\", \"mic 1\", \"image\", \"notes\"") != std::string::npos, none);
        EXPECT_EQ(warnings.find('\n'), none ? warnings.size() - 1 : std::string::npos) << "reported once";
    }
}

TEST(BusSelect, KeepsTheOutputOfAChannelWhereOthersAreMissing) {
    BusSelectBench select;
    select.Select("expression=\"mic\"\nsignals=2\n");
    select.bench.WireOutput(1);
    select.bench.WireOutput(2);
    const double values[] = {0.5, 1.5};
    for (const bool whole : {true, false}) {
        if (whole) select.Add(4, "mic 0", Helper::TYPE_DOUBLEARRAY, TCIOStream::DOUBLE, 1, values);
        select.Add(5, "mic 1", Helper::TYPE_DOUBLEARRAY, TCIOStream::DOUBLE, 1, values);
        select.bench.Input(0).EndWriteSegments();
        ASSERT_TRUE(select.bench.Pump()) << select.bench.Error();
    }
    EXPECT_EQ(select.bench.Blocks(1).size(), 1U);
    ASSERT_EQ(select.bench.Blocks(2).size(), 2U);
    EXPECT_STREQ(select.bench.Blocks(2)[1].GetSignalname(), "of mic 1");
}

// A channel of which only the end is there, and one with blocks inside of its blocks.
TEST(BusSelect, TakesBlocksThatAreNoValues) {
    BusSelectBench select;
    select.Select("expression=\"mic\"\n");
    select.bench.WireOutput(1);
    TCTypeInfo ti;
    ti.SetState(STOP);
    TCIOStream::Block nested;
    nested.SetTI(&ti);
    TCArray<TCIOStream::Block*> blocks;
    blocks.Add(&nested);
    const TCString name =
        TCBusSerializeHelper::GenSegmentName(Helper::TYPE_DOUBLEARRAY, "", 0, 5, "mic 1", "test");
    const auto send = [&] {
        TCIOStream& bus = select.bench.Input(0);
        EXPECT_TRUE(bus.StartWriteSegments() == 1 && bus.WriteSegment(name, blocks) == 0);
        bus.EndWriteSegments();
        return select.bench.Pump();
    };
    EXPECT_TRUE(send()) << select.bench.Error();
    EXPECT_EQ(TakeChannels(select.bench.Stream(0)), "nothing");
    EXPECT_EQ(select.bench.States(1), "STOP");
    const int one[] = {1};
    TCIOStream::Block inner;
    TCIOStream::Block* address = &inner;
    ASSERT_TRUE(nested.AddSegment("", TCIOStream::BLOCK, 1, one, &address));
    EXPECT_FALSE(send());
    EXPECT_THAT(select.bench.Error(), testing::HasSubstr("holds blocks inside of its blocks"));
}

TEST(BusSelect, SaysWhatIsWrong) {
    BusSelectBench select;
    ModuleBench& bench = select.bench;
    EXPECT_FALSE(bench.Set("expression=\"(mic\"\n"));
    EXPECT_THAT(bench.Error(), testing::HasSubstr("expression: '(mic' is not valid (unbalanced"));
    select.Select("expression=\"notes\"\n");
    bench.WireOutput(1);
    EXPECT_FALSE(select.Send());
    EXPECT_THAT(bench.Error(), testing::HasSubstr("\"notes\" holds no double values"));
}

TEST(BusJoin, NamesItsChannelsAfterTheirSignals) {
    ModuleBench bench("bus-join", "BusJoin");
    bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
    bench.WireOutput(0);
    ASSERT_TRUE(bench.Start());
    ASSERT_TRUE(bench.Feed(0, {1.0, 2.0, 3.0}, {"left", 10.0, "V"}));
    EXPECT_EQ(TakeChannels(bench.Stream(0)), "nothing") << "waits for the other input";
    ASSERT_TRUE(bench.Feed(1, {4.0}, {"", 20.0, "N"}));
    EXPECT_EQ(TakeChannels(bench.Stream(0)), "0 left 64 3left; 1 Signal 2 64 1; ");
    ASSERT_TRUE(bench.Feed(0, {1.0}, {"two\r\nlines"}) && bench.Feed(1, {4.0}, {"right"})) << bench.Error();
    EXPECT_EQ(TakeChannels(bench.Stream(0)), "0 Signal 1 64 1two\r\nlines; 1 right 64 1right; ");
}

TEST(BusJoin, SendsNothingForBlocksWithoutValues) {
    ModuleBench bench("bus-join", "BusJoin");
    bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::TIME_DOMAIN});
    bench.WireOutput(0);
    ASSERT_TRUE(bench.Start());
    ASSERT_TRUE(bench.Send(0, {}, {}) && bench.Send(1, {}, {})) << bench.Error();
    EXPECT_EQ(TakeChannels(bench.Stream(0)), "nothing");
    ASSERT_TRUE(bench.Send(0, {}, {}) && bench.Feed(1, {4.0}, {"right"})) << bench.Error();
    EXPECT_EQ(TakeChannels(bench.Stream(0)), "1 right 64 1right; ");
}

}  // namespace
