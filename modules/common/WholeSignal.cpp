#include "modules/common/WholeSignal.h"

#include <algorithm>
#include <string>

#include "sigweave/module/ModuleSignals.h"

namespace {

constexpr std::size_t BLOCK = 4096;
constexpr int MOST_BLOCKS_AT_ONCE = 16;

constexpr tc::Bilingual TOO_LONG(
    "most_samples: the signal '%1' has more than %2; cut it before, with Trigger, or allow more, at 8 bytes "
    "each",
    "most_samples: das Signal '%1' hat mehr als %2; schneiden Sie es vorher, mit Trigger, oder erlauben Sie "
    "mehr, zu je 8 Byte");

}  // namespace

bool WholeSignal::Add(const SignalTrack& track, const double* samples, int count, std::size_t most,
                      const CString& name, CString& error) {
    if (track.Begins()) {
        values.clear();
        first = track.Metadata();
    }
    if (values.size() + static_cast<std::size_t>(count) > most) {
        error = TOO_LONG.With({name, std::to_string(most)});
        return false;
    }
    values.insert(values.end(), samples, samples + count);
    return true;
}

void WholeSignal::BeginSending(double rangeMin, double rangeMax) {
    sending = true;
    sent = 0;
    outgoing = first;
    outgoing.SetRangeMin(rangeMin);
    outgoing.SetRangeMax(rangeMax);
}

int WholeSignal::Send(TCPortHelper& ports, unsigned output) {
    for (int blocks = 0; blocks < MOST_BLOCKS_AT_ONCE && sending; ++blocks) {
        const std::size_t count = std::min(BLOCK, values.size() - sent);
        outgoing.SetTimestamp(first.GetTimestamp() +
                              1000.0 * static_cast<double>(sent) / first.GetSamplerate());
        sending = sent + count < values.size();
        outgoing.SetState(tc::BlockState(sent == 0, !sending));
        const double* part = values.data() + sent;
        sent += count;
        const int code = tc::WriteSamples(ports, output, outgoing, part, count);
        if (code < 0) return code;
    }
    return 0;
}
