#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCList.h"
#include "sigweave/foundation/TCString.h"

namespace {

// Counts the living objects, so that a leak or a second destruction shows.
struct Counted {
    static inline int living = 0;
    int value = 7;
    Counted() { ++living; }
    Counted(const Counted& other) : value(other.value) { ++living; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --living; }
};

TEST(TCArray, LayoutIsTableStorageAndThreeNumbers) {
    TCArray<double, double> array;
    array.SetSize(3, 5);
    array.SetSize(2);
    struct {
        void* table;
        double* data;
        std::int32_t size, maxSize, growBy;
    } fields;
    std::memcpy(&fields, static_cast<const void*>(&array), sizeof fields);
    EXPECT_EQ(array.GetData(), fields.data);
    EXPECT_EQ(2, fields.size);
    EXPECT_EQ(3, fields.maxSize);
    EXPECT_EQ(5, fields.growBy);
}

TEST(TCArray, GrowthStepFollowsTheSize) {
    const struct {
        int size, step;
    } rows[] = {{0, 4},       {31, 4},      {32, 4},      {39, 4},      {40, 5},
                {8191, 1023}, {8192, 1024}, {8200, 1024}, {90000, 1024}};
    for (const auto& row : rows) {
        TCArray<char> array;
        if (row.size > 0) array.SetSize(row.size);
        EXPECT_EQ(row.step, array.GetGrowBy()) << row.size;
        array.SetSize(-1, 9);
        EXPECT_EQ(9, array.GetGrowBy());
    }
}

// Each row resizes the same array once more.
TEST(TCArray, ResizingTakesTheStorageItNeeds) {
    const struct {
        int newSize, newGrowBy, size, maxSize;
    } rows[] = {
        {10, -1, 10, 10},    // the first storage is exact
        {3, -1, 3, 10},      // less only lowers the size
        {10, -1, 10, 10},    //
        {11, -1, 11, 14},    // one step more
        {40, -1, 40, 40},    // a step is not enough
        {41, 100, 41, 140},  // the new step counts at once
        {-1, -1, 0, 140},    // emptied, storage kept
        {0, -1, 0, 0},       // released
        {2, -1, 2, 2},       //
        {3, -1, 3, 102},     // and the step is remembered
    };
    TCArray<int, int> array;
    for (const auto& row : rows) {
        for (int& element : array) element = 99;
        const int before = array.GetSize();
        array.SetSize(row.newSize, row.newGrowBy);
        ASSERT_EQ(row.size, array.GetSize());
        ASSERT_EQ(row.maxSize, array.GetAllocSize());
        for (int i = 0; i < array.GetSize(); ++i)
            ASSERT_EQ(i < before ? 99 : 0, array[i]) << "new size " << row.newSize;
    }
}

TEST(TCArray, ElementsOfClassTypeLiveAsLongAsTheyAreInUse) {
    {
        TCArray<Counted> array;
        array.SetSize(5);
        EXPECT_EQ(5, Counted::living);
        array[0].value = array[4].value = 1;
        array.SetSize(4);
        array.SetSize(6);
        EXPECT_EQ(1, array[0].value);
        EXPECT_EQ(7, array[4].value) << "a value that left the array does not come back";
        TCArray<Counted> copy = array, moved = std::move(copy);
        EXPECT_EQ(12, Counted::living);
        moved.RemoveAt(1, 2);
        moved.RemoveAll();
        EXPECT_EQ(6, Counted::living);
    }
    EXPECT_EQ(0, Counted::living);
}

TEST(TCArray, TextsSurviveGrowthAndSelfReference) {
    TCArray<TCString> array;
    for (int i = 0; i < 100; ++i) EXPECT_EQ(i, array.Add(i == 0 ? TCString("first") : array[0]));
    array[50] = "fifty";
    array.RemoveAt(1, 48);
    EXPECT_EQ(52, array.GetSize());
    EXPECT_EQ(array[0], "first");
    EXPECT_EQ(array[2], "fifty");
    TCArray<TCString> copy;
    copy = array;
    array[2] = "other";
    EXPECT_EQ(copy[2], "fifty");
}

TEST(TCList, KeepsTheOrderWhileItGrowsAroundItsEnd) {
    TCList<int> list;
    int added = 0, removed = 0;
    for (int round = 0; round < 50; ++round) {
        for (int i = 0; i < 7; ++i) list.AddTail(added++);
        for (int i = 0; i < 5; ++i) ASSERT_EQ(removed++, list.RemoveHead());
        ASSERT_EQ(added - removed, list.GetCount());
        for (int i = 0; i < list.GetCount(); ++i) ASSERT_EQ(removed + i, list[i]);
    }
    EXPECT_EQ(--added, list.RemoveTail());
    list.RemoveAll();
    list.AddTail(1);
    EXPECT_EQ(1, list.RemoveHead());
    EXPECT_TRUE(list.IsEmpty());
}

}  // namespace
