#include "sigweave/signal/TCSI_Unit.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "sigweave/foundation/PowersOfTen.h"
#include "sigweave/signal/SiSymbols.h"
#include "sigweave/signal/TCSI_Convert.h"

namespace {

using Exponents = std::int8_t[TCSI_Unit::BASE_UNIT_COUNT];

// "m^2 kg " and so on, or the one symbol that has all of these exponents.
std::string Symbols(const Exponents& exponents) {
    for (int i = tc::SI_CANDELA; i < tc::SI_SYMBOL_COUNT; ++i) {
        const auto& row = i == tc::SI_GRAY ? tc::SI_GRAY_WRITTEN : tc::SI_SYMBOLS[i].exponents;
        if (std::equal(std::begin(exponents), std::end(exponents), row))
            return std::string(tc::SI_SYMBOLS[i].text);
    }
    std::string text;
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
        if (exponents[i] == 0) continue;
        if (!text.empty()) text += ' ';
        text += tc::SI_SYMBOLS[i + 1].text;
        if (exponents[i] != 1) text += '^' + std::to_string(exponents[i]);
    }
    return text;
}

// 10 to the power; infinite beyond the range of a double.
double PowerOfTen(long power) {
    if (power > tc::MAX_EXPONENT) return HUGE_VAL;
    return tc::PowerOfTen(static_cast<int>(std::max<long>(power, tc::MIN_EXPONENT)));
}

// The base-10 logarithm, truncated; 0 where there is none.
int DecimalPower(double factor) {
    if (!(factor > 0.0) || std::isinf(factor)) return 0;
    const double logarithm = std::log10(factor);
    const long nearest = std::lround(logarithm);
    return static_cast<int>(PowerOfTen(nearest) == factor ? static_cast<double>(nearest) : logarithm);
}

}  // namespace

void TCSI_Unit::clear() {
    *this = TCSI_Unit();
}

bool TCSI_Unit::operator==(const TCSI_Unit& other) const {
    return factor == other.factor && std::equal(std::begin(exponents), std::end(exponents), other.exponents);
}

bool TCSI_Unit::operator!=(const TCSI_Unit& other) const {
    return !(*this == other);
}

void TCSI_Unit::multiply(const TCSI_Unit& unit) {
    for (int i = 0; i < BASE_UNIT_COUNT; ++i) SetExponent(i, exponents[i] + unit.exponents[i]);
    factor *= unit.factor;
}

void TCSI_Unit::divide(const TCSI_Unit& unit) {
    for (int i = 0; i < BASE_UNIT_COUNT; ++i) SetExponent(i, exponents[i] - unit.exponents[i]);
    factor /= unit.factor;
}

const char* TCSI_Unit::GetString(TCString& out) const {
    return out = Symbols(exponents).c_str();
}

const char* TCSI_Unit::GetString(CString& out) const {
    out = Symbols(exponents);
    return out.c_str();
}

const char* TCSI_Unit::ToString(TCString& out) const {
    GetString(out);
    if (factor == 1.0) return out;
    if (out.IsEmpty()) out = "1";
    out.FormatAppend(" * 1e%+04d", DecimalPower(factor));
    return out;
}

bool TCSI_Unit::FromString(const char* text) {
    const std::string_view all(text != nullptr ? text : "");
    const std::string_view symbols = all.substr(0, all.find('*'));
    clear();
    if (!symbols.empty() && !TCSI_Convert().scan(symbols, *this)) return false;
    if (symbols.size() == all.size()) return true;
    const std::size_t power = all.find("1e", symbols.size());
    if (power == std::string_view::npos) return false;
    factor = PowerOfTen(std::strtol(text + power + 2, nullptr, 10));
    return true;
}
