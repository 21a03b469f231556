#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/signal/TCBlockBuffer.h"
#include "tests/signal/StreamLines.h"
#include "tests/support/Allocations.h"

namespace {

using TCBlock = TCBlockBuffer::TCBlock;
using Helper = TCPortHelper;

constexpr unsigned DOUBLES = Helper::TYPE_DOUBLEARRAY;
constexpr unsigned INTS = Helper::TYPE_SWORDARRAY;
constexpr unsigned TEXTS = Helper::TYPE_TEXTARRAY;
constexpr unsigned MATRIX = Helper::TYPE_DOUBLEMATRIX;

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
    // A block of `count` times its timestamp.
    void Send(TCBLOCKSTATUS state, double time, int count, double rate = 100.0, const char* unit = "V") {
        TCTypeInfo ti = State(state, name);
        ti.SetTimestamp(time);
        ti.SetSamplerate(rate);
        ti.GetUnit().FromString(unit);
        source.SetTI(&ti, false);
        values.assign(static_cast<std::size_t>(count), time);
        if (count > 0) source.WriteDblVec(values.data(), count);
        if (count == 0) source.EndWriteSegments();
    }

    TCIOStream source, reference, sink;
    Helper helper{nullptr};
    TCBlockBuffer buffer;
    std::vector<double> values;
    const char* name = "signal";
};

TEST(BlockBuffer, GathersWhatWaits) {
    Bench bench;
    EXPECT_EQ(TCBlockBuffer().ReadBlock(0, true), -1);
    EXPECT_EQ(TCBlockBuffer().WriteAllBlocks(0, true), -1);
    EXPECT_EQ(TCBlock(DOUBLES).ReadBlock(nullptr, 0) + TCBlock(DOUBLES).WriteBlock(nullptr, 0), -2);
    for (const unsigned port : {0, 7}) EXPECT_EQ(bench.buffer.ReadBlock(port, true), 0);
    EXPECT_EQ(bench.buffer.WriteAllBlocks(0, true), 0);
    bench.Send(START, 1.0, 2);
    bench.Send(BUSY, 2.0, 1);
    bench.Send(STOP, 3.0, 0);
    EXPECT_EQ(bench.buffer.ReadBlock(0, false), 1);
    EXPECT_EQ(bench.buffer.ReadBlock(0, true), 2);
    ASSERT_EQ(bench.buffer.GetSize(), 3);
    EXPECT_EQ(static_cast<double*>(bench.buffer[0]->GetData())[1], 1.0);
    EXPECT_EQ(bench.buffer[0]->GetStatus(), START);
    EXPECT_EQ(bench.buffer[2]->GetSize(), 0);
    TCTypeInfo ti;
    EXPECT_EQ(bench.buffer[2]->GetTI(ti), STOP);
    EXPECT_EQ(ti.GetTimestamp(), 3.0);
}

constexpr int NUMBERS[] = {1, -2, 3, 4, 5, 6};
constexpr double REALS[] = {0.1, -2.5, 3.0, 4.0, 5.0, 1e300};
const TCString WORDS[] = {"one", TCString("\0two", 4), ""};

struct Trip {
    unsigned in, out;
    int (*write)(TCIOStream& to);
};
const Trip TRIPS[] = {
    {INTS, INTS, [](TCIOStream& to) { return to.WriteIntVec(NUMBERS, 6); }},
    {Helper::TYPE_SWORD, INTS, [](TCIOStream& to) { return to.WriteIntVec(NUMBERS, 1); }},
    {DOUBLES, DOUBLES, [](TCIOStream& to) { return to.WriteDblVec(REALS, 6); }},
    {Helper::TYPE_DOUBLE1, DOUBLES, [](TCIOStream& to) { return to.WriteDblVec(REALS, 1); }},
    {Helper::TYPE_SWORDMATRIX, Helper::TYPE_SWORDMATRIX,
     [](TCIOStream& to) { return to.WriteIntMat(NUMBERS, 2, 3, true); }},
    {MATRIX, MATRIX, [](TCIOStream& to) { return to.WriteDblMat(REALS, 3, 2, true); }},
    {MATRIX, MATRIX, [](TCIOStream& to) { return to.WriteDblMat(REALS, 0, 2); }},
    {Helper::TYPE_SWORDMATRIX, Helper::TYPE_SWORDMATRIX,
     [](TCIOStream& to) { return to.WriteIntMat(NUMBERS, 0, 4); }},
    {TEXTS, TEXTS, [](TCIOStream& to) { return to.WriteStrVec(WORDS, 3); }},
    {Helper::TYPE_MULTI, Helper::TYPE_MULTI,
     [](TCIOStream& to) { return to.WriteSegment("a", 3) + (to.EndWriteSegments() ? 0 : -1); }},
};

