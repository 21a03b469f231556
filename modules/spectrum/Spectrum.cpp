#include "modules/spectrum/Spectrum.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "modules/spectrum/Window.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;
using Scale = Spectrum::Scale;

constexpr Bilingual SEGMENTS("Segments", "Abschnitte");

constexpr tc::Choice<Scale> SCALES[] = {{"none", Scale::NONE},       {"amplitude", Scale::AMPLITUDE},
                                        {"rms", Scale::RMS},         {"power", Scale::POWER},
                                        {"density", Scale::DENSITY}, {"root_density", Scale::ROOT_DENSITY}};

enum class Average { FIRST, POWER };
constexpr tc::Choice<Average> AVERAGES[] = {{"first", Average::FIRST}, {"power", Average::POWER}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "length",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "8192",
     .help = {"samples per segment", "Abtastwerte je Abschnitt"},
     .minimum = 2.0,
     .maximum = 16777216.0,
     .label = {"Segment length", "Abschnittslänge"},
     .group = SEGMENTS},
    {.name = "window",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "hann",
     .help = {"weights of a segment, each in its periodic form",
              "Gewichte eines Abschnitts, jeweils in periodischer Form"},
     .choices = tc::CHOICE_WORDS<tc::WINDOWS>,
     .label = {"Window", "Fenster"},
     .group = SEGMENTS},
    {.name = "beta",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "8.6",
     .help = {"of a Kaiser window: the greater, the wider its main lobe and the lower its side lobes",
              "eines Kaiser-Fensters: je größer, desto breiter die Hauptkeule und niedriger die Nebenkeulen"},
     .minimum = 0.0,
     .maximum = 100.0,
     .label = {"Kaiser beta", "Kaiser-Beta"},
     .group = SEGMENTS,
     .enabledWhen = {"window", "kaiser"}},
    {.name = "overlap",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .help = {"share of a segment that the next one repeats",
              "Anteil eines Abschnitts, den der nächste wiederholt"},
     .minimum = 0.0,
     .maximum = 0.99,
     .label = {"Overlap", "Überlappung"},
     .group = SEGMENTS,
     .enabledWhen = {"average", "power"}},
    {.name = "average",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "power",
     .help = {"the first segment only, or the root of the mean power of all",
              "nur der erste Abschnitt, oder die Wurzel der mittleren Leistung aller"},
     .choices = tc::CHOICE_WORDS<AVERAGES>,
     .label = {"Averaging", "Mittelung"},
     .group = SEGMENTS},
    {.name = "scale",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "none",
     .help = {"of the output: |X[k]|, amplitude, rms or power of a sine, power per Hz, or the root of that",
              "der Ausgabe: |X[k]|, Amplitude, Effektivwert oder Leistung eines Sinus, Leistung je Hz oder "
              "deren Wurzel"},
     .choices = tc::CHOICE_WORDS<SCALES>,
     .label = {"Scaling", "Skalierung"}},
};

TCSI_Unit Hertz() {
    TCSI_Unit unit;
    unit.SetExponent(TCSI_Unit::SECOND, -1);
    return unit;
}

// Roots of units cannot be held: the root of a density has none.
TCSI_Unit ScaledUnit(Scale scale, TCSI_Unit unit) {
    if (scale == Scale::ROOT_DENSITY) return {};
    const TCSI_Unit own = unit;
    if (scale == Scale::POWER || scale == Scale::DENSITY) unit.multiply(own);
    if (scale == Scale::DENSITY) unit.divide(Hertz());
    return unit;
}

}  // namespace

Spectrum::Spectrum(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Spectrum::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "FREQ_DOMAIN");
}

void Spectrum::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
}

TCForetoldSignal Spectrum::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    TCForetoldSignal signal = inputs[static_cast<std::size_t>(output)];
    if (signal.name && signal.name->IsEmpty())
        signal.name = portHelper->GetPortName(INPUT, static_cast<unsigned>(output));
    if (signal.samplerate) signal.samplerate = ParamInt("length") / *signal.samplerate;  // bins per Hz
    if (signal.unit) signal.unit = ScaledUnit(ParamChoice<SCALES>("scale"), *signal.unit);
    return signal;
}

