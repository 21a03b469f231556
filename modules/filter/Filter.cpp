#include "modules/filter/Filter.h"

#include <limits>

#include "modules/filter/Butterworth.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr tc::Choice<tc::FilterBand> BANDS[] = {{"lowpass", tc::FilterBand::LOWPASS},
                                                {"highpass", tc::FilterBand::HIGHPASS},
                                                {"bandpass", tc::FilterBand::BANDPASS},
                                                {"bandstop", tc::FilterBand::BANDSTOP}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "type",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "lowpass",
     .help = {"what it does", "was es tut"},
     .choices = tc::CHOICE_WORDS<BANDS>,
     .label = {"Type", "Typ"}},
    {.name = "order",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "4",
     .help = {"of a low or high pass, and of each side of a band",
              "eines Tief- oder Hochpasses und jeder Seite eines Bandes"},
     .minimum = 1.0,
     .maximum = 12.0,
     .label = {"Order", "Ordnung"}},
    {.name = "corner",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = nullptr,
     .unit = "Hz",
     .help = {"where a sine loses 3 dB; the lower corner of a band",
              "wo ein Sinus 3 dB verliert; bei einem Band die untere Grenze"},
     .label = {"Corner frequency", "Grenzfrequenz"},
     .scale = TCModuleParameter::LOGARITHMIC,
     .live = true},
    {.name = "upper_corner",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "Hz",
     .help = {"of a band; must be given for one", "eines Bandes; für ein solches anzugeben"},
     .label = {"Upper corner frequency", "Obere Grenzfrequenz"},
     .enabledWhen = {"type", "bandpass|bandstop"},
     .scale = TCModuleParameter::LOGARITHMIC,
     .live = true},
};

// A line about a corner that does not lie above `least` and below half of the signal's `rate`; 0: it is not
// known yet.
void CheckCorner(const char* name, double corner, double least, double rate, const std::string& signal,
                 std::string& reason) {
    const bool known = rate != 0.0;
    if (corner > least && (!known || corner < rate / 2)) return;
    static constexpr Bilingual KNOWN("more than %1 Hz and less than %2 Hz",
                                     "mehr als %1 Hz und weniger als %2 Hz");
    static constexpr Bilingual UNKNOWN("more than %1 Hz and less than half the samplerate",
                                       "mehr als %1 Hz und weniger als die halbe Abtastrate");
    const std::string expected = known ? KNOWN.With({tc::ShortestText(least), tc::ShortestText(rate / 2)})
                                       : UNKNOWN.With({tc::ShortestText(least)});
    const std::string where =
        Bilingual("for '%1' at %2 samples per second", "für '%1' bei %2 Abtastwerten je Sekunde")
            .With({signal, tc::ShortestText(rate)});
    tc::AddReason(reason, tc::NotValid(name, tc::ShortestText(corner), expected, known ? where : ""));
}

}  // namespace

Filter::Filter(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Filter::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

bool Filter::OnSettingsChanged(TCString& error) {
    error = WhyBadCorners(0.0, "").c_str();
    return error.IsEmpty();
}

// A line for each corner that a signal of that rate cannot have; 0: it is not known yet.
std::string Filter::WhyBadCorners(double rate, const std::string& signal) const {
    std::string reason;
    const double corner = ParamDbl("corner");
    CheckCorner("corner", corner, 0.0, rate, signal, reason);
    if (HasUpperCorner()) CheckCorner("upper_corner", ParamDbl("upper_corner"), corner, rate, signal, reason);
    return reason;
}

void Filter::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
    for (unsigned input = 0; input < check.inputs.size(); ++input) {
        const double rate = check.inputs[input].samplerate.value_or(0.0);
        if (!(rate > 0.0)) continue;
        const std::string reason = WhyBadCorners(rate, tc::SignalName(*portHelper, input, check));
        if (!reason.empty()) check.Refuse(reason);
    }
}

TCForetoldSignal Filter::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Filter::Init() {
    channels.assign(static_cast<std::size_t>(GetNoInput()), Channel{});
    return TCBaseModuleEx::Init();
}

