#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "sigweave/signal/TCIOStream.h"
#include "tests/signal/StreamLines.h"

namespace {

using testing::ElementsAre;

int WriteState(TCIOStream& writer, TCBLOCKSTATUS state, bool fix) {
    const TCTypeInfo ti = State(state);
    const int result = writer.SetTI(&ti, fix);
    return result < 0 ? result : WriteInts(writer, {1});
}

TEST(TCIOStream, LastValuesWin) {
    StreamLines lines;
    for (int i = 0; i < 4; ++i) EXPECT_EQ(WriteInts(lines.writer, {1, 2, 3, 4, 5}), 0);
    EXPECT_THAT(ReadInts(lines.Input(), 3), ElementsAre(3, 4, 5));
    EXPECT_EQ(ReadInts(lines.Input(), 10).size(), 5u);
    int negative = -1;
    int value;
    EXPECT_EQ(lines.Input().ReadIntVec(&value, &negative), -14);
    double wrong;
    int room = 1;
    EXPECT_EQ(lines.Input().ReadDblVec(&wrong, &room), 0);
    EXPECT_EQ(room, 0);
    EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 0);
    negative = -1;
    EXPECT_EQ(lines.Input().ReadIntVec(&value, &negative), 0) << "nothing waits";
}

TEST(TCIOStream, TextsAreCopiedInBothTypes) {
    StreamLines lines;
    TCIOStream& input = lines.Input();
    const TCString texts[] = {"one", TCString("t\0wo", 4)};
    const CString others[] = {"three", std::string("\0four", 5)};
    TCString text, read[2];
    CString other, readOther[2];
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(lines.writer.WriteStrVec(texts, 2), 0);
        EXPECT_EQ(lines.writer.WriteStrVec(others, 2), 0);
    }
    const TCString* peeked = nullptr;
    EXPECT_EQ(input.PeekStrData(1, peeked), 2);
    EXPECT_EQ(peeked[0], "three");
    EXPECT_EQ(input.PeekStrData(4, peeked), -1);
    EXPECT_EQ(input.ReadStr(other), 1);
    EXPECT_EQ(other, std::string("t\0wo", 4));
    EXPECT_EQ(input.ReadStr(text), 1);
    EXPECT_EQ(text.GetLength(), 5);
    EXPECT_EQ(input.ReadStrVec(readOther, nullptr), 2);
    EXPECT_EQ(readOther[0], "one");
    int room = 1;
    EXPECT_EQ(input.ReadStrVec(read, &room), 1);
    EXPECT_EQ(read[0].GetLength(), 5);
    EXPECT_EQ(input.ReadStr(text), 0);
    EXPECT_EQ(lines.writer.WriteStrVec(static_cast<const CString*>(nullptr), 1), -14);
    WriteInts(lines.writer, {1});
    EXPECT_EQ(input.ReadStr(other), 0) << "no text";
}

TEST(TCIOStream, WhoReceivesAndWhatWaits) {
    StreamLines lines(3);
    TCIOStream plain;
    for (TCIOStream* none : {static_cast<TCIOStream*>(nullptr), &plain})
        EXPECT_EQ(lines.writer.AddOutputStream(none), 3);
    EXPECT_EQ(lines.writer.GetFan(2), &lines.inputs[2]);
    for (const int index : {-1, 3}) EXPECT_EQ(lines.writer.GetFan(index), nullptr);
    EXPECT_EQ(lines.Input().GetFanCnt(), 1);
    EXPECT_EQ(lines.Input().GetFan(0), &lines.Input());
    EXPECT_EQ(lines.Input().GetFan(1), nullptr);
    EXPECT_EQ(plain.GetFan(0), nullptr);
    EXPECT_EQ(plain.StartWriteSegments() + plain.WriteSegment("n", 1) + plain.WriteSegment("d", 1.0), 0);
    EXPECT_EQ(plain.WriteSegment("t", TCString()) + plain.WriteSegment("c", CString()), 0);
    EXPECT_EQ(plain.WriteSegment("b", TCArray<TCIOStream::Block*>()), 0);
    const CString text = "text";
    EXPECT_EQ(plain.WriteStrVec(&text, 1), 0);
    EXPECT_EQ(plain.WriteSegment("p", "") + plain.WriteDblVec(nullptr, 1) + plain.WritePtr(&plain, 1), 0);
    EXPECT_EQ(plain.precision(), 3);
    EXPECT_EQ(plain.SetInputStream(7)->precision(), 7);
    int index = 9;
    EXPECT_EQ(lines.writer.GetBlockCnt(&index), 0);
    EXPECT_EQ(index, 0);
    for (int i = 0; i < 2; ++i) WriteInts(lines.writer, {1});
    lines.inputs[0].RemoveContents(false);
    EXPECT_EQ(lines.writer.GetBlockCnt(&index), 2);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(lines.inputs[1].GetBlockCnt(&index), 2);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(lines.inputs[1].GetWaitingBlock(1)->Segment(0)->GetInts()[0], 1);
    for (const int none : {-1, 2}) EXPECT_EQ(lines.inputs[1].GetWaitingBlock(none), nullptr);
    EXPECT_EQ(TCIOStream::StringToDataType("double"), 2);
    EXPECT_EQ(TCIOStream::StringToDataType("FLOAT"), -1);
    EXPECT_STREQ(TCIOStream::DataTypeToString(TCIOStream::BLOCK), "BLOCK");
    EXPECT_STREQ(TCIOStream::DataTypeToString(static_cast<TCIOStream::DATATYPE>(6)), "UNKNOWN");
}

