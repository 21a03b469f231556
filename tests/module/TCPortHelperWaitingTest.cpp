#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/module/PortBench.h"

using namespace bench;
using Helper = TCPortHelper;

TEST(TCPortHelperWaiting, DataAvailDescribesTheFirstBlock) {
    const std::tuple<Helper::TYPE, int, int> rows[] = {{SIGNAL, 3, 8},
                                                       {Helper::TYPE_DOUBLE1, 1, 8},
                                                       {Helper::TYPE_DOUBLE, 1, 8},
                                                       {Helper::TYPE_MULTI, 3, 0},
                                                       {Helper::TYPE_SWORD1, 1, 4},
                                                       {Helper::TYPE_TEXT, 1, 1},
                                                       {Helper::TYPE_SWORDARRAY, 3, 4}};
    for (const auto& [kind, length, elementSize] : rows) {
        Line line;
        TCPortHelper reader(nullptr);
        TCBLOCKSTATUS state = STOP;
        int blocks = 9, values = 9, size = 9;
        reader.SetPort(INPUT, 0, "In", kind);
        line.writer.AddOutputStream(0, reader.SetInputStream(0, 0, 3));
        EXPECT_FALSE(reader.DataAvail(0, state, blocks, values, size));
        EXPECT_EQ(state, INVALID);
        EXPECT_TRUE(All(0, {blocks, values, size}));
        line.Send(0, START, 3);
        line.Send(0, BUSY, 5);
        EXPECT_TRUE(reader.DataAvail(0, state, blocks, values, size));
        EXPECT_EQ(std::tuple(state, blocks, values, size), std::tuple(START, 2, length, elementSize)) << kind;
        EXPECT_EQ(reader.GetBufferSize(0), 8 * elementSize);
        EXPECT_FALSE(reader.DataAvail(4, state, blocks, values, size) || reader.GetBufferSize(4) != 0);
        EXPECT_EQ(std::tuple(state, blocks, values, size), std::tuple(INVALID, 0, 0, 0));
        reader.RemoveContents(0, true);
    }
}

TEST(TCPortHelperWaiting, MetadataIsPeekedAndRemembered) {
    Line line;
    TCTypeInfo ti;
    int blocks = 0;
    EXPECT_EQ(line.reader.PeekTypeInfo(0, &ti), INVALID);
    EXPECT_EQ(line.reader.PeekStatus(0, false, &blocks), INVALID);
    line.writer.SetTI_SignalName(0, "Speed");
    line.Send(0, {START, STOP});
    EXPECT_EQ(line.reader.PeekTypeInfo(0, &ti), START);
    EXPECT_STREQ(ti.GetSignalname(), "Speed");
    EXPECT_EQ(line.reader.PeekStatus(0, true, &blocks), COMPLETE);
    EXPECT_EQ(blocks, 2);
    EXPECT_EQ(line.reader.GetTypeInfo(0, &ti), INVALID) << "nothing was read yet";
    line.reader.TakeBlock(0);
    EXPECT_EQ(line.reader.GetTypeInfo(0, &ti), START);
    EXPECT_EQ(line.reader.BlocksOnStream(INPUT, 0), 1);
    EXPECT_EQ(line.writer.BlocksOnStream(OUTPUT, 0), 1);
    EXPECT_EQ(line.reader.BlocksOnStream(static_cast<PORTTYPE>(3), 0), 0);
    // Peeking also goes by the adopt flag.
    const std::tuple<const char*, bool, TCBLOCKSTATUS, TCBLOCKSTATUS> rows[] = {
        {"DOUBLE[]", true, STOP, START}, {"", false, STOP, INVALID}, {"DOUBLE[]", false, INVALID, INVALID}};
    for (const auto& [token, withTypeInfo, peeked, last] : rows) {
        line.reader.ChangeType(INPUT, 0, token, "", withTypeInfo);
        EXPECT_EQ(line.reader.PeekTypeInfo(0, &ti), peeked);
        EXPECT_EQ(line.reader.PeekStatus(0, false, nullptr), peeked);
        EXPECT_EQ(line.reader.GetTypeInfo(0, &ti), last);
    }
    // A block without metadata resets what was there.
    line.writer.ChangeType(OUTPUT, 0, "DOUBLE[]", "", false);
    line.reader.ChangeType(INPUT, 0, "DOUBLE[]", "", true);
    line.reader.RemoveContents(0, true);
    line.writer.WriteDblVal(0, 1.0);
    EXPECT_EQ(line.reader.PeekTypeInfo(0, &ti), INVALID);
    EXPECT_STREQ(ti.GetSignalname(), "");
    line.reader.TakeBlock(0);
    EXPECT_EQ(line.reader.LastTypeInfo(0)->GetState(), INVALID);
    EXPECT_EQ(line.reader.LastTypeInfo(7), nullptr);
}

