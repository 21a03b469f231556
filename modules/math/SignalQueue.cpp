#include "modules/math/SignalQueue.h"

#include "modules/common/SignalSettings.h"

SignalQueue::Result SignalQueue::Add(const TCTypeInfo& ti, const double* values, int count) {
    if (!signals.empty() && tc::BeginsSignal(ti.GetState())) signals.back().ended = true;
    if (signals.empty() || signals.back().ended) signals.push_back({.metadata = ti});
    Signal& signal = signals.back();
    if (signal.metadata.GetSamplerate() != ti.GetSamplerate()) return RATE_CHANGES;
    if (!samples.Add(values, static_cast<std::size_t>(count))) return TEMPORARY_FILE_FAILED;
    signal.waiting += count;
    signal.ended = tc::EndsSignal(ti.GetState());
    return DONE;
}

bool SignalQueue::Take(double* values, std::int64_t count) {
    samples.Take(values, static_cast<std::size_t>(count));
    signals.front().waiting -= count;
    return !samples.IsBroken();
}

std::int64_t SignalQueue::Drop() {
    std::int64_t dropped = 0;
    for (; signals.front().waiting > 0; --signals.front().waiting, ++dropped) samples.Take();
    return dropped;
}
