#include "modules/weighting/Weighting.h"

#include <limits>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::WeightingCurve;

constexpr tc::Choice<WeightingCurve> CURVES[] = {
    {"A", WeightingCurve::A}, {"C", WeightingCurve::C}, {"Z", WeightingCurve::Z}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "curve",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "A",
     .help = {"the weighting of IEC 61672-1; Z changes nothing",
              "die Bewertung nach IEC 61672-1; Z ändert nichts"},
     .choices = tc::CHOICE_WORDS<CURVES>,
     .label = {"Frequency weighting", "Frequenzbewertung"}},
};

}  // namespace

Weighting::Weighting(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Weighting::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

void Weighting::CheckStart(TCStartCheck& check) {
    tc::CheckRates(*portHelper, check);
}

TCForetoldSignal Weighting::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Weighting::Init() {
    curve = ParamChoice<CURVES>("curve");
    channels.assign(static_cast<std::size_t>(GetNoInput()), Channel{});
    return TCBaseModuleEx::Init();
}

int Weighting::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        int code = portHelper->TakeBlock(input);
        if (code > 0) code = Pass(input);
        if (code < 0) return code;
    }
    return 0;
}

int Weighting::Pass(unsigned input) {
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error)) return Fail(tc::MODULE_FAILED, error);
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    if (channel.track.Begins()) {
        if (channel.rate != metadata.GetSamplerate())
            channel.cascade = tc::SectionCascade(tc::DesignWeighting(curve, metadata.GetSamplerate()));
        channel.rate = metadata.GetSamplerate();
        channel.cascade.Reset();
        channel.told = false;
    }
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    const auto size = static_cast<std::size_t>(count);
    if (curve == WeightingCurve::Z) return tc::WriteSamples(*portHelper, input, metadata, values, size);
    if (buffer.size() < size) buffer.resize(size);
    channel.cascade.Run(values, buffer.data(), count);
    if (!channel.told && !channel.cascade.IsFinite()) {
        channel.told = true;
        Warn(
            {"%1: after a value that is not finite, or too large, the rest of the signal is without a result",
             "%1: ein Wert, der nicht endlich oder zu groß ist, lässt den Rest des Signals ohne Ergebnis"},
            {tc::SignalName(*portHelper, input, metadata)});
    }
    metadata.SetRangeMin(std::numeric_limits<double>::lowest());
    metadata.SetRangeMax(std::numeric_limits<double>::max());
    return tc::WriteSamples(*portHelper, input, metadata, buffer.data(), size);
}

TC_MODULE_LIBRARY(Weighting);
