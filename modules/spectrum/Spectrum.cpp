#include "modules/spectrum/Spectrum.h"

#include <algorithm>
#include <cmath>

#include "modules/common/EachInput.h"
#include "modules/spectrum/SegmentSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

enum class Average { FIRST, POWER };
constexpr tc::Choice<Average> AVERAGES[] = {{"first", Average::FIRST}, {"power", Average::POWER}};

constexpr TCModuleParameter PARAMETERS[] = {
    tc::SegmentLength("8192", 16777216.0),
    tc::WINDOW_PARAMETER,
    tc::BETA_PARAMETER,
    tc::SegmentOverlap("0", {"average", "power"}),
    {.name = "average",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "power",
     .help = {"the first segment only, or the root of the mean power of all",
              "nur der erste Abschnitt, oder die Wurzel der mittleren Leistung aller"},
     .choices = tc::CHOICE_WORDS<AVERAGES>,
     .label = {"Averaging", "Mittelung"},
     .group = tc::SEGMENTS_GROUP},
    tc::ScaleParameter("none"),
};

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
    if (signal.unit) signal.unit = tc::ScaledUnit(ParamChoice<tc::SPECTRUM_SCALES>("scale"), *signal.unit);
    return signal;
}

int Spectrum::Init() {
    ClearResults();
    const int length = ParamInt("length");
    firstOnly = ParamChoice<AVERAGES>("average") == Average::FIRST;
    scale = ParamChoice<tc::SPECTRUM_SCALES>("scale");
    hop = tc::SegmentHop(length, ParamDbl("overlap"));
    if (transform == nullptr || transform->Length() != length)
        transform = std::make_unique<FourierTransform>(length);
    window = tc::MakeWindow(ParamChoice<tc::WINDOWS>("window"), ParamDbl("beta"), length);
    scaling = tc::SpectralScaling(scale, window);
    scratch.resize(static_cast<std::size_t>(transform->Bins()));
    signals.assign(static_cast<std::size_t>(GetNoInput()), Signal{});
    return TCBaseModuleEx::Init();
}

int Spectrum::Execute() {
    return tc::TakeFromEach(*portHelper, signals.size(), [&](unsigned input) {
        const TCTypeInfo* found = portHelper->LastTypeInfo(input);
        const TCTypeInfo metadata = found != nullptr ? *found : TCTypeInfo();
        Signal& signal = signals[input];
        if (!signal.open || tc::BeginsSignal(metadata.GetState())) Begin(signal, metadata);
        int count = 0;
        const double* values = portHelper->AccessDblData(input, count);
        const int code = Consume(input, values, count);
        return code >= 0 && tc::EndsSignal(metadata.GetState()) ? EndSignal(input) : code;
    });
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
    signal.segmenter.Begin(window.size(), hop);
    signal.used = signal.skipped = 0;
    signal.first = -1;
    signal.power.assign(scratch.size(), 0.0);
}

int Spectrum::Consume(unsigned input, const double* values, int count) {
    Signal& signal = signals[input];
    while (count > 0 && TakesMore(signal)) {
        const int part = signal.segmenter.Add(values, count);
        values += part;
        count -= part;
        if (!signal.segmenter.IsFull()) break;
        UseSegment(signal);
        signal.segmenter.Advance();
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
        Warn(tc::SEGMENTS_LEFT_OUT, {name, std::to_string(signal.skipped)});
    } else if (signal.used == 0) {
        Warn(tc::NO_WHOLE_SEGMENT,
             {name, std::to_string(signal.segmenter.Waiting()), std::to_string(window.size())});
    }
}

void Spectrum::UseSegment(Signal& signal) {
    if (!transform->Place(signal.segmenter.Segment(), window)) {
        ++signal.skipped;
        return;
    }
    transform->RunAndAdd(signal.power.data());
    if (signal.first < 0) signal.first = signal.segmenter.Position();
    ++signal.used;
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
    for (std::size_t k = 0; k < scratch.size(); ++k)
        scratch[k] = scaling.Value(k, signal.magnitudes[k], rate);
    ti.SetUnit(tc::ScaledUnit(scale, ti.GetUnit()));
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
    AddResult(name.c_str(), "peak_frequency", frequency, tc::Hertz());
    AddResult(name.c_str(), "peak_magnitude", *peak, unit);
    AddResult(name.c_str(), "peak_amplitude", *peak * scaling.AmplitudeFactor(bin), unit);
    if (scale != tc::SpectrumScale::NONE && scale != tc::SpectrumScale::AMPLITUDE)
        AddResult(name.c_str(), "peak_value", scaling.Value(bin, *peak, signal.measured.GetSamplerate()),
                  tc::ScaledUnit(scale, unit));
}

TC_MODULE_LIBRARY(Spectrum);
