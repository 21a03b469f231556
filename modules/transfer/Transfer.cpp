#include "modules/transfer/Transfer.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numbers>
#include <utility>

#include "modules/spectrum/Window.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

enum class Estimator { H1, H2 };
constexpr tc::Choice<Estimator> ESTIMATORS[] = {{"H1", Estimator::H1}, {"H2", Estimator::H2}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "estimator",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "H1",
     .help = {"H1 is right when noise comes in after the system, H2 when it is in the first signal",
              "H1 stimmt, wenn Rauschen hinter dem System dazukommt, H2, wenn es im ersten Signal steckt"},
     .choices = tc::CHOICE_WORDS<ESTIMATORS>,
     .label = {"Estimator", "Schätzer"}},
    {.name = "length",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "4096",
     .help = {"samples per segment", "Abtastwerte je Abschnitt"},
     .minimum = 2.0,
     .maximum = 1048576.0,
     .label = {"Length", "Länge"}},
    {.name = "window",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "hann",
     .help = {"weights of a segment, each in its periodic form",
              "Gewichte eines Abschnitts, jeweils in periodischer Form"},
     .choices = tc::CHOICE_WORDS<tc::WINDOWS>,
     .label = {"Window", "Fenster"}},
    {.name = "beta",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "8.6",
     .help = {"of a Kaiser window", "eines Kaiser-Fensters"},
     .minimum = 0.0,
     .maximum = 100.0,
     .label = {"Kaiser beta", "Kaiser-Beta"},
     .enabledWhen = {"window", "kaiser"}},
    {.name = "overlap",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.5",
     .help = {"share of a segment that the next one repeats",
              "Anteil eines Abschnitts, den der nächste wiederholt"},
     .minimum = 0.0,
     .maximum = 0.99,
     .label = {"Overlap", "Überlappung"}},
};

constexpr const char* OUTPUTS[] = {"Magnitude", "Phase", "Coherence"};
constexpr std::int64_t FEWEST_SEGMENTS = 5;

TCSI_Unit Quotient(TCSI_Unit unit, const TCSI_Unit& divisor) {
    unit.divide(divisor);
    return unit;
}

}  // namespace

Transfer::Transfer(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Transfer::OnInputsDeclared(int count) {
    unsigned output = 0;
    for (int signal = 2; signal <= std::max(count, 2); ++signal)
        for (const char* name : OUTPUTS)
            portHelper->SetPort(OUTPUT, output++,
                                (count > 2 ? std::string(name) + " " + std::to_string(signal) : name).c_str(),
                                "DOUBLE[]", "FREQ_DOMAIN", true);
}

std::string Transfer::WhyWrongCount() const {
    if (portHelper->GetPortCnt(INPUT) >= 2) return "";
    return Bilingual("one input is wired; expected the reference and at least one more",
                     "ein Eingang ist verbunden; erwartet werden die Bezugsgröße und mindestens einer mehr")
        .Text();
}

void Transfer::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    const std::string wrongCount = WhyWrongCount();
    if (!wrongCount.empty()) check.Refuse(wrongCount);
    tc::CheckRates(*portHelper, check);
    const std::optional<double> rate = check.inputs.front().samplerate;
    for (unsigned i = 1; i < check.inputs.size() && rate; ++i) {
        const double other = check.inputs[i].samplerate.value_or(*rate);
        if (std::fabs(other - *rate) <= 1e-9 * *rate) continue;
        check.Refuse(std::string(portHelper->GetPortName(INPUT, i)) + ": " +
                     Bilingual("the samplerate is %1, that of the first signal %2; expected the same",
                               "die Abtastrate ist %1, die des ersten Signals %2; erwartet wird dieselbe")
                         .With({tc::ShortestText(other), tc::ShortestText(*rate)}));
    }
}

TCForetoldSignal Transfer::ForetellOutput(int output, std::span<const TCForetoldSignal> known) {
    const auto signal = static_cast<std::size_t>(output) / std::size(OUTPUTS) + 1;
    if (signal >= known.size()) return {};
    TCForetoldSignal foretold = known[signal];
    if (foretold.name && foretold.name->IsEmpty())
        foretold.name = portHelper->GetPortName(INPUT, static_cast<unsigned>(signal));
    if (foretold.samplerate) foretold.samplerate = ParamInt("length") / *foretold.samplerate;  // bins per Hz
    const bool isMagnitude = static_cast<std::size_t>(output) % std::size(OUTPUTS) == 0;
    if (!isMagnitude) foretold.unit = TCSI_Unit();
    if (isMagnitude && foretold.unit && known.front().unit)
        foretold.unit = Quotient(*foretold.unit, *known.front().unit);
    else if (isMagnitude)
        foretold.unit.reset();
    return foretold;
}

