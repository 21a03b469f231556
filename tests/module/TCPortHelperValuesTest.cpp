#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/module/PortBench.h"
#include "tests/support/Allocations.h"

using namespace bench;
using Helper = TCPortHelper;

namespace {

int Write(Line& line, const std::vector<double>& values) {
    return line.writer.WriteDblData(0, values.size(), values.data());
}

}  // namespace

TEST(TCPortHelperValues, TheNewestValuesWin) {
    // A block of five values, read into a buffer (null, when false) of that capacity.
    using Row = std::tuple<unsigned long, bool, std::vector<double>>;
    for (const auto& [capacity, hasBuffer, values] :
         {Row(3, true, {3, 4, 5}), Row(5, true, {1, 2, 3, 4, 5}), Row(0x80000000ul, true, {1, 2, 3, 4, 5}),
          Row(0, true, {}), Row(3, false, {})}) {
        Line line;
        double buffer[8];
        unsigned long count = capacity;
        EXPECT_TRUE(
            All(0, {Write(line, {1, 2, 3, 4, 5}), Write(line, {}), line.writer.WriteDblData(0, 1, nullptr)}));
        EXPECT_EQ(line.reader.ReadDblData(0, count, hasBuffer ? buffer : nullptr), values.empty() ? 0 : 1);
        EXPECT_EQ(std::vector(buffer, buffer + count), values) << capacity;
        EXPECT_EQ(line.reader.GetTypeInfo(0, nullptr), COMPLETE) << "the block is taken in any case";
        EXPECT_TRUE(All(0, {line.reader.ReadDblData(0, count, buffer), line.reader.GetErrorRecord().code}));
    }
}

namespace {

template <class T, class Value, class Array>
struct Family {
    Helper::TYPE plain, single, array;  // no plain texts
    int (Helper::*writeData)(unsigned, unsigned long, const T*);
    int (Helper::*writeVal)(unsigned, Value);
    int (Helper::*writeArray)(unsigned, const Array&);
    int (Helper::*readData)(unsigned, unsigned long&, T*);
    int (Helper::*readLastVal)(unsigned, T&, bool);
    int (Helper::*readArray)(unsigned, Array&);
};

template <class T, class Value, class Array>
void ExpectTravel(const Family<T, Value, Array>& family, const T (&values)[3]) {
    for (const Helper::TYPE kind : {family.plain, family.single, family.array}) {
        Line line(kind | Helper::TYPE_TYPEINFO);
        Helper &writer = line.writer, &reader = line.reader;
        const unsigned length = kind == family.array ? 3 : 1;
        Array array;
        T last{}, buffer[2];
        unsigned long count = 2;
        EXPECT_EQ((writer.*family.writeData)(0, 3, values), 0);
        EXPECT_EQ((reader.*family.readArray)(0, array), 1);
        EXPECT_EQ(array[length - 1], values[2]);
        EXPECT_EQ(reader.GetTypeInfo(0, nullptr), COMPLETE);
        EXPECT_EQ((writer.*family.writeArray)(0, array), 0);
        EXPECT_EQ((reader.*family.readData)(0, count, buffer), 1);
        EXPECT_EQ(count, std::min(length, 2u));
        EXPECT_EQ(buffer[count - 1], values[2]);
        for (const bool all : {false, true}) {
            for (int i = 0; i < 3; ++i) {
                line.SetState(0, BUSY);
                EXPECT_EQ((writer.*family.writeVal)(0, values[i]), 0);
            }
            EXPECT_EQ((reader.*family.readLastVal)(0, last, all), 1);
            EXPECT_EQ(last, values[all ? 2 : 0]);
            EXPECT_EQ(reader.RemoveContents(0, true), all ? 0 : 2);
        }
        EXPECT_TRUE(
            All(0, {(reader.*family.readData)(0, count, buffer), (reader.*family.readLastVal)(0, last, true),
                    (reader.*family.readArray)(0, array), (writer.*family.writeVal)(9, values[0])}));
    }
}

}  // namespace

