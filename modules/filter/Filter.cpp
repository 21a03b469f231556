#include "modules/filter/Filter.h"

#include <algorithm>
#include <limits>

#include "modules/common/EachInput.h"
#include "modules/filter/FilterDesign.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

// What `type` says; a notch is no band.
enum class Type { LOWPASS, HIGHPASS, BANDPASS, BANDSTOP, NOTCH };

constexpr tc::Choice<Type> TYPES[] = {{"lowpass", Type::LOWPASS},
                                      {"highpass", Type::HIGHPASS},
                                      {"bandpass", Type::BANDPASS},
                                      {"bandstop", Type::BANDSTOP},
                                      {"notch", Type::NOTCH}};
constexpr tc::Choice<tc::FilterDesign> DESIGNS[] = {{"butterworth", tc::FilterDesign::BUTTERWORTH},
                                                    {"chebyshev1", tc::FilterDesign::CHEBYSHEV1},
                                                    {"chebyshev2", tc::FilterDesign::CHEBYSHEV2},
                                                    {"bessel", tc::FilterDesign::BESSEL}};

enum class Start { ZERO, SETTLED };
constexpr tc::Choice<Start> STARTS[] = {{"zero", Start::ZERO}, {"settled", Start::SETTLED}};

constexpr Bilingual BAND("Band", "Band");
constexpr Bilingual SHAPE("Shape", "Form");
constexpr Bilingual COURSE("Course", "Verlauf");
constexpr TCModuleParameter::Condition NO_NOTCH = {"type", "lowpass|highpass|bandpass|bandstop"};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "type",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "lowpass",
     .help = {"what it does; a notch stops a single frequency",
              "was es tut; notch sperrt eine einzelne Frequenz"},
     .choices = tc::CHOICE_WORDS<TYPES>,
     .label = {"Type", "Typ"},
     .group = BAND},
    {.name = "order",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "4",
     .help = {"of a low or high pass, and of each side of a band",
              "eines Tief- oder Hochpasses und jeder Seite eines Bandes"},
     .minimum = 1.0,
     .maximum = 12.0,
     .label = {"Order", "Ordnung"},
     .group = BAND,
     .enabledWhen = NO_NOTCH},
    {.name = "corner",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = nullptr,
     .unit = "Hz",
     .help =
         {"where a sine loses 3 dB, the ripple or the attenuation; the lower corner of a band, the middle "
          "of a notch",
          "wo ein Sinus 3 dB, die Welligkeit oder die Dämpfung verliert; bei einem Band die untere "
          "Grenze, bei notch die Mitte"},
     .label = {"Corner frequency", "Grenzfrequenz"},
     .group = BAND,
     .scale = TCModuleParameter::LOGARITHMIC,
     .live = true},
    {.name = "upper_corner",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "Hz",
     .help = {"of a band; must be given for one", "eines Bandes; für ein solches anzugeben"},
     .label = {"Upper corner frequency", "Obere Grenzfrequenz"},
     .group = BAND,
     .enabledWhen = {"type", "bandpass|bandstop"},
     .scale = TCModuleParameter::LOGARITHMIC,
     .live = true},
    {.name = "quality",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "30",
     .help = {"of a notch: its frequency by the width where a sine loses 3 dB",
              "von notch: die Frequenz durch die Breite, in der ein Sinus 3 dB verliert"},
     .minimum = 1.0,
     .maximum = 1e6,
     .label = {"Quality", "Güte"},
     .group = BAND,
     .enabledWhen = {"type", "notch"},
     .scale = TCModuleParameter::LOGARITHMIC},
    {.name = "design",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "butterworth",
     .help =
         {"flat, with ripple in the pass band (1) or in the stop band (2), or with the delay most even",
          "flach, mit Welligkeit im Durchlass- (1) oder Sperrbereich (2), oder mit gleichmäßiger Laufzeit"},
     .choices = tc::CHOICE_WORDS<DESIGNS>,
     .label = {"Design", "Entwurf"},
     .group = SHAPE,
     .enabledWhen = NO_NOTCH},
    {.name = "ripple",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1",
     .help = {"most decibels that chebyshev1 loses in the pass band",
              "so viele Dezibel verliert chebyshev1 höchstens im Durchlassbereich"},
     .minimum = 0.001,
     .maximum = 20.0,
     .label = {"Ripple in dB", "Welligkeit in dB"},
     .group = SHAPE,
     .enabledWhen = {"design", "chebyshev1"}},
    {.name = "attenuation",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "40",
     .help = {"least decibels that chebyshev2 loses in the stop band",
              "so viele Dezibel verliert chebyshev2 mindestens im Sperrbereich"},
     .minimum = 1.0,
     .maximum = 200.0,
     .label = {"Attenuation in dB", "Dämpfung in dB"},
     .group = SHAPE,
     .enabledWhen = {"design", "chebyshev2"}},
    {.name = "zero_phase",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = {"filters the whole signal forwards and backwards: no delay, and twice the decibels",
              "filtert das ganze Signal vorwärts und rückwärts: keine Verzögerung, doppelte Dezibel"},
     .label = {"Zero phase", "Ohne Phasendrehung"},
     .group = COURSE},
    {.name = "initial",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "zero",
     .help = {"as if the signal had been 0 before, or its first value",
              "als wäre das Signal vorher 0 gewesen, oder sein erster Wert"},
     .choices = tc::CHOICE_WORDS<STARTS>,
     .label = {"Initial state", "Anfangszustand"},
     .group = COURSE,
     .enabledWhen = {"zero_phase", "no"}},
    tc::MostSamples({"zero_phase", "yes"}, COURSE),
};

