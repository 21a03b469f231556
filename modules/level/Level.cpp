#include "modules/level/Level.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::TimeWeighting;

constexpr tc::Choice<TimeWeighting> WEIGHTINGS[] = {
    {"fast", TimeWeighting::FAST}, {"slow", TimeWeighting::SLOW}, {"impulse", TimeWeighting::IMPULSE}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "time",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "fast",
     .help = {"time weighting: 125 ms, 1 s, or 35 ms with a decay of 1.5 s",
              "Zeitbewertung: 125 ms, 1 s, oder 35 ms mit einem Abfall von 1,5 s"},
     .choices = tc::CHOICE_WORDS<WEIGHTINGS>,
     .label = {"Time weighting", "Zeitbewertung"}},
    {.name = "interval",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.1",
     .unit = "s",
     .help = {"between two levels; rounded to whole samples, 0: a level for each sample",
              "zwischen zwei Pegeln; auf ganze Abtastwerte gerundet, 0: ein Pegel je Abtastwert"},
     .minimum = 0.0,
     .maximum = 86400.0,
     .label = {"Interval", "Abstand"}},
    {.name = "reference",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = tc::REFERENCE_HELP,
     .label = {"Reference", "Bezugswert"},
     .suggestions = "20 uPa|1 V|0.775 V|1 um/s^2|1 nm/s"},
};

constexpr struct {
    const char* quantity;
    double share;
} PERCENTILES[] = {{"L1_dB", 0.01}, {"L5_dB", 0.05},  {"L10_dB", 0.1}, {"L50_dB", 0.5},
                   {"L90_dB", 0.9}, {"L95_dB", 0.95}, {"L99_dB", 0.99}};

}  // namespace

Level::Level(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Level::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

bool Level::OnSettingsChanged(TCString& error) {
    CString reason;
    const bool allowed = tc::CheckReference(ParamText("reference"), reason);
    error = reason.c_str();
    return allowed;
}

void Level::CheckStart(TCStartCheck& check) {
    tc::CheckRates(*portHelper, check);
    for (const TCForetoldSignal& signal : check.inputs) {
        tc::LevelReference reference;
        CString error;
        if (signal.unit && !tc::FindReference(ParamText("reference"), *signal.unit, reference, error))
            check.Refuse(error);
    }
}

double Level::SamplesPerInterval(double rate) const {
    return std::max(1.0, std::round(ParamDbl("interval") * rate));
}

TCForetoldSignal Level::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    TCForetoldSignal signal = inputs[static_cast<std::size_t>(output)];
    if (signal.samplerate) signal.samplerate = *signal.samplerate / SamplesPerInterval(*signal.samplerate);
    signal.unit = TCSI_Unit();
    return signal;
}

int Level::Init() {
    ClearResults();
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Level::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        int code = portHelper->TakeBlock(input);
        if (code > 0) code = Take(input);
        if (code < 0) return code;
    }
    return 0;
}

int Level::Take(unsigned input) {
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error) || (channel.track.Begins() && !Begin(input, error)))
        return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    levels.clear();
    channel.meter.Add(values, count, levels);
    return Send(input);
}

bool Level::Begin(unsigned input, CString& error) {
    Channel& channel = channels[input];
    const TCTypeInfo& metadata = channel.track.Metadata();
    if (!tc::FindReference(ParamText("reference"), metadata.GetUnit(), channel.reference, error))
        return false;
    const double scale = tc::ToReference(metadata.GetUnit(), channel.reference);
    channel.scale = scale * scale;
    const double rate = metadata.GetSamplerate();
    channel.meter = tc::LevelMeter(ParamChoice<WEIGHTINGS>("time"), rate,
                                   static_cast<std::int64_t>(std::min(SamplesPerInterval(rate), 9e18)));
    channel.measured = channel.first = true;
    channel.begin = metadata.GetTimestamp();
    channel.sent = 0;
    return true;
}

int Level::Send(unsigned input) {
    Channel& channel = channels[input];
    const bool ends = channel.track.Ends();
    if (levels.empty() && !ends) return 0;
    for (double& level : levels) level = tc::DecibelsOfPower(level * channel.scale);
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    const double rate = metadata.GetSamplerate();
    const double interval = SamplesPerInterval(rate);
    const double sample = static_cast<double>(channel.sent + 1) * interval - 1.0;
    metadata.SetTimestamp(channel.begin + 1000.0 * sample / rate);
    metadata.SetSamplerate(rate / interval);
    metadata.SetUnit(TCSI_Unit());
    metadata.SetRangeMin(std::numeric_limits<double>::lowest());
    metadata.SetRangeMax(std::numeric_limits<double>::max());
    metadata.SetState(tc::BlockState(channel.first, ends));
    channel.first = false;
    channel.sent += static_cast<std::int64_t>(levels.size());
    return tc::WriteSamples(*portHelper, input, metadata, levels.data(), levels.size());
}

int Level::Done() {
    ClearResults();
    for (unsigned input = 0; input < channels.size(); ++input)
        if (channels[input].measured) Report(input, channels[input]);
    channels.clear();
    return TCBaseModuleEx::Done();
}

void Level::Report(unsigned input, const Channel& channel) {
    const tc::LevelMeter& meter = channel.meter;
    const TCTypeInfo& metadata = channel.track.Metadata();
    const CString name = tc::SignalName(*portHelper, input, metadata);
    const auto add = [&](const char* quantity, double power) {
        AddResult(name.c_str(), quantity, tc::DecibelsOfPower(power * channel.scale), TCSI_Unit());
    };
    if (meter.LeftOut() > 0)
        Warn({"%1: values left out that are not finite: %2",
              "%1: ausgelassene Werte, die nicht endlich sind: %2"},
             {name, std::to_string(meter.LeftOut())});
    AddResult(name.c_str(), "reference", channel.reference.value, channel.reference.unit);
    if (meter.Samples() == 0) return;
    add("Leq_dB", meter.MeanPower());
    add("LE_dB", meter.MeanPower() * static_cast<double>(meter.Samples()) / metadata.GetSamplerate());
    add("Lpeak_dB", meter.PeakPower());
    add("Lmax_dB", meter.GreatestPower());
    if (meter.HasSettled()) add("Lmin_dB", meter.LeastPower());
    if (meter.SettledIntervals() == 0) return;
    for (const auto& percentile : PERCENTILES)
        add(percentile.quantity, meter.ExceededPower(percentile.share));
}

TC_MODULE_LIBRARY(Level);