TEST(TCPortHelperValues, EveryElementTypeTravelsAlike) {
    using H = Helper;
    ExpectTravel<int, int, TCArray<int, int>>(
        {H::TYPE_SWORD, H::TYPE_SWORD1, H::TYPE_SWORDARRAY, &H::WriteIntData, &H::WriteIntVal,
         &H::WriteIntArray, &H::ReadIntData, &H::ReadIntLastVal, &H::ReadIntArray},
        {7, -8, 2147483647});
    ExpectTravel<double, double, TCArray<double, double>>(
        {H::TYPE_DOUBLE, H::TYPE_DOUBLE1, H::TYPE_DOUBLEARRAY, &H::WriteDblData, &H::WriteDblVal,
         &H::WriteDblArray, &H::ReadDblData, &H::ReadDblLastVal, &H::ReadDblArray},
        {0.5, -1e300, 3.0});
    ExpectTravel<TCString, const TCString&, TCArray<TCString, const TCString&>>(
        {H::TYPE_TEXT, H::TYPE_TEXT, H::TYPE_TEXTARRAY, &H::WriteStringData, &H::WriteStringVal,
         &H::WriteStringArray, &H::ReadStringData, &H::ReadStringLastVal, &H::ReadStringArray},
        {"one", "", TCString("t\0o", 3)});
    ExpectTravel<CString, const CString&, CStringArray>(
        {H::TYPE_TEXT, H::TYPE_TEXT, H::TYPE_TEXTARRAY, &H::WriteCStringData, &H::WriteCStringVal,
         &H::WriteCStringArray, &H::ReadCStringData, &H::ReadCStringLastVal, &H::ReadCStringArray},
        {"one", "", {"t\0o", 3}});
}

TEST(TCPortHelperValues, TakenValuesAreAccessedWhereTheyLie) {
    Line ints(Helper::TYPE_SWORDARRAY), doubles, texts(Helper::TYPE_TEXTARRAY);
    const int numbers[] = {1, 2};
    int count = 9;
    EXPECT_TRUE(All(0, {ints.reader.TakeBlock(0), ints.reader.TakeBlock(9)}));
    ints.writer.WriteIntData(0, 2, numbers);
    texts.writer.WriteStringVal(0, "a");
    EXPECT_TRUE(All(1, {ints.reader.TakeBlock(0), texts.reader.TakeBlock(0)}));
    EXPECT_EQ(ints.reader.AccessIntData(0, count)[1], 2);
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(*texts.reader.AccessStringData(0, count), "a");
    EXPECT_EQ(ints.reader.AccessDblData(0, count), nullptr) << "of another type";
    EXPECT_EQ(count, 0);
    // What is dropped unread is what was read last, for values and metadata alike.
    for (const bool all : {false, true}) {
        for (unsigned length : {1u, 2u, 3u}) doubles.Send(0, length < 3 ? BUSY : STOP, length);
        doubles.reader.TakeBlock(0);
        EXPECT_EQ(doubles.reader.RemoveContents(0, all), all ? 2 : 1);
        EXPECT_NE(doubles.reader.AccessDblData(0, count), nullptr);
        EXPECT_EQ(count, all ? 3 : 2);
        EXPECT_EQ(doubles.reader.LastTypeInfo(0)->GetState(), all ? STOP : BUSY);
        EXPECT_EQ(doubles.reader.RemoveContents(0, all), all ? 0 : 1);
    }
}

TEST(TCPortHelperValues, WithoutMemoryAWriteSaysThatNothingWentOut) {
    if (!allocations::AreSeen()) return;
    int (*const writers[])(Helper&) = {[](Helper& helper) { return helper.WriteDblVal(0, 1.0); },
                                       [](Helper& helper) { return helper.WriteTypeInfo(0); },
                                       [](Helper& helper) {
                                           const int result = helper.WriteMultitypeInt(0, "i", 1);
                                           return result < 0 ? result : helper.EndWriteMultitype(0);
                                       }};
    for (const auto& write : writers) {
        int after = 0, result = -1;
        for (; result < 0 && after < 100; ++after) {
            Line line(SIGNAL | Helper::TYPE_MULTI);
            allocations::FailAfter(after);
            result = write(line.writer);
            allocations::FailAfter(-1);
            EXPECT_TRUE(result == 0 || result == -14) << result;
            EXPECT_TRUE(write == writers[1] || line.reader.BlocksOnStream(INPUT, 0) == (result == 0 ? 1 : 0));
        }
        EXPECT_TRUE(after > 1 && result == 0) << after;
    }
}

