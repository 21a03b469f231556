#include "modules/common/LevelReference.h"

#include <cmath>

#include "modules/common/SignalQuantity.h"
#include "sigweave/module/ModuleSignals.h"

namespace tc {

namespace {

bool ReadReference(const std::string& text, SignalQuantity& quantity) {
    return ReadSignalQuantity(text, quantity) && quantity.number > 0.0;
}

bool HaveOneDimension(const TCSI_Unit& a, const TCSI_Unit& b) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (a.GetExponent(i) != b.GetExponent(i)) return false;
    return true;
}

TCSI_Unit WithoutFactor(TCSI_Unit unit) {
    unit.SetFactor(1.0);
    return unit;
}

double StandardReference(const TCSI_Unit& unit) {
    static constexpr struct {
        const char* unit;
        double value;
    } ROWS[] = {{"P", 20e-6}, {"m s^-2", 1e-6}, {"m s^-1", 1e-9}, {"m", 1e-12}, {"N", 1e-6}};
    for (const auto& row : ROWS) {
        TCSI_Unit known;
        known.FromString(row.unit);
        if (HaveOneDimension(known, unit)) return row.value;
    }
    return 1.0;
}

}  // namespace

bool CheckReference(const std::string& text, CString& error) {
    SignalQuantity quantity;
    if (text.empty() || ReadReference(text, quantity)) return true;
    AddReason(error, NotValid("reference", text,
                              Bilingual("a number above 0 and a unit, as 20 uPa or 1 V",
                                        "eine Zahl über 0 und eine Einheit, wie 20 uPa oder 1 V")
                                  .Text()));
    return false;
}

bool FindReference(const std::string& text, const TCSI_Unit& unit, LevelReference& reference,
                   CString& error) {
    reference = {1.0, WithoutFactor(unit)};
    if (text.empty()) {
        reference.value = StandardReference(unit);
        return true;
    }
    SignalQuantity quantity;
    if (!ReadReference(text, quantity)) return CheckReference(text, error);
    if (ConvertTo(reference.unit, quantity, reference.value)) return true;
    AddReason(error, NotValid("reference", text, QuantityExpected(unit)));
    return false;
}

double ToReference(const TCSI_Unit& unit, const LevelReference& reference) {
    return unit.GetFactor() / reference.value;
}

double DecibelsOfPower(double power) {
    return 10.0 * std::log10(power);
}

}  // namespace tc