TEST(TCPortHelperWaiting, TriggerGroupNeedsAllItsWiredMembers) {
    Lines lines(4);
    Helper& reader = lines.reader;
    reader.SetPort(INPUT, 4, "Loose", SIGNAL);
    // s0 sends to input 0, t0 takes from it, x1 selects the first external port, + is work and - none.
    const auto play = [&](const std::string& script) {
        for (std::size_t i = 0; i < script.size(); ++i) {
            const unsigned digit = i + 1 < script.size() ? static_cast<unsigned>(script[i + 1] - '0') : 0;
            if (script[i] == 's') lines.Send(digit, BUSY);
            if (script[i] == 't') reader.TakeBlock(digit);
            if (script[i] == 'x') reader.UseExtPar(static_cast<int>(digit));
            const bool work = reader.TriggerDataAvail();
            EXPECT_FALSE(script[i] == (work ? '-' : '+')) << script.substr(0, i + 1);
        }
    };
    const unsigned second[] = {2, 4}, loose[] = {4, 9};
    reader.SetTriggerInputs(0u, 1);
    reader.SetTriggerInputs(nullptr, 2);
    reader.SetTriggerInputs(second, 0);
    reader.SetTriggerInputs(second, 2);
    reader.SetTriggerInputs(loose, 2);
    play("-s0-s1+t0-s2+t2-s3+t3-x1-");
    EXPECT_EQ(reader.Fetch(), 1);
    reader.SetExtPorts(1, 0);
    play("+x2-x3-x0-");
    reader.ClearTriggerInputs();
    play("+t1-");
}

TEST(TCPortHelperWaiting, SynchronousInputsAreComparedAsAsked) {
    using Make = void (*)(Lines&);
    const std::tuple<unsigned, int, Make> rows[] = {
        {Helper::CHECK_VALUE_COUNTS, -5, [](Lines& l) { l.Send(1, START, 2), l.Send(2, START, 3); }},
        {Helper::CHECK_STATES, -13, [](Lines& l) { l.Send(1, START), l.Send(2, COMPLETE); }},
        {Helper::CHECK_BLOCK_COUNTS, -12,
         [](Lines& l) { l.Send(1, START), l.Send(2, START), l.Send(2, BUSY); }},
        {Helper::CHECK_SAMPLERATES, -15,
         [](Lines& l) { l.Send(1, START), l.writer.SetTI_Samplerate(2, 2.0), l.Send(2, START); }},
        {Helper::CHECK_UNITS, -6,
         [](Lines& l) { l.Send(1, START), l.writer.SetTI_Unit(2, "V", 1.0), l.Send(2, START); }}};
    for (const auto& [check, code, make] : rows) {
        Lines lines(3);
        make(lines);
        EXPECT_EQ(lines.reader.SynchronousDataAvail(1, 2, 31u & ~check), 1) << check;
        EXPECT_EQ(lines.reader.SynchronousDataAvail(1u, 2, check), code);
        EXPECT_EQ(lines.reader.GetErrorRecord().code, code);
        EXPECT_EQ(lines.reader.GetErrorText().Find("Input \"Signal 2\" and input \"Signal 3\": "), 0);
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
    EXPECT_EQ(plain.reader.SynchronousDataAvail(0, 1, 5), 0) << "without metadata nothing belongs together";
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
    line.Send(0, START);
    line.reader.TakeBlock(0);
    line.Send(0, {BUSY, STOP, START});
    EXPECT_FALSE(line.reader.IsPacketStart(0, true)) << "the first that waits counts";
    EXPECT_FALSE(line.reader.IsPacketStart(9, true) || line.reader.IsPacketStop(9));
}

TEST(TCPortHelperWaiting, PiecesOfABlockGetTheirStates) {
    // State, parts, index, count: state of the piece.
    for (const auto& [piece, state] :
         Rows("C301:S C311:B C321:P S302:S S321:B P301:B P312:P B000:- P101:P B322:- "
              "-201:B C211:P S211:B C310:B C202:S"))
        EXPECT_EQ(
            Helper::ConvBlockState(StateOf(piece[0]), Digit(piece[1]), Digit(piece[2]), Digit(piece[3])),
            StateOf(state[0]))
            << piece;
    EXPECT_EQ(Helper::ConvBlockState(BUSY, 2, 1, 4294967295u), INVALID);
}
