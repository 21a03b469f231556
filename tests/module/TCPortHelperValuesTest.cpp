#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "tests/module/PortBench.h"
#include "tests/signal/Allocations.h"

using namespace bench;
using Helper = TCPortHelper;

namespace {

int Write(Line& line, const std::vector<double>& values) {
    return line.writer.WriteDblData(0, values.size(), values.data());
}

}  // namespace

TEST(TCPortHelperValues, TheNewestValuesWin) {
    Line line;
    EXPECT_EQ(Write(line, {1, 2, 3, 4, 5}), 0);
    EXPECT_EQ(Write(line, {}), 0) << "no block";
    double buffer[8];
    unsigned long count = 3;
    EXPECT_EQ(line.reader.ReadDblData(0, count, buffer), 1);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(buffer[0], 3.0);
    EXPECT_EQ(line.reader.ReadDblData(0, count, buffer), 0);
    Line single(Helper::TYPE_DOUBLE1);
    TCArray<double, double> last;
    EXPECT_EQ(Write(single, {1, 2, 3}), 0);
    EXPECT_EQ(single.reader.ReadDblArray(0, last), 1);
    EXPECT_EQ(last.GetSize(), 1);
    EXPECT_EQ(last[0], 3.0);
}

TEST(TCPortHelperValues, LastValueOfOneBlockOrOfAll) {
    Line line(Helper::TYPE_DOUBLEARRAY);
    double value = 0.0;
    EXPECT_EQ(line.reader.ReadDblLastVal(0, value, true), 0);
    for (const double last : {2.0, 4.0, 6.0}) Write(line, {last - 1, last});
    for (const bool all : {false, true}) {
        EXPECT_EQ(line.reader.ReadDblLastVal(0, value, all), 1);
        EXPECT_EQ(value, all ? 6.0 : 2.0);
        EXPECT_EQ(line.reader.BlocksOnStream(INPUT, 0), all ? 0 : 2);
    }
}

TEST(TCPortHelperValues, IntsAndTextsTravelLikeDoubles) {
    Line ints(Helper::TYPE_SWORDARRAY);
    Line texts(Helper::TYPE_TEXTARRAY);
    TCArray<int, int> numbers;
    EXPECT_EQ(ints.writer.WriteIntVal(0, 7), 0);
    EXPECT_EQ(ints.reader.ReadIntArray(0, numbers), 1);
    EXPECT_EQ(numbers[0], 7);
    const CStringArray sent{"one", {"t\0o", 3}};
    TCArray<TCString, const TCString&> received;
    CString last;
    EXPECT_EQ(texts.writer.WriteCStringArray(0, sent), 0);
    EXPECT_EQ(texts.reader.ReadStringArray(0, received), 1);
    EXPECT_EQ(texts.writer.WriteStringArray(0, received), 0);
    EXPECT_EQ(texts.reader.ReadCStringLastVal(0, last, false), 1);
    EXPECT_EQ(last, sent[1]);
}

TEST(TCPortHelperValues, NothingHappensWherePortOrReceiverIsMissing) {
    Line texts(Helper::TYPE_TEXT);
    TCPortHelper alone(nullptr);
    alone.SetPort(OUTPUT, 0, "Out", SIGNAL);
    double value = 0.0;
    EXPECT_EQ(alone.WriteDblVal(0, 1.0) + alone.WriteDblVal(5, 1.0) + texts.writer.WriteDblVal(0, 1.0), 0);
    texts.writer.WriteStringVal(0, "text");
    EXPECT_EQ(texts.reader.ReadDblLastVal(0, value, true) + texts.reader.ReadDblLastVal(5, value, true), 0);
    EXPECT_EQ(alone.GetErrorRecord().code + texts.reader.GetErrorRecord().code, 0);
}

TEST(TCPortHelperValues, ImpossibleCountsLoseNothing) {
    Line line;
    double buffer = 1.0;
    unsigned long count = 0x80000000ul;
    EXPECT_EQ(line.writer.WriteDblData(0, count, &buffer), -14);
    EXPECT_EQ(Write(line, {2}), 0);
    EXPECT_EQ(line.reader.ReadDblData(0, count, &buffer), -14);
    count = 1;
    EXPECT_EQ(line.reader.ReadDblData(0, count, nullptr), 0);
    if (!allocations::AreSeen()) return;
    TCArray<double, double> values;
    allocations::FailAfter(0);
    const int withoutMemory = line.reader.ReadDblArray(0, values);
    allocations::FailAfter(-1);
    EXPECT_EQ(withoutMemory, -14);
    EXPECT_EQ(line.reader.ReadDblData(0, count, &buffer), 1);
    EXPECT_EQ(buffer, 2.0);
}

