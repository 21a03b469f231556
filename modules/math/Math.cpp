#include "modules/math/Math.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr tc::Choice<tc::Operation> OPERATIONS[] = {{"sum", tc::Operation::SUM},
                                                    {"difference", tc::Operation::DIFFERENCE},
                                                    {"product", tc::Operation::PRODUCT},
                                                    {"quotient", tc::Operation::QUOTIENT}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "operation",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "sum",
     .help = {"of the inputs; difference and quotient take two",
              "der Eingänge; difference und quotient nehmen zwei"},
     .choices = tc::CHOICE_WORDS<OPERATIONS>,
     .label = {"Operation", "Operation"}},
    {.name = "expression",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"of the inputs a, b, c, d or x1, x2 ..., as a*b - 0.5*abs(c), in place of the operation",
              "aus den Eingängen a, b, c, d oder x1, x2 ..., wie a*b - 0.5*abs(c), statt der Operation"},
     .label = {"Expression", "Ausdruck"}},
    {.name = "scale",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1",
     .help = {"multiplies the result", "multipliziert das Ergebnis"},
     .label = {"Scale", "Faktor"},
     .live = true},
    {.name = "scale_unit",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"of scale, as m s^-2 V^-1 for a sensor; multiplies the unit of the result",
              "von scale, wie m s^-2 V^-1 für einen Sensor; multipliziert die Einheit des Ergebnisses"},
     .label = {"Unit of the scale", "Einheit des Faktors"}},
    {.name = "offset",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .help = {"added at last, in the unit of the result", "zuletzt addiert, in der Einheit des Ergebnisses"},
     .label = {"Offset", "Versatz"},
     .live = true},
    {.name = "name",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"the result's name; empty: the operation or the expression, or of one input its own",
              "Name des Ergebnisses; leer: die Operation oder der Ausdruck, bei einem Eingang dessen Name"},
     .label = {"Name", "Name"}},
};

constexpr double SAMPLERATE_TOLERANCE = 1e-9;  // relative
constexpr double START_TOLERANCE = 0.5;        // in samples

}  // namespace

Math::Math(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Math::OnInputsDeclared(int count) {
    for (unsigned i = 0; i < static_cast<unsigned>(count); ++i) portHelper->SetObligatoryInput(i);
    portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
}

bool Math::OnSettingsChanged(TCString& error) {
    std::string reason;
    TCSI_Unit unit;
    Expression given;
    tc::ParseUnit(std::string(ParamStr("scale_unit")), unit, reason, "scale_unit");
    std::string why;
    if (!ParamText("expression").empty() && !given.Parse(ParamText("expression"), why))
        tc::AddReason(reason, why);
    error = reason.c_str();
    if (!reason.empty()) return false;
    scaleUnit = unit;
    expression = given;
    return true;
}

std::string Math::WhyWrongCount() const {
    const tc::Operation given = GivenOperation();
    const bool takesTwo = given == tc::Operation::DIFFERENCE || given == tc::Operation::QUOTIENT;
    const int count = portHelper->GetPortCnt(INPUT);
    std::string error;
    if (HasExpression()) {
        expression.CheckInputs(static_cast<std::size_t>(count), error);
        return error;
    }
    if (!takesTwo || count == 2) return "";
    return tc::NotValid(
        "operation", std::string(ParamStr("operation")),
        Bilingual("two inputs, or sum or product", "zwei Eingänge, oder sum oder product").Text(),
        Bilingual("for %1 inputs", "für %1 Eingänge").With({std::to_string(count)}));
}

void Math::CheckStart(TCStartCheck& check) {
    const std::string wrongCount = WhyWrongCount();
    if (!wrongCount.empty()) check.Refuse(wrongCount);
    if (HasExpression() && IsGiven("operation"))
        check.Warn(Bilingual("operation: has no effect beside an expression",
                             "operation: wirkt nicht neben einem Ausdruck")
                       .Text());
    tc::CheckRates(*portHelper, check);
    Mismatch rates;
    Mismatch units;
    std::vector<std::optional<TCSI_Unit>> known;
    for (const TCForetoldSignal& input : check.inputs) known.push_back(input.unit);
    const std::optional<double> rate = check.inputs.front().samplerate;
    for (std::size_t i = 1; i < check.inputs.size() && rate && rates.error.empty(); ++i) {
        rates.input = i;
        CheckRates(*rate, check.inputs[i].samplerate.value_or(*rate), rates);
    }
    ComputeUnit(known, units);
    for (const Mismatch& found : {rates, units}) {
        if (found.error.empty()) continue;
        const auto port = static_cast<unsigned>(found.input);
        const bool isAboutInput =
            !found.error.starts_with("scale_unit:") && !found.error.starts_with("expression:");
        check.Refuse((isAboutInput ? std::string(portHelper->GetPortName(INPUT, port)) + ": " : "") +
                     found.error);
    }
}

TCForetoldSignal Math::ForetellOutput(int, std::span<const TCForetoldSignal> known) {
    TCForetoldSignal signal;
    Mismatch ignored;
    std::vector<std::optional<TCSI_Unit>> units;
    for (const TCForetoldSignal& input : known) units.push_back(input.unit);
    signal.samplerate = known.front().samplerate;
    signal.unit = ComputeUnit(units, ignored);
    return signal;
}

int Math::Init() {
    operation = GivenOperation();
    open = false;
    inputs.clear();
    inputs.resize(static_cast<std::size_t>(GetNoInput()));
    const std::string wrongCount = WhyWrongCount();
    return wrongCount.empty() ? TCBaseModuleEx::Init() : Fail(tc::MODULE_FAILED, wrongCount);
}

int Math::Execute() {
    int code = 0;
    for (std::size_t i = 0; i < inputs.size() && code >= 0; ++i) code = Take(i);
    if (code >= 0) code = Join();
    if (code < 0) inputs.clear();  // nothing of a run that failed counts as left out
    return code;
}

int Math::Take(std::size_t index) {
    const auto port = static_cast<unsigned>(index);
    const int code = portHelper->TakeBlock(port);
    if (code <= 0) return code;
    SignalQueue& signals = inputs[index].signals;
    const TCTypeInfo none;
    const TCTypeInfo* found = portHelper->LastTypeInfo(port);
    const TCTypeInfo& ti = found != nullptr ? *found : none;
    const SignalQueue::Signal* continued = signals.Continued(ti);
    std::string error;
    if (continued != nullptr && !tc::CheckGoesOn(*portHelper, port, continued->metadata, ti, error))
        return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(port, count);
    if (!signals.Add(ti, values, count)) return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED);
    if (inputs[index].over) LeaveOut(index);
    return 0;
}

