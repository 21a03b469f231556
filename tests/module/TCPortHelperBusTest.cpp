// Multitype and bus blocks, and whole blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "sigweave/signal/TCBusSerializeHelper.h"
#include "tests/module/PortBench.h"
#include "tests/support/Allocations.h"

using namespace bench;
using Helper = TCPortHelper;

namespace {

constexpr Helper::TYPE BUS = Helper::TYPE_MULTI;

struct BusLine : Line {
    explicit BusLine(Helper::TYPE code = BUS) : Line(code) {}
    void Dispatch() {
        EXPECT_EQ(writer.EndWriteMultitype(0), 0);
        EXPECT_EQ(reader.StartReadMultitype(0), 1);
    }
    TCString Message() const { return reader.GetErrorRecord().text1; }
};

// One channel of every kind, named after it, numbered from 0.
struct FullBus : BusLine {
    FullBus() {
        const int numbers[] = {1, 2, 3, 4};
        const double levels[] = {1.5, 2.5};
        const TCString words[] = {"a", "b"};
        TCTypeInfo own;
        own.SetSignalname("Own");
        EXPECT_EQ(writer.WriteIntBusBlock(0, 7, 0, "int", &own), 0);
        EXPECT_EQ(writer.WriteDblBusBlock(0, 7.5, 1, "dbl", nullptr), 0);
        EXPECT_EQ(writer.WriteStringBusBlock(0, "t", 2, "string", &own), 0);
        EXPECT_EQ(writer.WriteIntDataBusBlock(0, 4, numbers, 3, "ints", &own), 0);
        EXPECT_EQ(writer.WriteDblDataBusBlock(0, 2, levels, 4, "dbls", &own), 0);
        EXPECT_EQ(writer.WriteStringDataBusBlock(0, 2, words, 5, "strings", &own), 0);
        EXPECT_EQ(writer.WriteIntMatrixBusBlock(0, 2, 2, numbers, true, 6, "int matrix", &own), 0);
        EXPECT_EQ(writer.WriteDblMatrixBusBlock(0, 1, 2, levels, true, 7, "dbl matrix", &own), 0);
        EXPECT_EQ(writer.WritePtrBusBlock(0, this, 1, 8, "ptr", &own), 0);
        Dispatch();
    }
    int intValue = 0;
    double dblValue = 0;
    TCString text;
    TCArray<int, int> ints;
    TCArray<double, double> dbls;
    TCArray<TCString, const TCString&> texts;
    const int* intMatrix = nullptr;
    const double* dblMatrix = nullptr;
    int rows = 0, cols = 0, count = 0;
    void* pointer = nullptr;
    TCTypeInfo ti;

    // The results of reading each kind at the place that `where` gives for it.
    template <class Where>
    std::vector<int> ReadAll(Where where) {
        return {reader.ReadIntBusBlock(0, where(0), intValue, &ti),
                reader.ReadDblBusBlock(0, where(1), dblValue, nullptr),
                reader.ReadStringBusBlock(0, where(2), text, &ti),
                reader.ReadIntArrayBusBlock(0, where(3), ints, &ti),
                reader.ReadDblArrayBusBlock(0, where(4), dbls, &ti),
                reader.ReadStringArrayBusBlock(0, where(5), texts, &ti),
                reader.ReadIntMatrixBusBlock(0, where(6), &intMatrix, rows, cols, &ti),
                reader.ReadDblMatrixBusBlock(0, where(7), &dblMatrix, rows, cols, &ti),
                reader.ReadPtrBusBlock(0, where(8), &pointer, &count, &ti)};
    }
};

const char* const NAMES[] = {"int",     "dbl",        "string",     "ints", "dbls",
                             "strings", "int matrix", "dbl matrix", "ptr"};
const char* const KINDS[] = {"int value",    "double value", "string value",  "int array",    "double array",
                             "string array", "int matrix",   "double matrix", "pointer value"};

// The validation text of each channel: of the code, or where that names no kind of elements, of the type
// string.
const char* const TYPES[] = {"DT_04000002", "DT_04000020", "DT_04000100",
                             "DT_04000004", "DT_04000040", "DT_04000200",
                             "DT_14000008", "DT_14000080", "2 TYPEINFO{TypeInfo} POINTER{}"};

void ExpectAllRead(FullBus& bus, const std::vector<int>& results) {
    EXPECT_EQ(results, std::vector<int>(9, 1));
    EXPECT_EQ(bus.intValue, 7);
    EXPECT_EQ(bus.dblValue, 7.5);
    EXPECT_STREQ(bus.text, "t");
    EXPECT_EQ(bus.ints.GetSize(), 4);
    EXPECT_EQ(bus.dbls[1], 2.5);
    EXPECT_STREQ(bus.texts[1], "b");
    EXPECT_EQ(bus.intMatrix[3], 4);
    EXPECT_EQ(bus.rows * 10 + bus.cols, 12);
    EXPECT_EQ(std::pair(bus.pointer, bus.count), std::pair(static_cast<void*>(&bus), 1));
    EXPECT_STREQ(bus.ti.GetSignalname(), "Own");
}

}  // namespace

