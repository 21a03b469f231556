#pragma once

#include <string>
#include <string_view>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCSI_Unit.h"

// Units as people write and read them: "kHz", "m/s^2", "µV²/Hz", "rpm", "°C". This is for what comes from
// people and what is shown to them. Stored units keep the strict text of TCSI_Unit.
namespace tc {

// What a unit text means: value in SI = number * scale * 10^power + offset.
struct UnitMeaning {
    TCSI_Unit unit;      // the exponents; its factor is 1
    double scale = 1.0;  // 1 unless the factor is no power of ten, as 9.80665 of g_n
    int power = 0;
    double offset = 0.0;  // of temperatures: 273.15 of °C

    TC_API double Factor() const;
};

// Reads a unit: symbols with SI prefixes, products ("N m", "N*m", "N·m"), quotients, powers ("m^2", "m²",
// "m2", "s^-1"), brackets around parts of it, "%" and the like. An empty text is dimensionless. False for
// what is no unit, with `error` saying why: texts with several meanings (g, G, mg, µg) name the choices,
// levels (dB) and roots of units (V/√Hz) cannot be held. The meaning is then unchanged.
TC_API bool ReadUnit(std::string_view text, UnitMeaning& meaning, CString& error);

// Reads a number with an optional unit, as "3 kHz", "3k", "20 mV", "-5 ms" or "20 °C", in the given unit,
// whose text is as in a declaration of a parameter: "Hz", "V", or one that people would write. Without a unit
// the number counts as it is; with one that does not fit, with a decimal comma, or where ReadUnit fails
// the answer is false, and `error` is the end of a message. Powers of ten are exact: "0.1 kHz" is 100.
TC_API bool ReadQuantity(std::string_view text, std::string_view unit, double& value, CString& error);

// The unit for tables and pictures: "mV", "m/s²", "Pa", "V²/Hz", "10⁻⁵ m"; empty for a dimensionless one of
// factor 1. A factor that is no power of ten is written as a number, as "60 s".
TC_API CString DisplayUnit(const TCSI_Unit& unit);

}  // namespace tc
