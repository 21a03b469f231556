#include "modules/resample/Resample.h"

#include <limits>
#include <span>

#include "modules/common/EachInput.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

constexpr tc::Choice<ResampleQuality> QUALITIES[] = {{"quick", ResampleQuality::QUICK},
                                                     {"low", ResampleQuality::LOW},
                                                     {"medium", ResampleQuality::MEDIUM},
                                                     {"high", ResampleQuality::HIGH},
                                                     {"very_high", ResampleQuality::VERY_HIGH}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "rate",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = nullptr,
     .unit = "Hz",
     .help = {"samples per second of the output", "Abtastwerte je Sekunde des Ausgangs"},
     .minimum = 1e-6,
     .maximum = 1e12,
     .label = {"Samplerate", "Abtastrate"},
     .suggestions = "8000|16000|44100|48000|96000|192000"},
    {.name = "quality",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "very_high",
     .help = {"how much of the band is kept, and how far what is beyond it is stopped",
              "wie viel vom Band bleibt, und wie weit gesperrt wird, was darüber liegt"},
     .choices = tc::CHOICE_WORDS<QUALITIES>,
     .label = {"Quality", "Güte"}},
};

// Beyond these a filter, or what comes out of a block, would need more memory than there is.
constexpr double GREATEST_RATIO = 256.0;
constexpr double LEAST_RATIO = 1.0 / 4096.0;

// Empty when a signal of that rate can be converted.
CString WhyNotConvertible(double from, double to, const CString& signal) {
    if (to >= from * LEAST_RATIO && to <= from * GREATEST_RATIO) return "";
    return tc::NotValid(
        "rate", tc::ShortestText(to),
        tc::Bilingual("%1 to %2 Hz, a 4096th to 256 times as much",
                      "%1 bis %2 Hz, ein 4096stel bis zum 256-fachen davon")
            .With({tc::ShortestText(from * LEAST_RATIO), tc::ShortestText(from * GREATEST_RATIO)}),
        tc::Bilingual("for '%1' at %2 samples per second", "für '%1' bei %2 Abtastwerten je Sekunde")
            .With({signal, tc::ShortestText(from)}));
}

}  // namespace

Resample::Resample(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Resample::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

void Resample::CheckStart(TCStartCheck& check) {
    tc::CheckRates(*portHelper, check);
    for (unsigned input = 0; input < check.inputs.size(); ++input) {
        const double rate = check.inputs[input].samplerate.value_or(0.0);
        if (!(rate > 0.0)) continue;
        const CString error =
            WhyNotConvertible(rate, ParamDbl("rate"), tc::SignalName(*portHelper, input, check));
        if (!error.empty()) check.Refuse(error);
    }
}

TCForetoldSignal Resample::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    TCForetoldSignal signal = inputs[static_cast<std::size_t>(output)];
    signal.samplerate = ParamDbl("rate");
    return signal;
}

int Resample::Init() {
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Resample::Execute() {
    return tc::TakeFromEach(*portHelper, channels.size(), [&](unsigned input) { return Take(input); });
}

int Resample::Take(unsigned input) {
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error)) return Fail(tc::MODULE_FAILED, error);
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    const auto name = [&] { return tc::SignalName(*portHelper, input, metadata); };
    const double rate = ParamDbl("rate");
    if (channel.track.Begins()) {
        error = WhyNotConvertible(metadata.GetSamplerate(), rate, name());
        if (!error.empty()) return Fail(tc::MODULE_FAILED, error);
        if (!channel.converter.Begin(metadata.GetSamplerate(), rate, ParamChoice<QUALITIES>("quality"),
                                     error))
            return Fail(tc::MODULE_FAILED,
                        {"rate: '%1' cannot be made of the samplerate %2 of '%3': %4",
                         "rate: '%1' ist aus der Abtastrate %2 von '%3' nicht zu gewinnen: %4"},
                        {tc::ShortestText(rate), tc::ShortestText(metadata.GetSamplerate()), name(), error});
        channel.begin = metadata.GetTimestamp();
        channel.sent = 0;
        channel.first = true;
    }
    const bool ends = channel.track.Ends();
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    std::span<const double> output;
    if (!channel.converter.Run(values, count, ends, output, error))
        return Fail(tc::MODULE_FAILED, {"'%1' cannot be resampled: %2", "'%1' ist nicht umzutasten: %2"},
                    {name(), error});
    if (ends && channel.converter.LeftOut() > 0)
        Warn(tc::COUNTED_AS_0, {name(), std::to_string(channel.converter.LeftOut())});
    if (output.empty() && !ends) return 0;
    metadata.SetTimestamp(channel.begin + 1000.0 * static_cast<double>(channel.sent) / rate);
    metadata.SetSamplerate(rate);
    metadata.SetRangeMin(std::numeric_limits<double>::lowest());
    metadata.SetRangeMax(std::numeric_limits<double>::max());
    metadata.SetState(tc::BlockState(channel.first, ends));
    channel.first = false;
    channel.sent += static_cast<std::int64_t>(output.size());
    return tc::WriteSamples(*portHelper, input, metadata, output.data(), output.size());
}

TC_MODULE_LIBRARY(Resample);
