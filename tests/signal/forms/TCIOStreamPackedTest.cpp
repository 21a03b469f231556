#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <limits>
#include <vector>

#include "tests/signal/StreamLines.h"
#include "tests/support/Allocations.h"
#include "tests/support/PackedFrame.h"

namespace {

// A block with everything that can be packed, on the way through three forms.
struct PackedBlock {
    PackedBlock() {
        TCTypeInfo ti = State(STOP, "voice");
        ti.SetTimestamp(std::numeric_limits<double>::quiet_NaN());
        ti.GetUnit().FromString("V * 1e-003");
        from.writer.SetTI(&ti, false);
        from.writer.WriteSegment("n", INT_MIN);
        from.writer.WriteSegment("text", TCString("a\0 b", 4));
        const double values[] = {0.1, -0.0};
        const int extent = 2;
        for (int i = 0; i < 2; ++i)
            from.writer.WriteBusSegment("1\r\nA\r\n\r\nx", TCIOStream::DOUBLE, 1, &extent, values, true,
                                        i > 0 ? &ti : nullptr);
        from.writer.WriteDblMat(matrix, 2, 3);
    }

    StreamLines from;
    const double matrix[6] = {1, 2, 3, 4, 5, 6};
};

TEST(StreamForms, ThereAndBack) {
    PackedBlock block;
    const TCString text = block.from.Input().SerializeForOldStream(0);
    const std::string frame = TakeFrame(block.from.Input());
    std::string again = frame;
    const std::string oldForm(text, static_cast<std::size_t>(text.GetLength()));
    SignFrame(again);
    EXPECT_EQ(again, frame);
    EXPECT_EQ(frame.substr(0, 8), std::string("SWBK\2\0\0\0", 8));
    EXPECT_EQ(block.from.Input().SerializeBlock(nullptr), 0);
    StreamLines to, old;
    EXPECT_EQ(Unpack(to.writer, frame), 1);
    EXPECT_EQ(TakeFrame(to.Input()), frame);
    EXPECT_EQ(Unpack(to.writer, frame), 1);
    EXPECT_EQ(Unpack(to.writer, frame), -4);
    EXPECT_EQ(to.Input().GetBlockCnt(nullptr), 1);
    std::size_t end;
    EXPECT_EQ(ReadOldForm(old.writer, oldForm + "rest", end), 1);
    EXPECT_EQ(end, oldForm.size());
    EXPECT_EQ(TakeFrame(old.Input()), frame);
    for (std::size_t size = 0; size < oldForm.size(); ++size) {
        EXPECT_EQ(ReadOldForm(old.writer, oldForm.substr(0, size), end), -14) << size;
        EXPECT_EQ(end, 0u);
    }
    WriteInts(old.writer, {1, -20});
    EXPECT_EQ(old.Input().SerializeForOldStream(0),
              TCString("BUS 1 0 \xFF\0\0\0\0 1 1 2 1 -20 ", 27).operator const char*());
}

// Many words are summed in wide registers, what is left of them one by one.
TEST(StreamForms, ChecksumsOfManyNumbers) {
    for (const int count : {31, 32, 39, 64, 1027}) {
        StreamLines from, to;
        std::vector<double> values(static_cast<std::size_t>(count)), read(values);
        for (int i = 0; i < count; ++i) values[static_cast<std::size_t>(i)] = -1e-3 * i * i * i;
        from.writer.WriteDblVec(values.data(), count);
        std::string frame = TakeFrame(from.Input()), again = frame;
        SignFrame(again);
        EXPECT_EQ(again, frame) << count;
        ASSERT_EQ(Unpack(to.writer, frame), 1) << count;
        to.Input().ReadDblVec(read.data(), nullptr);
        EXPECT_EQ(read, values) << count;
        frame[frame.size() / 2] = static_cast<char>(frame[frame.size() / 2] ^ 1);
        EXPECT_EQ(Unpack(to.writer, frame), -14) << count;
    }
}

TEST(StreamForms, DamagedFramesChangeNothing) {
    const std::string frame = TakeFrame(PackedBlock().from.Input());
    StreamLines to;
    to.writer.StartWriteSegments();
    to.writer.WriteSegment("begun", 1);
    for (std::size_t size = 0; size < frame.size(); ++size)
        EXPECT_EQ(Unpack(to.writer, frame.substr(0, size)), -14);
    EXPECT_EQ(Unpack(to.writer, frame + '\0'), -14);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        std::string flipped = frame;
        flipped[i] = static_cast<char>(flipped[i] ^ 0xFF);
        EXPECT_EQ(Unpack(to.writer, flipped), -14) << i;
    }
    EXPECT_EQ(to.writer.DeSerializeBlock(nullptr, 20), -14);
    EXPECT_EQ(to.Input().GetBlockCnt(nullptr), 0);
    to.writer.EndWriteSegments();
    EXPECT_EQ(to.Input().StartReadSegments(), 1);
    EXPECT_EQ(to.Input().SegmentCnt(), 1);
}

