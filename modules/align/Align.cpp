#include "modules/align/Align.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr tc::Choice<Align::Mode> MODES[] = {
    {"drop", Align::DROP}, {"pad", Align::PAD}, {"fail", Align::FAIL}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "mode",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "drop",
     .help = {"what to do with samples where other signals have none",
              "was mit Abtastwerten geschieht, zu denen andere Signale keine haben"},
     .choices = tc::CHOICE_WORDS<MODES>,
     .label = {"Missing samples", "Fehlende Abtastwerte"}},
    {.name = "fill",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .help = {"the value of samples that are padded", "Wert der ergänzten Abtastwerte"},
     .label = {"Fill value", "Füllwert"},
     .enabledWhen = {"mode", "pad"}},
    {.name = "most_padding",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "100000000",
     .help =
         {"samples that may be padded before a signal; a start later than that fails",
          "so viele Abtastwerte dürfen vor einem Signal ergänzt werden; ein späterer Beginn ist ein Fehler"},
     .minimum = 0.0,
     .label = {"Most padding", "Höchste Zahl ergänzter Werte"},
     .enabledWhen = {"mode", "pad"}},
};

constexpr std::int64_t MOST_AT_ONCE = 65536;
constexpr double MOST_SAMPLES = 9007199254740992.0;  // beyond, a sample number is no exact double

bool IsTime(double milliseconds) {
    return std::isfinite(milliseconds) && milliseconds > 0.0;
}

}  // namespace

Align::Align(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD_JOINS);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Align::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

void Align::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
    const auto known = [](const TCForetoldSignal& input) { return input.samplerate.has_value(); };
    const auto first = std::ranges::find_if(check.inputs, known);
    for (auto other = first; other != check.inputs.end(); ++other) {
        if (!known(*other) || *other->samplerate == *first->samplerate) continue;
        const auto port = [&](auto input) { return static_cast<unsigned>(input - check.inputs.begin()); };
        check.Refuse(std::string(portHelper->GetPortName(INPUT, port(other))) + ": " +
                     RatesDiffer(port(other), *other->samplerate, port(first), *first->samplerate));
    }
}

// For two inputs, the words about it.
std::string Align::RatesDiffer(unsigned input, double ownRate, unsigned other, double otherRate) const {
    return Bilingual(
               "%1 has the samplerate %2 and %3 %4; only signals of one samplerate can be aligned",
               "%1 hat die Abtastrate %2 und %3 %4; ausrichten lassen sich nur Signale gleicher Abtastrate")
        .With({tc::InputName(*portHelper, input), tc::ShortestText(ownRate),
               tc::InputName(*portHelper, other), tc::ShortestText(otherRate)});
}

TCForetoldSignal Align::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Align::Init() {
    ClearResults();
    mode = ParamChoice<MODES>("mode");
    fill = ParamDbl("fill");
    started = finished = false;
    signals.clear();
    for (unsigned port = 0; port < static_cast<unsigned>(GetNoInput()); ++port) {
        if (!portHelper->IsWired(INPUT, port)) continue;
        signals.emplace_back();
        signals.back().port = port;
    }
    return TCBaseModuleEx::Init();
}

int Align::Fetch() {
    return HasWork() ? 0 : 1;
}

bool Align::CanTake(const Signal& signal) const {
    return !signal.ended && portHelper->BlocksOnStream(INPUT, signal.port) > 0;
}

bool Align::HasWork() const {
    return Ready() > 0 || std::ranges::any_of(signals, [this](const Signal& s) { return CanTake(s); });
}

int Align::Execute() {
    int code = 0;
    moved = false;
    do {  // a step in which no block moves would be taken for one without work
        if (Ready() == 0) code = TakeBlocks();
        if (code >= 0 && !started) code = Start();
        if (code >= 0) code = Send();
    } while (code >= 0 && !moved && HasWork());
    return code;
}

int Align::TakeBlocks() {
    for (Signal& signal : signals) {
        const int code = CanTake(signal) ? TakeBlock(signal) : 0;
        if (code < 0) return code;
    }
    return 0;
}