int Spectrum::Init() {
    ClearResults();
    const int length = ParamInt("length");
    firstOnly = ParamChoice<AVERAGES>("average") == Average::FIRST;
    scale = ParamChoice<SCALES>("scale");
    hop =
        std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(length * (1.0 - ParamDbl("overlap")))));
    if (transform == nullptr || transform->Length() != length)
        transform = std::make_unique<FourierTransform>(length);
    window = tc::MakeWindow(ParamChoice<tc::WINDOWS>("window"), ParamDbl("beta"), length);
    windowSum = std::accumulate(window.begin(), window.end(), 0.0);
    windowPower = std::inner_product(window.begin(), window.end(), window.begin(), 0.0);
    scratch.resize(static_cast<std::size_t>(transform->Bins()));
    signals.assign(static_cast<std::size_t>(GetNoInput()), Signal{});
    return TCBaseModuleEx::Init();
}

int Spectrum::Execute() {
    for (unsigned input = 0; input < signals.size(); ++input) {
        int code = portHelper->TakeBlock(input);
        if (code < 0) return code;
        if (code == 0) continue;
        const TCTypeInfo* found = portHelper->LastTypeInfo(input);
        const TCTypeInfo metadata = found != nullptr ? *found : TCTypeInfo();
        Signal& signal = signals[input];
        if (!signal.open || tc::BeginsSignal(metadata.GetState())) Begin(signal, metadata);
        int count = 0;
        const double* values = portHelper->AccessDblData(input, count);
        code = Consume(input, values, count);
        if (code >= 0 && tc::EndsSignal(metadata.GetState())) code = EndSignal(input);
        if (code < 0) return code;
    }
    return 0;
}

int Spectrum::Done() {
    ClearResults();
    for (unsigned input = 0; input < signals.size(); ++input) {
        if (signals[input].open) WarnOfLoss(input);
        if (!signals[input].magnitudes.empty()) Report(input, signals[input]);
    }
    signals.clear();
    return TCBaseModuleEx::Done();
}

void Spectrum::Begin(Signal& signal, const TCTypeInfo& ti) const {
    signal.metadata = ti;
    signal.open = true;
    signal.segment.clear();
    signal.segment.reserve(window.size());
    signal.position = signal.used = signal.skipped = 0;
    signal.first = -1;
    signal.power.assign(scratch.size(), 0.0);
}

int Spectrum::Consume(unsigned input, const double* values, int count) {
    Signal& signal = signals[input];
    const double* end = values + count;
    while (values != end && TakesMore(signal)) {
        const std::size_t room = window.size() - signal.segment.size();
        const double* part =
            values + std::min<std::ptrdiff_t>(end - values, static_cast<std::ptrdiff_t>(room));
        signal.segment.insert(signal.segment.end(), values, part);
        values = part;
        if (signal.segment.size() < window.size()) break;
        UseSegment(signal);
        signal.segment.erase(signal.segment.begin(),
                             signal.segment.begin() + static_cast<std::ptrdiff_t>(hop));
        signal.position += static_cast<std::int64_t>(hop);
        if (firstOnly && signal.used > 0) return Write(input);
    }
    return 0;
}

int Spectrum::EndSignal(unsigned input) {
    Signal& signal = signals[input];
    signal.open = false;
    WarnOfLoss(input);
    return !firstOnly && signal.used > 0 ? Write(input) : 0;
}

// Of a signal that is over.
void Spectrum::WarnOfLoss(unsigned input) {
    const Signal& signal = signals[input];
    const std::string name = tc::SignalName(*portHelper, input, signal.metadata);
    if (signal.skipped > 0) {
        Warn(Bilingual("%1: segments left out for values that are not finite: %2",
                       "%1: Abschnitte, die wegen nicht endlicher Werte ausgelassen wurden: %2"),
             {name, std::to_string(signal.skipped)});
    } else if (signal.used == 0) {
        Warn(Bilingual("%1: no spectrum of %2 samples; one segment is %3 samples long",
                       "%1: kein Spektrum aus %2 Abtastwerten; ein Abschnitt ist %3 Abtastwerte lang"),
             {name, std::to_string(signal.segment.size()), std::to_string(window.size())});
    }
}