TEST(TCPortHelperValues, BlocksWithoutValuesAreReadPast) {
    Line line;
    TCIOStream::Block empty;
    double value = 0.0;
    EXPECT_TRUE(
        All(0, {line.writer.WriteCopy(0, &empty), line.Send(0, BUSY), line.writer.WriteCopy(0, &empty)}));
    EXPECT_EQ(line.reader.ReadDblLastVal(0, value, true), 1);
    EXPECT_EQ(value, 1.0);
    line.writer.WriteCopy(0, &empty);
    EXPECT_EQ(line.reader.ReadDblLastVal(0, value, true), 0);
}

TEST(TCPortHelperValues, NothingHappensWherePortOrReceiverIsMissing) {
    Line texts(Helper::TYPE_TEXT), doubles;
    TCPortHelper alone(nullptr);
    alone.SetPort(OUTPUT, 0, "Out", SIGNAL);
    double value = 0.0;
    texts.writer.WriteStringVal(0, "text");
    EXPECT_TRUE(
        All(0, {alone.WriteDblVal(0, 1.0), alone.WriteDblVal(5, 1.0), texts.writer.WriteDblVal(0, 1.0),
                doubles.writer.WriteIntVal(0, 1), doubles.writer.WriteStringVal(0, "x"),
                texts.reader.ReadDblLastVal(0, value, true), texts.reader.ReadDblLastVal(5, value, true),
                alone.GetErrorRecord().code, texts.reader.GetErrorRecord().code}));
    EXPECT_EQ(texts.reader.BlocksOnStream(INPUT, 0), 1);
}

TEST(TCPortHelperValues, LackOfMemoryLosesNothing) {
    Line line;
    TCArray<double, double> values;
    const double value = 1.0;
    EXPECT_EQ(line.writer.WriteDblData(0, 0x80000000ul, &value), -14);
    EXPECT_EQ(Write(line, {2}), 0);
    if (!allocations::AreSeen()) return;
    allocations::FailAfter(0);
    const int withoutMemory = line.reader.ReadDblArray(0, values);
    allocations::FailAfter(-1);
    EXPECT_EQ(withoutMemory, -14);
    EXPECT_EQ(line.reader.ReadDblArray(0, values), 1);
}

TEST(TCPortHelperValues, BlockOfAnotherTypeIsAnError) {
    static double value;
    static int number;
    static unsigned long one = 1;
    static void* address;
    static const double* matrix;
    static TCArray<double, double> array;
    // How a block of texts is read, on a stream that is wired past the check of types.
    const std::pair<Helper::TYPE, int (*)(Helper&)> rows[] = {
        {SIGNAL, [](Helper& h) { return h.ReadDblData(0, one = 1, &value); }},
        {SIGNAL, [](Helper& h) { return h.ReadDblLastVal(0, value, true); }},
        {SIGNAL, [](Helper& h) { return h.ReadDblArray(0, array); }},
        {SIGNAL, [](Helper& h) { return h.ReadInternalData(0); }},
        {Helper::TYPE_POINTER, [](Helper& h) { return h.ReadPtr(0, &address, nullptr); }},
        {Helper::TYPE_DOUBLEMATRIX, [](Helper& h) { return h.ReadDblMatrix(0, &matrix, number, number); }}};
    for (const auto& [kind, read] : rows) {
        TCPortHelper writer(nullptr), reader(nullptr);
        writer.SetPort(OUTPUT, 0, "Texts", Helper::TYPE_TEXTARRAY);
        reader.SetPort(INPUT, 0, "Other", kind);
        Wire(writer, 0, reader, 0);
        writer.WriteStringVal(0, "a");
        reader.SetErrMsg(-1, INPUT, 0, 0, "old", "old");
        EXPECT_EQ(read(reader), -2) << kind;
        EXPECT_EQ(reader.GetErrorRecord().otherIndex, -1);
        EXPECT_STREQ(reader.GetErrorText(),
                     "Input \"Other\": Block data does not match datatype of input port (-2)");
        EXPECT_EQ(read(reader), 0) << "the block is taken";
    }
}