int Align::TakeBlock(Signal& signal) {
    const TCBLOCKSTATUS state = portHelper->PeekStatus(signal.port, false, nullptr);
    if (signal.begun && tc::BeginsSignal(state)) {
        signal.ended = true;  // without a last block; the next signal waits until the others have ended
        return 0;
    }
    portHelper->TakeBlock(signal.port);
    moved = true;
    if (const int code = CheckMetadata(signal, *portHelper->LastTypeInfo(signal.port)); code < 0) return code;
    int count = 0;
    const double* values = portHelper->AccessDblData(signal.port, count);
    if (count > 0 && !signal.samples.Add(values, static_cast<std::size_t>(count)))
        return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED);
    if (count > 0) signal.newest = count;
    signal.ended = tc::EndsSignal(state);
    signal.Skip();
    return 0;
}

int Align::CheckMetadata(Signal& signal, const TCTypeInfo& ti) {
    std::string error;
    if (signal.begun)
        return tc::CheckGoesOn(*portHelper, signal.port, signal.metadata, ti, error)
                   ? 0
                   : Fail(tc::MODULE_FAILED, error);
    if (!tc::CheckRate(*portHelper, signal.port, ti, error)) return Fail(tc::MODULE_FAILED, error);
    if (!IsTime(ti.GetTimestamp())) {
        return Fail(tc::MODULE_FAILED,
                    Bilingual("%1 has the start time %2; allowed are milliseconds since 1970, above 0",
                              "%1 hat die Startzeit %2; erlaubt sind Millisekunden seit 1970, über 0"),
                    {InputName(signal), tc::ShortestText(ti.GetTimestamp())});
    }
    for (const Signal& other : signals) {
        const double otherRate = other.metadata.GetSamplerate();
        if (!other.begun || otherRate == ti.GetSamplerate()) continue;
        return Fail(tc::MODULE_FAILED, RatesDiffer(signal.port, ti.GetSamplerate(), other.port, otherRate));
    }
    signal.metadata = ti;
    signal.begun = true;
    return 0;
}

int Align::Start() {
    if (signals.empty() || !std::ranges::all_of(signals, &Signal::begun)) return 0;
    const auto timestamp = [](const Signal& signal) { return signal.metadata.GetTimestamp(); };
    const auto [first, last] = std::ranges::minmax_element(signals, {}, timestamp);
    rate = first->metadata.GetSamplerate();
    startTime = timestamp(mode == PAD ? *first : *last);
    const double apart = std::round((timestamp(*last) - timestamp(*first)) * rate / 1000.0);
    if (mode == FAIL && apart > 0.0) {
        return Fail(
            tc::MODULE_FAILED,
            Bilingual("%1 starts %2 samples after %3; mode=drop and mode=pad align them",
                      "%1 beginnt %2 Abtastwerte später als %3; mode=drop und mode=pad richten sie aus"),
            {InputName(*last), tc::ShortestText(apart), InputName(*first)});
    }
    if (mode == PAD && apart > ParamInt("most_padding")) {
        return Fail(tc::MODULE_FAILED,
                    Bilingual("%1 starts %2 samples after %3; most_padding allows %4",
                              "%1 beginnt %2 Abtastwerte später als %3; most_padding erlaubt %4"),
                    {InputName(*last), tc::ShortestText(apart), InputName(*first),
                     std::to_string(ParamInt("most_padding"))});
    }
    for (Signal& signal : signals) {
        const double shift = std::round((timestamp(signal) - startTime) * rate / 1000.0);
        signal.lead = static_cast<std::int64_t>(std::max(shift, 0.0));
        signal.skip = static_cast<std::int64_t>(std::min(std::max(-shift, 0.0), MOST_SAMPLES));
        signal.Skip();
    }
    sent = 0;
    started = true;
    return 0;
}

std::int64_t Align::Ready() const {
    if (!started || finished) return 0;
    std::int64_t ready = std::numeric_limits<std::int64_t>::max();
    std::int64_t longest = 0;
    for (const Signal& signal : signals) {
        longest = std::max(longest, signal.Left());
        if (mode != PAD || !signal.ended) ready = std::min(ready, signal.Ready());
    }
    return std::min({ready, longest, MOST_AT_ONCE});
}

// Whether the outputs end after `count` more samples.
bool Align::IsLast(std::int64_t count) const {
    const auto ends = [count](const Signal& signal) { return signal.ended && signal.Left() <= count; };
    return mode == PAD ? std::ranges::all_of(signals, ends) : std::ranges::any_of(signals, ends);
}

