#include <gtest/gtest.h>

#include <cmath>

#include "sigweave/signal/TCSI_Convert.h"
#include "sigweave/signal/TCSI_Unit.h"

namespace {

using Exponents = std::array<int, 7>;

Exponents ExponentsOf(const TCSI_Unit& unit) {
    Exponents exponents;
    for (int i = 0; i < 7; ++i) exponents[static_cast<std::size_t>(i)] = unit.GetExponent(i);
    return exponents;
}

TCSI_Unit Unit(const Exponents& exponents, double factor = 1.0) {
    TCSI_Unit unit;
    for (int i = 0; i < 7; ++i) unit.SetExponent(i, exponents[static_cast<std::size_t>(i)]);
    unit.SetFactor(factor);
    return unit;
}

std::string Text(const TCSI_Unit& unit) {
    TCString text;
    return unit.ToString(text);
}

TEST(TCSI_Unit, ReadsUnitTexts) {
    const struct {
        const char* text;
        Exponents exponents;
        double factor;
    } rows[] = {
        {"m s^-2", {1, 0, -2}, 1},
        {"V", {2, 1, -3, -1}, 1},
        {"Gy", {1, 0, -2}, 1},
        {" kg\tm^ 2  s^-3 ", {2, 1, -3}, 1},
        {"P", {-1, 1, -2}, 1},
        {"lm", {0, 0, 0, 0, 0, 0, 1}, 1},
        {"m^10 m^-10", {}, 1},
        {"m * 1e-003", {1}, 1e-3},
        {"*1e23", {}, 1e23},
        {"Ohm * 1e+006", {2, 1, -3, -2}, 1e6},
        {"", {}, 1},
        {"m^0", {}, 1},
        {"mol cd*x1e-5y", {0, 0, 0, 0, 0, 1, 1}, 1e-5},
    };
    for (const auto& row : rows) {
        TCSI_Unit unit = Unit({9, 9, 9}, 9);
        EXPECT_TRUE(unit.FromString(row.text)) << row.text;
        EXPECT_EQ(unit, Unit(row.exponents, row.factor)) << row.text;
    }
}

// A failing term adds nothing; the terms in front of it stay.
TEST(TCSI_Unit, RefusesOtherTexts) {
    const struct {
        const char* text;
        Exponents left;
    } rows[] = {
        {"", {}},
        {"Pa", {}},
        {"v", {}},
        {"m^11", {}},
        {"s m^-11", {0, 0, 1}},
        {"m/s", {}},
        {"s m/s", {0, 0, 1}},
        {"m ^2", {1}},
        {"m^2s", {}},
        {"m^", {}},
        {"m^-", {}},
        {"m^--2", {}},
        {"m^2-3", {}},
        {"m^+2", {}},
        {"m^99999999999", {}},
        {"kg \xC2\xB5m", {0, 1}},
        {"molmolmol", {}},
        {"^2", {}},
        {"m s^-2 1", {1, 0, -2}},
    };
    for (const auto& row : rows) {
        TCSI_Unit unit = Unit({9, 9, 9}, 9);
        EXPECT_FALSE(TCSI_Convert().scan(row.text, unit)) << row.text;
        EXPECT_EQ(unit, Unit(row.left)) << row.text;
    }
    TCSI_Unit unit;
    for (const char* text : {"m * 10", "m *", "1 * 1e+003", "Pa * 1e3"}) EXPECT_FALSE(unit.FromString(text));
}

TEST(TCSI_Unit, WritesUnits) {
    const struct {
        TCSI_Unit unit;
        const char* text;
    } rows[] = {
        {Unit({}), ""},
        {Unit({1, 0, -2}), "m s^-2"},
        {Unit({2, 0, -2}), "Gy"},
        {Unit({0, 0, 0, 0, 0, 0, 1}), "cd"},
        {Unit({0, 0, -1}), "Hz"},
        {Unit({-1, 1, -2}), "P"},
        {Unit({1, 0, 0, 0, 0, 2, -3}), "m mol^2 cd^-3"},
        {Unit({1}, 1e-3), "m * 1e-003"},
        {Unit({}, 1000), "1 * 1e+003"},
        {Unit({}, 1e23), "1 * 1e+023"},
        {Unit({1}, 0.0254), "m * 1e-001"},
        {Unit({1}, 0), "m * 1e+000"},
        {Unit({1}, std::nan("")), "m * 1e+000"},
    };
    for (const auto& row : rows) EXPECT_EQ(Text(row.unit), row.text);
}

TEST(TCSI_Unit, MultipliesAndDivides) {
    TCSI_Unit work;
    work.FromString("N");
    TCSI_Unit way;
    way.FromString("m * 1e-003");
    work.multiply(way);
    EXPECT_EQ(Text(work), "J * 1e-003");
    work.divide(way);
    EXPECT_EQ(Text(work), "N");
    EXPECT_NE(work, Unit({1, 1, -2}, 1.0000000001));
    TCSI_Unit steep = Unit({127});
    steep.multiply(Unit({1}));
    EXPECT_EQ(ExponentsOf(steep), (Exponents{-128}));
}

}  // namespace