int Math::Join() {
    while (IsReady()) {
        int code = open ? 0 : Begin();
        if (code < 0) return code;
        std::int64_t count = inputs.front().signals.Front().waiting;
        for (const Input& input : inputs) count = std::min(count, input.signals.Front().waiting);
        if (count == 0 && !IsOver()) return 0;
        const bool endsLate = count == 0 && position > 0;  // what was sent last did not say
        if (endsLate) Stamp();
        code = count > 0 ? Write(count) : 0;
        if (code < 0) return code;
        if (IsOver()) End();
        // Where the next signal follows at once, its first block says it.
        if (endsLate && !IsReady()) code = tc::WriteSamples(*portHelper, 0, metadata, nullptr, 0);
        if (code < 0) return code;
    }
    return 0;
}

bool Math::IsReady() const {
    return std::all_of(inputs.begin(), inputs.end(),
                       [](const Input& input) { return !input.over && !input.signals.IsEmpty(); });
}

int Math::Begin() {
    std::string error;
    metadata = Metadata(0);
    if (!CheckTimes(error) || !ComputeUnit(error)) return Fail(tc::MODULE_FAILED, error);
    DescribeResult();
    position = 0;
    open = true;
    return 0;
}

bool Math::CheckTimes(std::string& error) const {
    if (!tc::CheckRate(*portHelper, 0, Metadata(0), error)) return false;
    const double rate = Metadata(0).GetSamplerate();
    const double time = Metadata(0).GetTimestamp();
    for (std::size_t i = 1; i < inputs.size() && error.empty(); ++i) {
        const double otherRate = Metadata(i).GetSamplerate();
        const double apart = Metadata(i).GetTimestamp() - time;
        Mismatch found{{}, i};
        CheckRates(rate, otherRate, found);
        error = found.error;
        if (error.empty() && !(std::fabs(apart * rate / 1000.0) <= START_TOLERANCE)) {
            error = Bilingual(
                        "%1 and %2 begin %3 ms apart; a module Align before this one makes them begin "
                        "together",
                        "%1 und %2 beginnen %3 ms auseinander; ein Modul Align vor diesem lässt sie "
                        "gemeinsam beginnen")
                        .With({PortText(0), PortText(i), tc::ShortestText(apart)});
        }
    }
    return error.empty();
}

