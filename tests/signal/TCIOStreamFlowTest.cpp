#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <random>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/TCBlockBuffer.h"
#include "sigweave/signal/TCBusSerializeHelper.h"
#include "tests/signal/StreamLines.h"
#include "tests/support/Allocations.h"

namespace {

using testing::ElementsAre;

TEST(StreamFlow, MovesAndCopies) {
    StreamLines source, target(2);
    EXPECT_EQ(target.writer.MoveBlocks(source.Input(), START), 0);
    EXPECT_EQ(target.writer.ForwardBlock(source.Input()), 0);
    EXPECT_EQ(target.writer.WriteCopy(nullptr), 0);
    const TCTypeInfo from = State(BUSY, "from"), own = State(COMPLETE, "own");
    for (int i = 1; i <= 4; ++i) {
        source.writer.SetTI(&from, false);
        WriteInts(source.writer, {i});
    }
    EXPECT_EQ(target.writer.MoveBlocks(source.Input(), START), 1);
    EXPECT_EQ(target.writer.MoveBlock(source.Input(), 3, nullptr, false), 0);
    EXPECT_EQ(target.writer.MoveBlock(source.Input(), 2, nullptr, false), 1);
    EXPECT_EQ(target.writer.MoveBlock(source.Input(), 0, &own, true), 1);
    EXPECT_EQ(target.writer.ForwardBlock(source.Input()), -4);
    EXPECT_EQ(source.Input().GetBlockCnt(nullptr), 3);
    EXPECT_EQ(target.inputs[1].PeekTI()->GetState(), START);
    EXPECT_THAT(ReadInts(target.inputs[1]), ElementsAre(1));
    EXPECT_THAT(ReadInts(target.inputs[1]), ElementsAre(4));
    EXPECT_STREQ(target.inputs[1].GetTI()->GetSignalname(), "from");
    EXPECT_EQ(target.inputs[1].PeekTI()->GetState(), STOP);
    for (TCIOStream& input : target.inputs) EXPECT_GE(input.RemoveContents(true), 1);
    EXPECT_STREQ(target.inputs[1].GetTI()->GetSignalname(), "own") << "of the last one dropped";
    target.writer.SetTI(&own, false);
    EXPECT_EQ(target.writer.MoveBlock(source.Input(), 0, target.writer.GetTI(), false), 1);
    for (TCIOStream& input : target.inputs) {
        EXPECT_STREQ(input.PeekTI()->GetSignalname(), "own");
        EXPECT_EQ(input.RemoveContents(false), 1);
    }
    for (const int left : {3, 2}) {  // kept at the source, then taken
        EXPECT_EQ(target.writer.ForwardBlock(source.Input(), left == 3), 1);
        EXPECT_EQ(source.Input().GetBlockCnt(nullptr), left);
        EXPECT_THAT(ReadInts(target.inputs[0]), ElementsAre(2));
        target.inputs[1].RemoveContents(true);
    }
}

using Copy = int (*)(TCIOStream& to, TCIOStream& from);
constexpr Copy COPIES[] = {
    [](TCIOStream& to, TCIOStream& from) { return to.MoveBlocks(from, START); },
    [](TCIOStream& to, TCIOStream& from) { return to.MoveBlock(from, 0, nullptr, false); },
    [](TCIOStream& to, TCIOStream& from) {
        TCIOStream::Block* held = nullptr;
        TCIOStream shared;
        shared.SetInputStream(3)->CopyBlockRefs(from);
        shared.ExchangeBinary(&held, true);
        const int result = to.WriteCopy(held);
        shared.ExchangeBinary(&held, false);
        return result;
    }};

// What is moved is taken from its source before its copy is written, what is copied never.
TEST(StreamFlow, RefusedCopies) {
    const TCTypeInfo start = State(START, "first"), next = State(START, "next");
    for (const Copy copy : COPIES) {
        StreamLines source, target;
        const auto copyTo = [&](TCIOStream& writer) {
            source.Input().RemoveContents(true);
            source.writer.SetTI(&next, false);
            WriteInts(source.writer, {2});
            const int result = copy(writer, source.Input());
            EXPECT_EQ(source.Input().GetBlockCnt(nullptr), copy == COPIES[0] ? 0 : 1) << result;
            return result;
        };
        TCIOStream unconnected;
        EXPECT_EQ(copyTo(unconnected), 0);
        target.writer.SetTI(&start, false);
        target.writer.WriteSegment("", 1);
        EXPECT_EQ(copyTo(target.writer), -14);
        EXPECT_TRUE(target.writer.EndWriteSegments());
        EXPECT_THAT(ReadInts(target.Input()), ElementsAre(1));
        target.writer.SetTI(&start, false);
        WriteInts(target.writer, {1});
        EXPECT_EQ(copyTo(target.writer), -4);
        EXPECT_EQ(target.writer.SetTI(&next, true), 0);
        EXPECT_TRUE(target.writer.EndWriteSegments());
        EXPECT_THAT(ReadInts(target.Input()), ElementsAre(1));
        EXPECT_THAT(ReadInts(target.Input()), ElementsAre(2));
        target.writer.StartWriteSegments();
        target.writer.WriteSegment("begun", 1);
        target.writer.CancelWriteSegments();
        for (const bool all : {false, true}) {
            WriteInts(target.writer, {1, 2, 3});
            EXPECT_EQ(target.Input().StartReadSegments(), 1);
            EXPECT_EQ(target.Input().SegmentCnt(), 1) << "what was begun was forgotten";
            EXPECT_EQ(target.Input().RemoveContents(all), 0);
            EXPECT_EQ(target.Input().SegmentCnt(), 0) << "nothing waits, so no block is read";
        }
    }
}

TEST(StreamFlow, StreamsEndInAnyOrder) {
    for (const bool writerFirst : {true, false}) {
        auto writer = std::make_unique<TCIOStream>();
        auto middle = std::make_unique<TCIOStream>();
        TCIOStream input, last;
        writer->AddOutputStream(input.SetInputStream(3));
        middle->AddOutputStream(last.SetInputStream(3));
        for (int i = 0; i < 3; ++i) WriteInts(*writer, {i});
        input.StartReadSegments();
        middle->ForwardBlock(input);
        last.CopyBlockRefs(input);
        (writerFirst ? writer : middle).reset();
        input.DeleteStreams();
        EXPECT_EQ(input.GetBlockCnt(nullptr), 0);
        if (!writerFirst) {
            EXPECT_EQ(WriteInts(*writer, {4}), 0);  // the receiver without a queue is passed over
        }
    }
}

// A state is not changed where another writer's receivers wait for a block that was forwarded; blocks of
// which a queue took references stay shared.
TEST(StreamFlow, ForwardedBlocksKeepTheirStateElsewhere) {
    for (const bool forwarded : {true, false}) {
        StreamLines lines(2), behind;
        const TCTypeInfo whole = State(COMPLETE);
        lines.writer.SetTI(&whole, false);
        WriteInts(lines.writer, {1});
        EXPECT_EQ(forwarded ? behind.writer.ForwardBlock(lines.inputs[0])
                            : behind.Input().CopyBlockRefs(lines.inputs[0]),
                  1);
        EXPECT_EQ(behind.writer.SetTI(&whole, true), 0);
        EXPECT_EQ(behind.Input().PeekTI()->GetState(), START);
        EXPECT_EQ(lines.inputs[1].PeekTI()->GetState(), forwarded ? COMPLETE : START);
        EXPECT_THAT(ReadInts(behind.Input()), ElementsAre(1));
        EXPECT_THAT(ReadInts(lines.inputs[1]), ElementsAre(1));
    }
}

// Three queues, two writers; what waits in each queue is compared with a deque of plain values.
class LifeCycleModel {
 public:
    LifeCycleModel() : queues(3) {
        writers[0].AddOutputStream(inputs[0].SetInputStream(3));
        writers[0].AddOutputStream(inputs[1].SetInputStream(3));
        writers[1].AddOutputStream(inputs[2].SetInputStream(3));
    }