// Every word of a correctly signed frame becomes a length that lies; and every cut of one.
TEST(StreamForms, LyingLengthsAreRefused) {
    const std::string frame = TakeFrame(PackedBlock().from.Input());
    StreamLines to;
    for (const int lie : {INT_MAX, INT_MIN, -1, 0x10000, 0x7FFFFFF0})
        for (std::size_t i = 24; i + 4 <= frame.size(); ++i) {
            std::string lying = frame;
            std::memcpy(lying.data() + i, &lie, 4);
            SignFrame(lying);
            const int result = Unpack(to.writer, lying);
            EXPECT_TRUE(result == -14 || (result == 1 && to.Input().RemoveContents(true) == 1)) << i;
        }
    for (std::size_t size = 24; size < frame.size(); ++size) {
        std::string cut = frame.substr(0, size);
        const int length = static_cast<int>(size);
        std::memcpy(cut.data() + 8, &length, 4);
        SignFrame(cut);
        EXPECT_EQ(Unpack(to.writer, cut), -14) << size;
    }
}

TEST(StreamForms, AddressesAndEndlessNestingAreNotPacked) {
    StreamLines lines;
    lines.writer.WritePtr(&lines, 1);
    EXPECT_EQ(lines.Input().SerializeBlock(nullptr), -14);
    EXPECT_EQ(lines.Input().SerializeForOldStream(0), "");
    EXPECT_EQ(lines.Input().GetBlockCnt(nullptr), 1);
    lines.Input().RemoveContents(true);
    WriteInts(lines.writer, {1});
    for (int level = 2; level <= 40; ++level) {
        TCArray<TCIOStream::Block*> inner;
        TCIOStream::Block* held = nullptr;
        lines.Input().ExchangeBinary(&held, true);
        inner.Add(held);
        lines.writer.StartWriteSegments();
        lines.writer.WriteSegment("", inner);
        lines.writer.EndWriteSegments();
        lines.Input().ExchangeBinary(&held, false);
        EXPECT_EQ(lines.Input().SerializeBlock(nullptr) > 0, level <= 32) << level;
        EXPECT_EQ(lines.Input().SerializeForOldStream(0).GetLength() > 0, level <= 32) << level;
    }
}

TEST(StreamForms, OldFormIsWellFormedToItsEnd) {
    const std::string head("BUS 1 0 \xFF\0\0\0\0 ", 14);
    for (const auto& [rest, result] : {std::pair{"1 1 2 1 -20 ", 1},
                                       {"1 1 2 1\t+20\n", 1},
                                       {"1 1 3 1 2 3 ", 1},
                                       {"1 1 2 1 -20", -14},
                                       {"1 1 2 1 -2x ", -14},
                                       {"1 1 2 1 +-2 ", -14},
                                       {"1 1 2 1 - ", -14},
                                       {"1 1 -2 1 2 ", -14},
                                       {"1 1x 2 1 2 ", -14},
                                       {"4 1 1 1 ", -14},
                                       {"0 1 1 1 ", -14},
                                       {"6 1 1 1 ", -14},
                                       {"1 2 2 99999 1 2 ", -14}}) {
        StreamLines to;
        std::size_t end;
        EXPECT_EQ(ReadOldForm(to.writer, head + rest, end), result) << rest;
        EXPECT_EQ(to.Input().GetBlockCnt(nullptr), result == 1 ? 1 : 0);
        EXPECT_EQ(end, result == 1 ? head.size() + std::strlen(rest) : 0u);
    }
    StreamLines to;
    TCIOStream unconnected;
    std::size_t end;
    EXPECT_EQ(ReadOldForm(unconnected, "BUS 0 2 ", end), 0) << "no receiver";
    EXPECT_EQ(ReadOldForm(to.writer, "BUT 0 0 ", end), -14);
    EXPECT_EQ(ReadOldForm(to.writer, "BUS 0 2 ", end), -14);
    std::string nested = "BUS 0 0 ";
    for (int level = 2; level <= 40; ++level) {
        nested = std::string("BUS 1 0 \xFF\0\0\0\0 5 1 1 ", 20) + nested;
        EXPECT_EQ(ReadOldForm(to.writer, nested, end), level <= 32 ? 1 : -14) << level;
    }
}

