#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string_view>

#include "sigweave/signal/TCSI_Convert.h"
#include "sigweave/signal/UnitText.h"

namespace {

using testing::HasSubstr;

// The definitions of the units in the base units, by the brochure on the SI, and the treaties on the others;
// those marked + take prefixes.
struct Definition {
    const char* symbols;
    double factor;
    const char* base;
    const char* shown;  // of the unit without the factor
    double offset = 0.0;
};
constexpr double POUND = 0.45359237, GRAVITY = 9.80665, FOOT = 0.3048, PI = 3.141592653589793;
constexpr Definition DEFINITIONS[] = {
    {"+m", 1, "m", "m"},
    {"+s sec", 1, "s", "s"},
    {"+A", 1, "A", "A"},
    {"+K", 1, "K", "K"},
    {"+mol", 1, "mol", "mol"},
    {"+cd lm", 1, "cd", "cd"},
    {"kg", 1, "kg", "kg"},
    {"+Hz +Bq", 1, "s^-1", "Hz"},
    {"+N", 1, "m kg s^-2", "N"},
    {"+Pa P", 1, "m^-1 kg s^-2", "Pa"},
    {"+J Nm", 1, "m^2 kg s^-2", "J"},
    {"kNm", 1e3, "m^2 kg s^-2", "J"},
    {"+W +VA +var", 1, "m^2 kg s^-3", "W"},
    {"+C", 1, "s A", "C"},
    {"+V", 1, "m^2 kg s^-3 A^-1", "V"},
    {"+Ohm +ohm +Ω +\u2126", 1, "m^2 kg s^-3 A^-2", "Ω"},
    {"+S", 1, "m^-2 kg^-1 s^3 A^2", "S"},
    {"+F", 1, "m^-2 kg^-1 s^4 A^2", "F"},
    {"+Wb", 1, "m^2 kg s^-2 A^-1", "Wb"},
    {"+H", 1, "m^2 kg s^-2 A^-2", "H"},
    {"+T", 1, "kg s^-2 A^-1", "T"},
    {"Gs", 1e-4, "kg s^-2 A^-1", "T"},
    {"lx", 1, "m^-2 cd", "lx"},
    {"+Gy +Sv", 1, "m^2 s^-2", "m²/s²"},
    {"+kat", 1, "s^-1 mol", "mol/s"},
    {"+l +L", 1e-3, "m^3", "m³"},
    {"ccm", 1e-6, "m^3", "m³"},
    {"in", FOOT / 12, "m", "m"},
    {"mil", FOOT / 12000, "m", "m"},
    {"ft", FOOT, "m", "m"},
    {"ips", FOOT / 12, "m s^-1", "m/s"},
    {"kn", 1852.0 / 3600, "m s^-1", "m/s"},
    {"t", 1e3, "kg", "kg"},
    {"lb", POUND, "kg", "kg"},
    {"oz", POUND / 16, "kg", "kg"},
    {"+g_n gn", GRAVITY, "m s^-2", "m/s²"},
    {"Gal", 0.01, "m s^-2", "m/s²"},
    {"min", 60, "s", "s"},
    {"h hr", 3600, "s", "s"},
    {"d", 86400, "s", "s"},
    {"rpm bpm", 1.0 / 60, "s^-1", "Hz"},
    {"kgf kp", GRAVITY, "m kg s^-2", "N"},
    {"lbf", POUND* GRAVITY, "m kg s^-2", "N"},
    {"+bar", 1e5, "m^-1 kg s^-2", "Pa"},
    {"psi", POUND* GRAVITY / (FOOT / 12 * FOOT / 12), "m^-1 kg s^-2", "Pa"},
    {"mmHg", 133.322387415, "m^-1 kg s^-2", "Pa"},
    {"cmH2O", 10 * GRAVITY, "m^-1 kg s^-2", "Pa"},
    {"atm", 101325, "m^-1 kg s^-2", "Pa"},
    {"Torr", 101325.0 / 760, "m^-1 kg s^-2", "Pa"},
    {"+Wh", 3600, "m^2 kg s^-2", "J"},
    {"+Ah", 3600, "s A", "C"},
    {"+eV", 1.602176634e-19, "m^2 kg s^-2", "J"},
    {"+cal", 4.184, "m^2 kg s^-2", "J"},
    {"PS", 75 * GRAVITY, "m^2 kg s^-3", "W"},
    {"hp", 550 * FOOT* POUND* GRAVITY, "m^2 kg s^-3", "W"},
    {"+rad +strain +ε sr", 1, "", ""},
    {"° deg", PI / 180, "", ""},
    {"gon", PI / 200, "", ""},
    {"rev", 2 * PI, "", ""},
    {"%", 0.01, "", ""},
    {"‰", 1e-3, "", ""},
    {"ppm", 1e-6, "", ""},
    {"ppb", 1e-9, "", ""},
    {"°C \u2103 degC Cel", 1, "K", "K", 273.15},
    {"°F degF", 5.0 / 9, "K", "K", 459.67 * 5 / 9},
};

// Those that stored units may have, too.
constexpr std::string_view STORED = " m kg s A K mol cd N P J W C V Ohm S F Wb H T lm lx Hz Bq Gy ";

TEST(UnitText, UnitsAreWhatTheyAreDefinedAs) {
    for (const Definition& row : DEFINITIONS) {
        TCSI_Unit base;
        TCSI_Convert().scan(row.base, base);
        EXPECT_EQ(tc::DisplayUnit(base), row.shown);
        std::istringstream symbols(row.symbols);
        for (std::string symbol; symbols >> symbol;) {
            const bool takesPrefixes = symbol.front() == '+';
            symbol.erase(0, takesPrefixes ? 1 : 0);
            tc::UnitMeaning meaning, large;
            TCSI_Unit stored;
            CString error;
            const bool isStored = STORED.find(" " + symbol + " ") != STORED.npos;
            EXPECT_EQ(TCSI_Convert().scan(symbol.c_str(), stored), isStored) << symbol;
            EXPECT_TRUE(!isStored || stored == base || symbol == "Gy") << symbol;
            EXPECT_TRUE(tc::ReadUnit(symbol, meaning, error)) << error;
            EXPECT_TRUE(meaning.unit == base) << symbol;
            EXPECT_NEAR(meaning.Factor() / row.factor, 1.0, 1e-15) << symbol;
            EXPECT_DOUBLE_EQ(meaning.offset, row.offset) << symbol;
            EXPECT_EQ(tc::ReadUnit("T" + symbol, large, error), takesPrefixes) << symbol;
            EXPECT_TRUE(!takesPrefixes || std::abs(large.Factor() / row.factor - 1e12) < 1e-2) << symbol;
        }
    }
    const std::pair<const char*, int> prefixes[] = {{"f", -15}, {"p", -12}, {"n", -9}, {"µ", -6}, {"μ", -6},
                                                    {"u", -6},  {"m", -3},  {"c", -2}, {"d", -1}, {"da", 1},
                                                    {"h", 2},   {"k", 3},   {"M", 6},  {"G", 9},  {"T", 12}};
    for (const auto& [prefix, power] : prefixes) {
        tc::UnitMeaning meaning;
        CString error;
        double value = 0.0;
        EXPECT_TRUE(tc::ReadUnit(CString(prefix) + "V", meaning, error)) << prefix;
        EXPECT_EQ(meaning.power, power) << prefix;
        const bool isBare = std::string_view("p n µ μ u k M G").find(prefix) != std::string_view::npos;
        EXPECT_EQ(tc::ReadQuantity(CString("1") + prefix, "V", value, error), isBare) << prefix;
        EXPECT_TRUE(!isBare || value == std::stod("1e" + std::to_string(power))) << prefix;
    }
}

// What texts mean: factors by definition of the units; the exponents as the strict text of stored units.
TEST(UnitText, ReadsWhatPeopleWrite) {
    const struct {
        const char* text;
        double factor;
        const char* strict;
        double offset = 0.0;
    } ROWS[] = {
        {"", 1, ""},
        {"mm²", 1e-6, "m^2"},
        {"cm^3", 1e-6, "m^3"},
        {"g/cm^3", 1000, "m^-3 kg"},
        {"g/l", 1, "m^-3 kg"},
        {"g/mol", 1e-3, "kg mol^-1"},
        {"-", 1, ""},
        {"m⁻¹⁰", 1, "m^-10"},
        {"s⁴/(m³·K⁵)*A⁶", 1, "s^4 m^-3 K^-5 A^6"},
        {"m⁷ s⁸ A⁹ ⋅ m", 1, "m^8 s^8 A^9"},
        {"1/(1/m)", 1, "m"},
        {"m/s2", 1, "m s^-2"},
        {"m s^-2", 1, "m s^-2"},
        {"m/s²", 1, "m s^-2"},
        {"m·s⁻²", 1, "m s^-2"},
        {"(m/s^2)^2/Hz", 1, "m^2 s^-3"},
        {"km/h", 1000.0 / 3600, "m s^-1"},
        {"1/min", 1.0 / 60, "s^-1"},
        {"mV", 1e-3, "V"},
        {"µV^2/Hz", 1e-12, "m^4 kg^2 s^-5 A^-2"},
        {"kΩ", 1e3, "Ohm"},
        {"N/mm^2", 1e6, "P"},
        {"cmH2O", 98.0665, "P"},
        {"N m", 1, "J"},
        {"mAh", 3.6, "C"},
        {"mV/Pa", 1e-3, "m^3 s^-1 A^-1"},
        {"µm/m", 1e-6, ""},
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
        {"m/(Volt)", "'Volt' is no unit"},
        {"HZ", "'HZ' is no unit; did you mean 'Hz'?"},
        {"mhz", "'mhz' is no unit; did you mean 'mHz', 'MHz'?"},
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
        {"1 h", "min", 60},
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
        {"1e99999999999", "V", "too large"},
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
        {"V * 1e-003", "mV"},
        {"V * 1e-006", "µV"},
        {"m * 1e-002", "cm"},
        {"P * 1e+003", "kPa"},
        {"P * 1e+005", "10⁵ Pa"},
        {"m s^-2 * 1e-3", "mm/s²"},
        {"V^2", "V²"},
        {"V^2 * 1e-6", "mV²"},
        {"V^2 s", "V²/Hz"},
        {"kg * 1e-3", "g"},
        {"kg * 1e3", "10³ kg"},
        {"V * 1e-002", "10⁻² V"},
        {"m^2 s * 1e+3", "10³ m²/Hz"},
        {"m^-1", "1/m"},
        {"m^10 mol cd", "m¹⁰·mol·cd"},
        {"kg m^-3", "kg/m³"},
        {"kg s^-3 K^-1", "kg/(s³·K)"},
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
