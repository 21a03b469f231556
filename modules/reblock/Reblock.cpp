#include "modules/reblock/Reblock.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "size",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1024",
     .help = {"samples per block; the last one of a signal may be shorter",
              "Abtastwerte je Block; der letzte eines Signals darf kürzer sein"},
     .minimum = 1.0,
     .maximum = 16777216.0,
     .label = {"Block size", "Blockgröße"}},
};

constexpr int MOST_BLOCKS_AT_ONCE = 64;

}  // namespace

Reblock::Reblock(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Reblock::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "TIME_DOMAIN");
}

void Reblock::CheckStart(TCStartCheck& check) {
    tc::CheckRates(*portHelper, check);
}

TCForetoldSignal Reblock::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    return inputs[static_cast<std::size_t>(output)];
}

int Reblock::Init() {
    blockSize = static_cast<unsigned>(ParamInt("size"));
    signals.clear();
    signals.resize(static_cast<std::size_t>(GetNoInput()));
    for (Signal& signal : signals) signal.buffer.SetPortHelper(portHelper.get());
    return TCBaseModuleEx::Init();
}

int Reblock::Fetch() {
    const bool cutting = std::ranges::any_of(signals, [](const Signal& signal) { return signal.left > 0; });
    return cutting ? 0 : TCBaseModuleEx::Fetch();
}

int Reblock::Execute() {
    for (unsigned port = 0; port < signals.size(); ++port) {
        int code = signals[port].left > 0 ? 1 : Take(port);
        if (code > 0) code = Cut(port);
        if (code < 0) return code;
    }
    return 0;
}

int Reblock::Take(unsigned input) {
    Signal& signal = signals[input];
    if (const int taken = portHelper->TakeBlock(input); taken <= 0) return taken;
    const TCTypeInfo& ti = *portHelper->LastTypeInfo(input);
    const TCBLOCKSTATUS state = ti.GetState();
    const bool replaces = tc::BeginsSignal(state) && signal.IsOpen();
    if (replaces) {
        if (const int code = Send(input, true); code < 0) return code;
    }
    if (const int code = CheckMetadata(input, ti); code < 0) return code;
    signal.arrived = ti;
    signal.begins = tc::BeginsSignal(state) || (signal.begins && !signal.ends);  // that one had no samples
    signal.ends = tc::EndsSignal(state);
    signal.SetTime(portHelper->SyncTime());
    signal.values = portHelper->AccessDblData(input, signal.left);
    return replaces ? 0 : 1;  // receivers take the end of one signal before the next one comes
}

int Reblock::CheckMetadata(unsigned input, const TCTypeInfo& ti) {
    const Signal& signal = signals[input];
    std::string error;
    if (tc::CheckRate(*portHelper, input, ti, error) &&
        (!signal.IsOpen() || tc::CheckGoesOn(*portHelper, input, signal.arrived, ti, error)))
        return 0;
    return Fail(tc::MODULE_FAILED, error);
}

double Reblock::Signal::TimeOfNext() const {
    return anchor + 1000.0 * static_cast<double>(sinceThen) / arrived.GetSamplerate();
}

void Reblock::Signal::SetTime(double runStart) {
    const double timestamp = arrived.GetTimestamp();
    const bool given = std::isfinite(timestamp) && timestamp > 0.0;
    const double halfSample = 500.0 / arrived.GetSamplerate();
    const bool gap = given && timestamp > lastTimestamp && std::fabs(timestamp - TimeOfNext()) > halfSample;
    if (given) lastTimestamp = timestamp;
    if (IsOpen() && !gap) return;
    anchor = given ? timestamp : runStart;
    sinceThen = 0;
}

int Reblock::Cut(unsigned port) {
    Signal& signal = signals[port];
    for (int sent = 0; signal.left > 0;) {
        if (signal.filled == blockSize) {
            if (sent++ == MOST_BLOCKS_AT_ONCE) return 0;
            if (const int code = Send(port, false); code < 0) return code;
        }
        if (!signal.IsOpen() && !Open(signal)) {
            return Fail(TCPortHelper::NOT_CREATED,
                        tc::Bilingual("no memory for a block of %1 samples",
                                      "kein Speicher für einen Block von %1 Abtastwerten"),
                        {std::to_string(blockSize)});
        }
        const int count = std::min(signal.left, static_cast<int>(blockSize - signal.filled));
        std::copy_n(signal.values, count, static_cast<double*>(signal.buffer[0]->GetData()) + signal.filled);
        signal.filled += static_cast<unsigned>(count);
        signal.values += count;
        signal.left -= count;
        signal.sinceThen += count;
    }
    return signal.ends && signal.IsOpen() ? Send(port, true) : 0;
}

bool Reblock::Open(Signal& signal) {
    if (signal.buffer.NewBlock(TCPortHelper::TYPE_DOUBLEARRAY, blockSize) == nullptr) return false;
    signal.filling = signal.arrived;
    signal.filling.SetTimestamp(signal.TimeOfNext());
    signal.filling.SetState(tc::BlockState(std::exchange(signal.begins, false), false));
    return true;
}

int Reblock::Send(unsigned output, bool last) {
    Signal& signal = signals[output];
    signal.filling.SetState(tc::BlockState(signal.filling.GetState() == START, last));
    signal.buffer[0]->SetSize(signal.filled);
    signal.buffer[0]->SetTI(&signal.filling);
    signal.filled = 0;
    const int code = signal.buffer.WriteBlock(output, 0);
    signal.buffer.RemoveAt(0, false);
    return code;
}

int Reblock::Done() {
    for (unsigned input = 0; input < signals.size(); ++input) {
        const Signal& signal = signals[input];
        const long long kept = static_cast<long long>(signal.filled) + signal.left;
        if (kept == 0) continue;
        Warn(tc::Bilingual("%1: the signal did not end; %2 samples were not sent",
                           "%1: das Signal endete nicht; %2 Abtastwerte wurden nicht gesendet"),
             {tc::SignalName(*portHelper, input, signal.filling), std::to_string(kept)});
    }
    signals.clear();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Reblock);