int Align::Send() {
    if (!started) return 0;
    const std::int64_t count = Ready();
    const bool last = !finished && IsLast(count);
    if (const int code = last || finished ? CheckEnds(count) : 0; code < 0) return code;
    for (Signal& signal : signals) {
        const int code = count > 0 ? SendBlock(signal, count, last) : 0;
        if (code < 0) return code;
    }
    sent += count;
    finished = finished || last;
    if (finished) FinishRound();
    return 0;
}

int Align::CheckEnds(std::int64_t count) {
    if (mode != FAIL) return 0;
    const auto longer = std::ranges::find_if(signals, [count](const Signal& s) { return s.Left() > count; });
    if (longer == signals.end()) return 0;
    const auto ended =
        std::ranges::find_if(signals, [count](const Signal& s) { return s.ended && s.Left() <= count; });
    return Fail(
        tc::MODULE_FAILED,
        Bilingual(
            "%1 ends after %2 samples and %3 goes on; mode=drop and mode=pad align them",
            "%1 endet nach %2 Abtastwerten, und %3 liefert weiter; mode=drop und mode=pad richten sie aus"),
        {InputName(*ended), std::to_string(sent + count), InputName(*longer)});
}

int Align::SendBlock(Signal& signal, std::int64_t count, bool last) {
    buffer.resize(static_cast<std::size_t>(count));
    signal.Take(buffer, fill);
    if (signal.samples.IsBroken()) return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED);
    signal.metadata.SetTimestamp(startTime + 1000.0 * static_cast<double>(sent) / rate);
    signal.metadata.SetState(tc::BlockState(sent == 0, last));
    portHelper->SetTypeInfo(signal.port, signal.metadata);
    moved = true;
    return portHelper->WriteDblData(signal.port, buffer.size(), buffer.data());
}

// Drops what comes after the outputs' end, and gets ready for the next signals when all of these have ended.
void Align::FinishRound() {
    for (Signal& signal : signals) signal.Drop(signal.samples.Waiting());
    if (!std::ranges::all_of(signals, &Signal::ended)) return;
    if (sent == 0)
        Warn(Bilingual("the signals have no time in common", "die Signale haben keine gemeinsame Zeit"));
    for (Signal& signal : signals) {
        signal.begun = signal.ended = false;
        signal.lead = signal.skip = signal.newest = 0;
    }
    started = finished = false;
}

std::int64_t Align::Signal::Ready() const {
    return ended ? Left() : Left() - std::min(newest, samples.Waiting());
}

void Align::Signal::Skip() {
    const std::int64_t count = std::min(skip, samples.Waiting());
    skip -= count;
    Drop(count);
}

void Align::Signal::Drop(std::int64_t count) {
    dropped += count;
    for (; count > 0; --count) samples.Take();
}

void Align::Signal::Take(std::vector<double>& values, double fill) {
    const auto total = static_cast<std::int64_t>(values.size());
    const std::int64_t before = std::min(lead, total);
    const std::int64_t own = std::min(samples.Waiting(), total - before);
    std::ranges::fill(values, fill);
    samples.Take(values.data() + before, static_cast<std::size_t>(own));
    lead -= before;
    passed += own;
    padded += total - own;
}

int Align::Done() {
    ClearResults();
    for (const Signal& signal : signals) {
        const char* name = portHelper->GetPortName(INPUT, signal.port);
        const std::int64_t held = signal.samples.Waiting();
        AddResult(name, "passed", static_cast<double>(signal.passed), TCSI_Unit());
        AddResult(name, "dropped", static_cast<double>(signal.dropped), TCSI_Unit());
        AddResult(name, "padded", static_cast<double>(signal.padded), TCSI_Unit());
        if (held == 0) continue;
        AddResult(name, "held", static_cast<double>(held), TCSI_Unit());
        static constexpr Bilingual NO_END(
            "%1: %2 samples were not passed on; they waited for the ends of the signals",
            "%1: %2 Abtastwerte wurden nicht weitergegeben; sie warteten auf das Ende der Signale");
        static constexpr Bilingual NO_BEGIN(
            "%1: %2 samples were not passed on; they waited for the other signals to begin",
            "%1: %2 Abtastwerte wurden nicht weitergegeben; sie warteten auf den Beginn der anderen "
            "Signale");
        Warn(started ? NO_END : NO_BEGIN, {name, std::to_string(held)});
    }
    signals.clear();
    return TCBaseModuleEx::Done();
}

std::string Align::InputName(const Signal& signal) const {
    return tc::InputName(*portHelper, signal.port);
}

TC_MODULE_LIBRARY(Align);