    void Run(int steps) {
        std::mt19937 random(20);
        for (int i = 0; i < steps; ++i) {
            Step(random() % 8, random() % 3, random() % 3);
            Compare();
        }
        for (std::size_t i = 0; i < 3; ++i) {
            inputs[i].ExchangeBinary(&held[i], false);
            EXPECT_EQ(inputs[i].RemoveContents(true), static_cast<int>(queues[i].size()));
            queues[i].clear();
        }
    }

 private:
    void Step(unsigned action, std::size_t from, std::size_t to) {
        if (queues[to].size() > 40) action = 4;
        std::deque<int>& source = queues[from];
        const int count = static_cast<int>(source.size());
        const bool any = count > 0;
        const int value = ++next;
        if (action == 0) Sent(to % 2, WriteInts(writers[to % 2], {value}) == 0, value);
        if (action == 1 && any)
            Sent(0, writers[0].MoveBlock(inputs[from], count - 1, nullptr, false) == 1, source.back());
        if (action == 2 && any && from == 2) Sent(0, writers[0].ForwardBlock(inputs[2]) == 1, Pop(source));
        if (action == 3 && any) Sent(1, writers[1].MoveBlocks(inputs[from], START) == 1, Pop(source));
        if (action == 4) {
            EXPECT_EQ(inputs[to].RemoveContents(true), Empty(queues[to]));
        }
        if (action == 5 && any) {
            EXPECT_THAT(ReadInts(inputs[from]), ElementsAre(Pop(source)));
        }
        if (action == 6 && source.size() + queues[to].size() < 60) Share(from, to);
        if (action == 7 && any) {
            EXPECT_EQ(inputs[from].ExchangeBinary(&held[from], true), 1);
            EXPECT_EQ(held[from]->Segment(0)->GetInts()[0], Pop(source));
        }
    }