TEST(TCPortHelperValues, BlockOfAnotherTypeIsAnError) {
    TCPortHelper writer(nullptr);
    TCPortHelper reader(nullptr);
    writer.SetPort(OUTPUT, 0, "Ints", Helper::TYPE_SWORDARRAY);
    reader.SetPort(INPUT, 0, "Doubles", SIGNAL);
    Wire(writer, 0, reader, 0);
    double value = 7.0;
    unsigned long count = 1;
    for (int i = 0; i < 2; ++i) writer.WriteIntVal(0, 1);
    EXPECT_EQ(reader.ReadDblData(0, count, &value), -2);
    EXPECT_EQ(reader.ReadDblLastVal(0, value, true), -2);
    EXPECT_EQ(value, 7.0);
    EXPECT_STREQ(reader.GetErrorText(),
                 "Input \"Doubles\": Block data does not match datatype of input port (-2)");
}

TEST(TCPortHelperValues, MatricesAndPointersAreNotCopiedUnlessInternal) {
    Line matrix(Helper::TYPE_POINTER | Helper::TYPE_DOUBLEMATRIX);
    Line pointer(Helper::TYPE_POINTER);
    const double values[] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(matrix.writer.WriteDblMatrix(0, 2, 3, values), 0);
    EXPECT_EQ(matrix.writer.WriteDblMatrix(0, 1 << 20, 1 << 20, values), -14);
    double* own = matrix.writer.AllocDblMatrix(0, 1, 1);
    *own = 7.0;
    EXPECT_EQ(matrix.writer.WriteInternalData(0), 0);
    *own = 8.0;
    const double* seen = nullptr;
    int rows = 0, cols = 0;
    EXPECT_EQ(matrix.reader.ReadDblMatrix(0, &seen, rows, cols), 1);
    EXPECT_EQ(seen, values);
    EXPECT_EQ(rows * 10 + cols, 23);
    EXPECT_EQ(matrix.reader.ReadDblMatrix(0, &seen, rows, cols), 1);
    EXPECT_EQ(*seen, 7.0);
    void* address = nullptr;
    EXPECT_EQ(pointer.writer.WritePtr(0, values, 6), 0);
    EXPECT_EQ(pointer.reader.ReadPtr(0, &address, nullptr), 1);
    EXPECT_EQ(address, values);
}

TEST(TCPortHelperValues, InternalDataAreWrittenAndCompared) {
    // A module whose output is wired to its own input.
    TCPortHelper echo(nullptr);
    echo.SetPort(INPUT, 0, "In", SIGNAL);
    echo.SetPort(OUTPUT, 0, "Out", SIGNAL);
    Wire(echo, 0, echo, 0);
    double* data = echo.AllocDblData(0, 3);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(echo.AllocDblData(0, 3), data) << "reused while the count stays";
    EXPECT_EQ(echo.AllocIntData(0, 3), nullptr);
    std::iota(data, data + 3, 1.0);
    EXPECT_FALSE(echo.CompareWithInternalData(0, 0));
    EXPECT_EQ(echo.WriteInternalData(0), 0);
    EXPECT_EQ(echo.ReadInternalData(0), 1);
    EXPECT_TRUE(echo.CompareWithInternalData(0, 0));
    data[2] = 0.0;
    EXPECT_FALSE(echo.CompareWithInternalData(0, 0));
}

TEST(TCPortHelperValues, PolymorphicDataFollowThePort) {
    Line matrix(Helper::TYPE_POINTER | Helper::TYPE_SWORDMATRIX);
    const int values[] = {1, 2, 3, 4, 5, 6};
    int buffer[6] = {};
    int columns = 9;
    unsigned long count = 5;
    EXPECT_EQ(matrix.writer.WritePolymorphicData(0, 6, values, 4), -14) << "6 values are no rows of 4";
    EXPECT_EQ(matrix.writer.WritePolymorphicData(0, 6, values, 3), 0);
    EXPECT_EQ(matrix.reader.ReadPolymorphicData(0, count, buffer, &columns), -14)
        << "no room, nothing is lost";
    count = 6;
    EXPECT_EQ(matrix.reader.ReadPolymorphicData(0, count, buffer, &columns), 1);
    EXPECT_EQ(columns, 3);
    EXPECT_EQ(buffer[5], 6);
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
