#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCSI_Unit.h"
#include "sigweave/signal/UnitText.h"

namespace tc {

// A setting that is compared with a signal whose unit is known only later, as "20 uPa" or "0.5".
struct SignalQuantity {
    double number = 0.0;
    std::optional<UnitMeaning> unit;  // none: the text has none
};

// Reads a number with or without a unit. False for anything else, for a unit with an offset, as °C, and for
// an empty text.
bool ReadSignalQuantity(const std::string& text, SignalQuantity& quantity);

// The number in a unit, factor included; without a unit of its own the quantity counts in that one. False
// when it has another dimension.
bool ConvertTo(const TCSI_Unit& unit, const SignalQuantity& quantity, double& number);

// What a wrong setting should be: a number and a unit, as in the example.
CString QuantityExpected(const char* example);
// The same for a signal whose unit is known: "Pa, as the signal has"; or "Pa/s" with `per` set to "/s".
CString QuantityExpected(const TCSI_Unit& unit, const char* per = "");

// A setting that holds a quantity, or nothing, and its number.
struct QuantitySetting {
    const char* name;
    double* number;
};

// For OnSettingsChanged: false, with a line in `error` for each of these settings that is neither empty nor a
// quantity.
bool CheckQuantities(const TCBaseModuleEx& module, std::span<const char* const> names, TCString& error);
// The numbers in the signal's unit; those of empty settings stay. Adds to `error` a line for each that has
// another dimension.
void ConvertQuantities(const TCBaseModuleEx& module, const TCSI_Unit& unit,
                       std::initializer_list<QuantitySetting> settings, CString& error);

}  // namespace tc