TEST(BlockBuffer, WritesWhatItRead) {
    for (const Trip& trip : TRIPS) {
        Bench bench(trip.in, trip.out);
        for (const TCBLOCKSTATUS state : {START, STOP}) {
            const TCTypeInfo ti = State(state, "trip");
            bench.source.SetTI(&ti, true);
            ASSERT_EQ(trip.write(bench.source), 0);
        }
        ASSERT_EQ(bench.buffer.ReadBlock(0, true), 2);
        TCBlockBuffer copies;
        copies.SetPortHelper(&bench.helper);
        for (unsigned i = 0; i < 2; ++i) copies.Add(new TCBlock(*bench.buffer[i]));
        bench.buffer.RemoveAll(true);
        EXPECT_EQ(copies.WriteAllBlocks(0, false), 0);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(TakeFrame(bench.sink), TakeFrame(bench.reference)) << trip.in;
    }
}

// The metadata that the buffer gives for a block with its own are not left for the next one.
TEST(BlockBuffer, PackedBlocksUseUpWhatIsGiven) {
    Bench bench(Helper::TYPE_MULTI, Helper::TYPE_MULTI);
    bench.helper.UseAutoTypeInfo(0, true, true, true, true, true, true);
    bench.Send(START, 1.0, 2);
    ASSERT_EQ(bench.buffer.ReadBlock(0, true), 1);
    EXPECT_EQ(bench.buffer.WriteBlock(0, 0), 0);
    EXPECT_EQ(bench.helper.WriteMultitypeInt(0, "next", 1), 0);
    EXPECT_EQ(bench.helper.EndWriteMultitype(0), 0);
    EXPECT_EQ(bench.sink.RemoveContents(false), 1);
    EXPECT_EQ(bench.sink.PeekStatus(false), BUSY);
}

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
    for (int i = 0; i < 61; ++i) single.RemoveAt(0, false);
    EXPECT_EQ(CountReused(single, 60), 47);
}

struct Join {
    std::vector<TCBLOCKSTATUS> states;
    TCBLOCKSTATUS joined;
};

TEST(BlockBuffer, JoinsBlocksUnderACommonState) {
    for (const Join& row : {Join{{START, BUSY, STOP}, COMPLETE}, Join{{START, BUSY}, START},
                            Join{{BUSY, BUSY}, BUSY}, Join{{BUSY, STOP}, STOP}, Join{{INVALID}, BUSY}}) {
        Bench bench;
        std::vector<double> sent;
        for (const TCBLOCKSTATUS state : row.states) {
            sent.resize(sent.size() + 2, static_cast<double>(sent.size() + 1));
            bench.Send(state, sent.back(), 2);
        }
        bench.buffer.ReadBlock(0, true);
        EXPECT_EQ(bench.buffer.WriteAllBlocks(0, true), 0);
        EXPECT_EQ(bench.sink.GetBlockCnt(nullptr), 1);
        EXPECT_EQ(bench.sink.PeekStatus(false), row.joined);
        std::vector<double> received(sent.size());
        bench.sink.ReadDblVec(received.data(), nullptr);
        EXPECT_EQ(received, sent);
        EXPECT_EQ(bench.sink.GetTI()->GetTimestamp(), 1.0);
        EXPECT_EQ(bench.buffer.GetSize(), static_cast<int>(row.states.size()));
    }
}