int Transfer::Init() {
    ClearResults();
    const std::string wrongCount = WhyWrongCount();
    if (!wrongCount.empty()) return Fail(tc::MODULE_FAILED, wrongCount);
    const int length = ParamInt("length");
    const auto hop =
        std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(length * (1.0 - ParamDbl("overlap")))));
    inputs.clear();
    inputs.resize(static_cast<std::size_t>(GetNoInput()));
    open = false;
    try {
        spectrum = std::make_unique<CrossSpectrum>(
            tc::MakeWindow(ParamChoice<tc::WINDOWS>("window"), ParamDbl("beta"), length), hop, inputs.size());
    } catch (const std::bad_alloc&) {
        return Fail(
            tc::MODULE_FAILED,
            {"length: no memory for %1 signals with segments of %2 samples; shorten the segments",
             "length: kein Speicher für %1 Signale mit Abschnitten aus %2 Abtastwerten; kürzen Sie die "
             "Abschnitte"},
            {std::to_string(inputs.size()), std::to_string(length)});
    }
    return TCBaseModuleEx::Init();
}

int Transfer::Execute() {
    int code = 0;
    for (unsigned port = 0; port < inputs.size() && code >= 0; ++port) code = Take(port);
    if (code >= 0) code = Join();
    if (code < 0) inputs.clear();  // nothing of a run that failed counts as left out
    return code;
}

int Transfer::Take(unsigned port) {
    const int code = portHelper->TakeBlock(port);
    if (code <= 0) return code;
    Input& input = inputs[port];
    const TCTypeInfo none;
    const TCTypeInfo* found = portHelper->LastTypeInfo(port);
    const TCTypeInfo& ti = found != nullptr ? *found : none;
    const SignalQueue::Signal* continued = input.signals.Continued(ti);
    CString error;
    if (!(continued != nullptr ? tc::CheckGoesOn(*portHelper, port, continued->metadata, ti, error)
                               : tc::CheckRate(*portHelper, port, ti, error)))
        return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* samples = portHelper->AccessDblData(port, count);
    if (!input.signals.Add(ti, samples, count)) return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED.Text());
    if (input.over) LeaveOut(port);
    return 0;
}

int Transfer::Join() {
    const auto isReady = [](const Input& input) { return !input.over && !input.signals.IsEmpty(); };
    while (std::all_of(inputs.begin(), inputs.end(), isReady)) {
        CString error;
        if (!open && !Begin(error)) return Fail(tc::MODULE_FAILED, error);
        if (!open) spectrum->Reset();
        open = true;
        auto count = static_cast<std::int64_t>(spectrum->Room());
        for (const Input& input : inputs) count = std::min(count, input.signals.Front().waiting);
        bool whole = true;
        for (std::size_t i = 0; i < inputs.size(); ++i)
            whole = inputs[i].signals.Take(spectrum->Next(i), count) && whole;
        if (!whole) return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED.Text());
        spectrum->Advance(static_cast<std::size_t>(count));
        if (std::any_of(inputs.begin(), inputs.end(), [](const Input& input) { return input.HasEnded(); }))
            return End();
        if (count == 0) break;
    }
    return 0;
}

bool Transfer::Begin(CString& error) const {
    const double rate = Metadata(0).GetSamplerate();
    for (unsigned i = 1; i < inputs.size(); ++i) {
        const double late = std::fabs(Metadata(i).GetTimestamp() - Metadata(0).GetTimestamp());
        const bool sameRate = std::fabs(Metadata(i).GetSamplerate() - rate) <= 1e-9 * rate;
        if (sameRate && late <= 500.0 / rate) continue;
        error = Bilingual(
                    "%1 and %2 do not begin at the same time or have different samplerates; the module "
                    "Align makes signals begin together",
                    "%1 und %2 beginnen nicht zur selben Zeit oder haben verschiedene Abtastraten; das "
                    "Modul Align lässt Signale zusammen beginnen")
                    .With({tc::InputName(*portHelper, 0), tc::InputName(*portHelper, i)});
        return false;
    }
    return true;
}