constexpr Bilingual NO_RESULT("%1: a value is not finite, or too large, and the signal without a result",
                              "%1: ein Wert ist nicht endlich oder zu groß, und das Signal ohne Ergebnis");

tc::FilterBand BandOf(Type type) {
    switch (type) {
        case Type::HIGHPASS:
            return tc::FilterBand::HIGHPASS;
        case Type::BANDPASS:
            return tc::FilterBand::BANDPASS;
        case Type::BANDSTOP:
            return tc::FilterBand::BANDSTOP;
        default:
            return tc::FilterBand::LOWPASS;
    }
}

// So that the ends of the signal leave no trace, it goes on at each by some samples, turned about its last
// value: three for each pole and three more, as is usual, if it has them.
void RunBothWays(tc::SectionCascade& cascade, std::size_t poles, std::vector<double>& values) {
    if (values.empty()) return;
    const std::size_t more = std::min(3 * (poles + 1), values.size() - 1);
    std::vector<double> before(more);
    std::vector<double> after(more);
    for (std::size_t i = 0; i < more; ++i) {
        before[i] = 2 * values.front() - values[more - i];
        after[i] = 2 * values.back() - values[values.size() - 2 - i];
    }
    const auto run = [&](std::vector<double>& part) {
        cascade.Run(part.data(), part.data(), static_cast<int>(part.size()));
    };
    cascade.Settle(more > 0 ? before.front() : values.front());
    run(before);
    run(values);
    run(after);
    std::ranges::reverse(values);
    std::ranges::reverse(after);
    cascade.Settle(more > 0 ? after.front() : values.front());
    run(after);
    run(values);
    std::ranges::reverse(values);
}

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
    foretoldRates.assign(check.inputs.size(), 0.0);
    for (unsigned input = 0; input < check.inputs.size(); ++input) {
        const double rate = check.inputs[input].samplerate.value_or(0.0);
        if (!(rate > 0.0)) continue;
        foretoldRates[input] = rate;
        const std::string reason = WhyBadCorners(rate, tc::SignalName(*portHelper, input, check));
        if (!reason.empty()) check.Refuse(reason);
    }
}

TCForetoldSignal Filter::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Filter::Init() {
    zeroPhase = ParamBool("zero_phase");
    settles = ParamChoice<STARTS>("initial") == Start::SETTLED;
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Filter::Fetch() {
    const bool sending = std::any_of(channels.begin(), channels.end(),
                                     [](const Channel& channel) { return channel.whole.IsSending(); });
    return sending ? 0 : TCBaseModuleEx::Fetch();
}

int Filter::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        WholeSignal& whole = channels[input].whole;
        int code = whole.IsSending() ? whole.Send(*portHelper, input) : portHelper->TakeBlock(input);
        if (code > 0) code = Take(input);
        if (code < 0) return code;
    }
    return 0;
}

bool Filter::HasUpperCorner() const {
    const Type type = ParamChoice<TYPES>("type");
    return type == Type::BANDPASS || type == Type::BANDSTOP;
}

int Filter::Take(unsigned input) {
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error) || (channel.track.Begins() && !Begin(input, error)))
        return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    if (!zeroPhase) return Pass(input, values, count);
    if (!channel.whole.Add(channel.track, values, count, static_cast<std::size_t>(ParamInt("most_samples")),
                           tc::SignalName(*portHelper, input, channel.track.Metadata()), error))
        return Fail(tc::MODULE_FAILED, error);
    return channel.track.Ends() ? EndWhole(input) : 0;
}

