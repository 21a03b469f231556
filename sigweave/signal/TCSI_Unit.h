#pragma once

#include <cstdint>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// A physical unit: a decimal factor and the exponents of the seven SI base units. A value class;
// `TCSI_Convert` reads unit texts into it.
class TC_API TCSI_Unit {
 public:
    // The order of the exponents, here and in every stored record (never change).
    enum BaseUnit { METRE, KILOGRAM, SECOND, AMPERE, KELVIN, MOLE, CANDELA, BASE_UNIT_COUNT };

    // Dimensionless, factor 1.
    TCSI_Unit() = default;
    void clear();

    double GetFactor() const { return factor; }
    void SetFactor(double newFactor) { factor = newFactor; }
    std::int8_t GetExponent(int baseUnit) const { return exponents[baseUnit]; }
    void SetExponent(int baseUnit, int exponent) { exponents[baseUnit] = static_cast<std::int8_t>(exponent); }

    // Same exponents and exactly the same factor.
    bool operator==(const TCSI_Unit& other) const;
    bool operator!=(const TCSI_Unit& other) const;

    // Exponents wrap as signed 8-bit values.
    void multiply(const TCSI_Unit& unit);
    void divide(const TCSI_Unit& unit);

    // The unit's symbols without the factor, as "V" or "m s^-2"; empty for a dimensionless unit.
    const char* GetString(TCString& out) const;
    const char* GetString(CString& out) const;
    // As `GetString`, followed by the factor as a power of ten when it is not 1, as "m * 1e-003". The power
    // is the factor's logarithm, truncated: other factors lose their digits, and one without a logarithm (0,
    // negative, infinite, not a number) is written as 1e+000.
    const char* ToString(TCString& out) const;
    // Reads symbols (see TCSI_Convert), optionally followed by "*" and, anywhere after it, "1e" and a power.
    // False for a text that is no unit; the unit then holds the terms that were read, with factor 1. The text
    // of a dimensionless unit with a factor, "1 * 1e+003", is refused although `ToString` writes it (a
    // deliberate asymmetry of the text form); " * 1e3" and "* 1e3" are read.
    bool FromString(const char* text);

 private:
    double factor = 1.0;
    std::int8_t exponents[BASE_UNIT_COUNT] = {};
    // Fills the last word, so that a copy of a fresh copy does not stall the processor.
    std::int8_t unused = 0;
};
