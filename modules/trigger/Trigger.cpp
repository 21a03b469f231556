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

bool Trigger::OnSettingsChanged(TCString& error) {
    return tc::CheckTexts(tc::TriggerSettings(*this), error);
}

void Trigger::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
    const tc::TriggerSettings settings(*this);
    for (const TCForetoldSignal& signal : check.inputs) {
        tc::TriggerCondition condition;
        tc::PieceTiming timing;
        CString error;
        if (signal.unit) tc::FindCondition(settings, *signal.unit, 1.0, condition, error);
        if (signal.samplerate) tc::FindTiming(settings, *signal.samplerate, timing, error);
        if (!error.empty()) check.Refuse(error);
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
    return tc::BeginCutting(*this, channel.first, 1, channel.cutter, error);
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
    metadata.SetTimestamp(tc::PartTimestamp(cutter, channel.first));
    metadata.SetState(tc::BlockState(cutter.BeginsPiece(), cutter.EndsPiece()));
    return tc::WriteSamples(*portHelper, output, metadata, cutter.Part(0).data(), cutter.Part(0).size());
}

int Trigger::Done() {
    ClearResults();
    for (unsigned input = 0; input < channels.size(); ++input) {
        const Channel& channel = channels[input];
        const CString name = tc::SignalName(*portHelper, input, channel.first);
        for (const auto& [quantity, value, unit] :
             tc::TriggerResults(channel.cutter, channel.first.GetSamplerate()))
            AddResult(name.c_str(), quantity, value, unit);
    }
    channels.clear();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Trigger);