// At each level the first of very many nested blocks, none of which has room left for the others.
TEST(StreamForms, NestedClaimsDoNotAddUp) {
    constexpr int SIZE = 24'000;
    std::string text, body;
    for (int level = 1; level < 32; ++level) {
        text += std::string("BUS 1 0 \xFF\0\0\0\0 5 1 ", 18) + std::to_string(SIZE / 4) + ' ';
        body += '\0';
        for (const int word : {1, 0, 5, 1, SIZE / 6}) body.append(reinterpret_cast<const char*>(&word), 4);
    }
    text.resize(SIZE, ' ');
    body.resize(SIZE);
    const int header[] = {0x4B425753, 2, SIZE + 24, 0, 0, 0};
    std::string frame(reinterpret_cast<const char*>(header), sizeof header);
    SignFrame(frame += body);
    StreamLines to;
    const int before = allocations::Count();
    EXPECT_EQ(Unpack(to.writer, frame), -14);
    std::size_t end;
    EXPECT_EQ(ReadOldForm(to.writer, text, end), -14);
    EXPECT_LT(allocations::Count() - before, SIZE);
}

// The text is not copied anew for each token.
TEST(StreamForms, OldFormOfManyTexts) {
    StreamLines lines;
    const std::vector<TCString> texts(10'000, "abc");
    lines.writer.WriteStrVec(texts.data(), static_cast<int>(texts.size()));
    const int before = allocations::Count();
    const TCString text = lines.Input().SerializeForOldStream(0);
    EXPECT_EQ(text.GetLength(), 24 + 9 * 10'000);
    EXPECT_LT(allocations::Count() - before, 10'100);
}

// One block has one frame: what is between its items is part of it.
TEST(StreamForms, FramesHoldNothingBetweenTheirItems) {
    StreamLines from, to;
    from.writer.StartWriteSegments();
    from.writer.WriteSegment("text", "a");
    from.writer.EndWriteSegments();
    std::string frame = TakeFrame(from.Input());
    ASSERT_EQ(frame.back(), '\0');
    frame.back() = 'x';
    SignFrame(frame);
    EXPECT_EQ(Unpack(to.writer, frame), -14);
}

// Extents without elements take fewer bytes than those before them promise, and no room before the next item.
TEST(StreamForms, EmptySegmentsThereAndBack) {
    StreamLines from, packed, old;
    TCIOStream::Block block;
    const int extents[] = {3, 0};
    void* none = nullptr;
    for (const auto type : {TCIOStream::STRING, TCIOStream::DOUBLE, TCIOStream::BLOCK, TCIOStream::INT})
        ASSERT_TRUE(block.AddEmptySegment(TCIOStream::DataTypeToString(type), type, 2, extents, none));
    ASSERT_EQ(from.writer.WriteCopy(&block), 1);
    const TCString text = from.Input().SerializeForOldStream(0);
    std::size_t end;
    EXPECT_EQ(ReadOldForm(old.writer, std::string(text, static_cast<std::size_t>(text.GetLength())), end), 1);
    EXPECT_EQ(Unpack(packed.writer, TakeFrame(from.Input())), 1);
    for (TCIOStream* input : {&packed.Input(), &old.Input()}) {
        ASSERT_EQ(input->StartReadSegments(), 1);
        ASSERT_EQ(input->SegmentCnt(), 4);
        EXPECT_EQ(input->SegmentType(0), TCIOStream::STRING);
        EXPECT_EQ(input->Segment(3)->GetExtent(0), 3);
        EXPECT_EQ(input->Segment(3)->GetExtent(1), 0);
    }
}

TEST(StreamForms, ReadableText) {
    PackedBlock block;
    TCIOStream& input = block.from.Input();
    const struct {
        int segment;
        bool comma;
        const char* text;
    } rows[] = {{0, false, "-2147483648"},
                {2, true, "{0,10 0,00} {0,10 0,00}"},
                {3, false, "1.00 2.00 3.00\n4.00 5.00 6.00"},
                {4, false, ""}};
    for (const auto& row : rows)
        EXPECT_EQ(input.ConvertToString(0, row.segment, row.comma, FORMAT_FIXED, 2), row.text);
    EXPECT_EQ(input.ConvertToString(0, 1, false, FORMAT_FIXED, 2).GetLength(), 4);
    EXPECT_EQ(input.ConvertToString(0, 3, false, FORMAT_FIXED, -1).Left(5), "1.000");
    EXPECT_EQ(input.ConvertToString(0, 3, false, FORMAT_FIXED, 0).Left(2), "1 ");
    EXPECT_EQ(input.ConvertToString(0, 3, false, FORMAT_FIXED, INT_MAX).Left(3), "1.0");
}

}  // namespace
