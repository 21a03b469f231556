#pragma once

#include <cstdint>
#include <string>

#include "sigweave/signal/TCIOStream.h"

namespace host {

// What a source has sent into a line so far.
struct LineCount {
    double milliseconds = 0.0;
    std::int64_t samples = 0;  // of a channel
    std::int64_t signals = 0;  // that have ended
    bool isOpen = false;       // the last one has not
    bool isFull = false;       // the line gets nothing more
};

// When each source ends, whatever it is: with the samples before a time, a number of samples or a number of
// signals, in each of its lines. At most one is limited; 0: not.
struct RunLimit {
    double milliseconds = 0.0;
    std::int64_t samples = 0;  // of each channel
    std::int64_t signals = 0;

    // "10s", "1.5 min" and other times, "48000 samples", "3 signals". False, with what is allowed, for
    // another text.
    static bool Read(const std::string& text, RunLimit& limit, std::string& error);

    bool IsAny() const { return milliseconds > 0.0 || samples > 0 || signals > 0; }

    // Counts a block that the source has just sent, and ends its signal in it where the limit is reached:
    // with as many samples as there may be, or with the whole block where its values do not follow each other
    // in time. It is the same block in all lines of the output, each of which counts for itself.
    void Take(TCIOStream::Block& block, bool isTimed, LineCount& count) const;
};

// Drops all blocks that wait at the receiver from that one on.
void DropBlocks(TCIOStream& receiver, int first);

}  // namespace host