void Math::CheckRates(double rate, double otherRate, Mismatch& found) const {
    if (std::fabs(otherRate - rate) <= SAMPLERATE_TOLERANCE * std::fabs(rate)) return;
    found.error =
        Bilingual(
            "%1 and %2 have different samplerates, %3 and %4; allowed is one for all, as for the module "
            "Align",
            "%1 und %2 haben verschiedene Abtastraten, %3 und %4; erlaubt ist nur eine für alle, wie beim "
            "Modul "
            "Align")
            .With({PortText(0), PortText(found.input), tc::ShortestText(rate), tc::ShortestText(otherRate)});
}

// Into the metadata of the result.
bool Math::ComputeUnit(std::string& error) {
    Mismatch found;
    std::vector<std::optional<TCSI_Unit>> units;
    for (std::size_t i = 0; i < inputs.size(); ++i) units.emplace_back(Metadata(i).GetUnit());
    TCSI_Unit ignored;
    if (HasExpression() && !expression.Prepare(units, ignored, error)) return false;
    if (const std::optional<TCSI_Unit> unit = ComputeUnit(units, found)) metadata.SetUnit(*unit);
    error = found.error;
    return error.empty();
}

std::optional<TCSI_Unit> Math::ComputeExpressionUnit(const std::vector<std::optional<TCSI_Unit>>& units,
                                                     Mismatch& found) const {
    std::optional<TCSI_Unit> known;
    Expression probe = expression;
    if (expression.InputsNeeded() > units.size() || !probe.FindUnit(units, known, found.error)) return {};
    ScaleResult(known, found);
    return known;
}

bool Math::ScaleResult(std::optional<TCSI_Unit>& unit, Mismatch& found) const {
    if (!unit || !found.error.empty() || tc::ScaleUnit(*unit, scaleUnit, 1)) return true;
    found.error =
        Bilingual("scale_unit: no unit can hold the product of %1 and the inputs'",
                  "scale_unit: keine Einheit fasst das Produkt aus %1 und den Einheiten der Eingänge")
            .With({tc::UnitText(scaleUnit)});
    return false;
}

// Nothing where too little is known.
std::optional<TCSI_Unit> Math::ComputeUnit(const std::vector<std::optional<TCSI_Unit>>& units,
                                           Mismatch& found) const {
    if (HasExpression()) return ComputeExpressionUnit(units, found);
    const tc::Operation given = GivenOperation();
    const bool keeps = KeepsUnit(given);
    const std::string word(ParamStr("operation"));
    std::optional<TCSI_Unit> known = units.front();
    for (std::size_t i = 1; i < units.size() && known && found.error.empty(); ++i) {
        found.input = i;
        if (!units[i] && !keeps) known.reset();
        if (!units[i]) continue;
        const TCSI_Unit& other = *units[i];
        TCSI_Unit& unit = *known;
        if (keeps && !tc::IsConvertible(other, unit)) {
            found.error =
                Bilingual(
                    "%1 (%2) and %3 (%4) have different units; a %5 needs the same, or one that differs "
                    "by a factor",
                    "%1 (%2) und %3 (%4) haben verschiedene Einheiten; %5 braucht die gleiche oder eine, "
                    "die um einen Faktor abweicht")
                    .With({PortText(0), tc::UnitText(unit), PortText(i), tc::UnitText(other), word});
        } else if (!keeps && !tc::ScaleUnit(unit, other, given == tc::Operation::PRODUCT ? 1 : -1)) {
            found.error =
                Bilingual("no unit can hold the %1 of %2 (%3) and the inputs before it",
                          "%1: keine Einheit fasst das Ergebnis aus %2 (%3) und den Eingängen davor")
                    .With({word, PortText(i), tc::UnitText(other)});
        }
    }
    ScaleResult(known, found);
    return known;
}

tc::Operation Math::GivenOperation() const {
    return ParamChoice<OPERATIONS>("operation");
}

bool Math::KeepsUnit(tc::Operation kind) {
    return kind == tc::Operation::SUM || kind == tc::Operation::DIFFERENCE;
}

void Math::DescribeResult() {
    const std::string given(ParamStr("name"));
    const std::string own = HasExpression()     ? ParamText("expression")
                            : inputs.size() > 1 ? ParamText("operation")
                                                : tc::SignalName(*portHelper, 0, metadata);
    metadata.SetSignalnameString(given.empty() ? own : given);
    DescribeRange();
}

bool Math::OnLiveChanged(TCString&) {
    if (open) DescribeRange();
    return true;
}

void Math::DescribeRange() {
    tc::ValueRange range = RangeOf(0);
    for (std::size_t i = 1; i < inputs.size(); ++i) range = tc::Combine(operation, range, RangeOf(i));
    if (HasExpression()) range = tc::AnyValue();
    range = tc::Combine(tc::Operation::PRODUCT, range, {scale, scale});
    range = tc::Combine(tc::Operation::SUM, range, {offset, offset});
    metadata.SetRangeMin(range.low);
    metadata.SetRangeMax(range.high);
}