TEST(BlockBuffer, RefusesToJoinWhatDoesNotBelongTogether) {
    for (const auto& [rate, unit, code] :
         {std::tuple{200.0, "V", Helper::SAMPLERATES_DIFFER}, {100.0, "A", Helper::UNITS_DIFFER}}) {
        Bench bench;
        bench.Send(START, 1.0, 1);
        bench.Send(STOP, 2.0, 1, rate, unit);
        ASSERT_EQ(bench.buffer.ReadBlock(0, true), 2);
        EXPECT_EQ(bench.buffer.WriteAllBlocks(0, true), code);
        EXPECT_NE(bench.helper.GetErrorText().Find("block 2 of the 2"), -1);
        EXPECT_EQ(bench.sink.GetBlockCnt(nullptr), 0);
    }
    Bench mixed;
    for (const unsigned type : {unsigned{Helper::TYPE_DOUBLE}, DOUBLES}) mixed.buffer.NewBlock(type, 1);
    EXPECT_EQ(mixed.buffer.WriteAllBlocks(0, true), 0);
    mixed.buffer.NewBlock(INTS, 1);
    EXPECT_EQ(mixed.buffer.WriteAllBlocks(0, true), Helper::ANOTHER_TYPE);
    Bench shapes(MATRIX, MATRIX);
    for (const int rows : {2, 1}) shapes.source.WriteDblMat(REALS, rows, 2);
    ASSERT_EQ(shapes.buffer.ReadBlock(0, true), 2);
    EXPECT_EQ(shapes.buffer.WriteAllBlocks(0, true), 0);
    const double* values = nullptr;
    int rows = 0, columns = 0;
    EXPECT_EQ(shapes.sink.PeekDblData(0, values, &rows, &columns), 6);
    EXPECT_EQ(rows, 3);
    shapes.source.WriteDblMat(REALS, 1, 3);
    shapes.buffer.ReadBlock(0, true);
    EXPECT_EQ(shapes.buffer.WriteAllBlocks(0, true), Helper::VALUE_COUNTS_DIFFER);
    Bench gaps(MATRIX, MATRIX);
    for (const auto& [shapeRows, shapeColumns] : {std::pair(1, 2), {0, 3}, {1, 3}})
        gaps.source.WriteDblMat(REALS, shapeRows, shapeColumns);
    ASSERT_EQ(gaps.buffer.ReadBlock(0, true), 3);
    EXPECT_EQ(gaps.buffer.WriteAllBlocks(0, true), Helper::VALUE_COUNTS_DIFFER) << "what is empty fits both";
    Bench empty(MATRIX, MATRIX);
    for (int i = 0; i < 2; ++i) empty.source.WriteDblMat(REALS, 0, 2);
    ASSERT_EQ(empty.buffer.ReadBlock(0, true), 2);
    EXPECT_EQ(empty.buffer.WriteAllBlocks(0, true), 0);
    EXPECT_EQ(empty.sink.PeekDblData(0, values, &rows, &columns), 0);
    EXPECT_EQ(columns, 2);
    EXPECT_EQ(empty.sink.PeekStatus(false), BUSY);
}

TEST(BlockBuffer, MeasuresItsBlocks) {
    TCBlockBuffer buffer;
    for (const unsigned type : {DOUBLES, TEXTS, INTS, 0u}) buffer.NewBlock(type, 2);
    std::copy_n(WORDS, 2, static_cast<TCString*>(buffer[1]->GetData()));
    const int sizes[] = {8, 1, 4, 1, 0};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(buffer.ElemSize(i), sizes[i]);
    EXPECT_EQ(buffer.CountElems(), 8);
    EXPECT_EQ(buffer.StrLen(), 3);  // a text ends at its first zero byte
    buffer.SetBinStr(true);
    EXPECT_EQ(buffer.GetDataSize(), 16 + 7 + 8 + 2);
}

TEST(BlockBuffer, GrowsAndCopiesItsBlocks) {
    TCBlock block(TEXTS), copy(INTS);
    ASSERT_TRUE(block.SetSize(2));
    static_cast<TCString*>(block.GetData())[1] = "kept";
    ASSERT_TRUE(block.SetSize(100));
    const TCTypeInfo own = State(STOP, "own");
    block.SetTI(&own);
    copy = block;
    EXPECT_EQ(copy.GetStatus(), STOP);
    static_cast<TCString*>(block.GetData())[1] = "changed";
    EXPECT_STREQ(static_cast<TCString*>(copy.GetData())[1], "kept");
    EXPECT_TRUE(copy.SetSize(1));
    EXPECT_EQ(copy.GetAllocSpace(), 100);
    EXPECT_FALSE(copy.SetSize(1u + INT_MAX));
    EXPECT_FALSE(TCBlock(Helper::TYPE_POINTER).SetSize(1));
    if (!allocations::AreSeen()) return;

    static_cast<TCString*>(block.GetData())[99] = "a text that is too long for a short string buffer";
    for (int after = 0; after < 8; ++after) {
        allocations::FailAfter(after);
        const TCBlock whole(block);
        allocations::FailAfter(-1);
        const auto* const texts = static_cast<const TCString*>(whole.GetData());
        EXPECT_TRUE(whole.GetSize() == 0 || texts[99] == static_cast<TCString*>(block.GetData())[99])
            << after;
    }
    TCBlockBuffer buffer, fresh;
    buffer.NewBlock(INTS, 100);
    allocations::FailAfter(0);
    const TCBlock none(block);
    copy = block;
    const bool grown = block.SetSize(101);
    buffer.RemoveAt(0, false);
    const bool added = fresh.Add(&block) != -1 || fresh.NewBlock(INTS, 0) != nullptr;
    allocations::FailAfter(-1);
    EXPECT_EQ(none.GetSize(), 0);
    EXPECT_EQ(copy.GetSize(), 1);
    EXPECT_FALSE(grown || added);
    EXPECT_STREQ(static_cast<TCString*>(block.GetData())[1], "changed");
    EXPECT_EQ(CountReused(buffer, 1), 0) << "no memory to keep it";
}

