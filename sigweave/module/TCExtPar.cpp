#include "sigweave/module/TCExtPar.h"

#include <algorithm>
#include <array>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace {

bool HasSameDimension(const TCSI_Unit& a, const TCSI_Unit& b) {
    TCSI_Unit rescaled = a;
    rescaled.SetFactor(b.GetFactor());
    return rescaled == b;
}

}  // namespace

TCExtPar::TCExtPar(TCBaseModuleEx& driven, int index, const CString& from)
    : module(&driven), parameter(index), port(from) {}

bool TCExtPar::Take(double value, const TCSI_Unit& from) {
    ++taken;
    const TCBaseModuleEx::Info& info = module->GetInfo(parameter);
    double number = value;
    if (Convert(number, from) && info.AllowsNumber(number)) {
        pending = number;
        hasPending = true;
        return true;
    }
    const std::string text = tc::ShortestText(value) + (fits ? "" : " " + tc::DisplayUnit(from));
    Refuse(info.DescribeRefusal(fits ? info.AsText(number) : TCString(text.c_str())));
    return false;
}

bool TCExtPar::Fits(const TCSI_Unit& from) {
    double value = 0.0;
    return Convert(value, from);
}

// The unit seldom changes, so what it means is kept.
bool TCExtPar::Convert(double& value, const TCSI_Unit& from) {
    if (from != unit) {
        tc::UnitMeaning own;
        CString ignored;
        unit = from;
        fits = from == TCSI_Unit() || (tc::ReadUnit(module->GetInfo(parameter).unit, own, ignored) &&
                                       HasSameDimension(from, own.unit));
        const double ratio = from == TCSI_Unit() ? 1.0 : from.GetFactor() / own.Factor();
        divides = ratio < 1.0;
        factor = divides ? 1.0 / ratio : ratio;
        offset = from == TCSI_Unit() ? 0.0 : own.offset / own.Factor();
    }
    value = (divides ? value / factor : value * factor) - offset;
    return fits;
}

void TCExtPar::Refuse(const TCString& reason) {
    if (refused++ == 0) firstRefusal = static_cast<const char*>(reason);
}

void TCExtPar::Apply(std::span<TCExtPar> parameters) {
    constexpr std::size_t MOST = 64;
    std::array<TCBaseModuleEx::LiveValue, MOST> values;
    std::size_t count = 0;
    TCString error;
    for (const TCExtPar& each : parameters) {
        if (each.hasPending && count < MOST) values[count] = {each.parameter, each.pending};
        count += each.hasPending ? 1 : 0;
    }
    if (count == 0) return;
    const std::span<const TCBaseModuleEx::LiveValue> all(values.data(), std::min(count, MOST));
    const bool together = count <= MOST && parameters.front().module->SetLive(all, error);
    for (TCExtPar& each : parameters) {
        const TCBaseModuleEx::LiveValue value{each.parameter, each.pending};
        if (each.hasPending && !together && !each.module->SetLive(std::span(&value, 1), error))
            each.Refuse(error);
        each.hasPending = false;
    }
}
