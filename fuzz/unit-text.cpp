// TCSI_Unit and TCSI_Convert: two unit texts.
#include <cmath>

#include "fuzz/Fuzz.h"
#include "sigweave/signal/TCSI_Convert.h"
#include "sigweave/signal/TCSI_Unit.h"
#include "sigweave/signal/UnitText.h"

namespace {

bool HasSameExponents(const TCSI_Unit& a, const TCSI_Unit& b) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (a.GetExponent(i) != b.GetExponent(i)) return false;
    return true;
}

// Whether the text of the unit means the unit: "Gy" is read as another one than it is written for, exponents
// beyond 10 are not read, and a factor without symbols is written as "1 * 1e...".
bool IsReadable(const TCSI_Unit& unit, const TCString& text) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (std::abs(unit.GetExponent(i)) > 10) return false;
    return !(text == "") && text[0] != '1' && text.Find("Gy") < 0;
}

void CheckText(const TCSI_Unit& unit) {
    TCString text;
    unit.ToString(text);
    if (!IsReadable(unit, text)) return;
    TCSI_Unit again;
    fuzz::Require(again.FromString(text), "what is written can be read");
    fuzz::Require(HasSameExponents(unit, again), "as the same unit");
    const bool isPower = std::isnormal(unit.GetFactor()) && unit.GetFactor() > 0;
    fuzz::Require(!isPower || unit.GetFactor() == again.GetFactor(), "with the same factor");
}

// What people write, and how it is shown to them.
void CheckHuman(const std::string& first, const std::string& second) {
    tc::UnitMeaning meaning;
    CString error;
    if (!tc::ReadUnit(first, meaning, error)) fuzz::Require(!error.empty(), "a refusal has its reason");
    meaning.unit.SetFactor(meaning.Factor());
    const CString shown = tc::DisplayUnit(meaning.unit);
    tc::UnitMeaning again;
    const bool plain = meaning.scale == 1.0 && std::abs(meaning.power) < 6;
    if (plain && tc::ReadUnit(shown, again, error))
        fuzz::Require(HasSameExponents(meaning.unit, again.unit), "what is shown means the same");
    double value = 0.0;
    const bool isRead = tc::ReadQuantity(second, first, value, error);
    fuzz::Require(isRead || !error.empty(), "a refused quantity has its reason");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const std::string first = parts.Next();
    const std::string second = parts.Next();
    TCSI_Convert converter;
    TCSI_Unit scanned;
    TCSI_Unit viewed;
    const bool isScanned = converter.scan(first.c_str(), scanned);
    fuzz::Require(isScanned == converter.scan(std::string_view(first), viewed) && scanned == viewed,
                  "both ways of scanning agree");
    TCSI_Unit unit;
    const bool isUnit = unit.FromString(first.c_str());
    fuzz::Require(!isScanned || (isUnit && unit == scanned), "symbols alone are a whole unit text");
    if (isUnit) CheckText(unit);
    TCSI_Unit other;
    other.FromString(second.c_str());
    CheckHuman(first, second);
    TCSI_Unit product(unit);
    product.multiply(other);
    product.divide(other);
    fuzz::Require(HasSameExponents(product, unit), "division takes multiplication back");
    return 0;
}
