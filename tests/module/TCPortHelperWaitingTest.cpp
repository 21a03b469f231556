#include <gtest/gtest.h>

#include <vector>

#include "tests/module/PortBench.h"

using namespace bench;
using Helper = TCPortHelper;

TEST(TCPortHelperWaiting, DataAvailDescribesTheFirstBlock) {
    Line line;
    TCBLOCKSTATUS state = STOP;
    int blocks = 9, values = 9, size = 9;
    EXPECT_FALSE(line.reader.DataAvail(0, state, blocks, values, size));
    EXPECT_EQ(state, INVALID);
    EXPECT_EQ(blocks + values + size, 0);
    line.Send(0, START, 7);
    line.Send(0, BUSY, 5);
    EXPECT_TRUE(line.reader.DataAvail(0, state, blocks, values, size));
    EXPECT_EQ(state, START);
    EXPECT_EQ(blocks * 100 + values * 10 + size, 278);
    EXPECT_EQ(line.reader.GetBufferSize(0), 12 * 8);
    EXPECT_FALSE(line.reader.DataAvail(4, state, blocks, values, size));
}

TEST(TCPortHelperWaiting, MetadataIsPeekedAndRemembered) {
    Line line;
    TCTypeInfo ti;
    int blocks = 0;
    EXPECT_EQ(line.reader.PeekTypeInfo(0, &ti), INVALID);
    line.writer.SetTI_SignalName(0, "Speed");
    line.Send(0, {START, STOP});
    EXPECT_EQ(line.reader.PeekTypeInfo(0, &ti), START);
    EXPECT_STREQ(ti.GetSignalname(), "Speed");
    EXPECT_EQ(line.reader.PeekStatus(0, true, &blocks), COMPLETE);
    EXPECT_EQ(blocks, 2);
    EXPECT_EQ(line.reader.GetTypeInfo(0, &ti), INVALID) << "nothing was read yet";
    line.reader.TakeBlock(0);
    EXPECT_EQ(line.reader.GetTypeInfo(0, &ti), START);
    EXPECT_EQ(line.reader.PeekStatus(0, false, nullptr), STOP);
    EXPECT_EQ(line.reader.RemoveContents(0, true), 1);
}

TEST(TCPortHelperWaiting, TriggerGroupNeedsAllItsWiredMembers) {
    Lines lines(4);
    lines.reader.SetPort(INPUT, 4, "Loose", SIGNAL);
    lines.reader.SetTriggerInputs(0, 1);
    const unsigned second[] = {2, 4};
    lines.reader.SetTriggerInputs(second, 2);
    lines.Send(0, START);
    EXPECT_FALSE(lines.reader.TriggerDataAvail());
    lines.Send(1, START);
    EXPECT_TRUE(lines.reader.TriggerDataAvail());
    EXPECT_EQ(lines.reader.Fetch(), 0);
    lines.reader.TakeBlock(0);
    EXPECT_FALSE(lines.reader.TriggerDataAvail());
    lines.Send(2, START);
    EXPECT_TRUE(lines.reader.TriggerDataAvail()) << "the unwired member of the second group does not count";
    lines.reader.TakeBlock(2);
    lines.Send(3, START);
    EXPECT_TRUE(lines.reader.TriggerDataAvail()) << "an input of no group";
    lines.reader.TakeBlock(3);
    lines.reader.ClearTriggerInputs();
    EXPECT_TRUE(lines.reader.TriggerDataAvail()) << "without groups any input counts";
}

namespace {

struct Difference {
    const char* what;
    unsigned check;
    int code;
    void (*make)(Lines& lines);
};

}  // namespace

