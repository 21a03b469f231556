#include "modules/peaks/Peaks.h"

#include <algorithm>
#include <cmath>

#include "modules/common/SignalQuantity.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

constexpr Bilingual CONDITIONS("Conditions", "Bedingungen");

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "height",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"least value of a peak, as 0.5 mV or 0.5, which counts in the signal's unit; empty: any",
              "kleinster Wert einer Spitze, wie 0.5 mV oder 0.5 in der Einheit des Signals; leer: jeder"},
     .label = {"Height", "Höhe"},
     .group = CONDITIONS},
    {.name = "prominence",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"least height above the valleys on both sides, as 0.5 mV or 0.5; empty: any",
              "kleinste Höhe über den Tälern auf beiden Seiten, wie 0.5 mV oder 0.5; leer: jede"},
     .label = {"Prominence", "Schartenhöhe"},
     .group = CONDITIONS},
    {.name = "distance",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "s",
     .help = {"least time between two peaks; of closer ones the higher counts",
              "kleinster Abstand zweier Spitzen; von näheren zählt die höhere"},
     .minimum = 0.0,
     .label = {"Distance", "Abstand"},
     .group = CONDITIONS},
    {.name = "width",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "s",
     .help = {"least width at half of the prominence", "kleinste Breite auf halber Schartenhöhe"},
     .minimum = 0.0,
     .label = {"Width", "Breite"},
     .group = CONDITIONS},
    tc::MostSamples({}, ""),
};

constexpr const char* QUANTITIES[] = {"height", "prominence"};

TCSI_Unit Seconds(int power) {
    TCSI_Unit unit;
    unit.SetExponent(TCSI_Unit::SECOND, power);
    return unit;
}

}  // namespace

Peaks::Peaks(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Peaks::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

bool Peaks::OnSettingsChanged(TCString& error) {
    return tc::CheckQuantities(*this, QUANTITIES, error);
}

// False, with the reasons, when a setting does not fit to the unit. Seconds become samples.
bool Peaks::FindLimits(const TCSI_Unit& unit, double rate, tc::PeakLimits& limits, CString& error) const {
    tc::ConvertQuantities(*this, unit, {{"height", &limits.height}, {"prominence", &limits.prominence}},
                          error);
    // 0.3 s are 108 samples at 360 Hz, although the product is slightly more.
    limits.distance = std::max(1.0, ParamDbl("distance") * rate * (1.0 - 1e-12));
    limits.width = ParamDbl("width") * rate;
    limits.needsWidth = IsGiven("width");
    return error.empty();
}

void Peaks::CheckStart(TCStartCheck& check) {
    tc::CheckRates(*portHelper, check);
    for (const TCForetoldSignal& signal : check.inputs) {
        tc::PeakLimits limits;
        CString error;
        if (signal.unit && !FindLimits(*signal.unit, 1.0, limits, error)) check.Refuse(error);
    }
}

TCForetoldSignal Peaks::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Peaks::Init() {
    ClearResults();
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Peaks::Fetch() {
    const bool sending = std::any_of(channels.begin(), channels.end(),
                                     [](const Channel& channel) { return channel.signal.IsSending(); });
    return sending ? 0 : TCBaseModuleEx::Fetch();
}

int Peaks::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        const int code = channels[input].signal.IsSending() ? channels[input].signal.Send(*portHelper, input)
                                                            : Take(input);
        if (code < 0) return code;
    }
    return 0;
}

int Peaks::Take(unsigned input) {
    if (const int taken = portHelper->TakeBlock(input); taken <= 0) return taken;
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error)) return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    if (!channel.signal.Add(channel.track, values, count, static_cast<std::size_t>(ParamInt("most_samples")),
                            tc::SignalName(*portHelper, input, channel.track.Metadata()), error))
        return Fail(tc::MODULE_FAILED, error);
    return channel.track.Ends() ? End(input) : 0;
}

int Peaks::End(unsigned input) {
    Channel& channel = channels[input];
    tc::PeakLimits limits;
    CString error;
    const TCTypeInfo& first = channel.signal.First();
    if (!FindLimits(first.GetUnit(), first.GetSamplerate(), limits, error))
        return Fail(tc::MODULE_FAILED, error);
    std::vector<double>& values = channel.signal.Values();
    channel.peaks = tc::FindPeaks(values, limits);
    std::fill(values.begin(), values.end(), 0.0);
    double greatest = 0.0;
    for (const tc::Peak& peak : channel.peaks) {
        values[peak.position] = peak.prominence;
        greatest = std::max(greatest, peak.prominence);
    }
    channel.measured = true;
    channel.signal.BeginSending(0.0, greatest);
    return channel.signal.Send(*portHelper, input);
}

int Peaks::Done() {
    ClearResults();
    for (unsigned input = 0; input < channels.size(); ++input) {
        const Channel& channel = channels[input];
        if (channel.measured) Report(input, channel);
        if (channel.track.IsOpen())
            Warn({"%1: the signal did not end; no peaks were looked for in its %2 samples",
                  "%1: das Signal endete nicht; in seinen %2 Abtastwerten wurden keine Spitzen gesucht"},
                 {tc::SignalName(*portHelper, input, channel.signal.First()),
                  std::to_string(channel.signal.Values().size())});
    }
    channels.clear();
    return TCBaseModuleEx::Done();
}

void Peaks::Report(unsigned input, const Channel& channel) {
    const CString name = tc::SignalName(*portHelper, input, channel.signal.First());
    const TCSI_Unit& unit = channel.signal.First().GetUnit();
    const double rate = channel.signal.First().GetSamplerate();
    const std::vector<tc::Peak>& peaks = channel.peaks;
    const auto add = [&](const char* quantity, double value, const TCSI_Unit& of) {
        AddResult(name.c_str(), quantity, value, of);
    };
    const auto count = static_cast<double>(peaks.size());
    add("peaks", count, TCSI_Unit());
    if (peaks.empty()) return;
    double height = 0.0;
    double prominence = 0.0;
    double width = 0.0;
    for (const tc::Peak& peak : peaks) {
        height += peak.height / count;
        prominence += peak.prominence / count;
        width += peak.width / count;
    }
    add("height_mean", height, unit);
    add("prominence_mean", prominence, unit);
    if (IsGiven("width")) add("width_mean", width / rate, Seconds(1));
    if (peaks.size() < 2) return;
    const auto interval = [&](std::size_t i) {
        return static_cast<double>(peaks[i + 1].position - peaks[i].position) / rate;
    };
    const double mean =
        static_cast<double>(peaks.back().position - peaks.front().position) / rate / (count - 1.0);
    double least = interval(0);
    double greatest = least;
    double squares = 0.0;
    for (std::size_t i = 0; i + 1 < peaks.size(); ++i) {
        least = std::min(least, interval(i));
        greatest = std::max(greatest, interval(i));
        squares += (interval(i) - mean) * (interval(i) - mean);
    }
    add("interval_mean", mean, Seconds(1));
    add("interval_min", least, Seconds(1));
    add("interval_max", greatest, Seconds(1));
    add("interval_stddev", std::sqrt(squares / (count - 1.0)), Seconds(1));
    add("rate", 1.0 / mean, Seconds(-1));
}

TC_MODULE_LIBRARY(Peaks);
