#include "modules/trigger/PieceCutter.h"

#include <algorithm>

namespace tc {

void PieceCutter::Begin(const TriggerCondition& condition, const PieceTiming& wanted, std::size_t count) {
    detector = Detector(condition);
    timing = wanted;
    channels.resize(count);
    for (Channel& channel : channels) {
        channel.history.clear();
        channel.history.reserve(timing.before);
        channel.piece.clear();
    }
    left = 0;
    oldest = 0;
    position = allowed = missing = 0;
    seen = beginsPiece = endsPiece = false;
}

void PieceCutter::Take(std::span<const double* const> values, int count, std::size_t channel) {
    for (std::size_t i = 0; i < channels.size(); ++i) channels[i].values = values[i];
    left = count;
    triggering = channel;
    working = true;
}

bool PieceCutter::Work(bool ends) {
    for (Channel& channel : channels) channel.piece.clear();
    endsPiece = false;
    while (left > 0) {
        if (missing > 0) {
            Capture(ends);
            return true;
        }
        const std::int64_t first = std::clamp<std::int64_t>(allowed - position, 0, left);
        const int found = detector.Find(channels[triggering].values, left, static_cast<int>(first));
        PassBy(found < 0 ? left : found);
        if (found >= 0) Hit();
    }
    working = false;
    if (!ends || missing == 0) return false;
    ++cutShort;
    missing = 0;
    beginsPiece = false;
    endsPiece = true;
    partPosition = position;
    return true;
}

// The next of `values` is the hit, and the detector has seen it.
void PieceCutter::Hit() {
    for (Channel& channel : channels) {
        const auto middle = channel.history.begin() + static_cast<std::ptrdiff_t>(oldest);
        channel.piece.insert(channel.piece.end(), middle, channel.history.end());
        channel.piece.insert(channel.piece.end(), channel.history.begin(), middle);
    }
    beginsPiece = true;
    missing = timing.after;
    allowed = position + timing.holdOff;
    seen = true;
    if (hits++ == 0) firstHit = position;
    lastHit = position;
}

void PieceCutter::Capture(bool ends) {
    const auto count = static_cast<int>(std::min<std::int64_t>(missing, left));
    const int skipped = seen ? 1 : 0;
    beginsPiece = seen;
    seen = false;
    detector.Skip(channels[triggering].values + skipped, count - skipped);
    partPosition = position - static_cast<std::int64_t>(channels[triggering].piece.size());
    for (Channel& channel : channels)
        channel.piece.insert(channel.piece.end(), channel.values, channel.values + count);
    PassBy(count);
    missing -= count;
    if (missing > 0 && left == 0 && ends) {
        ++cutShort;
        missing = 0;
    }
    endsPiece = missing == 0;
}

void PieceCutter::PassBy(int count) {
    const std::size_t room = timing.before;
    const auto kept = std::min<std::ptrdiff_t>(count, static_cast<std::ptrdiff_t>(room));
    std::size_t next = oldest;
    for (Channel& channel : channels) {
        const double* const end = channel.values + count;
        next = oldest;
        for (const double* from = end - kept; from != end;) {
            const bool fills = channel.history.size() < room;
            const auto part = std::min<std::ptrdiff_t>(
                end - from, static_cast<std::ptrdiff_t>(room - (fills ? channel.history.size() : next)));
            if (fills) {
                channel.history.insert(channel.history.end(), from, from + part);
            } else {
                std::copy_n(from, part, channel.history.begin() + static_cast<std::ptrdiff_t>(next));
                next = (next + static_cast<std::size_t>(part)) % room;
            }
            from += part;
        }
        channel.values = end;
    }
    oldest = next;
    left -= count;
    position += count;
}

}  // namespace tc