TEST(TCPortHelperBus, EveryKindIsFoundByNameAndByIndex) {
    FullBus byName;
    ExpectAllRead(byName, byName.ReadAll([](int channel) { return NAMES[channel]; }));
    FullBus byIndex;
    ExpectAllRead(byIndex, byIndex.ReadAll([](int channel) { return channel; }));
    TCString symbol;
    for (int i = 0; i < 9; ++i) {
        TCBusSerializeHelper name;
        EXPECT_TRUE(name.ParseSegmentName(byName.reader.SetInputStream(0, 0, 3)->SegmentName(i)));
        EXPECT_EQ(std::tuple(name.PortIdx(), name.GetSegmentName(), name.GetValidation()),
                  std::tuple(i, TCString(NAMES[i]), TCString(TYPES[i])));
        EXPECT_TRUE(i == 0 || name.CompCheck() == symbol) << "one of each helper";
        symbol = name.CompCheck();
    }
    EXPECT_EQ(std::string(symbol).find_first_not_of("0123456789abcdef"), std::string::npos);
    const char* const none = nullptr;
    EXPECT_EQ(byName.reader.ReadIntBusBlock(0, none, byName.intValue, nullptr), 0);
    EXPECT_EQ(byName.reader.ReadDblMatrixBusBlock(0, 7, nullptr, byName.rows, byName.cols, nullptr), 0);
    FullBus counted;
    EXPECT_TRUE(All(1, {counted.reader.GetBusBlockCnt(0, 3), counted.reader.GetBusBlockCnt(0, "int")}));
    EXPECT_TRUE(All(
        4, {counted.reader.GetBusBlockElementCnt(0, 3), counted.reader.GetBusBlockElementCnt(0, "ints")}));
    EXPECT_TRUE(
        All(0, {counted.reader.GetBusBlockCnt(0, 9), counted.reader.GetBusBlockCnt(0, -1),
                counted.reader.GetBusBlockElementCnt(0, "nowhere"), counted.reader.GetBusBlockCnt(7, 3)}));
}

TEST(TCPortHelperBus, ArraysAndSingleValuesAreReadAsEachOther) {
    FullBus bus;
    EXPECT_TRUE(All(1, {bus.reader.ReadIntArrayBusBlock(0, "int", bus.ints, nullptr),
                        bus.reader.ReadDblArrayBusBlock(0, 1, bus.dbls, nullptr),
                        bus.reader.ReadStringArrayBusBlock(0, "string", bus.texts, nullptr),
                        bus.reader.ReadIntBusBlock(0, 3, bus.intValue, nullptr),
                        bus.reader.ReadDblBusBlock(0, "dbls", bus.dblValue, nullptr),
                        bus.reader.ReadStringBusBlock(0, 5, bus.text, nullptr)}));
    EXPECT_TRUE(All(1, {bus.ints.GetSize(), bus.dbls.GetSize(), bus.texts.GetSize()}));
    EXPECT_EQ(std::tuple(bus.ints[0], bus.dbls[0], bus.texts[0]), std::tuple(7, 7.5, TCString("t")));
    EXPECT_EQ(std::tuple(bus.intValue, bus.dblValue, bus.text), std::tuple(4, 2.5, TCString("b")))
        << "the last";
}