void Spectrum::UseSegment(Signal& signal) {
    if (!FillTransform(signal.segment)) {
        ++signal.skipped;
        return;
    }
    transform->Run(scratch.data());
    for (std::size_t k = 0; k < scratch.size(); ++k) signal.power[k] += scratch[k] * scratch[k];
    if (signal.first < 0) signal.first = signal.position;
    ++signal.used;
}

bool Spectrum::FillTransform(const std::vector<double>& segment) {
    const long double sum = std::accumulate(segment.begin(), segment.end(), 0.0L);
    const auto mean = static_cast<double>(sum / static_cast<long double>(segment.size()));
    if (!std::isfinite(mean)) return false;
    double* values = transform->Input();
    for (std::size_t i = 0; i < segment.size(); ++i) values[i] = (segment[i] - mean) * window[i];
    return true;
}

int Spectrum::Write(unsigned output) {
    Signal& signal = signals[output];
    const auto used = static_cast<double>(signal.used);
    signal.magnitudes.resize(scratch.size());
    for (std::size_t k = 0; k < scratch.size(); ++k) signal.magnitudes[k] = std::sqrt(signal.power[k] / used);
    signal.measured = signal.metadata;
    const double rate = signal.metadata.GetSamplerate();
    TCTypeInfo ti = signal.metadata;
    ti.SetSignalname(tc::SignalName(*portHelper, output, ti).c_str());
    ti.SetTimestamp(ti.GetTimestamp() + 1000.0 * static_cast<double>(signal.first) / rate);
    ti.SetSamplerate(static_cast<double>(window.size()) / rate);
    ti.SetState(COMPLETE);
    for (std::size_t k = 0; k < scratch.size(); ++k) {
        scratch[k] = Scaled(k, signal.magnitudes[k], rate);
    }
    ti.SetUnit(ScaledUnit(scale, ti.GetUnit()));
    ti.SetRangeMin(0.0);
    ti.SetRangeMax(*std::max_element(scratch.begin(), scratch.end()));
    portHelper->SetTypeInfo(output, ti);
    return portHelper->WriteDblData(output, scratch.size(), scratch.data());
}

void Spectrum::Report(unsigned input, const Signal& signal) {
    const std::string name = tc::SignalName(*portHelper, input, signal.measured);
    const auto peak = std::max_element(signal.magnitudes.begin(), signal.magnitudes.end());
    const auto bin = static_cast<std::size_t>(peak - signal.magnitudes.begin());
    const double frequency =
        static_cast<double>(bin) * signal.measured.GetSamplerate() / static_cast<double>(window.size());
    const TCSI_Unit& unit = signal.measured.GetUnit();
    AddResult(name.c_str(), "peak_bin", static_cast<double>(bin), TCSI_Unit());
    AddResult(name.c_str(), "peak_frequency", frequency, Hertz());
    AddResult(name.c_str(), "peak_magnitude", *peak, unit);
    AddResult(name.c_str(), "peak_amplitude", *peak * AmplitudeFactor(bin), unit);
    if (scale != Scale::NONE && scale != Scale::AMPLITUDE)
        AddResult(name.c_str(), "peak_value", Scaled(bin, *peak, signal.measured.GetSamplerate()),
                  ScaledUnit(scale, unit));
}

// What is sent for the magnitude |X[k]|.
double Spectrum::Scaled(std::size_t bin, double magnitude, double rate) const {
    const double amplitude = magnitude * AmplitudeFactor(bin);
    // Of a sine its power is half the square of its amplitude, of a constant all of it.
    const double power = amplitude * amplitude * (IsMirrored(bin) ? 0.5 : 1.0);
    const double density = power * (windowSum / windowPower) * (windowSum / rate);
    switch (scale) {
        case Scale::NONE:
            return magnitude;
        case Scale::AMPLITUDE:
            return amplitude;
        case Scale::RMS:
            return std::sqrt(power);
        case Scale::POWER:
            return power;
        case Scale::DENSITY:
            return density;
        case Scale::ROOT_DENSITY:
            return std::sqrt(density);
    }
    return magnitude;
}

// A sine's power is split between a bin and its mirror image; 0 Hz and half the rate have none.
double Spectrum::AmplitudeFactor(std::size_t bin) const {
    return (IsMirrored(bin) ? 2.0 : 1.0) / windowSum;
}

TC_MODULE_LIBRARY(Spectrum);
