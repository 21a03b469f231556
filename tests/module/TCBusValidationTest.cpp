#include <gtest/gtest.h>

#include "sigweave/module/TCBusValidation.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {

TEST(TCBusValidation, BothFormsAgreeWithPortTypes) {
    const struct {
        const char* validation;
        TCPortHelper::TYPE code;
        bool same;
    } rows[] = {
        {"DT_04000020", 0x04000020, true},
        {"DT_04000020", 0x40, true},
        {"DT_04000020", 0x10, false},
        {"DT_14000080", 0x80, true},
        {"1 DOUBLE[]{TIME_DOMAIN}", 0x40, true},
        {"2 TYPEINFO{TypeInfo} DOUBLE[1]{x}", 0x04000040, true},
        {"1 POINTER{Image}", 0x10000080, false},
        {"DT_0400002", 0x20, false},
        {"", 0, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(TCBusValidation::SameDataType(row.validation, row.code), row.same) << row.validation;
}

TEST(TCBusValidation, ReadsBackWhatItWrites) {
    TCPortHelper::TYPE code = 7;
    TCString text = "kept";
    int count = 7;
    ASSERT_TRUE(TCBusValidation::DeSerializeValidation("DT_04000040", code, text, count));
    EXPECT_EQ(code, 0x04000040u);
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(text, "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}");

    EXPECT_STREQ(TCBusValidation::SerializeValidation(0x10000000, "POINTER{a b}", 1), "1 POINTER{a b}");
    ASSERT_TRUE(TCBusValidation::DeSerializeValidation("1 POINTER{a b}", code, text, count));
    EXPECT_EQ(code, 0x10000000u);
    EXPECT_STREQ(text, "POINTER{a b}");
    ASSERT_TRUE(TCBusValidation::DeSerializeValidation("0 ", code, text, count)) << "a type not yet adopted";
    EXPECT_EQ(code, 0x02000000u);
    for (const char* wrong : {"", "DT_", "DT_000000040", "1", "x DOUBLE", "1DOUBLE"}) {
        EXPECT_FALSE(TCBusValidation::DeSerializeValidation(wrong, code, text, count)) << wrong;
        EXPECT_STREQ(text, "");
    }
}

TEST(TCBusValidation, SegmentsBelongToTheOutputOfTheirNameAndType) {
    TCPortHelper helper(nullptr);
    const char* names[] = {"Speed", "Force", "Speed", "Speed"};
    for (unsigned i = 0; i < 4; ++i)
        helper.SetPort(OUTPUT, i, names[i], i == 0 ? "SWORD[]" : "DOUBLE[]", "", true);
    const auto find = [&](TCPortHelper::TYPE code, int port, const char* name) {
        return TCBusValidation::FindOutputPort(
            helper, TCBusSerializeHelper::GenSegmentName(code, "", 1, port, name, "check"));
    };
    EXPECT_EQ(find(0x20, 3, "Speed"), 3);
    EXPECT_EQ(find(0x20, 1, "Speed"), 2);
    EXPECT_EQ(find(0x04, 9, "Speed"), 0);
    EXPECT_EQ(find(0x100, 0, "Speed"), -1);
    EXPECT_EQ(TCBusValidation::FindOutputPort(helper, "Speed"), -1);
}

}  // namespace
