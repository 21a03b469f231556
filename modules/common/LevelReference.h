#pragma once

#include <string>

#include "sigweave/platform/Framework.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/TCSI_Unit.h"

// The reference of levels in decibels.
namespace tc {

inline constexpr Bilingual REFERENCE_HELP(
    "of 0 dB, as 20 uPa or 1 V; empty: that of ISO 1683 for the signal's unit, or 1",
    "von 0 dB, wie 20 uPa oder 1 V; leer: der nach ISO 1683 für die Einheit des Signals, oder 1");

struct LevelReference {
    double value = 1.0;  // in `unit`
    TCSI_Unit unit;      // of factor 1
};

// Reads the parameter "reference", a number above 0 with or without a unit; an empty text is allowed too.
// False, with a further line in `error` that says what is allowed, for anything else.
bool CheckReference(const std::string& text, CString& error);

// The reference for a signal of that unit. Without a text that of ISO 1683: 20 uPa, 1 um/s^2, 1 nm/s, 1 pm, 1
// uN, and 1 for all other units. A text without a unit counts in the signal's, without its factor. False,
// with the error, when the text has another dimension than the unit.
bool FindReference(const std::string& text, const TCSI_Unit& unit, LevelReference& reference, CString& error);

// A root mean square of the signal times this is one of the reference.
double ToReference(const TCSI_Unit& unit, const LevelReference& reference);

// 10 lg of a mean square, which is counted in squares of the reference; minus infinity for 0.
double DecibelsOfPower(double power);

}  // namespace tc