    void Share(std::size_t from, std::size_t to) {
        const std::deque<int> copy = queues[from];
        queues[to].insert(queues[to].end(), copy.begin(), copy.end());
        EXPECT_EQ(inputs[to].CopyBlockRefs(inputs[from]), static_cast<int>(queues[to].size()));
    }

    void Sent(std::size_t writer, bool done, int value) {
        EXPECT_TRUE(done);
        if (writer == 1) return queues[2].push_back(value);
        queues[0].push_back(value);
        queues[1].push_back(value);
    }

    static int Pop(std::deque<int>& queue) {
        const int value = queue.front();
        queue.pop_front();
        return value;
    }

    static int Empty(std::deque<int>& queue) {
        const std::size_t size = queue.size();
        queue.clear();
        return static_cast<int>(size);
    }

    void Compare() {
        for (std::size_t i = 0; i < 3; ++i) {
            const int count = static_cast<int>(queues[i].size());
            ASSERT_EQ(inputs[i].GetBlockCnt(nullptr), count);
            const int* data;
            for (int k = 0; k < count; ++k) {
                ASSERT_EQ(inputs[i].PeekIntData(k, data, nullptr, nullptr), 1);
                ASSERT_EQ(*data, queues[i][static_cast<std::size_t>(k)]);
            }
        }
    }

