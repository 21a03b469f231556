#include "modules/trigger/Trigger.h"

#include <algorithm>

#include "modules/trigger/TriggerSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

Trigger::Trigger(int instance) : TCBaseModuleEx(instance, tc::TRIGGER_PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Trigger::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

tc::TriggerSettings Trigger::Settings() const {
    const auto text = [&](const char* name) {
        return tc::TriggerSettings::Text{ParamText(name), IsEnabled(ParamIndex(name))};
    };
    return {.mode = ParamChoice<tc::TRIGGER_MODES>("mode"),
            .level = text("level"),
            .upperLevel = text("upper_level"),
            .hysteresis = text("hysteresis"),
            .slope = text("slope"),
            .before = {ParamText("before"), ParamDbl("before")},
            .after = ParamDbl("after"),
            .holdOff = ParamDbl("hold_off")};
}

bool Trigger::OnSettingsChanged(TCString& error) {
    CString reason;
    tc::CheckTexts(Settings(), reason);
    error = reason.c_str();
    return reason.empty();
}

void Trigger::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
    for (const TCForetoldSignal& signal : check.inputs) {
        tc::TriggerCondition condition;
        CString error;
        if (signal.unit && !tc::FindCondition(Settings(), *signal.unit, 1.0, condition, error))
            check.Refuse(error);
    }
}

TCForetoldSignal Trigger::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Trigger::Init() {
    ClearResults();
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Trigger::Fetch() {
    const bool working = std::any_of(channels.begin(), channels.end(),
                                     [](const Channel& channel) { return channel.cutter.IsWorking(); });
    return working ? 0 : TCBaseModuleEx::Fetch();
}

int Trigger::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        const tc::PieceCutter& cutter = channels[input].cutter;
        int code = cutter.IsWorking() ? Work(input) : 0;
        if (code == 0 && !cutter.IsWorking() && (code = Take(input)) > 0) code = Work(input);
        if (code < 0) return code;
    }
    return 0;
}

int Trigger::Take(unsigned input) {
    const int taken = portHelper->TakeBlock(input);
    if (taken <= 0) return taken;
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error) ||
        (channel.track.Begins() && !Begin(channel, error)))
        return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    channel.cutter.Take({&values, 1}, count, 0);
    return 1;
}

bool Trigger::Begin(Channel& channel, CString& error) const {
    channel.first = channel.track.Metadata();
    const double rate = channel.first.GetSamplerate();
    tc::TriggerCondition condition;
    tc::PieceTiming timing;
    if (!tc::FindCondition(Settings(), channel.first.GetUnit(), rate, condition, error) ||
        !tc::FindTiming(Settings(), rate, timing, error))
        return false;
    channel.cutter.Begin(condition, timing, 1);
    return true;
}

// Until the end of a piece or of the block; 1 when it sent something.
int Trigger::Work(unsigned input) {
    tc::PieceCutter& cutter = channels[input].cutter;
    int sent = 0;
    while (cutter.Work(channels[input].track.Ends())) {
        const int code = Send(input);
        if (code < 0) return code;
        sent = 1;
        if (cutter.EndsPiece()) break;
    }
    return sent;
}

int Trigger::Send(unsigned output) {
    const Channel& channel = channels[output];
    const tc::PieceCutter& cutter = channel.cutter;
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    metadata.SetTimestamp(channel.first.GetTimestamp() +
                          1000.0 * static_cast<double>(cutter.PartPosition()) / metadata.GetSamplerate());
    metadata.SetState(tc::BlockState(cutter.BeginsPiece(), cutter.EndsPiece()));
    return tc::WriteSamples(*portHelper, output, metadata, cutter.Part(0).data(), cutter.Part(0).size());
}

int Trigger::Done() {
    ClearResults();
    TCSI_Unit second;
    second.SetExponent(TCSI_Unit::SECOND, 1);
    for (unsigned input = 0; input < channels.size(); ++input) {
        const Channel& channel = channels[input];
        const double rate = channel.first.GetSamplerate();
        const CString name = tc::SignalName(*portHelper, input, channel.first);
        AddResult(name.c_str(), "hits", static_cast<double>(channel.cutter.Hits()), TCSI_Unit());
        AddResult(name.c_str(), "cut_short", static_cast<double>(channel.cutter.CutShort()), TCSI_Unit());
        if (channel.cutter.Hits() == 0) continue;
        AddResult(name.c_str(), "first_hit", static_cast<double>(channel.cutter.FirstHit()) / rate, second);
        AddResult(name.c_str(), "last_hit", static_cast<double>(channel.cutter.LastHit()) / rate, second);
    }
    channels.clear();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Trigger);
