#pragma once

#include <cstddef>
#include <string>

#include "sigweave/signal/TCSI_Unit.h"

// What is done with two signals, sample by sample, and with what describes them.
namespace tc {

enum class Operation { SUM, DIFFERENCE, PRODUCT, QUOTIENT };

// The result is in `left`. A division by zero follows IEEE 754: infinite, or not a number for 0 / 0.
void Combine(Operation operation, double* left, const double* right, std::size_t count);

// Values of one unit expressed in another one (see IsConvertible).
void Convert(double* values, std::size_t count, const TCSI_Unit& from, const TCSI_Unit& to);

struct ValueRange {
    double low;
    double high;
};

// All finite numbers: nothing is known.
ValueRange AnyValue();
// The least and greatest result of values within the ranges.
ValueRange Combine(Operation operation, const ValueRange& left, const ValueRange& right);

// Whether values of one unit can be expressed in the other.
bool IsConvertible(const TCSI_Unit& from, const TCSI_Unit& to);
// Multiplies (sign 1) or divides (-1) a unit. False when no unit can hold the exponents or the factor.
bool ScaleUnit(TCSI_Unit& unit, const TCSI_Unit& by, int sign);
// For messages: "V * 1e-003", or "no unit".
std::string UnitText(const TCSI_Unit& unit);

}  // namespace tc
