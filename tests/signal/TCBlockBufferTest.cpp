#include <gtest/gtest.h>

#include <climits>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/TCBlockBuffer.h"
#include "tests/signal/StreamLines.h"

namespace {

using TCBlock = TCBlockBuffer::TCBlock;
using Helper = TCPortHelper;

constexpr unsigned DOUBLES = Helper::TYPE_DOUBLEARRAY;
constexpr unsigned INTS = Helper::TYPE_SWORDARRAY;
constexpr unsigned TEXTS = Helper::TYPE_TEXTARRAY;

// source -> (input 0) buffer (output 0) -> sink; `reference` gets what the source writes, too.
struct Bench {
    explicit Bench(unsigned in = DOUBLES, unsigned out = DOUBLES) {
        helper.SetPort(INPUT, 0, "in", in | Helper::TYPE_TYPEINFO);
        helper.SetPort(OUTPUT, 0, "out", out | Helper::TYPE_TYPEINFO);
        source.AddOutputStream(helper.SetInputStream(0, 0, 3));
        source.AddOutputStream(reference.SetInputStream(3));
        helper.AddOutputStream(0, sink.SetInputStream(3));
        buffer.SetPortHelper(&helper);
    }
    void Send(const std::vector<double>& values, TCBLOCKSTATUS state, double rate = 100.0,
              const char* unit = "V", double time = 5000.0) {
        TCTypeInfo ti = State(state, "signal");
        ti.SetTimestamp(time);
        ti.SetSamplerate(rate);
        ti.GetUnit().FromString(unit);
        source.SetTI(&ti, false);
        if (values.empty())
            source.EndWriteSegments();
        else
            source.WriteDblVec(values.data(), static_cast<int>(values.size()));
    }
    // What the sink got in one block.
    std::vector<double> Receive(TCTypeInfo& ti) {
        if (sink.PeekTI() != nullptr) ti = *sink.PeekTI();
        std::vector<double> values(static_cast<std::size_t>(sink.GetBlockLen(0, 0)));
        sink.ReadDblVec(values.data(), nullptr);
        return values;
    }

