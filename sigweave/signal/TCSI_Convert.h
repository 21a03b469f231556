#pragma once

#include <cstdint>
#include <string_view>

#include "sigweave/platform/Export.h"
#include "sigweave/signal/TCSI_Unit.h"

// Reads unit texts: terms as "V", "s^-2" or "m^ 3", separated by white space. A term is a symbol and
// optionally, directly after it, "^" and an exponent from -10 to 10. The symbols are those of the SI base
// units and of the derived units N, P (pascal), J, W, C, V, Ohm, S, F, Wb, H, T, lm, lx, Hz, Bq and Gy;
// there are no prefixes. Symbols compare exactly.
//
// "Gy" is read as m s^-2 but written for m^2 s^-2: deliberate, for the texts that are already stored.
class TC_API TCSI_Convert {
 public:
    TCSI_Convert() = default;

    // Reads the whole text into `unit`, with factor 1. False for an empty or null text, an unknown symbol, an
    // exponent that is no number or too large, or any other character. The unit then holds the terms in
    // front of the failing one; a term counts once white space or the end follows it.
    bool scan(const char* text, TCSI_Unit& unit);
    bool scan(std::string_view text, TCSI_Unit& unit);
    // Copies the exponents read so far; the unit's factor stays. Always true.
    bool GetSI(TCSI_Unit& unit) const;

 protected:
    void clear();
    // Looks the symbol up, the empty one included; false, and no change, when there is none.
    bool String2Token(const char* text);
    // Adds the current symbol's exponents, each times `power`; false beyond -10 to 10.
    bool Token2SI(char power);

 private:
    TC_LOCAL bool SetToken(std::uint32_t symbol);

    std::int8_t exponents[TCSI_Unit::BASE_UNIT_COUNT] = {};
    std::int32_t token = 0;
};
