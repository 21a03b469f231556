#include <gtest/gtest.h>

#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {

using Helper = TCBusSerializeHelper;

TEST(TCBusSerializeHelper, GeneratesNames) {
    EXPECT_EQ(Helper::GenSegmentName(0x40, "INT", 9, 2, "Speed", ""), "2\r\nSpeed\r\n\r\nDT_00000040");
    EXPECT_EQ(Helper::GenSegmentName(0, "DOUBLE[]", 1, 0, "x", "c"), "0\r\nx\r\nc\r\n1 DOUBLE[]");
    EXPECT_EQ(Helper::GenSegmentName(0x10000000, "INT", 3, -1, nullptr, "c"), "-1\r\n\r\nc\r\n3 INT");
    EXPECT_EQ(Helper::GenSegmentName(0xF4000020, "", 0, 0, "", ""), "0\r\n\r\n\r\nDT_f4000020");
}

TEST(TCBusSerializeHelper, ParsesNames) {
    Helper name;
    EXPECT_TRUE(name.ParseSegmentName("12x\r\nSpeed\r\n\r\n1 INT\r\nmore"));
    EXPECT_EQ(name.PortIdx(), 12);
    EXPECT_EQ(name.GetSegmentName(), "Speed");
    EXPECT_EQ(name.CompCheck(), "");
    EXPECT_EQ(name.GetValidation(), "1 INT");
    for (const char* other : {"", "plain", "1\r\nA\r\nB", "1\r\nA\r\nB\r\n", "1\nA\nB\nC"})
        EXPECT_FALSE(name.ParseSegmentName(other)) << other;
    EXPECT_FALSE(name.ParseSegmentName(nullptr));
    EXPECT_EQ(name.GetSegmentName(), "Speed");
    EXPECT_TRUE(name.ParseSegmentName("\r\n7\r\n\r\nx"));
    EXPECT_EQ(name.PortIdx(), 0);
}

TEST(TCBusSerializeHelper, OrdersNames) {
    const struct {
        const char* a;
        const char* b;
        int sign;
    } rows[] = {{"1\r\nA\r\nx\r\nDT_00000010", "1\r\nA\r\ny\r\nDT_00000040", 0},
                {"1\r\nA\r\nx\r\nDT_00000010", "2\r\nA\r\nx\r\nDT_00000010", -1},
                {"10\r\nA\r\nx\r\nT", "9\r\nA\r\nx\r\nT", 1},
                {" +3\r\nB\r\nx\r\nT", "3\r\nA\r\nx\r\nT", 1},
                {"-1\r\nA\r\nx\r\nT", "1\r\nA\r\nx\r\nT", -1},
                {"1\r\nA\r\nx\r\nT", "1\r\nAB\r\n\r\nT", -1},
                {"1\r\nA\r\nx", "1\r\nA\r\ny", -1},
                {"abc", "1\r\nA\r\nx\r\nT", 1},
                {"B", "a", -1},
                {"\xC3\xA4", "z", 1},
                {nullptr, "", 0}};
    for (const auto& row : rows) {
        const int result = Helper::CompareSegmentNames(row.a, row.b);
        EXPECT_EQ((result > 0) - (result < 0), row.sign) << row.b;
    }
}

}  // namespace
