#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sigweave/signal/TCSI_Convert.h"
#include "sigweave/signal/UnitText.h"

namespace {

using testing::HasSubstr;

// What texts mean: factors by definition of the units; the exponents as the strict text of stored units.
TEST(UnitText, ReadsWhatPeopleWrite) {
    const struct {
        const char* text;
        double factor;
        const char* strict;
        double offset = 0.0;
    } ROWS[] = {
        {"", 1, ""},
        {"m", 1, "m"},
        {"µm", 1e-6, "m"},
        {"\u03BCm", 1e-6, "m"},
        {"um", 1e-6, "m"},
        {"mm²", 1e-6, "m^2"},
        {"cm^3", 1e-6, "m^3"},
        {"ml", 1e-6, "m^3"},
        {"kg", 1, "kg"},
        {"g/cm^3", 1000, "m^-3 kg"},
        {"g_n", 9.80665, "m s^-2"},
        {"m/s2", 1, "m s^-2"},
        {"m s^-2", 1, "m s^-2"},
        {"m/s²", 1, "m s^-2"},
        {"m·s⁻²", 1, "m s^-2"},
        {"(m/s^2)^2/Hz", 1, "m^2 s^-3"},
        {"km/h", 1000.0 / 3600, "m s^-1"},
        {"min", 60, "s"},
        {"ms", 1e-3, "s"},
        {"rpm", 1.0 / 60, "s^-1"},
        {"1/min", 1.0 / 60, "s^-1"},
        {"MHz", 1e6, "s^-1"},
        {"mV", 1e-3, "V"},
        {"µV^2/Hz", 1e-12, "m^4 kg^2 s^-5 A^-2"},
        {"kΩ", 1e3, "Ohm"},
        {"kOhm", 1e3, "Ohm"},
        {"mPa", 1e-3, "P"},
        {"MPa", 1e6, "P"},
        {"N/mm^2", 1e6, "P"},
        {"hPa", 100, "P"},
        {"mbar", 100, "P"},
        {"psi", 6894.757293168361, "P"},
        {"mmHg", 133.322387415, "P"},
        {"cmH2O", 98.0665, "P"},
        {"N m", 1, "J"},
        {"kWh", 3.6e6, "J"},
        {"mAh", 3.6, "C"},
        {"mV/Pa", 1e-3, "m^3 s^-1 A^-1"},
        {"%", 0.01, ""},
        {"µm/m", 1e-6, ""},
        {"°", 0.017453292519943295, ""},
        {"cd", 1, "cd"},
        {"Gy", 1, "m^2 s^-2"},
        {"°C", 1, "K", 273.15},
        {"°F", 5.0 / 9, "K", 255.3722222222222},
        {"W/(m^2 K)", 1, "kg s^-3 K^-1"},
        {"[mV]", 1e-3, "V"},
    };
    for (const auto& row : ROWS) {
        tc::UnitMeaning meaning;
        CString error;
        EXPECT_TRUE(tc::ReadUnit(row.text, meaning, error)) << row.text << ": " << error;
        EXPECT_DOUBLE_EQ(meaning.Factor(), row.factor) << row.text;
        EXPECT_NEAR(meaning.offset, row.offset, 1e-12) << row.text;
        TCSI_Unit strict;
        TCSI_Convert().scan(row.strict, strict);
        EXPECT_TRUE(meaning.unit == strict) << row.text;
    }
}

TEST(UnitText, RefusesWhatHasNoOneMeaning) {
    const struct {
        const char* text;
        const char* error;
    } ROWS[] = {
        {"g", "write 'g_n' for 9.80665 m/s²"},
        {"mg", "write 'g_n'"},
        {"mV/g", "write 'g_n'"},
        {"G", "write 'g_n' or 'Gs'"},
        {"dB(A)", "'dB' is a level"},
        {"V/√Hz", "write the square, as V²/Hz"},
        {"Volt", "'Volt' is no unit"},
        {"HZ", "'HZ' is no unit"},
        {"mkg", "'mkg' is no unit"},
        {"m^11", "'11' is no exponent"},
        {"m^0.5", "'0.5' is no exponent"},
        {"m^", "no exponent"},
        {"(m", "'(m' is no unit"},
        {"m)", "')' is no unit"},
        {"m/", "is no unit"},
        {"((((((((((((((((((((((((((m))))))))))))))))))))))))))", "is no unit"},
        {"m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10 m^10", "no exponent"},
    };
    for (const auto& row : ROWS) {
        tc::UnitMeaning meaning;
        CString error;
        EXPECT_FALSE(tc::ReadUnit(row.text, meaning, error)) << row.text;
        EXPECT_THAT(error, HasSubstr(row.error)) << row.text;
    }
}

TEST(UnitText, ReadsQuantitiesInTheUnitOfTheValue) {
    const struct {
        const char* text;
        const char* unit;
        double value;
    } ROWS[] = {
        {"3000", "Hz", 3000},
        {"3 kHz", "Hz", 3000},
        {"3k", "Hz", 3000},
        {"3e3", "Hz", 3000},
        {"+3E+3 Hz", "Hz", 3000},
        {"0.1 kHz", "Hz", 100},
        {"0.3 ms", "s", 0.0003},
        {"1.005k", "Hz", 1005},
        {"20 mV", "V", 0.02},
        {"-5 ms", "s", -0.005},
        {"9.81 m/s^2", "m s^-2", 9.81},
        {"1 g_n", "m/s²", 9.80665},
        {"250 kPa", "P", 250000},
        {"250 kPa", "bar", 2.5},
        {"-3 dB", "dB", -3},
        {"30 %", "", 0.3},
        {"30 %", "%", 30},
        {"20 °C", "K", 293.15},
        {"300 K", "°C", 26.85},
        {"120 rpm", "Hz", 2},
        {"2 min", "s", 120},
        {"  7  ", "V", 7},
    };
    for (const auto& row : ROWS) {
        double value = 0.0;
        CString error;
        EXPECT_TRUE(tc::ReadQuantity(row.text, row.unit, value, error)) << row.text << ": " << error;
        if (value == row.value) continue;
        EXPECT_NEAR(value, row.value, 1e-12 * std::abs(row.value)) << row.text;
        EXPECT_THAT(row.text, testing::AnyOf(HasSubstr("K"), HasSubstr("rpm")))
            << "is to be exact: " << row.text;
    }
    const struct {
        const char* text;
        const char* unit;
        const char* error;
    } WRONG[] = {
        {"3 V", "Hz", "the unit V does not fit; expected Hz"},
        {"3 V", "", "expected a number without a unit"},
        {"0,5", "V", "write a point"},
        {"abc", "V", "no number"},
        {"", "V", "no number"},
        {"nan", "V", "no number"},
        {"inf V", "V", "no number"},
        {"1e400", "V", "too large"},
        {"1 g", "m s^-2", "write 'g_n'"},
        {"-3 dB", "V", "is a level"},
        {"5 m", "s", "does not fit"},
        {"1 k V", "V", "no unit"},
    };
    for (const auto& row : WRONG) {
        double value = 42.0;
        CString error;
        EXPECT_FALSE(tc::ReadQuantity(row.text, row.unit, value, error)) << row.text;
        EXPECT_THAT(error, HasSubstr(row.error)) << row.text;
        EXPECT_EQ(value, 42.0);
    }
}

TEST(UnitText, ShowsUnitsAsTheyAreUsual) {
    const struct {
        const char* stored;  // as TCSI_Unit::FromString reads it
        const char* shown;
    } ROWS[] = {
        {"", ""},
        {"V", "V"},
        {"V * 1e-003", "mV"},
        {"V * 1e-006", "µV"},
        {"m * 1e-002", "cm"},
        {"P", "Pa"},
        {"P * 1e+003", "kPa"},
        {"P * 1e+005", "10⁵ Pa"},
        {"m s^-2", "m/s²"},
        {"m s^-2 * 1e-3", "mm/s²"},
        {"Ohm", "Ω"},
        {"V^2", "V²"},
        {"V^2 * 1e-6", "mV²"},
        {"V^2 s", "V²/Hz"},
        {"m^2 s^-2", "m²/s²"},
        {"kg * 1e-3", "g"},
        {"kg m^-3", "kg/m³"},
        {"kg s^-3 K^-1", "kg/(s³·K)"},
        {"s^-1", "Hz"},
        {"* 1e-2", "%"},
        {"* 1e3", "10³"},
    };
    for (const auto& row : ROWS) {
        TCSI_Unit unit;
        ASSERT_TRUE(*row.stored == '\0' || unit.FromString(row.stored)) << row.stored;
        EXPECT_EQ(tc::DisplayUnit(unit), row.shown) << row.stored;
    }
    TCSI_Unit minute;
    minute.FromString("s");
    minute.SetFactor(60.0);
    EXPECT_EQ(tc::DisplayUnit(minute), "60 s");
}

}  // namespace