bool Filter::Begin(unsigned input, CString& error) {
    Channel& channel = channels[input];
    const TCTypeInfo& metadata = channel.track.Metadata();
    const double rate = metadata.GetSamplerate();
    channel.settled = channel.told = false;
    if (rate == channel.rate) {
        channel.cascade.Reset();
        return true;
    }
    error = WhyBadCorners(rate, tc::SignalName(*portHelper, input, metadata));
    if (!error.empty()) return false;
    channel.cascade = tc::SectionCascade(Sections(rate));
    channel.rate = rate;
    return true;
}

std::vector<tc::Section> Filter::Sections(double rate) const {
    const long double perSample = 1.0L / rate;
    const double corner = ParamDbl("corner");
    const double upper = HasUpperCorner() ? ParamDbl("upper_corner") : 0.0;
    const Type type = ParamChoice<TYPES>("type");
    if (type == Type::NOTCH) return {tc::DesignNotch(corner * perSample, ParamDbl("quality"))};
    return tc::DesignFilter(BandOf(type),
                            {.design = ParamChoice<DESIGNS>("design"),
                             .order = ParamInt("order"),
                             .ripple = ParamDbl("ripple"),
                             .attenuation = ParamDbl("attenuation")},
                            corner * perSample, upper * perSample);
}

// Whether the block that waits at the input belongs to another signal than the one before.
bool Filter::BeginsNext(unsigned input) const {
    const TCBLOCKSTATUS state = portHelper->PeekStatus(input, false, nullptr);
    return state != INVALID && (!channels[input].track.IsOpen() || tc::BeginsSignal(state));
}

// As for WhyBadCorners, of the signal that comes next at the input; nothing where its rate is not known.
std::string Filter::WhyBadCornersOfNext(unsigned input) const {
    const Channel& channel = channels[input];
    if (BeginsNext(input)) {
        TCTypeInfo next;
        portHelper->PeekTypeInfo(input, &next);
        return next.GetSamplerate() > 0.0
                   ? WhyBadCorners(next.GetSamplerate(), tc::SignalName(*portHelper, input, next))
                   : std::string();
    }
    if (channel.track.IsOpen())
        return WhyBadCorners(channel.rate, tc::SignalName(*portHelper, input, channel.track.Metadata()));
    const double foretold = input < foretoldRates.size() ? foretoldRates[input] : 0.0;
    return foretold > 0.0 ? WhyBadCorners(foretold, std::string(portHelper->GetPortName(INPUT, input)))
                          : std::string();
}

bool Filter::OnLiveChanged(TCString& error) {
    std::string reason = WhyBadCorners(0.0, "");
    for (unsigned input = 0; input < channels.size() && reason.empty(); ++input)
        reason = WhyBadCornersOfNext(input);
    error = reason.c_str();
    if (!reason.empty()) return false;
    for (unsigned input = 0; input < channels.size(); ++input) {
        Channel& channel = channels[input];
        if (channel.track.IsOpen() && !BeginsNext(input))
            channel.cascade.Redesign(Sections(channel.rate));
        else
            channel.rate = std::numeric_limits<double>::quiet_NaN();  // designed when its signal begins
    }
    return true;
}

int Filter::Pass(unsigned input, const double* values, int count) {
    Channel& channel = channels[input];
    const auto size = static_cast<std::size_t>(count);
    if (buffer.size() < size) buffer.resize(size);
    if (settles && !channel.settled && count > 0) channel.cascade.Settle(values[0]);
    channel.settled = channel.settled || count > 0;
    channel.cascade.Run(values, buffer.data(), count);
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    if (!channel.told && !channel.cascade.IsFinite()) {
        channel.told = true;
        Warn(tc::RESULT_SPOILT, {tc::SignalName(*portHelper, input, metadata)});
    }
    metadata.SetRangeMin(std::numeric_limits<double>::lowest());
    metadata.SetRangeMax(std::numeric_limits<double>::max());
    return tc::WriteSamples(*portHelper, input, metadata, buffer.data(), size);
}

int Filter::EndWhole(unsigned input) {
    Channel& channel = channels[input];
    const auto order = static_cast<std::size_t>(ParamInt("order"));
    const std::size_t poles = ParamChoice<TYPES>("type") == Type::NOTCH ? 2
                              : HasUpperCorner()                        ? 2 * order
                                                                        : order;
    RunBothWays(channel.cascade, poles, channel.whole.Values());
    if (!channel.cascade.IsFinite())
        Warn(NO_RESULT, {tc::SignalName(*portHelper, input, channel.whole.First())});
    channel.whole.BeginSending(std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max());
    return channel.whole.Send(*portHelper, input);
}

TC_MODULE_LIBRARY(Filter);