    TCIOStream writers[2];
    TCIOStream inputs[3];
    TCIOStream::Block* held[3] = {};
    std::vector<std::deque<int>> queues;
    int next = 0;
};

TEST(StreamFlow, LifeCycleAgreesWithAPlainModel) {
    LifeCycleModel().Run(20000);
}

// Every writer, then whether the stream works again, with each allocation failing in turn.
TEST(StreamFlow, SurvivesWithoutMemory) {
    const TCTypeInfo ti = State(BUSY, "a name that is too long for a short string buffer");
    const TCString texts[] = {"one", "two"};
    const int one = 1;
    const TCString name = TCBusSerializeHelper::GenSegmentName(0x10, "", 1, 1, "channel", "");
    for (int after = 0; after < 40; ++after) {
        StreamLines lines(12);
        allocations::FailAfter(after);
        const int set = lines.writer.SetTI(&ti, false);
        const int bus = lines.writer.WriteBusSegment(name, TCIOStream::INT, 1, &one, &one, true, &ti);
        const int text = lines.writer.WriteSegment("text", "one that is too long for a short string buffer");
        const int written = lines.writer.WriteStrVec(texts, 2);
        allocations::FailAfter(-1);
        EXPECT_TRUE(set == 0 || set == -14);
        const TCTypeInfo* const given = lines.writer.GetTI();  // of a block that is not written yet
        EXPECT_EQ(given != nullptr && given->GetSignalnameString() == ti.GetSignalnameString(),
                  set == 0 && written != 0)
            << after;
        EXPECT_TRUE(bus == 0 || bus == -14);
        EXPECT_TRUE(text == 0 || text == -14);
        const int segments = 1 + (bus == 0 ? 1 : 0) + (text == 0 ? 1 : 0);
        EXPECT_EQ(lines.inputs[11].GetBlockCnt(nullptr), written == 0 ? 1 : 0);
        EXPECT_EQ(lines.inputs[11].GetBlockLen(0, segments - 1) > 0, written == 0);
        EXPECT_EQ(lines.inputs[11].GetBlockLen(0, segments), 0);
        EXPECT_EQ(lines.writer.SetTI(nullptr, false), 0);
        EXPECT_EQ(WriteInts(lines.writer, {1}), 0);
        for (TCIOStream& input : lines.inputs) EXPECT_EQ(input.RemoveContents(true), written == 0 ? 2 : 1);
    }
}

TEST(StreamFlow, SteadyFlowAllocatesNothing) {
    StreamLines lines(3);
    StreamLines behind;
    const TCTypeInfo ti = State(BUSY, "a name that is too long for a short string buffer");
    const std::vector<double> values(1024, 0.5);
    const CString text = "a text that is too long for a short string buffer";
    const int extent = 16;
    const TCString name = TCBusSerializeHelper::GenSegmentName(0x20, "", 1, 1, "channel", "");
    double read[1024];
    TCTypeInfo channelInfo;
    int before = 0;
    for (int i = 0; i < 1010; ++i) {
        if (i == 10) before = allocations::Count();
        lines.writer.SetTI(&ti, false);
        lines.writer.WriteSegment("text", text);
        for (int k = 0; k < 3; ++k)
            lines.writer.WriteBusSegment(name, TCIOStream::DOUBLE, 1, &extent, values.data(), true, &ti);
        lines.writer.WriteDblVec(values.data(), 1024);
        behind.writer.ForwardBlock(lines.inputs[0]);
        behind.writer.MoveBlocks(lines.inputs[1], BUSY);
        EXPECT_EQ(behind.Input().RemoveContents(true), 2);
        lines.inputs[2].StartReadSegments(true);
        for (int k = 0; k < 3; ++k) EXPECT_NE(lines.inputs[2].ReadBusSegment(1, &channelInfo), nullptr);
        lines.writer.WriteDblVec(values.data(), 1024);
        for (TCIOStream& input : lines.inputs) EXPECT_EQ(input.ReadDblVec(read, nullptr), 1024);
    }
    EXPECT_EQ(allocations::Count() - before, 0);
    StreamLines exchanged;
    TCIOStream::Block* held = nullptr;
    for (int i = 0; i < 30; ++i) {
        if (i == 10) before = allocations::Count();
        exchanged.writer.WriteDblVec(values.data(), 1024);
        EXPECT_EQ(exchanged.Input().ExchangeBinary(&held, true), 1);
    }
    EXPECT_EQ(allocations::Count() - before, 0);
    exchanged.Input().ExchangeBinary(&held, false);
}

// Blocks of every kind that wait, are held, begun or copied, when their streams end.
TEST(StreamFlow, NothingIsLeftBehind) {
    const auto use = [] {
        StreamLines lines(2), copy;
        TCBlockBuffer buffer;
        const TCTypeInfo ti = State(BUSY, "a name that is too long for a short string buffer");
        const CString text = "a text that is too long for a short string buffer";
        const double numbers[] = {1, 2};
        for (int i = 0; i < 4; ++i) {
            lines.writer.SetTI(&ti, false);
            for (const char* name : {"a", "b"})
                EXPECT_EQ(
                    i % 2 == 0 ? lines.writer.WriteSegment(name, text) : lines.writer.WriteSegment(name, i),
                    0);
            for (const int extent : {2, 1, 2})
                lines.writer.WriteBusSegment("1\r\nA\r\n\r\nx", TCIOStream::DOUBLE, 1, &extent, numbers, true,
                                             &ti);
            lines.writer.WriteDblMat(numbers, 2, 1, i % 2 == 0);
            TCArray<TCIOStream::Block*> nested;
            TCIOStream::Block* held = nullptr;
            lines.inputs[0].ExchangeBinary(&held, true);
            nested.Add(held);
            copy.writer.StartWriteSegments();
            copy.writer.WriteSegment("nested", nested);
            if (i < 3) copy.writer.EndWriteSegments();
            lines.inputs[0].ExchangeBinary(&held, false);
            static_cast<TCString*>(buffer.NewBlock(TCPortHelper::TYPE_TEXTARRAY, 3)->GetData())[2] =
                text.c_str();
            if (i == 1) buffer.RemoveAt(0, false);
            if (i == 2) buffer.RemoveAt(0, true);
        }
    };
    use();
    const int before = allocations::Live();
    use();
    EXPECT_EQ(allocations::Live(), before);
}

TCString Channel(int index, const char* signal, unsigned long code) {
    return TCBusSerializeHelper::GenSegmentName(code, "", 1, index, signal, "x");
}

TEST(StreamFlow, BusChannels) {
    StreamLines lines;
    TCIOStream& input = lines.Input();
    const double values[] = {1, 2, 3};
    const TCTypeInfo ti = State(BUSY, "second");
    const auto write = [&](const char* name, int count, const TCTypeInfo* info) {
        return lines.writer.WriteBusSegment(name, TCIOStream::DOUBLE, 1, &count, values, true, info);
    };
    EXPECT_EQ(write(Channel(0, "A", 0x20), 1, nullptr), -14);
    EXPECT_EQ(input.FindBusSegment("A", 0), -1);
    lines.writer.StartWriteSegments();
    EXPECT_EQ(write(Channel(7, "A", 0x20), 1, nullptr), 0);
    EXPECT_EQ(lines.writer.WriteSegment("plain", 1), 0);
    EXPECT_EQ(write("plain", 1, nullptr), -14);
    const int two = 2;
    EXPECT_EQ(lines.writer.WriteBusSegment("a", TCIOStream::DOUBLE, 1, &two, nullptr, true, nullptr), -14);
    EXPECT_EQ(write(Channel(8, "B", 0x20), 0, nullptr), -14);
    EXPECT_EQ(write(Channel(8, "B", 0x20), 2, nullptr), 0);
    EXPECT_EQ(write(Channel(7, "A", 0x40), 3, &ti), 0);
    lines.writer.EndWriteSegments();
    for (const bool all : {false, true}) {
        WriteInts(lines.writer, {1});
        lines.writer.MoveBlock(input, 0, nullptr, false);
        ASSERT_EQ(input.StartReadSegments(all), 1);
        EXPECT_EQ(input.FindBusSegment("B", -1), 2);
        EXPECT_EQ(input.FindBusSegment(nullptr, 7), 0);
        EXPECT_EQ(input.FindBusSegment("plain", 0), -1);
        EXPECT_EQ(input.BusSegmentCnt(0), 2);
        EXPECT_EQ(input.BusSegmentCnt(1), 0);
        TCTypeInfo read = ti;
        if (all) {
            EXPECT_EQ(input.BusSegmentElementCnt(0), 1);
            EXPECT_EQ(input.ReadBusSegment(0, &read)->GetDoubles()[0], 1);
            EXPECT_STREQ(read.GetSignalname(), "");
        }
        EXPECT_EQ(input.BusSegmentElementCnt(0), 3);
        EXPECT_EQ(input.ReadBusSegment(0, &read)->GetElementCount(), 3);
        EXPECT_STREQ(read.GetSignalname(), "second");
        EXPECT_EQ(input.ReadBusSegment(0, &read), nullptr);
        input.RemoveContents(false);
    }
}

// A block that is used again keeps its channels, with the names and in the order of their creation; an index
// finds one of many as a look at each of them would: the first that is written.
TEST(StreamFlow, BusChannelsOfABlockThatIsUsedAgain) {
    for (const int count : {3, 100}) {
        StreamLines lines;
        for (const unsigned long code : {0x20ul, 0x40ul}) {
            const bool again = code == 0x40;
            const int one = 1;
            lines.writer.StartWriteSegments();
            for (int i = 0; i < count; ++i) {
                const int channel = again ? count - 1 - i : i;
                if (again && channel == 0) continue;
                lines.writer.WriteBusSegment(Channel(channel / 2, channel % 2 == 0 ? "A" : "B", code),
                                             TCIOStream::INT, 1, &one, &channel, true, nullptr);
            }
            lines.writer.EndWriteSegments();
            TCIOStream& input = lines.Input();
            ASSERT_EQ(input.StartReadSegments(), 1);
            ASSERT_EQ(input.SegmentCnt(), again ? count - 1 : count);
            EXPECT_EQ(input.FindBusSegment("A", -1), again ? 1 : 0);
            EXPECT_EQ(input.FindBusSegment("B", -1), again ? 0 : 1);
            EXPECT_EQ(input.FindBusSegment("C", -1), -1);
            EXPECT_EQ(input.FindBusSegment(nullptr, count), -1);
            for (int port = 0; 2 * port < count; ++port) {
                const int segment = input.FindBusSegment(nullptr, port);
                const int channel = again ? std::max(2 * port, 1) : 2 * port;
                EXPECT_EQ(input.ReadBusSegment(segment, nullptr)->GetInts()[0], channel);
                EXPECT_EQ(input.SegmentName(segment), Channel(port, channel % 2 == 0 ? "A" : "B", 0x20));
            }
        }
    }
}

}  // namespace