TEST(TCPortHelperWaiting, SynchronousInputsAreComparedAsAsked) {
    const Difference rows[] = {
        {"values", Helper::CHECK_VALUE_COUNTS, -5,
         [](Lines& l) { l.Send(0, START, 2), l.Send(1, START, 3); }},
        {"states", Helper::CHECK_STATES, -13, [](Lines& l) { l.Send(0, START), l.Send(1, COMPLETE); }},
        {"blocks", Helper::CHECK_BLOCK_COUNTS, -12,
         [](Lines& l) {
             l.Send(0, {START}), l.Send(1, {START, BUSY});
         }},
        {"rates", Helper::CHECK_SAMPLERATES, -15,
         [](Lines& l) { l.Send(0, START), l.writer.SetTI_Samplerate(1, 2.0), l.Send(1, START); }},
        {"units", Helper::CHECK_UNITS, -6,
         [](Lines& l) { l.Send(0, START), l.writer.SetTI_Unit(1, "V", 1.0), l.Send(1, START); }},
    };
    for (const Difference& row : rows) {
        SCOPED_TRACE(row.what);
        Lines lines(2);
        row.make(lines);
        EXPECT_EQ(lines.reader.SynchronousDataAvail(0, 1, 31u & ~row.check), 1);
        EXPECT_EQ(lines.reader.SynchronousDataAvail(0, 1, row.check), row.code);
        EXPECT_EQ(lines.reader.GetErrorText().Find("Input \"Signal 1\" and input \"Signal 2\": "), 0);
    }
}

TEST(TCPortHelperWaiting, SynchronousCountIsTheSmallestOfTheWiredInputs) {
    Lines lines(2);
    lines.reader.SetPort(INPUT, 2, "Loose", SIGNAL);
    const unsigned inputs[] = {2, 0, 1};
    EXPECT_EQ(lines.reader.SynchronousDataAvail(inputs, 1, 0), 0);
    lines.Send(0, {START, BUSY, BUSY});
    EXPECT_EQ(lines.reader.SynchronousDataAvail(inputs, 3, 0), 0) << "one of them has nothing";
    lines.Send(1, {START, BUSY, BUSY, BUSY, BUSY});
    EXPECT_EQ(lines.reader.SynchronousDataAvail(inputs, 3, 0), 3);
    EXPECT_EQ(lines.reader.SynchronousDataAvail(0, 7, 0), 0);
    EXPECT_EQ(lines.reader.SynchronousDataAvail(nullptr, 3, 0), 0);
    Lines plain(2, Helper::TYPE_DOUBLEARRAY);
    for (const unsigned port : {0u, 1u}) plain.Send(port, START);
    EXPECT_EQ(plain.reader.SynchronousDataAvail(0, 1, 0), 0) << "without metadata nothing belongs together";
}

TEST(TCPortHelperWaiting, PacketsBeginAndEnd) {
    const TCBLOCKSTATUS states[] = {BUSY, BUSY, START, BUSY, STOP, BUSY, STOP, COMPLETE};
    const std::vector<bool> starts = {true, false, true, false, false, true, false, true};
    const std::vector<bool> stops = {false, false, false, false, true, false, true, true};
    Line line;
    for (std::size_t i = 0; i < starts.size(); ++i) {
        line.Send(0, states[i]);
        EXPECT_EQ(line.reader.IsPacketStart(0, true), starts[i]) << i;
        line.reader.TakeBlock(0);
        EXPECT_EQ(line.reader.IsPacketStart(0, false), starts[i]) << i;
        EXPECT_EQ(line.reader.IsPacketStop(0), stops[i]) << i;
    }
}

TEST(TCPortHelperWaiting, PiecesOfABlockGetTheirStates) {
    struct {
        TCBLOCKSTATUS state;
        unsigned parts, index, count;
        TCBLOCKSTATUS piece;
    } const rows[] = {
        {COMPLETE, 3, 0, 1, START}, {COMPLETE, 3, 1, 1, BUSY}, {COMPLETE, 3, 2, 1, STOP},
        {START, 3, 0, 2, START},    {START, 3, 2, 1, BUSY},    {STOP, 3, 0, 1, BUSY},
        {STOP, 3, 1, 2, STOP},      {BUSY, 0, 0, 0, INVALID},  {STOP, 1, 0, 1, STOP},
        {BUSY, 3, 2, 2, INVALID},   {INVALID, 2, 0, 1, BUSY},  {BUSY, 2, 1, 4294967295u, INVALID},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Helper::ConvBlockState(row.state, row.parts, row.index, row.count), row.piece)
            << row.state << " " << row.parts << " " << row.index << " " << row.count;
}