    TCIOStream source, reference, sink;
    Helper helper{nullptr};
    TCBlockBuffer buffer;
};

std::string TakeFrame(TCIOStream& input) {
    std::string frame(static_cast<std::size_t>(input.SerializeBlock(nullptr)), '\0');
    input.SerializeBlock(frame.data());
    return frame;
}

TEST(BlockBuffer, GathersWhatWaits) {
    Bench bench;
    EXPECT_EQ(TCBlockBuffer().ReadBlock(0, true), -1);
    EXPECT_EQ(TCBlockBuffer().WriteAllBlocks(0, true), -1);
    EXPECT_EQ(bench.buffer.ReadBlock(0, true), 0);
    EXPECT_EQ(bench.buffer.ReadBlock(7, true), 0);
    bench.Send({1.0, 2.0}, START);
    bench.Send({3.0}, BUSY);
    bench.Send({}, STOP);
    EXPECT_EQ(bench.buffer.ReadBlock(0, false), 1);
    EXPECT_EQ(bench.buffer.ReadBlock(0, true), 2);
    ASSERT_EQ(bench.buffer.GetSize(), 3);
    EXPECT_EQ(static_cast<double*>(bench.buffer[0]->GetData())[1], 2.0);
    EXPECT_EQ(bench.buffer[0]->GetStatus(), START);
    EXPECT_EQ(bench.buffer[2]->GetSize(), 0);
    TCTypeInfo ti;
    EXPECT_EQ(bench.buffer[2]->GetTI(ti), STOP);
    EXPECT_STREQ(ti.GetSignalname(), "signal");
    EXPECT_EQ(bench.buffer.CountElems(), 3);
}

struct Trip {
    const char* name;
    unsigned in, out;
    int (*write)(TCIOStream&);
};

class BlockTrip : public testing::TestWithParam<Trip> {};

TEST_P(BlockTrip, ArrivesAsItWasSent) {
    Bench bench(GetParam().in, GetParam().out);
    for (const TCBLOCKSTATUS state : {START, STOP}) {
        TCTypeInfo ti = State(state, "trip");
        ti.SetTimestamp(1e12);
        bench.source.SetTI(&ti, false);
        ASSERT_EQ(GetParam().write(bench.source), 0);
    }
    ASSERT_EQ(bench.buffer.ReadBlock(0, true), 2);
    TCBlockBuffer copies;
    copies.SetPortHelper(&bench.helper);
    for (unsigned i = 0; i < 2; ++i) copies.Add(new TCBlock(*bench.buffer[i]));
    bench.buffer.RemoveAll(true);
    EXPECT_EQ(copies.WriteAllBlocks(0, false), 0);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(TakeFrame(bench.sink), TakeFrame(bench.reference));
    EXPECT_EQ(bench.sink.GetBlockCnt(nullptr), 0);
}

constexpr int NUMBERS[] = {1, -2, 3, 4, 5, 6};
constexpr double REALS[] = {0.1, -2.5, 3.0, 4.0, 5.0, 1e300};

INSTANTIATE_TEST_SUITE_P(
    Types, BlockTrip,
    testing::Values(
        Trip{"ints", INTS, INTS, [](TCIOStream& to) { return to.WriteIntVec(NUMBERS, 6); }},
        Trip{"oneInt", Helper::TYPE_SWORD, INTS, [](TCIOStream& to) { return to.WriteIntVec(NUMBERS, 1); }},
        Trip{"doubles", DOUBLES, DOUBLES, [](TCIOStream& to) { return to.WriteDblVec(REALS, 6); }},
        Trip{"oneDouble", Helper::TYPE_DOUBLE1, DOUBLES,
             [](TCIOStream& to) { return to.WriteDblVec(REALS, 1); }},
        Trip{"intMatrix", Helper::TYPE_SWORDMATRIX, Helper::TYPE_SWORDMATRIX,
             [](TCIOStream& to) { return to.WriteIntMat(NUMBERS, 2, 3, true); }},
        Trip{"doubleMatrix", Helper::TYPE_DOUBLEMATRIX, Helper::TYPE_DOUBLEMATRIX,
             [](TCIOStream& to) { return to.WriteDblMat(REALS, 3, 2, true); }},
        Trip{"texts", TEXTS, TEXTS,
             [](TCIOStream& to) {
                 const TCString texts[] = {"one", TCString("\0two", 4), ""};
                 return to.WriteStrVec(texts, 3);
             }},
        Trip{"packed", Helper::TYPE_MULTI, Helper::TYPE_MULTI,
             [](TCIOStream& to) {
                 to.WriteSegment("a", 3);
                 to.WriteSegment("b", "text");
                 return to.EndWriteSegments() ? 0 : -1;
             }}),
    [](const auto& row) { return row.param.name; });

// How many of `count` new blocks of 50 elements are old ones with room for 100.
int CountReused(TCBlockBuffer& buffer, int count) {
    int reused = 0;
    for (int i = 0; i < count; ++i) reused += buffer.NewBlock(INTS, 50)->GetAllocSpace() == 100 ? 1 : 0;
    return reused;
}

TEST(BlockBuffer, KeepsSomeSpareBlocks) {
    TCBlockBuffer all, single;
    for (int i = 0; i < 15; ++i) all.NewBlock(INTS, 100);
    const TCBlock* first = all[0];
    const TCTypeInfo old = State(STOP, "old");
    all[0]->SetTI(&old);
    all.RemoveAll(false);
    EXPECT_EQ(all.GetSize(), 0);
    EXPECT_EQ(all.NewBlock(INTS, 100), first);
    EXPECT_EQ(first->GetStatus(), INVALID);
    EXPECT_NE(all.NewBlock(DOUBLES, 50)->GetAllocSpace(), 100);
    EXPECT_EQ(CountReused(all, 30), 9);
    // With k taken off and all of them spare, the next one is kept while k - 1 <= 2 (60 - k) + 20: 47 are.
    for (int i = 0; i < 60; ++i) single.NewBlock(INTS, 100);
    for (int i = 0; i < 60; ++i) single.RemoveAt(0, false);
    single.RemoveAt(0, false);
    EXPECT_EQ(CountReused(single, 60), 47);
}

struct Join {
    std::vector<TCBLOCKSTATUS> states;
    TCBLOCKSTATUS joined;
};

TEST(BlockBuffer, JoinsBlocksUnderACommonState) {
    for (const Join& row : {Join{{START, BUSY, STOP}, COMPLETE}, Join{{START, BUSY}, START},
                            Join{{BUSY, BUSY}, BUSY}, Join{{BUSY, STOP}, STOP}, Join{{START}, START}}) {
        Bench bench;
        std::vector<double> sent;
        for (const TCBLOCKSTATUS state : row.states) {
            const double next = static_cast<double>(sent.size());
            sent.insert(sent.end(), {next, -next});
            bench.Send({next, -next}, state, 100.0, "V", 5000.0 + next);
            bench.buffer.ReadBlock(0, true);
        }
        EXPECT_EQ(bench.buffer.WriteAllBlocks(0, true), 0);
        TCTypeInfo ti;
        EXPECT_EQ(bench.Receive(ti), sent);
        EXPECT_EQ(ti.GetState(), row.joined);
        EXPECT_EQ(ti.GetTimestamp(), 5000.0);
        EXPECT_EQ(bench.buffer.GetSize(), static_cast<int>(row.states.size()));
        EXPECT_EQ(bench.sink.GetBlockCnt(nullptr), 0);
    }
    Bench empty;
    EXPECT_EQ(empty.buffer.WriteAllBlocks(0, true), 0);
    EXPECT_EQ(empty.sink.GetBlockCnt(nullptr), 0);
}

TEST(BlockBuffer, JoinsMatricesByRows) {
    Bench bench(Helper::TYPE_DOUBLEMATRIX, Helper::TYPE_DOUBLEMATRIX);
    bench.source.WriteDblMat(REALS, 2, 2);
    bench.source.WriteDblMat(REALS + 4, 1, 2);
    ASSERT_EQ(bench.buffer.ReadBlock(0, true), 2);
    EXPECT_EQ(bench.buffer.WriteAllBlocks(0, true), 0);
    double* values = nullptr;
    int rows = 0, columns = 0;
    ASSERT_EQ(bench.sink.ReadDblMat(&values, rows, columns), 6);
    EXPECT_EQ(rows, 3);
    EXPECT_TRUE(std::equal(REALS, REALS + 6, values));
    bench.source.WriteDblMat(REALS, 2, 3);
    ASSERT_EQ(bench.buffer.ReadBlock(0, true), 1);
    EXPECT_EQ(bench.buffer.WriteAllBlocks(0, true), Helper::VALUE_COUNTS_DIFFER);
}

TEST(BlockBuffer, RefusesToJoinWhatDoesNotBelongTogether) {
    for (const auto& [rate, unit, code] :
         {std::tuple{200.0, "V", Helper::SAMPLERATES_DIFFER}, {100.0, "A", Helper::UNITS_DIFFER}}) {
        Bench bench;
        bench.Send({1.0}, START);
        bench.Send({2.0}, BUSY);
        bench.Send({3.0}, STOP, rate, unit);
        ASSERT_EQ(bench.buffer.ReadBlock(0, true), 3);
        EXPECT_EQ(bench.buffer.WriteAllBlocks(0, true), code);
        EXPECT_NE(bench.helper.GetErrorText().Find("block 3 of the 3"), -1);
        EXPECT_EQ(bench.sink.GetBlockCnt(nullptr), 0);
        EXPECT_EQ(bench.buffer.GetSize(), 3);
    }
    Bench mixed;
    mixed.buffer.NewBlock(Helper::TYPE_DOUBLE, 1);
    mixed.buffer.NewBlock(DOUBLES, 2);
    EXPECT_EQ(mixed.buffer.WriteAllBlocks(0, true), 0);
    mixed.buffer.NewBlock(INTS, 1);
    EXPECT_EQ(mixed.buffer.WriteAllBlocks(0, true), Helper::ANOTHER_TYPE);
}

TEST(BlockBuffer, MeasuresItsBlocks) {
    TCBlockBuffer buffer;
    EXPECT_EQ(buffer.ElemSize(0), 0);
    buffer.NewBlock(DOUBLES, 3);
    auto* texts = static_cast<TCString*>(buffer.NewBlock(TEXTS, 2)->GetData());
    texts[0] = TCString("ab\0cd", 5);
    texts[1] = "efg";
    buffer.NewBlock(INTS, 5);
    buffer.NewBlock(0, 7);
    const int sizes[] = {8, 1, 4, 1, 0};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(buffer.ElemSize(i), sizes[i]);
    EXPECT_EQ(buffer.CountElems(), 17);
    EXPECT_EQ(buffer.StrLen(), 5);
    EXPECT_EQ(buffer.GetDataSize(), 24 + 5 + 20 + 7);
    buffer.SetBinStr(true);
    EXPECT_EQ(buffer.StrLen(), 8);
    EXPECT_EQ(buffer.GetDataSize(), 24 + 8 + 20 + 7);
}

TEST(BlockBuffer, GrowsAndCopiesItsBlocks) {
    TCBlock block(TEXTS);
    ASSERT_TRUE(block.SetSize(2));
    static_cast<TCString*>(block.GetData())[1] = "kept";
    ASSERT_TRUE(block.SetSize(100));
    TCBlock copy(INTS);
    copy = block;
    static_cast<TCString*>(block.GetData())[1] = "changed";
    EXPECT_STREQ(static_cast<TCString*>(copy.GetData())[1], "kept");
    EXPECT_EQ(copy.DataType(), TEXTS);
    EXPECT_TRUE(copy.SetSize(1));
    EXPECT_EQ(copy.GetAllocSpace(), 100);
    EXPECT_FALSE(copy.SetSize(1u + INT_MAX));
    EXPECT_EQ(copy.GetSize(), 1);
    EXPECT_FALSE(TCBlock(Helper::TYPE_POINTER).SetSize(1));
    EXPECT_EQ(TCBlockBuffer().NewBlock(DOUBLES, UINT_MAX), nullptr);
}

TEST(BlockBuffer, EndsWithACodeWhereABlockCannotBeReadOrWritten) {
    Bench pointers(Helper::TYPE_POINTER, INTS);
    pointers.source.WritePtr(NUMBERS, 1);
    EXPECT_EQ(pointers.buffer.ReadBlock(0, true), Helper::NOT_CREATED);
    EXPECT_EQ(pointers.buffer.GetSize(), 0);
    EXPECT_EQ(pointers.helper.BlocksOnStream(INPUT, 0), 1);
    Bench wrong;
    wrong.Send({1.0}, START);
    wrong.source.WriteIntVec(NUMBERS, 6);
    EXPECT_EQ(wrong.buffer.ReadBlock(0, true), Helper::ANOTHER_TYPE);
    EXPECT_EQ(wrong.buffer.GetSize(), 1);
    Bench shapeless(DOUBLES, Helper::TYPE_DOUBLEMATRIX);
    shapeless.buffer.NewBlock(Helper::TYPE_DOUBLEMATRIX, 4);
    EXPECT_EQ(shapeless.buffer.WriteBlock(0, 0), Helper::NOT_CREATED);
    Bench damaged(Helper::TYPE_MULTI, Helper::TYPE_MULTI);
    std::fill_n(static_cast<char*>(damaged.buffer.NewBlock(0, 40)->GetData()), 40, 'x');
    EXPECT_EQ(damaged.buffer.WriteBlock(0, 0), Helper::NOT_CREATED);
    EXPECT_EQ(damaged.sink.GetBlockCnt(nullptr), 0);
}

}  // namespace
