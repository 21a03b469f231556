#pragma once

#include <cstddef>
#include <vector>

#include "modules/common/SignalTrack.h"
#include "sigweave/module/TCModuleParameter.h"
#include "sigweave/module/TCPortHelper.h"

// A signal that is kept until it has ended, because its end changes its beginning, and then sent in blocks,
// some at a time. Eight bytes for each sample.
class WholeSignal {
 public:
    // Adds the block that the track followed last. False, with the error, when the signal has more than
    // `most` samples then; `name` is the signal's, for the error.
    bool Add(const SignalTrack& track, const double* samples, int count, std::size_t most,
             const CString& name, CString& error);
    // Of the signal that was added, or is being sent.
    std::vector<double>& Values() { return values; }
    const std::vector<double>& Values() const { return values; }
    // The metadata of its first block.
    const TCTypeInfo& First() const { return first; }

    // From now on `Send` sends the values, with that range.
    void BeginSending(double rangeMin, double rangeMax);
    bool IsSending() const { return sending; }
    // Sends some blocks; answers like tc::WriteSamples.
    int Send(TCPortHelper& ports, unsigned output);

 private:
    std::vector<double> values;
    TCTypeInfo first;
    TCTypeInfo outgoing;
    bool sending = false;
    std::size_t sent = 0;
};

namespace tc {

// To be declared under the name "most_samples".
constexpr TCModuleParameter MostSamples(TCModuleParameter::Condition enabledWhen, const Bilingual& group) {
    return {.name = "most_samples",
            .kind = TCModuleParameter::INTEGER,
            .defaultValue = "50000000",
            .help = {"of a signal, which is kept until it ends; a longer one fails the run",
                     "eines Signals, das bis zu seinem Ende behalten wird; ein längeres bricht den Lauf ab"},
            .minimum = 1.0,
            .label = {"Longest signal", "Längstes Signal"},
            .group = group,
            .enabledWhen = enabledWhen};
}

}  // namespace tc
