#include "modules/common/SignalQuantity.h"

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace tc {

namespace {

constexpr const char* DIGITS = "0123456789";

// Where the number ends: an e belongs to it only when an exponent follows.
std::size_t NumberLength(const std::string& text) {
    const std::size_t end = text.find_first_not_of("+-. 0123456789");
    if (end == text.npos || (text[end] != 'e' && text[end] != 'E')) return end;
    const std::size_t power = text.find_first_not_of("+-", end + 1);
    if (power == text.npos || text.find_first_of(DIGITS, power) != power) return end;
    return text.find_first_not_of(DIGITS, power);
}

}  // namespace

bool ReadSignalQuantity(const std::string& text, SignalQuantity& quantity) {
    const std::size_t length = NumberLength(text);
    CString error;
    quantity.unit.reset();
    if (text.find_first_of(DIGITS) >= length) return false;
    if (!ReadQuantity(text.substr(0, length), "", quantity.number, error)) return false;
    if (length == text.npos) return true;
    quantity.unit.emplace();
    return ReadUnit(text.substr(length), *quantity.unit, error) && quantity.unit->offset == 0.0;
}

bool ConvertTo(const TCSI_Unit& unit, const SignalQuantity& quantity, double& number) {
    number = quantity.number;
    if (!quantity.unit) return true;
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (quantity.unit->unit.GetExponent(i) != unit.GetExponent(i)) return false;
    number *= quantity.unit->Factor() / unit.GetFactor();
    return true;
}

CString QuantityExpected(const char* example) {
    return Bilingual("a number and a unit, as %1", "eine Zahl und eine Einheit, wie %1").With({example});
}

CString QuantityExpected(const TCSI_Unit& unit, const char* per) {
    TCSI_Unit shown = unit;
    shown.SetFactor(1.0);
    const CString text = DisplayUnit(shown);
    if (text.empty()) return Bilingual("a number without a unit", "eine Zahl ohne Einheit").Text();
    return Bilingual("%1, as the signal has", "%1, wie das Signal").With({text + per});
}

bool CheckQuantities(const TCBaseModuleEx& module, std::span<const char* const> names, TCString& error) {
    CString reason;
    for (const char* name : names) {
        SignalQuantity quantity;
        const CString text(module.GetParameter(name));
        if (!text.empty() && !ReadSignalQuantity(text, quantity))
            AddReason(reason, NotValid(name, text, QuantityExpected("0.5 mV")));
    }
    error = reason.c_str();
    return reason.empty();
}

void ConvertQuantities(const TCBaseModuleEx& module, const TCSI_Unit& unit,
                       std::initializer_list<QuantitySetting> settings, CString& error) {
    for (const auto& [name, number] : settings) {
        SignalQuantity quantity;
        const CString text(module.GetParameter(name));
        if (text.empty()) continue;
        ReadSignalQuantity(text, quantity);
        if (!ConvertTo(unit, quantity, *number))
            AddReason(error, NotValid(name, text, QuantityExpected(unit)));
    }
}

}  // namespace tc