TEST(BlockBuffer, ABlockWithoutMetadataHasNoneOfTheLastOne) {
    TCIOStream source;
    Helper helper(nullptr);
    helper.SetPort(INPUT, 0, "in", DOUBLES | Helper::TYPE_TYPEINFO);
    source.AddOutputStream(helper.SetInputStream(0, 0, 3));
    source.WriteDblVec(REALS, 2);
    TCBlock block(DOUBLES);
    const TCTypeInfo old = State(STOP, "old");
    block.SetTI(&old);
    EXPECT_EQ(block.ReadBlock(&helper, 0), 1);
    TCTypeInfo ti;
    EXPECT_EQ(block.GetTI(ti), INVALID);
    EXPECT_STREQ(ti.GetSignalname(), "");
}

TEST(BlockBuffer, EndsWithACodeWhereABlockCannotBeReadOrWritten) {
    Bench pointers(Helper::TYPE_POINTER, MATRIX);
    pointers.source.WritePtr(NUMBERS, 1);
    EXPECT_EQ(pointers.buffer.ReadBlock(0, true), Helper::NOT_CREATED);
    EXPECT_EQ(pointers.helper.GetErrorRecord().otherIndex, -1);
    EXPECT_EQ(pointers.helper.BlocksOnStream(INPUT, 0), 1);
    EXPECT_EQ(pointers.buffer.GetSize(), 0);
    pointers.buffer.NewBlock(MATRIX, 4);  // without columns
    EXPECT_EQ(pointers.buffer.WriteBlock(0, 0), Helper::NOT_CREATED);
    EXPECT_EQ(pointers.buffer.WriteBlock(0, 1), 0);
    EXPECT_EQ(pointers.buffer.WriteAllBlocks(0, false), Helper::NOT_CREATED);
    Bench wrong(DOUBLES, Helper::TYPE_MULTI);
    wrong.source.WriteIntVec(NUMBERS, 6);
    EXPECT_EQ(wrong.buffer.ReadBlock(0, true), Helper::ANOTHER_TYPE);
    std::fill_n(static_cast<char*>(wrong.buffer.NewBlock(0, 40)->GetData()), 40, 'x');
    EXPECT_EQ(wrong.buffer.WriteBlock(0, 0), Helper::NOT_CREATED);  // a damaged frame
    Bench gap;
    gap.helper.SetPort(INPUT, 2, "last", DOUBLES);
    gap.source.AddOutputStream(gap.helper.SetInputStream(1, 0, 3));  // to a port without a type
    gap.Send(START, 1.0, 1);
    EXPECT_EQ(gap.buffer.ReadBlock(1, true), 0);
}

// The first result that is not about memory.
template <class Prepare, class Work>
int TryWithMoreMemory(Prepare prepare, Work work) {
    int result = Helper::NOT_CREATED;
    for (int after = 0; result == Helper::NOT_CREATED && after < 100; ++after) {
        prepare();
        allocations::FailAfter(after);
        result = work();
        allocations::FailAfter(-1);
    }
    return result;
}

TEST(BlockBuffer, TakesNoMemoryInASteadyFlowAndBearsTheLackOfIt) {
    Bench bench;
    int before = 0;
    for (int round = 0; round < 20; ++round) {
        if (round == 5) before = allocations::Count();
        for (int i = 0; i < 3; ++i) bench.Send(BUSY, 1.0, 100);
        bench.buffer.ReadBlock(0, true);
        bench.buffer.WriteAllBlocks(0, true);
        bench.buffer.RemoveAll(false);
        for (TCIOStream* stream : {&bench.sink, &bench.reference}) stream->RemoveContents(true);
    }
    EXPECT_EQ(allocations::Count() - before, 0);
    for (const unsigned type : {DOUBLES, unsigned{Helper::TYPE_MULTI}}) {
        Bench scarce(type, type);
        scarce.name = "one that takes memory of its own";
        EXPECT_EQ(
            TryWithMoreMemory([&] { return scarce.Send(BUSY, 1.0, 1000), scarce.buffer.RemoveAll(true); },
                              [&] { return scarce.buffer.ReadBlock(0, false); }),
            1);
        EXPECT_EQ(TryWithMoreMemory([] {}, [&] { return scarce.buffer.WriteAllBlocks(0, true); }), 0);
    }
}

}  // namespace