int Filter::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        int code = portHelper->TakeBlock(input);
        if (code < 0) return code;
        if (code == 0) continue;
        code = Prepare(input);
        if (code >= 0) code = Pass(input);
        if (code < 0) return code;
    }
    return 0;
}

bool Filter::HasUpperCorner() const {
    const tc::FilterBand band = ParamChoice<BANDS>("type");
    return band == tc::FilterBand::BANDPASS || band == tc::FilterBand::BANDSTOP;
}

int Filter::Prepare(unsigned input) {
    Channel& channel = channels[input];
    const TCTypeInfo none;
    const TCTypeInfo* found = portHelper->LastTypeInfo(input);
    const TCTypeInfo& metadata = found != nullptr ? *found : none;
    const bool begins = !channel.open || tc::BeginsSignal(metadata.GetState());
    std::string error;
    if (!begins && !tc::CheckGoesOn(*portHelper, input, channel.metadata, metadata, error))
        return Fail(tc::MODULE_FAILED, error);
    channel.metadata = metadata;
    if (!begins) return 0;
    channel.open = true;
    channel.told = false;
    if (metadata.GetSamplerate() != channel.rate) return Design(input);
    channel.cascade.Reset();
    return 0;
}

int Filter::Design(unsigned input) {
    Channel& channel = channels[input];
    const double rate = channel.metadata.GetSamplerate();
    std::string error;
    if (!tc::CheckRate(*portHelper, input, channel.metadata, error)) return Fail(tc::MODULE_FAILED, error);
    error = WhyBadCorners(rate, tc::SignalName(*portHelper, input, channel.metadata));
    if (!error.empty()) return Fail(tc::MODULE_FAILED, error);
    channel.cascade = tc::SectionCascade(Sections(rate));
    channel.rate = rate;
    return 0;
}

std::vector<tc::Section> Filter::Sections(double rate) const {
    const long double perSample = 1.0L / rate;
    const double corner = ParamDbl("corner");
    const double upper = HasUpperCorner() ? ParamDbl("upper_corner") : 0.0;
    return tc::DesignButterworth(ParamChoice<BANDS>("type"), ParamInt("order"), corner * perSample,
                                 upper * perSample);
}

bool Filter::OnLiveChanged(TCString& error) {
    std::string reason = WhyBadCorners(0.0, "");
    for (unsigned input = 0; input < channels.size() && reason.empty(); ++input)
        if (channels[input].open)
            reason = WhyBadCorners(channels[input].rate,
                                   tc::SignalName(*portHelper, input, channels[input].metadata));
    error = reason.c_str();
    for (Channel& channel : channels) {
        if (!reason.empty()) break;
        if (channel.open)
            channel.cascade.Redesign(Sections(channel.rate));
        else
            channel.rate = std::numeric_limits<double>::quiet_NaN();  // designed when its signal begins
    }
    return reason.empty();
}

int Filter::Pass(unsigned input) {
    Channel& channel = channels[input];
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    const auto size = static_cast<std::size_t>(count);
    if (buffer.size() < size) buffer.resize(size);
    channel.cascade.Run(values, buffer.data(), count);
    Watch(input);
    channel.open = !tc::EndsSignal(channel.metadata.GetState());
    channel.metadata.SetRangeMin(std::numeric_limits<double>::lowest());
    channel.metadata.SetRangeMax(std::numeric_limits<double>::max());
    return tc::WriteSamples(*portHelper, input, channel.metadata, buffer.data(), size);
}

void Filter::Watch(unsigned input) {
    Channel& channel = channels[input];
    if (channel.told || channel.cascade.IsFinite()) return;
    channel.told = true;
    Warn(Bilingual(
             "%1: after a value that is not finite, or too large, the rest of the signal is without "
             "a result",
             "%1: ein Wert, der nicht endlich oder zu groß ist, lässt den Rest des Signals ohne Ergebnis"),
         {tc::SignalName(*portHelper, input, channel.metadata)});
}

TC_MODULE_LIBRARY(Filter);