TEST(TCPortHelperValues, MatricesAndPointersAreNotCopiedUnlessInternal) {
    Line doubles(Helper::TYPE_POINTER | Helper::TYPE_DOUBLEMATRIX), ints(Helper::TYPE_SWORDMATRIX);
    Line pointer(Helper::TYPE_POINTER);
    const double values[] = {1, 2, 3, 4, 5, 6};
    const int numbers[] = {1, 2};
    const double* seen = nullptr;
    const int* handed = nullptr;
    void* address = nullptr;
    int rows = 0, cols = 0, count = 0;
    EXPECT_EQ(doubles.writer.WriteDblMatrix(0, 1 << 20, 1 << 20, values), -14);
    EXPECT_TRUE(All(
        0, {doubles.writer.WriteDblMatrix(0, 0, 3, values), doubles.writer.WriteDblMatrix(0, 2, 0, values),
            doubles.writer.WriteDblMatrix(0, 2, 3, nullptr), doubles.writer.WriteIntMatrix(0, 1, 2, numbers),
            doubles.writer.WritePtr(0, values, 6), pointer.writer.WritePtr(0, values, 0),
            doubles.reader.ReadDblMatrix(0, &seen, rows, cols), pointer.reader.ReadPtr(0, &address, &count),
            doubles.writer.WriteDblMatrix(0, 2, 3, values), ints.writer.WriteIntMatrix(0, 2, 1, numbers),
            pointer.writer.WritePtr(0, values, 6), doubles.reader.ReadDblMatrix(0, nullptr, rows, cols)}));
    EXPECT_TRUE(All(1, {doubles.reader.ReadDblMatrix(0, &seen, rows, cols),
                        pointer.reader.ReadPtr(0, &address, &count)}));
    EXPECT_EQ(std::tuple(seen, rows, cols, address, count), std::tuple(values, 2, 3, values, 6));
    EXPECT_EQ(ints.reader.ReadIntMatrix(0, &handed, rows, cols), 1);
    EXPECT_EQ(std::tuple(handed, rows, cols), std::tuple(numbers, 2, 1));
    double* own = doubles.writer.AllocDblMatrix(0, 1, 1);
    *own = 7.0;
    EXPECT_EQ(doubles.writer.WriteInternalData(0), 0);
    *own = 8.0;
    EXPECT_EQ(doubles.reader.ReadDblMatrix(0, &seen, rows, cols), 1);
    EXPECT_EQ(*seen, 7.0);
}

TEST(TCPortHelperValues, InternalDataAreWrittenAndCompared) {
    // A module whose outputs are wired to its own inputs.
    TCPortHelper echo(nullptr);
    const Helper::TYPE kinds[] = {SIGNAL, Helper::TYPE_SWORDARRAY, Helper::TYPE_TEXTARRAY,
                                  Helper::TYPE_SWORDMATRIX};
    for (unsigned i = 0; i < 4; ++i) {
        echo.SetPort(INPUT, i, "In", kinds[i]);
        echo.SetPort(OUTPUT, i, "Out", kinds[i]);
        Wire(echo, i, echo, i);
        EXPECT_FALSE(echo.CompareWithInternalData(i, i)) << "never filled";
        EXPECT_TRUE(All(0, {echo.WriteInternalData(i), echo.ReadInternalData(i)}));
    }
    double* data = echo.AllocDblData(0, 3);
    EXPECT_EQ(echo.AllocDblData(0, 3), data) << "reused while the count stays";
    const void* refused[] = {
        echo.AllocIntData(0, 3),      echo.AllocDblData(0, 0),      echo.AllocDblData(0, 1ul << 31),
        echo.AllocStringData(1, 3),   echo.AllocIntMatrix(3, 0, 1), echo.AllocIntMatrix(3, 1, 0),
        echo.AllocIntMatrix(1, 1, 1), echo.AllocDblMatrix(3, 1, 1), echo.AllocIntMatrix(3, 1 << 16, 1 << 16)};
    for (const void* buffer : refused) EXPECT_EQ(buffer, nullptr) << &buffer - refused;
    std::iota(data, data + 3, 1.0);
    std::fill_n(echo.AllocIntData(1, 2), 2, 5);
    std::fill_n(echo.AllocStringData(2, 2), 2, TCString("t"));
    std::fill_n(echo.AllocIntMatrix(3, 2, 3), 6, 5);
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(echo.WriteInternalData(i), 0);
        EXPECT_EQ(echo.ReadInternalData(i), 1);
        EXPECT_TRUE(echo.CompareWithInternalData(i, i)) << i;
        EXPECT_FALSE(echo.CompareWithInternalData(i, (i + 1) % 4));
    }
    data[2] = 0.0;
    *echo.AllocStringData(2, 2) = TCString("t\0", 2);
    echo.AllocIntMatrix(3, 3, 2);
    echo.AllocIntData(1, 1);
    for (unsigned i = 0; i < 4; ++i) EXPECT_FALSE(echo.CompareWithInternalData(i, i)) << i;
}