tc::ValueRange Math::RangeOf(std::size_t index) const {
    double ends[] = {Metadata(index).GetRangeMin(), Metadata(index).GetRangeMax()};
    ToCommonUnit(index, ends, std::size(ends));
    return {ends[0], ends[1]};
}

void Math::ToCommonUnit(std::size_t index, double* values, std::size_t count) const {
    if (KeepsUnit(operation)) tc::Convert(values, count, Metadata(index).GetUnit(), Metadata(0).GetUnit());
}

// Into the result; false when a queue is broken.
bool Math::Combine(std::int64_t count) {
    const auto size = static_cast<std::size_t>(count);
    operand.resize(size);
    bool whole = inputs[0].signals.Take(result.data(), count);
    for (std::size_t i = 1; i < inputs.size(); ++i) {
        whole = inputs[i].signals.Take(operand.data(), count) && whole;
        ToCommonUnit(i, operand.data(), size);
        tc::Combine(operation, result.data(), operand.data(), size);
    }
    return whole;
}

bool Math::ComputeExpression(std::int64_t count) {
    const auto size = static_cast<std::size_t>(count);
    bool whole = true;
    taken.resize(inputs.size());
    takenAt.resize(inputs.size());
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        taken[i].resize(size);
        takenAt[i] = taken[i].data();
        whole = inputs[i].signals.Take(taken[i].data(), count) && whole;
    }
    expression.Compute(takenAt, result.data(), size);
    return whole;
}

int Math::Write(std::int64_t count) {
    const auto size = static_cast<std::size_t>(count);
    result.resize(size);
    if (!(HasExpression() ? ComputeExpression(count) : Combine(count)))
        return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED);
    const double factor = scale;
    const double shift = offset;
    if (factor != 1.0 || shift != 0.0)
        for (double& value : result) value = factor * value + shift;
    Stamp();
    position += count;
    return tc::WriteSamples(*portHelper, 0, metadata, result.data(), size);
}

// The metadata of the block that is sent next, whose samples have been taken.
void Math::Stamp() {
    metadata.SetTimestamp(Metadata(0).GetTimestamp() +
                          1000.0 * static_cast<double>(position) / metadata.GetSamplerate());
    metadata.SetState(tc::BlockState(position == 0, IsOver()));
}

// Whether one of the signals has ended.
bool Math::IsOver() const {
    return std::any_of(inputs.begin(), inputs.end(), [](const Input& input) { return input.HasEnded(); });
}

void Math::End() {
    const auto ended =
        std::find_if(inputs.begin(), inputs.end(), [](const Input& input) { return input.HasEnded(); });
    const auto which = static_cast<std::size_t>(ended - inputs.begin());
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        inputs[i].endedBefore = which;
        inputs[i].over = true;
        LeaveOut(i);
    }
    open = false;
}

// Drops what has come of a signal that goes on after the result; at its end the next one may begin.
void Math::LeaveOut(std::size_t index) {
    Input& input = inputs[index];
    input.leftOut += input.signals.Drop();
    if (!input.HasEnded()) return;
    TellLeftOut(index);
    input.signals.Pop();
    input.over = false;
}

void Math::TellLeftOut(std::size_t index) {
    const std::int64_t count = std::exchange(inputs[index].leftOut, 0);
    if (count == 0) return;
    Warn(Bilingual("%1 goes on where %2 has no more; samples left out: %3",
                   "%1 liefert weiter, wo %2 nichts mehr hat; ausgelassene Abtastwerte: %3"),
         {PortText(index), PortText(inputs[index].endedBefore), std::to_string(count)});
}

// What still waits has no partner: an input had no signal, or one that was not ended.
int Math::Done() {
    std::size_t missing = 0;
    for (std::size_t i = 0; i < inputs.size(); ++i)
        if (inputs[i].signals.IsEmpty() || inputs[i].signals.Front().waiting == 0) missing = i;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (!inputs[i].over) inputs[i].endedBefore = missing;
        for (; !inputs[i].signals.IsEmpty(); inputs[i].signals.Pop())
            inputs[i].leftOut += inputs[i].signals.Drop();
        TellLeftOut(i);
    }
    return TCBaseModuleEx::Done();
}

std::string Math::PortText(std::size_t index) const {
    return tc::InputName(*portHelper, static_cast<unsigned>(index));
}

TC_MODULE_LIBRARY(Math);