TEST(TCPortHelperBus, MismatchNamesKindAndChannel) {
    // One kind is asked of a channel that holds something else, the others of none.
    for (int kind = 0; kind < 9; ++kind) {
        FullBus bus;
        const int other = kind == 8 ? 2 : 8;
        const auto expectMismatch = [&](const std::vector<int>& results, const TCString& place) {
            EXPECT_EQ(std::ranges::count(results, 0), 8);
            EXPECT_EQ(results[static_cast<std::size_t>(kind)], -2);
            EXPECT_EQ(bus.Message(), "Datatype does not match while reading BUS " + TCString(KINDS[kind]) +
                                         " at channel " + place);
        };
        expectMismatch(bus.ReadAll([&](int c) { return c == kind ? NAMES[other] : "nowhere"; }),
                       TCString::FormatS("'%s'", NAMES[other]));
        expectMismatch(bus.ReadAll([&](int c) { return c == kind ? other : 99; }),
                       TCString::FormatS("%d", other));
    }
}

TEST(TCPortHelperBus, ChannelsOfManyBlocksAreReadNewestOrInOrder) {
    for (const bool multiple : {false, true}) {
        BusLine bus;
        bus.reader.EnableMultipleBlocksInBusChannel(0, multiple);
        const double values[] = {1, 2, 3};
        for (const int count : {1, 2, 3})
            bus.writer.WriteDblDataBusBlock(0, count, values, 4, "Speed", nullptr);
        bus.Dispatch();
        EXPECT_EQ(bus.reader.GetBusBlockCnt(0, "Speed"), 3);
        EXPECT_EQ(bus.reader.GetBusBlockElementCnt(0, 4), multiple ? 1 : 3);
        double value = 0;
        std::vector<double> read;
        while (bus.reader.ReadDblBusBlock(0, "Speed", value, nullptr) == 1) read.push_back(value);
        EXPECT_EQ(read, multiple ? (std::vector{1.0, 2.0, 3.0}) : std::vector{3.0});
    }
}

TEST(TCPortHelperBus, SteadyFlowAllocatesNothing) {
    BusLine bus;
    TCTypeInfo ti;
    TCArray<double, double> read;
    const std::vector<double> values(512, 1.0);
    const char* const names[] = {"Left", "A name that is too long for any small buffer", "Right"};
    const auto pass = [&] {
        for (int i = 0; i < 3; ++i) bus.writer.WriteDblDataBusBlock(0, 512, values.data(), i, names[i], &ti);
        bus.Dispatch();
        return bus.reader.ReadDblArrayBusBlock(0, names[1], read, &ti) +
               bus.reader.ReadDblArrayBusBlock(0, 2, read, &ti);
    };
    for (int i = 0; i < 3; ++i) ASSERT_EQ(pass(), 2);
    const int before = allocations::Count();
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(pass(), 2);
    EXPECT_EQ(allocations::Count() - before, 0);
    bus.writer.WriteDblBusBlock(0, 7.0, 0, "Other", nullptr);
    bus.Dispatch();
    EXPECT_EQ(bus.reader.ReadDblArrayBusBlock(0, "Other", read, &ti), 1) << "the channel has another name";
    EXPECT_EQ(bus.writer.WriteIntBusBlock(0, 7, 0, "two\r\nlines", nullptr), -14);
}

