#pragma once

#include <cstdint>
#include <string>

namespace host {

// What a source has given so far.
struct SourceCount {
    double milliseconds = 0.0;
    std::int64_t samples = 0;       // of the output that has most
    std::int64_t signals = 0;       // that have ended
    double lastMilliseconds = 0.0;  // of the last step
    std::int64_t lastSamples = 0;

    // A block.
    void Add(int values, bool endsSignal);
    // Another output of the same step.
    void TakeLarger(const SourceCount& other);
    // What came in a step after all this.
    void Join(const SourceCount& step);
};

// When each source ends, whatever it is: after a time, a number of samples or a number of signals. A source
// ends its signal with the block in which it reaches the time or the number of samples, at the earliest with
// its second one. At most one is limited; 0: not.
struct RunLimit {
    double milliseconds = 0.0;
    std::int64_t samples = 0;  // of each channel
    std::int64_t signals = 0;

    // "10s", "1.5 min" and other times, "48000 samples", "3 signals". False, with what is allowed, for
    // another text.
    static bool Read(const std::string& text, RunLimit& limit, std::string& error);

    bool IsAny() const { return milliseconds > 0.0 || samples > 0 || signals > 0; }
    bool EndsWithNextBlock(const SourceCount& given) const;
    bool HasAllSignals(const SourceCount& given) const { return signals > 0 && given.signals >= signals; }
};

}  // namespace host
