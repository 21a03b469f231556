#include "modules/math/SignalQueue.h"

#include "sigweave/module/ModuleSignals.h"

const SignalQueue::Signal* SignalQueue::Continued(const TCTypeInfo& ti) const {
    const bool begins = signals.empty() || signals.back().ended || tc::BeginsSignal(ti.GetState());
    return begins ? nullptr : &signals.back();
}

bool SignalQueue::Add(const TCTypeInfo& ti, const double* values, int count) {
    if (Continued(ti) == nullptr) {
        if (!signals.empty()) signals.back().ended = true;
        signals.push_back({.metadata = ti});
    }
    if (!samples.Add(values, static_cast<std::size_t>(count))) return false;
    signals.back().waiting += count;
    signals.back().ended = tc::EndsSignal(ti.GetState());
    return true;
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
