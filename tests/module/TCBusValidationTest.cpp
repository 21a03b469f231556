#include <gtest/gtest.h>

#include <tuple>

#include "sigweave/module/TCBusValidation.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {

TEST(TCBusValidation, BothFormsAgreeWithPortTypes) {
    const std::tuple<const char*, TCPortHelper::TYPE, bool> rows[] = {
        {"DT_04000020", 0x04000020, true},
        {"DT_04000020", 0x40, true},
        {"DT_04000020", 0x10, false},
        {"DT_04000002", 0x04, true},
        {"DT_00000100", 0x200, true},
        {"DT_00000100", 0x40, false},
        {"DT_10000000", 0x10000000, true},
        {"DT_10000000", 0x20000000, false},
        {"DT_14000080", 0x80, true},
        {"1 DOUBLE[]{TIME_DOMAIN}", 0x40, true},
        {"2 TYPEINFO{TypeInfo} DOUBLE[1]{x}", 0x04000040, true},
        {"1 POINTER{Image}", 0x10000080, false},
        {"DT_0400002", 0x20, false},
        {"", 0, false}};
    for (const auto& [validation, code, same] : rows)
        EXPECT_EQ(TCBusSerializeHelper::SameDataType(validation, code), same) << validation << " " << code;
    EXPECT_FALSE(TCBusSerializeHelper::SameDataType(nullptr, 0x40));
    EXPECT_EQ(TCBusSerializeHelper::GetDataType("DT_04000020"), 0x04000020u);
    EXPECT_EQ(TCBusSerializeHelper::GetDataType("1 DOUBLE[]{x}"), 0x40u);
    EXPECT_EQ(TCBusSerializeHelper::GetDataType(nullptr), 0u);
}

TEST(TCBusValidation, ReadsBackWhatItWrites) {
    TCPortHelper::TYPE code = 7;
    TCString text = "kept";
    int count = 7;
    ASSERT_TRUE(TCBusSerializeHelper::DeSerializeValidation("DT_04000040", code, text, count));
    EXPECT_EQ(code, 0x04000040u);
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(text, "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}");

    EXPECT_STREQ(TCBusSerializeHelper::SerializeValidation(0x10000000, "POINTER{a b}", 1), "1 POINTER{a b}");
    ASSERT_TRUE(TCBusSerializeHelper::DeSerializeValidation("1 POINTER{a b}", code, text, count));
    EXPECT_EQ(code, 0x10000000u);
    EXPECT_STREQ(text, "POINTER{a b}");
    ASSERT_TRUE(TCBusSerializeHelper::DeSerializeValidation("0 ", code, text, count))
        << "a type not yet adopted";
    EXPECT_EQ(code, 0x02000000u);
    for (const char* wrong : {"", "DT_", "DT_000000040", "1", "x DOUBLE", "1DOUBLE"}) {
        EXPECT_FALSE(TCBusSerializeHelper::DeSerializeValidation(wrong, code, text, count)) << wrong;
        EXPECT_STREQ(text, "");
    }
}

TEST(TCBusValidation, SegmentsBelongToTheOutputOfTheirNameAndType) {
    TCPortHelper helper(nullptr);
    const char* names[] = {"Speed", "Force", "Speed", "Speed"};
    for (unsigned i = 0; i < 4; ++i)
        helper.SetPort(OUTPUT, i, names[i], i == 0 ? "SWORD[]" : "DOUBLE[]", "", true);
    const auto find = [&](TCPortHelper::TYPE code, int port, const char* name) {
        return TCBusSerializeHelper::FindOutputPort(
            helper, TCBusSerializeHelper::GenSegmentName(code, "", 1, port, name, "check"));
    };
    EXPECT_EQ(find(0x20, 3, "Speed"), 3);
    EXPECT_EQ(find(0x20, 1, "Speed"), 2);
    EXPECT_EQ(find(0x04, 9, "Speed"), 0);
    EXPECT_EQ(find(0x100, 0, "Speed"), -1);
    EXPECT_EQ(TCBusSerializeHelper::FindOutputPort(helper, "Speed"), -1);

    // The same operations under their other name.
    EXPECT_STREQ(TCBusValidation::SerializeValidation(0x40, "", 1), "DT_00000040");
    EXPECT_EQ(TCBusValidation::GetDataType("DT_00000040"), 0x40u);
    for (const TCPortHelper::TYPE code : {0x40u, 0x4u})
        EXPECT_EQ(TCBusValidation::SameDataType("DT_00000040", code), code == 0x40);
    EXPECT_EQ(TCBusValidation::FindOutputPort(helper, "Speed"), -1);
}

}  // namespace