// The next signals of all inputs make the next result.
int Transfer::End() {
    open = false;
    ClearResults();
    const CString name = tc::SignalName(*portHelper, 0, Metadata(0));
    if (spectrum->Skipped() > 0)
        Warn({"%1: segments left out for values that are not finite: %2",
              "%1: Abschnitte, die wegen nicht endlicher Werte ausgelassen wurden: %2"},
             {name, std::to_string(spectrum->Skipped())});
    if (spectrum->Segments() < FEWEST_SEGMENTS)
        Warn({"%1: segments averaged: %2; with fewer than 5 the coherence says little, and with one it is 1",
              "%1: gemittelte Abschnitte: %2; unter 5 sagt die Kohärenz wenig, und bei einem ist sie 1"},
             {name, std::to_string(spectrum->Segments())});
    int code = 0;
    for (std::size_t signal = 1; signal < inputs.size() && spectrum->Segments() > 0 && code >= 0; ++signal) {
        AddResults(signal);
        code = Write(signal);
    }
    for (std::size_t i = 0; i < inputs.size(); ++i) LeaveOut(i);
    return code;
}

// Drops what has come of a signal that goes on after the others' end.
void Transfer::LeaveOut(std::size_t index) {
    Input& input = inputs[index];
    const bool ended = input.signals.Front().ended;
    input.leftOut += input.signals.Drop();
    input.over = !ended;
    if (!ended) return;
    input.signals.Pop();
    if (const std::int64_t count = std::exchange(input.leftOut, 0); count > 0)
        Warn({"%1 goes on where another signal has ended; samples left out: %2",
              "%1 liefert weiter, wo ein anderes Signal endet; ausgelassene Abtastwerte: %2"},
             {tc::InputName(*portHelper, static_cast<unsigned>(index)), std::to_string(count)});
}

int Transfer::Write(std::size_t signal) {
    const bool h2 = ParamChoice<ESTIMATORS>("estimator") == Estimator::H2;
    const std::size_t bins = spectrum->Bins();
    const auto first = static_cast<unsigned>((signal - 1) * std::size(OUTPUTS));
    values.resize(bins);
    double greatest = 0.0;
    for (std::size_t k = 0; k < bins; ++k) {
        const double cross = std::abs(spectrum->Cross(signal, k));
        values[k] = h2 ? spectrum->Power(signal, k) / cross : cross / spectrum->Power(0, k);
        if (std::isfinite(values[k])) greatest = std::max(greatest, values[k]);
    }
    int code =
        Send(first, signal, Quotient(Metadata(signal).GetUnit(), Metadata(0).GetUnit()), 0.0, greatest);
    for (std::size_t k = 0; k < bins; ++k) values[k] = std::arg(spectrum->Cross(signal, k));
    if (code >= 0) code = Send(first + 1, signal, {}, -std::numbers::pi, std::numbers::pi);
    for (std::size_t k = 0; k < bins; ++k)
        values[k] =
            std::norm(spectrum->Cross(signal, k)) / (spectrum->Power(0, k) * spectrum->Power(signal, k));
    return code >= 0 ? Send(first + 2, signal, {}, 0.0, 1.0) : code;
}

int Transfer::Send(unsigned output, std::size_t signal, const TCSI_Unit& unit, double minimum,
                   double maximum) {
    TCTypeInfo metadata = Metadata(signal);
    metadata.SetSignalname(tc::SignalName(*portHelper, static_cast<unsigned>(signal), metadata).c_str());
    metadata.SetSamplerate(ParamInt("length") / metadata.GetSamplerate());
    metadata.SetUnit(unit);
    metadata.SetRangeMin(minimum);
    metadata.SetRangeMax(maximum);
    metadata.SetState(COMPLETE);
    return tc::WriteSamples(*portHelper, output, metadata, values.data(), values.size());
}

void Transfer::AddResults(std::size_t signal) {
    const CString name = tc::SignalName(*portHelper, static_cast<unsigned>(signal), Metadata(signal));
    TCSI_Unit second;
    second.SetExponent(TCSI_Unit::SECOND, 1);
    AddResult(name.c_str(), "segments", static_cast<double>(spectrum->Segments()), TCSI_Unit());
    AddResult(name.c_str(), "delay", spectrum->Delay(signal) / Metadata(signal).GetSamplerate(), second);
}

int Transfer::Done() {
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        std::int64_t count = inputs[i].leftOut;
        for (; !inputs[i].signals.IsEmpty(); inputs[i].signals.Pop()) count += inputs[i].signals.Drop();
        if (count > 0 || open)
            Warn(
                {"%1: the signal did not end, or had no partner; samples left out: %2",
                 "%1: das Signal endete nicht, oder ihm fehlte ein Gegenstück; ausgelassene Abtastwerte: %2"},
                {tc::InputName(*portHelper, static_cast<unsigned>(i)), std::to_string(count)});
    }
    inputs.clear();
    open = false;
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Transfer);