TEST(TCPortHelperBus, NothingIsWrittenWithoutReceiverOrValues) {
    TCPortHelper alone(nullptr);
    BusLine bus;
    const double value = 1.0;
    const int huge = 1 << 16;
    alone.SetPort(OUTPUT, 0, "Bus", "STRUCT_BUS", "BUS", false);
    EXPECT_TRUE(All(0, {alone.WriteDblBusBlock(0, 1.0, 0, "x", nullptr), alone.EndWriteMultitype(0),
                        bus.writer.WriteDblDataBusBlock(0, 0, &value, 0, "x", nullptr),
                        bus.writer.WriteDblDataBusBlock(0, 1, nullptr, 0, "x", nullptr),
                        bus.writer.WriteDblMatrixBusBlock(0, 1, 0, &value, true, 0, "x", nullptr),
                        bus.writer.WriteDblMatrixBusBlock(0, 0, 1, &value, true, 0, "x", nullptr)}));
    EXPECT_EQ(bus.writer.WriteDblMatrixBusBlock(0, huge, huge, &value, false, 0, "x", nullptr), -14);
    EXPECT_EQ(bus.writer.EndWriteMultitype(0), -14);
    EXPECT_STREQ(bus.writer.GetErrorRecord().text1,
                 "EndWriteMultitype was called without former Write... call");
}

TEST(TCPortHelperMultitype, PartsAreReadByNameAndByIndex) {
    BusLine line(BUS | Helper::TYPE_TYPEINFO);
    TCIOStream::Block nested;
    TCArray<TCIOStream::Block*> blocks;
    blocks.Add(&nested);
    EXPECT_EQ(line.writer.WriteMultitypeInt(0, "i", 1), 0);
    EXPECT_EQ(line.writer.WriteMultitypeInt(0, "i", 2), -14) << "each name once a block";
    EXPECT_EQ(line.writer.WriteMultitypeDbl(0, "d", 2.5), 0);
    EXPECT_EQ(line.writer.WriteMultitypeString(0, "s", "text"), 0);
    EXPECT_EQ(line.writer.WriteMultitypeBlocks(0, "b", blocks), 0);
    line.Dispatch();
    EXPECT_EQ(line.reader.LastTypeInfo(0)->GetState(), COMPLETE);
    int i = 0;
    double d = 0;
    TCString s;
    EXPECT_EQ(line.reader.ReadMultitypeInt(0, "i", i) + line.reader.ReadMultitypeDbl(0, 1, d), 2);
    EXPECT_EQ(line.reader.ReadMultitypeString(0, "s", s) + line.reader.ReadMultitypeBlocks(0, 3, blocks), 2);
    EXPECT_EQ(i, 1);
    EXPECT_EQ(d, 2.5);
    EXPECT_STREQ(s, "text");
    const char* const none = nullptr;
    EXPECT_TRUE(All(0, {line.reader.ReadMultitypeInt(0, "nowhere", i), line.reader.ReadMultitypeInt(0, 4, i),
                        line.reader.ReadMultitypeInt(0, none, i)}));
    const auto expect = [&line](int result, const char* what) {
        EXPECT_EQ(result, -2);
        EXPECT_EQ(line.Message(), TCString("Datatype does not match while reading ") + what);
    };
    expect(line.reader.ReadMultitypeInt(0, 1, i), "integer value at segment 1");
    expect(line.reader.ReadMultitypeDbl(0, "i", d), "double value at segment 'i'");
    expect(line.reader.ReadMultitypeString(0, 0, s), "string value at segment 0");
    expect(line.reader.ReadMultitypeBlocks(0, "d", blocks), "block values at segment 'd'");
}

TEST(TCPortHelperMultitype, NothingOfARefusedBlockIsSentLater) {
    // A block of parts and one of a channel: refused, then tried again at once, or another one is begun.
    int (*const writers[])(Helper&, int) = {
        [](Helper& helper, int value) { return helper.WriteMultitypeInt(0, "i", value); },
        [](Helper& helper, int value) { return helper.WriteIntBusBlock(0, value, 1, "i", nullptr); }};
    for (const bool again : {false, true}) {
        for (const auto& write : writers) {
            BusLine line(BUS | Helper::TYPE_TYPEINFO);
            int value = 0;
            double old = 0;
            write(line.writer, 1);
            line.writer.EndWriteMultitype(0);
            EXPECT_TRUE(All(0, {write(line.writer, 2), line.writer.WriteMultitypeDbl(0, "old", 2.0)}));
            EXPECT_EQ(line.writer.EndWriteMultitype(0), -18);
            line.reader.RemoveContents(0, true);
            EXPECT_EQ(again ? 0 : write(line.writer, 3), 0);
            line.Dispatch();
            line.reader.ReadMultitypeInt(0, "i", value) || line.reader.ReadIntBusBlock(0, 1, value, nullptr);
            EXPECT_EQ(value, again ? 2 : 3);
            EXPECT_EQ(line.reader.ReadMultitypeDbl(0, "old", old), again ? 1 : 0);
        }
    }
}

