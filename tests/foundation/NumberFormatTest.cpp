#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include "sigweave/foundation/NumberFormat.h"

namespace {

struct Row {
    const char* text;
    double value;
    StringFormat format;
    int digits;
    int width = 0;
    const char* suffix = nullptr;
    bool comma = false;
};

std::string Text(const Row& row) {
    char buffer[512];
    const int length = ftoa(row.value, buffer, row.format, row.comma, row.suffix, row.width, row.digits);
    EXPECT_EQ(length, static_cast<int>(std::string(buffer).size()));
    return buffer;
}

constexpr double INF = std::numeric_limits<double>::infinity();

const Row ROWS[] = {
    {"3.142", 3.14159, FORMAT_FIXED, 3},
    {"3,142", 3.14159, FORMAT_FIXED, 3, 0, nullptr, true},
    {"-1", -0.5, FORMAT_FIXED, 0},
    {"0.000000", 0.0, FORMAT_FIXED, 6},
    {"-0.00", -0.001, FORMAT_FIXED, 2},
    {"1300", 1250, FORMAT_FIXED, -2},
    {"1.50000000000000000000", 1.5, FORMAT_FIXED, 20},
    {"100000000000000000000.00", 1e20, FORMAT_FIXED, 2},
    {"0.000000000000000000000000012", 1.2e-26, FORMAT_FIXED, 27},
    {"     1.5V", 1.5, FORMAT_FIXED, 1, 8, "V"},
    {"1.0e+001", 9.96, FORMAT_EXPONENTIAL, 1},
    {"-2.50e-005 A", -2.5e-5, FORMAT_EXPONENTIAL, 2, 0, " A"},
    {"  1.5e+123", 1.5e123, FORMAT_EXPONENTIAL, 1, 10},
    {"1.5e+123", 1.5e123, FORMAT_EXPONENTIAL, 1, std::numeric_limits<int>::min()},
    {"0.000125", 0.000125, FORMAT_SIGNIFICANT, std::numeric_limits<int>::max()},
    {"0.00e+000", 0.0, FORMAT_EXPONENTIAL, 2},
    {"4.9e-324", 5e-324, FORMAT_EXPONENTIAL, 1},
    {"1.7977e+308", std::numeric_limits<double>::max(), FORMAT_EXPONENTIAL, 4},
    {"1.2e+003", 1234, FORMAT_SIGNIFICANT, 2},
    {"0.00012", 0.000123, FORMAT_SIGNIFICANT, 2},
    {"1.23e-005", 0.0000123, FORMAT_SIGNIFICANT, 3},
    {"100", 100, FORMAT_SIGNIFICANT, 3},
    {"5", 5, FORMAT_SIGNIFICANT, 0},
    {"0", 0, FORMAT_SIGNIFICANT, 5},
    {"2.5", 2.5, FORMAT_AUTOMATIC, 0},
    {"3.333333333", 10.0 / 3, FORMAT_AUTOMATIC, 0},
    {"1e+012", 1e12, FORMAT_AUTOMATIC, 0},
    {"-3.33333e+011", -1e12 / 3, FORMAT_AUTOMATIC, 0},
    {"inf", INF, FORMAT_FIXED, 2, 9, "V"},
    {"nan", std::nan(""), FORMAT_SIGNIFICANT, 2},
};

TEST(NumberFormat, WritesTheFourStyles) {
    for (const Row& row : ROWS) EXPECT_EQ(Text(row), row.text);
}

// Ten digits leave the scaled value far from the halves that the two round differently.
TEST(NumberFormat, AgreesWithPrintfOnRandomValues) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> mantissa(-10, 10);
    std::uniform_int_distribution<int> exponents(-90, 90);
    for (int i = 0; i < 20000; ++i) {
        const double value = mantissa(random) * std::pow(10.0, exponents(random));
        char expected[64];
        std::snprintf(expected, sizeof expected, "%.9e", value);
        std::string text = Text({"", value, FORMAT_EXPONENTIAL, 9});
        text.erase(text.size() - 3, 1);
        ASSERT_EQ(text, expected);
        std::snprintf(expected, sizeof expected, "%.6f", mantissa(random));
        ASSERT_EQ(Text({"", std::strtod(expected, nullptr), FORMAT_FIXED, 6}), expected);
    }
}

TEST(NumberFormat, RoundsToPowersOfTen) {
    EXPECT_EQ(Round(-2.5), -3);
    EXPECT_EQ(Round(1e300), std::numeric_limits<int>::max());
    EXPECT_EQ(Round(std::nan("")), 0);
    EXPECT_EQ(Round(1250.0, -2), 1300);
    EXPECT_EQ(Round(-2.345, 2), -2.35);
    EXPECT_EQ(Round0(-1.25, 1), -1.3);
    EXPECT_EQ(Round1(-1.25, 1), -1.2);
}

TEST(NumberFormat, ScalesThroughTheWholeRange) {
    EXPECT_EQ(ExpMul(1.5, 3), 1500);
    EXPECT_DOUBLE_EQ(ExpMul(1e300, -600), 1e-300);
    EXPECT_DOUBLE_EQ(ExpDiv(1e300, 600), 1e-300);
    EXPECT_EQ(ExpMul(1, std::numeric_limits<int>::max()), INF);
    EXPECT_EQ(ExpMul(1, std::numeric_limits<int>::min()), 0);
}

// The exponent of a text is that of the greatest power of ten, as strtod reads it, which is not above the
// value.
TEST(NumberFormat, KnowsEveryPowerOfTen) {
    const auto read = [](const std::string& mantissa, int power) {
        return std::strtod((mantissa + "e" + std::to_string(power)).c_str(), nullptr);
    };
    for (int power = -323; power <= 308; ++power) {
        if (power >= -307) {
            EXPECT_EQ(ExpMul(1, power), read("1", power));
        }
        for (const char* mantissa : {"1", "5"}) {
            const double value = read(mantissa, power);
            int expected = power;
            while (read("1", expected) > value) --expected;
            while (expected < 308 && read("1", expected + 1) <= value) ++expected;
            const std::string text = Text({"", value, FORMAT_EXPONENTIAL, 3});
            if (std::isfinite(value)) {
                EXPECT_EQ(std::stoi(text.substr(text.find('e') + 1)), expected) << text;
            }
        }
    }
}

TEST(NumberFormat, ShortestTextsReadTheSame) {
    const std::pair<double, const char*> rows[] = {{0, "0"},
                                                   {-0.0, "-0"},
                                                   {0.1, "0.1"},
                                                   {1e-5, "0.00001"},
                                                   {9e-6, "9e-06"},
                                                   {1500000, "1500000"},
                                                   {-1e15, "-1000000000000000"},
                                                   {1e16, "1e+16"},
                                                   {1.0 / 3, "0.3333333333333333"},
                                                   {-INF, "-inf"},
                                                   {-std::nan(""), "nan"},
                                                   {-2.2250738585072014e-308, "-2.2250738585072014e-308"}};
    for (const auto& [value, text] : rows) EXPECT_EQ(tc::ShortestText(value), text);
}

TEST(NumberFormat, GivesIntegersAndBooleansAsText) {
    EXPECT_STREQ(ToString(-17), "-17");
    EXPECT_STREQ(ToString(true), "true");
    const char* first = ToStaticString(1);
    EXPECT_EQ(ToStaticString(std::numeric_limits<int>::min()), first);
    EXPECT_STREQ(first, "-2147483648");
}

}  // namespace
