#include "modules/math/Arithmetic.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>

#include "sigweave/services/Bilingual.h"

namespace tc {

namespace {

bool IsUsable(double factor) {
    return std::isnormal(factor) && factor > 0.0;
}

}  // namespace

void Combine(Operation operation, double* left, const double* right, std::size_t count) {
    const auto apply = [&](auto function) { std::transform(left, left + count, right, left, function); };
    switch (operation) {
        case Operation::SUM:
            return apply(std::plus<>());
        case Operation::DIFFERENCE:
            return apply(std::minus<>());
        case Operation::PRODUCT:
            return apply(std::multiplies<>());
        case Operation::QUOTIENT:
            return apply(std::divides<>());
    }
}

// Divides by whole factors rather than multiplying by their inverse, so that 1500 mV are exactly 1.5 V.
void Convert(double* values, std::size_t count, const TCSI_Unit& from, const TCSI_Unit& to) {
    if (from.GetFactor() == to.GetFactor()) return;
    const double down = to.GetFactor() / from.GetFactor();
    const double up = from.GetFactor() / to.GetFactor();
    for (std::size_t i = 0; i < count; ++i) values[i] = down > 1.0 ? values[i] / down : values[i] * up;
}

ValueRange AnyValue() {
    return {std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max()};
}

ValueRange Combine(Operation operation, const ValueRange& left, const ValueRange& right) {
    if (operation == Operation::QUOTIENT && right.low <= 0.0 && right.high >= 0.0) return AnyValue();
    double results[] = {left.low, left.low, left.high, left.high};
    const double others[] = {right.low, right.high, right.low, right.high};
    Combine(operation, results, others, std::size(results));
    if (!std::all_of(std::begin(results), std::end(results),
                     [](double value) { return std::isfinite(value); }))
        return AnyValue();
    const auto [low, high] = std::minmax_element(std::begin(results), std::end(results));
    return {*low, *high};
}

bool IsConvertible(const TCSI_Unit& from, const TCSI_Unit& to) {
    TCSI_Unit rescaled = from;
    rescaled.SetFactor(to.GetFactor());
    return rescaled == to && IsUsable(from.GetFactor()) && IsUsable(to.GetFactor());
}

bool ScaleUnit(TCSI_Unit& unit, const TCSI_Unit& by, int sign) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
        const int exponent = unit.GetExponent(i) + sign * by.GetExponent(i);
        if (std::abs(exponent) > std::numeric_limits<std::int8_t>::max()) return false;
    }
    sign > 0 ? unit.multiply(by) : unit.divide(by);
    return IsUsable(unit.GetFactor());
}

std::string UnitText(const TCSI_Unit& unit) {
    TCString text;
    unit.ToString(text);
    return text.IsEmpty() ? Bilingual("no unit", "keine Einheit").Text() : std::string(text);
}

}  // namespace tc
