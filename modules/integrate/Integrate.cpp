#include "modules/integrate/Integrate.h"

#include <cmath>
#include <limits>

#include "modules/filter/Butterworth.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "highpass",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "Hz",
     .help = {"corner of the high pass before each integration, where a sine loses 3 dB; 0: none",
              "Grenze des Hochpasses vor jeder Integration, wo ein Sinus 3 dB verliert; 0: keiner"},
     .minimum = 0.0,
     .label = {"High pass", "Hochpass"},
     .scale = TCModuleParameter::LOGARITHMIC},
    {.name = "times",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1",
     .help = {"integrations, one after the other", "Integrationen hintereinander"},
     .minimum = 1.0,
     .maximum = 2.0,
     .label = {"Integrations", "Integrationen"}},
};

constexpr int ORDER = 2;

}  // namespace

Integrate::Integrate(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Integrate::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

// Empty for a corner that a signal of that rate can have.
CString Integrate::WhyBadCorner(double rate, const CString& signal) const {
    const double corner = ParamDbl("highpass");
    if (corner < rate / 2) return "";
    return tc::NotValid(
        "highpass", tc::ShortestText(corner),
        Bilingual("less than %1 Hz", "weniger als %1 Hz").With({tc::ShortestText(rate / 2)}),
        Bilingual("for '%1' at %2 samples per second", "für '%1' bei %2 Abtastwerten je Sekunde")
            .With({signal, tc::ShortestText(rate)}));
}

TCSI_Unit Integrate::Integrated(TCSI_Unit unit) const {
    TCSI_Unit seconds;
    seconds.SetExponent(TCSI_Unit::SECOND, ParamInt("times"));
    unit.multiply(seconds);
    return unit;
}

void Integrate::CheckStart(TCStartCheck& check) {
    tc::CheckRates(*portHelper, check);
    for (unsigned input = 0; input < check.inputs.size(); ++input) {
        const double rate = check.inputs[input].samplerate.value_or(0.0);
        if (!(rate > 0.0)) continue;
        const CString error = WhyBadCorner(rate, tc::SignalName(*portHelper, input, check));
        if (!error.empty()) check.Refuse(error);
    }
}

TCForetoldSignal Integrate::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    TCForetoldSignal signal = inputs[static_cast<std::size_t>(output)];
    if (signal.unit) signal.unit = Integrated(*signal.unit);
    return signal;
}

int Integrate::Init() {
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Integrate::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        int code = portHelper->TakeBlock(input);
        if (code > 0) code = Pass(input);
        if (code < 0) return code;
    }
    return 0;
}

bool Integrate::Begin(unsigned input, CString& error) {
    Channel& channel = channels[input];
    const TCTypeInfo& metadata = channel.track.Metadata();
    const double rate = metadata.GetSamplerate();
    error = WhyBadCorner(rate, tc::SignalName(*portHelper, input, metadata));
    if (!error.empty()) return false;
    const double corner = ParamDbl("highpass");
    Integrator integrator;
    // Behind a high pass the signal is taken to have been 0 before: half of its first sample belongs to the
    // area.
    integrator.begun = corner > 0.0;
    if (corner > 0.0)
        integrator.highpass = tc::SectionCascade(tc::DesignButterworth(
            tc::FilterBand::HIGHPASS, ORDER, static_cast<long double>(corner) / rate, 0.0));
    channel.integrators.assign(static_cast<std::size_t>(ParamInt("times")), integrator);
    channel.told = false;
    return true;
}

int Integrate::Pass(unsigned input) {
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error) || (channel.track.Begins() && !Begin(input, error)))
        return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    buffer.assign(values, values + count);
    for (Integrator& integrator : channel.integrators) {
        if (ParamDbl("highpass") > 0.0) integrator.highpass.Run(buffer.data(), buffer.data(), count);
        integrator.Run(buffer.data(), count, metadata.GetSamplerate());
    }
    if (!channel.told && count > 0 && !std::isfinite(buffer.back())) {
        channel.told = true;
        Warn(
            {"%1: after a value that is not finite, or too large, the rest of the signal is without a result",
             "%1: ein Wert, der nicht endlich oder zu groß ist, lässt den Rest des Signals ohne Ergebnis"},
            {tc::SignalName(*portHelper, input, metadata)});
    }
    metadata.SetUnit(Integrated(metadata.GetUnit()));
    metadata.SetRangeMin(std::numeric_limits<double>::lowest());
    metadata.SetRangeMax(std::numeric_limits<double>::max());
    return tc::WriteSamples(*portHelper, input, metadata, buffer.data(), buffer.size());
}

// The rest is added apart, so that a long signal costs no digits.
void Integrate::Integrator::Run(double* values, int count, double rate) {
    for (int i = 0; i < count; ++i) {
        const double value = values[i];
        const double area = (begun ? before + value : 0.0) - rest;
        const double next = sum + area;
        rest = (next - sum) - area;
        sum = next;
        before = value;
        begun = true;
        values[i] = sum / (2.0 * rate);
    }
}

TC_MODULE_LIBRARY(Integrate);