// A writer that is taken down keeps nothing that its receivers gave back, and can be wired again.
TEST(TCIOStream, DeletedStreamsAreFreshWriters) {
    StreamLines lines;
    WriteInts(lines.writer, {1});
    EXPECT_THAT(ReadInts(lines.Input()), ElementsAre(1));
    lines.writer.StartWriteSegments();
    lines.writer.DeleteStreams();
    EXPECT_EQ(lines.writer.GetFanCnt(), 0);
    EXPECT_EQ(WriteInts(lines.writer, {2}), 0);
    EXPECT_FALSE(lines.writer.EndWriteSegments());
    EXPECT_EQ(lines.writer.AddOutputStream(&lines.Input()), 1);
    for (int i = 3; i < 6; ++i) WriteInts(lines.writer, {i});
    for (int i = 3; i < 6; ++i) EXPECT_THAT(ReadInts(lines.Input()), ElementsAre(i));
    lines.Input().DeleteStreams();
    EXPECT_EQ(lines.Input().GetFan(0), nullptr);
}

TEST(TCIOStream, SegmentsByNameAndPosition) {
    StreamLines lines;
    EXPECT_EQ(lines.writer.WriteSegment("x", 1), -14);
    EXPECT_EQ(lines.writer.StartWriteSegments(), 1);
    EXPECT_EQ(lines.writer.WriteSegment("x", 2.5), 0);
    EXPECT_EQ(lines.writer.WriteSegment("x", 1), -14);
    EXPECT_EQ(lines.writer.WriteSegment("x", CString("text")), -14);
    EXPECT_EQ(lines.writer.WriteSegment("x", "text"), -14);
    EXPECT_EQ(lines.writer.WriteSegment("n", 7), 0);
    EXPECT_EQ(lines.writer.WriteSegment("", TCString("a\0b", 3)), 0);
    EXPECT_TRUE(lines.writer.EndWriteSegments());
    EXPECT_FALSE(lines.writer.EndWriteSegments());

    TCIOStream& input = lines.Input();
    int number;
    double value;
    CString text;
    ASSERT_EQ(input.StartReadSegments(), 1);
    EXPECT_EQ(input.ReadSegment("x", number), -2);
    EXPECT_EQ(input.ReadSegment("x", value), 1);
    EXPECT_EQ(value, 2.5);
    EXPECT_EQ(input.ReadSegment("y", value), 0);
    EXPECT_EQ(input.ReadSegment(1, number), 1);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(input.ReadSegment(2, text), 1);
    EXPECT_EQ(text, std::string("a\0b", 3));
    TCString other;
    text.clear();
    EXPECT_EQ(input.ReadSegment("", text) + input.ReadSegment("", other), 2);
    EXPECT_EQ(text, std::string("a\0b", 3));
    EXPECT_EQ(other.GetLength(), 3);
    EXPECT_EQ(input.ReadSegment("x", text) + input.ReadSegment("x", other), -4);
    TCArray<TCString> names;
    names.SetSize(7);
    EXPECT_EQ(input.AvailableSegments(nullptr), 3);
    EXPECT_EQ(input.AvailableSegments(&names), 3);
    ASSERT_EQ(names.GetSize(), 3);
    EXPECT_EQ(names[1], "n");
    EXPECT_EQ(input.SegmentType(2), TCIOStream::STRING);
    EXPECT_EQ(input.SegmentType(3), TCIOStream::UNDEF);
    EXPECT_EQ(input.SegmentName(3), "");
}

