#include <gtest/gtest.h>

#include <cmath>

#include "sigweave/signal/TCSI_Convert.h"
#include "sigweave/signal/TCSI_Unit.h"

namespace {

TCSI_Unit Unit(std::initializer_list<int> exponents, double factor = 1.0) {
    TCSI_Unit unit;
    int i = 0;
    for (const int exponent : exponents) unit.SetExponent(i++, exponent);
    unit.SetFactor(factor);
    return unit;
}

std::string Text(const TCSI_Unit& unit) {
    TCString text;
    return unit.ToString(text);
}

struct Row {
    const char* text;
    const char* unit;
};

TEST(TCSI_Unit, ReadsUnitTexts) {
    const Row rows[] = {{"m s^-2", "m s^-2"},
                        {"Gy", "m s^-2"},
                        {" kg\tm^ 2  s^-3 ", "W"},
                        {"lm", "cd"},
                        {"m^10 m^-10", ""},
                        {"m * 1e-003", "m * 1e-003"},
                        {"*1e23", "1 * 1e+023"},
                        {"", ""},
                        {"V s A^-1 * 1e+006", "H * 1e+006"},
                        {"mol cd*x1e-5y", "mol cd * 1e-005"},
                        {"m * 1e", "m"}};
    for (const auto& row : rows) {
        TCSI_Unit unit = Unit({9, 9, 9}, 9);
        EXPECT_TRUE(unit.FromString(row.text)) << row.text;
        EXPECT_EQ(Text(unit), row.unit) << row.text;
    }
    struct : TCSI_Convert {
        using TCSI_Convert::String2Token;
    } words;
    EXPECT_TRUE(words.String2Token("") && words.String2Token("Ohm"));
    for (const char* none : {static_cast<const char*>(nullptr), "O", "Ohms"})
        EXPECT_FALSE(words.String2Token(none));
    TCSI_Unit volt;
    TCSI_Convert convert;
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(convert.scan("V", volt));
    EXPECT_EQ(volt, Unit({2, 1, -3, -1})) << "nothing is left of the text before";
    volt.FromString("V * 1e-003");
    EXPECT_EQ(volt, Unit({2, 1, -3, -1}, 0.001));
}

// A failing term adds nothing; the terms in front of it stay.
TEST(TCSI_Unit, RefusesOtherTexts) {
    const Row rows[] = {{"", ""},
                        {"Pa", ""},
                        {"m^11", ""},
                        {"s m^-11", "s"},
                        {"s m/s", "s"},
                        {"m ^2", "m"},
                        {"m^2s", ""},
                        {"m^", ""},
                        {"m^2-3", ""},
                        {"m^+2", ""},
                        {"m^99999999999", ""},
                        {"kg \xC2\xB5m", "kg"},
                        {"m s^-2 1", "m s^-2"}};
    for (const auto& row : rows) {
        TCSI_Unit unit = Unit({9, 9, 9}, 9);
        EXPECT_FALSE(TCSI_Convert().scan(row.text, unit)) << row.text;
        EXPECT_EQ(Text(unit), row.unit) << row.text;
    }
    TCSI_Unit unit;
    for (const char* text : {"m * 10", "m *", "1 * 1e+003", "Pa * 1e3"}) EXPECT_FALSE(unit.FromString(text));
}

TEST(TCSI_Unit, WritesUnits) {
    EXPECT_EQ(Text(Unit({})), "");
    EXPECT_EQ(Text(Unit({2, 0, -2})), "Gy");
    CString symbols;
    TCString sameSymbols;
    EXPECT_STREQ(Unit({2, 0, -2}, 10).GetString(symbols), "Gy") << "without the factor";
    EXPECT_STREQ(Unit({2, 0, -2}, 10).GetString(sameSymbols), "Gy");
    EXPECT_EQ(Text(Unit({0, 0, 0, 0, 0, 0, 1})), "cd");
    EXPECT_EQ(Text(Unit({0, 0, -1})), "Hz");
    EXPECT_EQ(Text(Unit({-1, 1, -2})), "P");
    EXPECT_EQ(Text(Unit({1, 0, 0, 0, 0, 2, -3})), "m mol^2 cd^-3");
    EXPECT_EQ(Text(Unit({}, 1000)), "1 * 1e+003");
    EXPECT_EQ(Text(Unit({1}, 0.0254)), "m * 1e-001");
    EXPECT_EQ(Text(Unit({1}, 0)), "m * 1e+000");
    EXPECT_EQ(Text(Unit({1}, std::nan(""))), "m * 1e+000");
}

TEST(TCSI_Unit, MultipliesAndDivides) {
    TCSI_Unit work;
    work.FromString("N");
    const TCSI_Unit way = Unit({1}, 0.001);
    work.multiply(way);
    EXPECT_EQ(Text(work), "J * 1e-003");
    work.divide(way);
    EXPECT_EQ(Text(work), "N");
    EXPECT_NE(work, Unit({1, 1, -2}, 1.0000000001));
    TCSI_Unit steep = Unit({127});
    steep.multiply(Unit({1}));
    EXPECT_EQ(steep, Unit({-128}));
}

}  // namespace