namespace {

// source -> stage (input 0, output 0; output 1 has no line) -> sink
struct Stage {
    explicit Stage(Helper::TYPE output = SIGNAL) : sink(output) {
        helper.SetPort(INPUT, 0, "In", SIGNAL);
        helper.SetPort(OUTPUT, 0, "Out", output);
        helper.SetPort(OUTPUT, 1, "Unwired", SIGNAL);
        helper.UseAutoTypeInfo(0, false, true, false, false, false, false);
        Wire(source.writer, 0, helper, 0);
        Wire(helper, 0, sink.reader, 0);
    }
    // Plays a script and answers what its calls answer:
    //   SBPC  the source sends three values     R  another output puts a COMPLETE block into the sink's queue
    //   f u   the stage forwards to output 0, 1     h c H  it takes a block to hold, copies it, gives it back
    //   a  it copies all that wait     w  it writes a value     n d s  blocks that wait, dropping one, last
    //   state r  the sink receives: state and number of values     D  it drops all
    std::string Play(const char* script) {
        std::string log;
        for (; *script != '\0'; ++script) {
            const char step = *script;
            if (StateOf(step) != INVALID) source.Send(0, StateOf(step), 3), source.reader.TakeBlock(0);
            if (step == 'R') sink.Send(0, COMPLETE);
            if (step == 's') log += std::string(" ") + LetterOf(helper.LastTypeInfo(0)->GetState());
            if (step == 'r') {
                int count = 0;
                log += std::string(" ") + LetterOf(sink.Receive().GetState());
                log += sink.reader.AccessDblData(0, count) != nullptr ? std::to_string(count) : "";
            }
            const std::pair<char, std::function<int()>> calls[] = {
                {'f', [this] { return helper.ForwardBlock(0, 0); }},
                {'u', [this] { return helper.ForwardBlock(1, 0); }},
                {'h', [this] { return helper.ExchangeBinary(0, &held, true); }},
                {'H', [this] { return helper.ExchangeBinary(0, &held, false); }},
                {'c', [this] { return helper.WriteCopy(0, held); }},
                {'a', [this] { return helper.CopyStreamContent(0, 0); }},
                {'w', [this] { return helper.WriteDblVal(0, 1.0); }},
                {'n', [this] { return helper.BlocksOnStream(INPUT, 0); }},
                {'d', [this] { return helper.RemoveContents(0, false); }},
                {'D', [this] { return sink.reader.RemoveContents(0, true); }}};
            for (const auto& [letter, call] : calls)
                if (letter == step) log += " " + std::to_string(call());
        }
        return log;
    }
    Line sink;
    TCPortHelper helper{nullptr};
    Line source;
    TCIOStream::Block* held = nullptr;
};

}  // namespace