// Names and storage stay with the block, but only what is written in its current use is there.
// Beyond some dozens names are found by an index; bus names are the same by index and signal alone.
TEST(TCIOStream, ManySegments) {
    constexpr int MANY = 2000;
    const auto plain = [](int i) { return "name " + std::to_string(i); };
    const auto bus = [](int i, const char* type) { return "1\r\nA" + std::to_string(i) + "\r\n\r\n" + type; };
    StreamLines lines;
    for (int round = 0; round < 2; ++round) {
        lines.writer.StartWriteSegments();
        for (int i = 0; i < MANY; ++i) {
            EXPECT_EQ(lines.writer.WriteSegment(bus(i, round == 0 ? "x" : "other").c_str(), -i), 0);
            EXPECT_EQ(lines.writer.WriteSegment(plain(i).c_str(), i), 0);
            EXPECT_EQ(lines.writer.WriteSegment(bus(i / 2, "y").c_str(), i), -14);
        }
        lines.writer.EndWriteSegments();
        lines.Input().StartReadSegments();
        EXPECT_EQ(lines.Input().SegmentCnt(), 2 * MANY);
        for (int i = MANY - 1, value; i >= 0; i -= 7) {
            EXPECT_EQ(lines.Input().ReadSegment(plain(i).c_str(), value), 1);
            EXPECT_EQ(value, i);
            EXPECT_EQ(lines.Input().ReadSegment(bus(i, "z").c_str(), value), 1);
            EXPECT_EQ(value, -i);
            EXPECT_EQ(lines.Input().ReadSegment(plain(i + MANY).c_str(), value), 0);
        }
    }
    lines.writer.StartWriteSegments();
    lines.writer.EndWriteSegments();
    lines.Input().StartReadSegments();
    EXPECT_EQ(lines.Input().Segment(plain(3).c_str()), nullptr);
    EXPECT_EQ(lines.writer.StartWriteSegments(), 1);
    EXPECT_EQ(lines.writer.WriteSegment("10\r\nTen\r\n\r\nx", 1), 0);
    EXPECT_EQ(lines.writer.WriteSegment("0000000010\r\nTen\r\n\r\nx", 1), -14) << "the same number";
    EXPECT_TRUE(lines.writer.EndWriteSegments());
}

TEST(TCIOStream, ReusedBlockShowsOnlyItsCurrentUse) {
    StreamLines lines;
    TCIOStream& input = lines.Input();
    const TCTypeInfo ti = State(COMPLETE);
    lines.writer.SetTI(&ti, false);
    for (const char* name : {"a", "b", "c"}) lines.writer.WriteSegment(name, 1);
    lines.writer.EndWriteSegments();
    input.StartReadSegments();
    lines.writer.StartWriteSegments();
    lines.writer.WriteSegment("b", "now a text");
    lines.writer.EndWriteSegments();
    ASSERT_EQ(input.StartReadSegments(), 1);
    int value;
    EXPECT_EQ(input.SegmentCnt(), 1);
    EXPECT_EQ(input.SegmentName(0), "b");
    EXPECT_EQ(input.ReadSegment("a", value), 0);
    EXPECT_EQ(input.ReadSegment("b", value), -2);
    EXPECT_EQ(input.GetTI(), nullptr);
}

