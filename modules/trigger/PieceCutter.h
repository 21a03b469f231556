#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "modules/trigger/Detector.h"

namespace tc {

// In samples: what belongs to a piece before the hit and from it on, and the least distance of two hits.
struct PieceTiming {
    std::size_t before = 0;
    std::int64_t after = 1;
    std::int64_t holdOff = 1;  // at least `after`
};

// Cuts pieces out of the channels of a signal, all at the hits that one of them has. The pieces do not depend
// on how the signal is cut into blocks. Allocates nothing in steady flow.
class PieceCutter {
 public:
    // A signal begins. Results are kept.
    void Begin(const TriggerCondition& condition, const PieceTiming& timing, std::size_t channels);
    // The next block: `count` values of each channel, which must stay until it is used up; hits are those of
    // the channel `triggering`.
    void Take(std::span<const double* const> values, int count, std::size_t triggering);
    bool IsWorking() const { return working; }
    // Goes on to the end of a piece or of the block, which is the signal's last when it `ends`. True when a
    // part of a piece is there to be sent; false when the block is used up.
    bool Work(bool ends);

    // That part, until the next call.
    const std::vector<double>& Part(std::size_t channel) const { return channels[channel].piece; }
    std::int64_t PartPosition() const { return partPosition; }  // of its first sample in the signal
    bool BeginsPiece() const { return beginsPiece; }
    bool EndsPiece() const { return endsPiece; }

    // Times in samples of the last signal.
    std::int64_t Hits() const { return hits; }
    std::int64_t CutShort() const { return cutShort; }
    std::int64_t FirstHit() const { return firstHit; }
    std::int64_t LastHit() const { return lastHit; }

 private:
    struct Channel {
        const double* values = nullptr;  // of the block, what has not been looked at
        std::vector<double> history;
        std::vector<double> piece;  // what has not been sent of it
    };

    void Hit();
    void Capture(bool ends);
    void PassBy(int count);

    Detector detector;
    PieceTiming timing;
    std::vector<Channel> channels;
    std::size_t triggering = 0;
    int left = 0;
    bool working = false;
    std::int64_t position = 0;  // in the signal, of `values`
    std::int64_t allowed = 0;   // the next hit is not before this
    std::int64_t missing = 0;   // samples after the hit; 0: no piece is open
    std::size_t oldest = 0;     // in the histories, once they are full
    bool seen = false;          // by the detector: the first of `values`
    bool beginsPiece = false;
    bool endsPiece = false;
    std::int64_t partPosition = 0;
    std::int64_t hits = 0;
    std::int64_t cutShort = 0;
    std::int64_t firstHit = 0;
    std::int64_t lastHit = 0;
};

}  // namespace tc