TEST(TCPortHelperBlocks, BlocksAreForwardedHeldAndCopied) {
    Stage stage;
    int count = 0;
    EXPECT_EQ(stage.Play("Sfsfr"), " 1 S 0 S3");
    EXPECT_EQ(stage.sink.reader.AccessDblData(0, count), stage.source.reader.AccessDblData(0, count))
        << "the same block";
    EXPECT_EQ(stage.Play("BBuus"), " 1 1 B") << "to nobody one at a time, so that the flow goes on";
    EXPECT_EQ(stage.Play("Bfwrr"), " 1 0 B3 B1") << "goes on from the state that was forwarded";
    stage.sink.reader.RemoveContents(0, true);
    EXPECT_TRUE(All(
        0, {stage.helper.ForwardBlock(0, 0), stage.helper.ForwardBlock(9, 0), stage.helper.ForwardBlock(0, 9),
            stage.helper.WriteCopy(0, nullptr), stage.helper.WriteCopy(9, nullptr),
            stage.helper.ExchangeBinary(9, &stage.held, true), stage.helper.CopyStreamContent(0, 0),
            stage.helper.CopyStreamContent(9, 0), stage.helper.SerializeBlock(9, nullptr),
            stage.helper.DeSerializeBlock(9, ""), stage.helper.RemoveContents(9, true)}))
        << "no port, or nothing waits";
    EXPECT_EQ(stage.Play("Sa"), " 1");
    EXPECT_TRUE(All(0, {stage.helper.CopyStreamContent(0, 9), stage.helper.ForwardBlock(9, 0)}));
    Stage copies;
    EXPECT_EQ(copies.Play("SBPhcHanrrrdar"), " 1 0 0 2 2 S3 B3 P3 1 1 P3");
    EXPECT_EQ(copies.Play("RhBcHDwrRhBaHDwr"), " 1 -18 0 1 0 S1 1 -18 0 1 0 B1")
        << "what is refused leaves nothing";
    Stage ints(Helper::TYPE_SWORDARRAY);
    EXPECT_EQ(ints.Play("SBfanhcH"), " -2 -2 2 1 -2 0") << "blocks of another type";
    EXPECT_STREQ(ints.helper.GetErrorRecord().text1, "Block data does not match datatype of output port");
    EXPECT_EQ(ints.held, nullptr);
    Line from(Helper::TYPE_POINTER), to(Helper::TYPE_POINTER);
    from.writer.WritePtr(0, &count, 1);
    EXPECT_EQ(from.reader.ExchangeBinary(0, &ints.held, true) + to.writer.WriteCopy(0, ints.held), 1);
}

TEST(TCPortHelperBlocks, BegunBlockOutlivesAForwardedOne) {
    BusLine source;
    BusLine sink;
    int value = 0;
    source.reader.SetPort(OUTPUT, 0, "Out", BUS);
    Wire(source.reader, 0, sink.reader, 0);
    source.writer.WriteMultitypeInt(0, "i", 1);
    source.writer.EndWriteMultitype(0);
    EXPECT_EQ(source.reader.WriteMultitypeInt(0, "i", 2), 0);
    EXPECT_EQ(source.reader.ReadInternalData(0), 0) << "parts are no values, and the block stays";
    EXPECT_EQ(source.reader.ForwardBlock(0, 0), 1);
    EXPECT_EQ(source.reader.EndWriteMultitype(0), 0);
    EXPECT_EQ(sink.reader.StartReadMultitype(0) + sink.reader.StartReadMultitype(0), 2);
    EXPECT_EQ(sink.reader.ReadMultitypeInt(0, "i", value), 1);
    EXPECT_EQ(value, 2);
}

TEST(TCPortHelperBlocks, FramesCarryABlockToAnotherHelper) {
    Line from;
    Line to;
    Line ints(Helper::TYPE_SWORDARRAY);
    to.writer.UseAutoTypeInfo(0, false, true, false, false, false, false);
    from.Send(0, START, 2);
    std::vector<char> bytes(static_cast<std::size_t>(from.reader.SerializeBlock(0, nullptr)));
    EXPECT_EQ(from.reader.SerializeBlock(0, bytes.data()), static_cast<int>(bytes.size()));
    const TCString frame(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(to.writer.DeSerializeBlock(0, frame), 0);
    to.writer.WriteDblVal(0, 1.0);
    EXPECT_EQ(to.Receive().GetState(), START);
    EXPECT_EQ(to.Receive().GetState(), BUSY) << "the states go on after it";
    EXPECT_EQ(to.writer.DeSerializeBlock(0, frame.Left(frame.GetLength() - 1)), -14);
    EXPECT_EQ(ints.writer.DeSerializeBlock(0, frame), -2);
}
