#include "modules/delay/Delay.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

enum class By { SECONDS, SAMPLES };
constexpr tc::Choice<By> UNITS[] = {{"seconds", By::SECONDS}, {"samples", By::SAMPLES}};

enum class End { KEEP, CUT };
constexpr tc::Choice<End> ENDS[] = {{"keep", End::KEEP}, {"cut", End::CUT}};

constexpr Bilingual LENGTH("Length", "Länge");
constexpr Bilingual EDGES("Beginning and end", "Anfang und Ende");

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "by",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "seconds",
     .help = {"what the delay is given in", "worin die Verzögerung angegeben ist"},
     .choices = tc::CHOICE_WORDS<UNITS>,
     .label = {"Delay in", "Verzögerung in"},
     .group = LENGTH},
    {.name = "time",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "s",
     .help = {"rounded to whole samples", "auf ganze Abtastwerte gerundet"},
     .minimum = 0.0,
     .maximum = 1e9,
     .label = {"Time", "Zeit"},
     .group = LENGTH,
     .enabledWhen = {"by", "seconds"}},
    {.name = "samples",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "0",
     .help = {"by how many", "um wie viele"},
     .minimum = 0.0,
     .maximum = 1e9,
     .label = {"Samples", "Abtastwerte"},
     .group = LENGTH,
     .enabledWhen = {"by", "samples"}},
    {.name = "fill",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .help = {"the value until the first one comes, as stored", "der Wert bis zum ersten, wie gespeichert"},
     .label = {"Fill value", "Füllwert"},
     .group = EDGES},
    {.name = "end",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "keep",
     .help = {"all samples come, and the signal becomes longer; or it is cut to its length",
              "alle Abtastwerte kommen, das Signal wird länger; oder es wird auf seine Länge gekürzt"},
     .choices = tc::CHOICE_WORDS<ENDS>,
     .label = {"End", "Ende"},
     .group = EDGES},
};

constexpr double MOST_SAMPLES = 1e9;
constexpr std::size_t BLOCK = 4096;
constexpr int MOST_BLOCKS_AT_ONCE = 16;

}  // namespace

Delay::Delay(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Delay::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

// False, with the reason, for a time that is too long for that rate.
bool Delay::FindSamples(double rate, std::int64_t& samples, CString& error) const {
    samples = ParamInt("samples");
    if (ParamChoice<UNITS>("by") == By::SAMPLES) return true;
    const double wanted = std::round(ParamDbl("time") * rate);
    samples = static_cast<std::int64_t>(std::min(wanted, MOST_SAMPLES));
    if (wanted <= MOST_SAMPLES) return true;
    error =
        tc::NotValid("time", ParamText("time"),
                     Bilingual("at most a billion samples", "höchstens eine Milliarde Abtastwerte").Text(),
                     Bilingual("at %1 samples per second", "bei %1 Abtastwerten je Sekunde")
                         .With({tc::ShortestText(rate)}));
    return false;
}

void Delay::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
    for (const TCForetoldSignal& signal : check.inputs) {
        std::int64_t samples = 0;
        CString error;
        if (signal.samplerate && !FindSamples(*signal.samplerate, samples, error)) check.Refuse(error);
    }
}

TCForetoldSignal Delay::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Delay::Init() {
    cuts = ParamChoice<ENDS>("end") == End::CUT;
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Delay::Fetch() {
    const bool ending =
        std::any_of(channels.begin(), channels.end(), [](const Channel& channel) { return channel.ending; });
    return ending ? 0 : TCBaseModuleEx::Fetch();
}

int Delay::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        const int code = channels[input].ending ? End(input) : Take(input);
        if (code < 0) return code;
    }
    return 0;
}

int Delay::Take(unsigned input) {
    const int taken = portHelper->TakeBlock(input);
    if (taken <= 0) return taken;
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error)) return Fail(tc::MODULE_FAILED, error);
    const double rate = channel.track.Metadata().GetSamplerate();
    if (channel.track.Begins()) {
        channel.waiting = SampleQueue();
        channel.opens = true;
        if (!FindSamples(rate, channel.toFill, error)) return Fail(tc::MODULE_FAILED, error);
        channel.delayed = channel.toFill > 0;
    }
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    const auto size = static_cast<std::size_t>(count);
    if (!channel.waiting.Add(values, size) || !Fill(channel, size))
        return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED);
    outgoing = channel.track.Metadata();
    channel.end = outgoing.GetTimestamp() + 1000.0 * static_cast<double>(count) / rate;
    channel.ending = channel.track.Ends() && !cuts && channel.toFill + channel.waiting.Waiting() > 0;
    outgoing.SetState(tc::BlockState(channel.opens, channel.track.Ends() && !channel.ending));
    return Send(input);
}

// Some blocks of what still waits.
int Delay::End(unsigned input) {
    Channel& channel = channels[input];
    outgoing = channel.track.Metadata();
    for (int blocks = 0; blocks < MOST_BLOCKS_AT_ONCE && channel.ending; ++blocks) {
        const std::int64_t left = channel.toFill + channel.waiting.Waiting();
        const auto size = std::min(BLOCK, static_cast<std::size_t>(left));
        if (!Fill(channel, size)) return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED);
        channel.ending = static_cast<std::int64_t>(size) < left;
        outgoing.SetTimestamp(channel.end);
        outgoing.SetState(tc::BlockState(channel.opens, !channel.ending));
        channel.end += 1000.0 * static_cast<double>(size) / outgoing.GetSamplerate();
        const int code = Send(input);
        if (code < 0) return code;
    }
    return 0;
}

// The next samples of the delayed signal become the buffer; false when what waits could not be read.
bool Delay::Fill(Channel& channel, std::size_t count) {
    buffer.resize(count);
    const auto filled =
        static_cast<std::size_t>(std::min<std::int64_t>(channel.toFill, static_cast<std::int64_t>(count)));
    std::fill_n(buffer.begin(), filled, ParamDbl("fill"));
    channel.toFill -= static_cast<std::int64_t>(filled);
    channel.waiting.Take(buffer.data() + filled, count - filled);
    return !channel.waiting.IsBroken();
}

// The buffer, with `outgoing`.
int Delay::Send(unsigned output) {
    Channel& channel = channels[output];
    channel.opens = false;
    if (channel.delayed) {
        outgoing.SetRangeMin(std::min(outgoing.GetRangeMin(), ParamDbl("fill")));
        outgoing.SetRangeMax(std::max(outgoing.GetRangeMax(), ParamDbl("fill")));
    }
    return tc::WriteSamples(*portHelper, output, outgoing, buffer.data(), buffer.size());
}

TC_MODULE_LIBRARY(Delay);