TEST(TCIOStream, FailedWritesLeaveTheBlockUsable) {
    StreamLines lines;
    const TCTypeInfo ti = State(START, "kept");
    const double values[] = {1, 2};
    EXPECT_EQ(lines.writer.SetTI(&ti, false), 0);
    EXPECT_EQ(lines.writer.WriteDblVec(values, 0), -14);
    EXPECT_EQ(lines.writer.WriteDblVec(nullptr, 2), -14);
    EXPECT_EQ(lines.writer.WriteDblMat(values, 1 << 20, 1 << 20), -14);
    EXPECT_EQ(lines.writer.WriteDblMat(values, -1, -2), -14);
    EXPECT_EQ(lines.writer.WriteDblVec(values, 2), 0);
    ASSERT_EQ(lines.Input().GetBlockCnt(nullptr), 1);
    EXPECT_STREQ(lines.Input().PeekTI()->GetSignalname(), "kept");
    EXPECT_EQ(lines.Input().GetBlockLen(0, 0), 2);
}

TEST(TCIOStream, MatricesAndPointersAreNotCopied) {
    StreamLines lines;
    double values[6] = {};
    lines.writer.WriteDblMat(values, 2, 3);
    lines.writer.WritePtr(&lines, 0);
    int rows, cols;
    const double* peeked;
    EXPECT_EQ(lines.Input().PeekDblData(0, peeked, &rows, &cols), 6);
    EXPECT_EQ(peeked, values);
    double* matrix;
    EXPECT_EQ(lines.Input().ReadDblMat(&matrix, rows, cols), 6);
    EXPECT_EQ(matrix, values);
    EXPECT_EQ(rows * 10 + cols, 23);
    const int* ints;
    EXPECT_EQ(lines.Input().PeekIntData(0, ints, nullptr, nullptr), -1);
    EXPECT_EQ(lines.Input().PeekDblData(0, peeked, nullptr, nullptr), -1);
    void* pointer;
    int count = -1;
    EXPECT_EQ(lines.Input().ReadPtr(&pointer, &count), 1);
    EXPECT_EQ(pointer, &lines);
    EXPECT_EQ(count, 0);
    lines.writer.WriteIntMat(nullptr, 0, 5);
    EXPECT_EQ(lines.Input().PeekIntData(0, ints, &rows, &cols), 0);
    EXPECT_EQ(cols, 5);
    lines.writer.WriteDblMat(values, 2, 3);
    EXPECT_EQ(lines.Input().ReadIntMat(nullptr, rows, cols), 0);
    EXPECT_EQ(lines.Input().ReadDblMat(nullptr, rows, cols), 0);
}

// What one block copied and the next one only points at is not mixed up when the block is used again.
TEST(TCIOStream, CopiesAndReferencesInTurns) {
    StreamLines lines;
    int values[] = {1, 2, 3, 4};
    for (const bool copy : {true, false, true, false, false, true}) {
        values[3] = 4;
        EXPECT_EQ(lines.writer.WriteIntMat(values, 2, 2, copy), 0);
        values[3] = 5;
        int *read, rows, cols;
        ASSERT_EQ(lines.Input().ReadIntMat(&read, rows, cols), 4);
        EXPECT_EQ(read[3], copy ? 4 : 5);
        EXPECT_EQ(read == values, !copy);
    }
}

TEST(TCIOStream, NestedBlocksAreCopiedDeeply) {
    StreamLines inner;
    WriteInts(inner.writer, {0});
    WriteInts(inner.writer, {4, 5});
    inner.Input().RemoveContents(false);
    TCIOStream::Block* held = nullptr;
    EXPECT_EQ(inner.Input().SegmentCnt(), 1);
    inner.Input().ExchangeBinary(&held, true);
    EXPECT_EQ(inner.Input().SegmentCnt(), 0) << "what is held is not read";
    TCArray<TCIOStream::Block*> blocks, gap;
    blocks.Add(held);
    blocks.Add(held);
    gap.Add(nullptr);

    StreamLines outer;
    outer.writer.StartWriteSegments();
    EXPECT_EQ(outer.writer.WriteSegment("none", TCArray<TCIOStream::Block*>()), -14);
    EXPECT_EQ(outer.writer.WriteSegment("gap", gap), -14);
    EXPECT_EQ(outer.writer.WriteSegment("pair", blocks), 0);
    EXPECT_EQ(outer.writer.WriteSegment("n", 1), 0);
    outer.writer.EndWriteSegments();
    inner.Input().ExchangeBinary(&held, false);
    WriteInts(inner.writer, {0, 0});

    outer.Input().StartReadSegments();
    TCArray<TCIOStream::Block*> read;
    EXPECT_EQ(outer.Input().ReadSegment("pair", read), 2);
    EXPECT_EQ(read[1]->Segment(0)->GetInts()[1], 5);
    EXPECT_EQ(outer.Input().ReadSegment("n", read), -2);
    EXPECT_EQ(read.GetSize(), 1);
}