TEST(TCPortHelperValues, PolymorphicDataFollowThePort) {
    const int ints[] = {1, 2, 3, 4, 5, 6};
    const double doubles[] = {1, 2, 3, 4, 5, 6};
    const TCString texts[] = {"1", "2", "3", "4", "5", "6"};
    int intsRead[6] = {};
    double doublesRead[6] = {};
    TCString textsRead[6];
    using Row = std::tuple<Helper::TYPE, const void*, void*, int>;
    for (const auto& [port, values, buffer, cols] : {Row(Helper::TYPE_SWORDMATRIX, ints, intsRead, 3),
                                                     Row(Helper::TYPE_DOUBLEMATRIX, doubles, doublesRead, 2),
                                                     Row(Helper::TYPE_TEXTARRAY, texts, textsRead, 0),
                                                     Row(Helper::TYPE_SWORDARRAY, ints, intsRead, 0)}) {
        Line line(port);
        int columns = 9;
        unsigned long count = 6;
        EXPECT_TRUE(All(0, {line.reader.ReadPolymorphicData(0, count, buffer, &columns),
                            line.writer.WritePolymorphicData(0, 6, values, cols),
                            line.writer.WritePolymorphicData(0, 0, values, 1)}));
        EXPECT_EQ(line.reader.ReadPolymorphicData(0, count, buffer, &columns), 1);
        EXPECT_EQ(std::tuple(count, columns), std::tuple(6ul, cols));
    }
    EXPECT_EQ(std::tuple(intsRead[5], doublesRead[5], textsRead[5]), std::tuple(6, 6.0, TCString("6")));
    Line matrix(Helper::TYPE_SWORDMATRIX);
    unsigned long count = 5;
    for (const int wrong : {4, 0, -3})
        EXPECT_EQ(matrix.writer.WritePolymorphicData(0, 6, ints, wrong), -14) << "no rows of " << wrong;
    matrix.writer.WritePolymorphicData(0, 6, ints, 3);
    EXPECT_EQ(matrix.reader.ReadPolymorphicData(0, count, intsRead, nullptr), -14) << "no room";
    count = 6;
    EXPECT_EQ(matrix.reader.ReadPolymorphicData(0, count, intsRead, nullptr), 1) << "nothing was lost";
}

TEST(TCPortHelperValues, SteadyFlowAllocatesNothing) {
    Line line;
    TCPortHelper stage(nullptr);
    stage.SetPort(INPUT, 0, "In", SIGNAL);
    stage.SetPort(OUTPUT, 0, "Out", SIGNAL);
    stage.UseTypeInfoFromInput(0, 0);
    Line last;
    line.writer.AddOutputStream(0, stage.SetInputStream(0, 0, 3));
    stage.AddOutputStream(0, last.reader.SetInputStream(0, 0, 3));
    line.writer.UseAutoTypeInfo(0, true, true, false, false, false, false);
    line.writer.SetTI_SignalName(0, "A name too long for the small buffer of a string");
    std::vector<double> data(1024, 1.0);
    const auto pass = [&] {
        unsigned long count = data.size();
        int taken = 0;
        line.writer.WriteDblData(0, count, data.data());
        line.reader.ReadDblData(0, count, data.data());
        stage.TakeBlock(0);
        const double* values = stage.AccessDblData(0, taken);
        stage.WriteDblData(0, static_cast<unsigned long>(taken), values);
        return last.reader.TakeBlock(0);
    };
    for (int i = 0; i < 3; ++i) ASSERT_EQ(pass(), 1);
    const int before = allocations::Count();
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(pass(), 1);
    EXPECT_EQ(allocations::Count() - before, 0);
}
