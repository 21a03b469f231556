#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "sigweave/foundation/HexDouble.h"

namespace {

std::string Written(double value) {
    char text[25];
    return DoubleToHexString(text, sizeof text, value);
}

std::uint64_t Bits(double value) {
    return std::bit_cast<std::uint64_t>(value);
}

TEST(HexDouble, WritesTheFixedForm) {
    EXPECT_EQ("0x1.0000000000000p+0", Written(1.0));
    EXPECT_EQ("-0x1.4000000000000p+1", Written(-2.5));
    EXPECT_EQ("0x0.0000000000000p+0", Written(0.0));
    EXPECT_EQ("-0x0.0000000000000p+0", Written(-0.0));
    EXPECT_EQ("-0x0.0000000000001p-1022", Written(-5e-324));
    EXPECT_EQ("-1.#IND", Written(std::numeric_limits<double>::infinity()));
    EXPECT_EQ("-1.#IND", Written(std::nan("")));
    char text[25] = "x";
    EXPECT_STREQ("", DoubleToHexString(text, 24, 1.0));
}

TEST(HexDouble, EveryBitPatternComesBack) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 100000; ++i) {
        const std::uint64_t subnormals = i % 4 == 0 ? 0x800FFFFFFFFFFFFF : ~std::uint64_t{0};
        const double value = std::bit_cast<double>(random() & subnormals);
        if (!std::isfinite(value)) continue;
        const std::string text = Written(value) + ";";
        char* end = nullptr;
        ASSERT_EQ(Bits(value), Bits(HexString2Double(text.c_str(), &end))) << text;
        ASSERT_EQ(';', *end);
        char printed[32];
        std::snprintf(printed, sizeof printed, "%.13a;", value);
        ASSERT_TRUE(!std::isnormal(value) || printed == text) << printed << text;
    }
}

TEST(HexDouble, LongTextsAreReadToTheFirstOtherForm) {
    std::mt19937_64 random(1);
    std::vector<double> values(2000), read(values.size() + 1);
    std::string text;
    for (double& value : values) {
        do value = std::bit_cast<double>(random() & ~(random() % 2 << 62));
        while (!std::isnormal(value));
        text += Written(value) + " ";
    }
    const int count = static_cast<int>(values.size());
    const std::string end(24, ' ');
    for (const char* other :
         {"", "0x0.0000000000000p+0 ", "-0x1.000000000000Ap+0 ", "0x1.0000000000000q+0 ",
          "0x1.0000000000000p+1024 ", "0x1.0000000000000p-1023 ", "0x1.0000000000000p0 ",
          "0x1.0000000000000p+ ", "0x1.0000000000000p+0;", "0x1.000000000000gp+0 ", "1 "}) {
        const std::string whole = text + other + end;
        const char* p = whole.c_str();
        EXPECT_EQ(tc::ReadWrittenDoubles(p, p + whole.size(), read.data(), count + (*other != '\0')), count)
            << other;
        EXPECT_EQ(p, whole.c_str() + text.size());
        EXPECT_TRUE(std::equal(values.begin(), values.end(), read.begin()));
    }
    const char* p = text.c_str();
    EXPECT_EQ(tc::ReadWrittenDoubles(p, p + text.size(), read.data(), 2), 2);
    EXPECT_EQ(tc::ReadWrittenDoubles(p, p + 24, read.data(), 2), 0) << "too near to the end";
}

TEST(HexDouble, ReadsLeniently) {
    const struct {
        const char* text;
        double value;
        std::ptrdiff_t length;
    } rows[] = {
        {"+0X1.8P+1", 3.0, 9},    {"0x1.p-1", 0.5, 7},
        {"0x1.z8p0", 1.03125, 8}, {"0x1.Ap 3x", 13.0, 8},
        {"0x1.8p", 1.5, 6},       {"0x0.8p+0", std::bit_cast<double>(std::uint64_t{1} << 51), 8},
        {"0x1.0p-1023", 0.0, 11}, {"0x1.0p+0000000003", 8.0, 17},
    };
    for (const auto& row : rows) {
        char* end = nullptr;
        EXPECT_EQ(row.value, HexString2Double(row.text, &end)) << row.text;
        EXPECT_EQ(row.length, end - row.text) << row.text;
    }
}

TEST(HexDouble, SyntaxErrorsAreNotANumberAndLeaveTheEnd) {
    char sentinel = 0;
    for (const char* text :
         {"", "-", "0", "0x", "0x2.0p+0", "0x1p+0", "0x1.", "0x1.8", "0x1.00000000000000p+0", "-1.#IND"}) {
        char* end = &sentinel;
        EXPECT_EQ(0xFFF8000000000000, Bits(HexString2Double(text, &end))) << text;
        EXPECT_EQ(&sentinel, end);
    }
    EXPECT_TRUE(std::isnan(HexString2Double(nullptr, nullptr)));
}

TEST(HexDouble, GeneralNumbersAreReadByTheirPrefix) {
    EXPECT_EQ(-3.0, StringToDouble("  -0x1.8p+1", nullptr));
    EXPECT_TRUE(std::isnan(StringToDouble("0x18", nullptr)));
    const char* text = "\t+1.5e1,5";
    char* end = nullptr;
    EXPECT_EQ(15.0, StringToDouble(text, &end));
    EXPECT_EQ(text + 7, end);
    for (const char* none : {"", "  ", " +", "\t.e5", " x"}) {
        EXPECT_EQ(0.0, StringToDouble(none, &end)) << none;
        EXPECT_EQ(none, end);
    }
}

TEST(HexDouble, IntegersHaveNoLeadingZeros) {
    char text[9];
    EXPECT_STREQ("0", itoh(text, 0));
    EXPECT_STREQ("10", itoh(text, 0x10));
    EXPECT_STREQ("ffffffff", itoh(text, 0xFFFFFFFF));
}

}  // namespace