// States are written as letters: begin, middle, end, complete, invalid.
TCBLOCKSTATUS StateOf(char letter) {
    return static_cast<TCBLOCKSTATUS>(static_cast<int>(std::string("ibmec").find(letter)) - 1);
}

TEST(TCIOStream, StateCheckRefuses) {
    const struct {
        const char* waiting;
        char next;
        int result;
    } rows[] = {{"", 'c', 0},   {"c", 'c', -4}, {"c", 'm', -4},  {"b", 'm', 0}, {"b", 'e', 0},
                {"b", 'b', -4}, {"m", 'c', -4}, {"be", 'm', -4}, {"i", 'b', 0}};
    for (const auto& row : rows) {
        StreamLines lines(2);
        for (const char state : std::string(row.waiting))
            EXPECT_EQ(WriteState(lines.writer, StateOf(state), false), 0);
        lines.inputs[0].RemoveContents(true);
        EXPECT_EQ(WriteState(lines.writer, StateOf(row.next), false), row.result);
        EXPECT_EQ(lines.writer.GetErrFan(), row.result < 0 ? 1 : -1);
        EXPECT_EQ(lines.writer.GetErrFan(), -1);
    }
}

TEST(TCIOStream, StateCheckJoinsSignals) {
    const struct {
        const char* written;
        const char* queued;
    } rows[] = {{"cc", "be"}, {"bem", "bme"}, {"mb", "bm"}, {"bcc", "bme"}, {"ic", "be"}};
    for (const auto& row : rows) {
        StreamLines lines;
        for (const char state : std::string(row.written))
            EXPECT_EQ(WriteState(lines.writer, StateOf(state), true), 0);
        for (const char state : std::string(row.queued)) {
            ASSERT_EQ(lines.Input().StartReadSegments(), 1);
            EXPECT_EQ(lines.Input().GetTI()->GetState(), StateOf(state)) << row.written;
        }
    }
    StreamLines lines;
    TCTypeInfo broken = State(static_cast<TCBLOCKSTATUS>(9));
    broken.SetSamplerate(-1);
    lines.writer.SetTI(&broken, true);
    lines.writer.EndWriteSegments();
    EXPECT_EQ(lines.Input().PeekTI()->GetState(), BUSY);
    EXPECT_EQ(lines.Input().PeekTI()->GetSamplerate(), 1.0);
    EXPECT_GT(lines.Input().PeekTI()->GetTimestamp(), 1.6e12);
}

TEST(TCIOStream, StatusOfTheQueue) {
    const struct {
        const char* queued;
        char status;
    } rows[] = {{"bme", 'c'}, {"mm", 'm'}, {"me", 'e'}, {"bim", 'b'}, {"bb", 'b'}, {"ie", 'e'}, {"", 'i'}};
    for (const auto& row : rows) {
        StreamLines lines;
        // A refused state stays with the reserved block; writing it all the same is the caller's decision.
        for (const char state : std::string(row.queued)) {
            const TCTypeInfo ti = State(StateOf(state));
            lines.writer.SetTI(&ti, false);
            lines.writer.EndWriteSegments();
        }
        EXPECT_EQ(lines.Input().PeekStatus(true), StateOf(row.status));
        EXPECT_EQ(lines.Input().PeekStatus(false), *row.queued == '\0' ? INVALID : StateOf(*row.queued));
    }
    StreamLines lines;
    WriteInts(lines.writer, {1});
    EXPECT_EQ(lines.Input().PeekStatus(true), INVALID);
}

TEST(TCIOStream, WaitingBlocksDecideTheType) {
    StreamLines lines(2);
    EXPECT_TRUE(lines.writer.VerifyType(TCIOStream::DOUBLE, 1));
    WriteInts(lines.writer, {1});
    lines.inputs[0].RemoveContents(true);
    EXPECT_TRUE(lines.writer.VerifyType(TCIOStream::INT, 1));
    EXPECT_FALSE(lines.writer.VerifyType(TCIOStream::INT, 2));
    EXPECT_EQ(lines.writer.GetErrFan(), 1);
}

}  // namespace
