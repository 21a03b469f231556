#include "modules/live/FrameRing.h"

#include <algorithm>
#include <cstring>

namespace live {

FrameRing::FrameRing(std::size_t frameBytes, std::size_t capacityFrames, std::size_t blockFrames)
    : frameSize(frameBytes), capacity(capacityFrames), block(blockFrames), bytes(frameSize * capacity) {
    hasRoom.Set();
}

std::size_t FrameRing::Put(std::span<const std::byte> frames) {
    const std::lock_guard lock(mutex);
    const std::size_t free = capacity - static_cast<std::size_t>(put - taken);
    const std::size_t count = std::min(frames.size() / frameSize, free);
    const std::size_t at = static_cast<std::size_t>(put) % capacity;
    const std::size_t toEnd = std::min(count, capacity - at);
    std::memcpy(bytes.data() + at * frameSize, frames.data(), toEnd * frameSize);
    std::memcpy(bytes.data(), frames.data() + toEnd * frameSize, (count - toEnd) * frameSize);
    put += static_cast<std::int64_t>(count);
    Tell();
    return count;
}

bool FrameRing::Lose(std::int64_t frames) {
    const std::lock_guard lock(mutex);
    if (lossCount > 0 && losses[lossCount - 1].before == put) {
        losses[lossCount - 1].frames += frames;
        return true;
    }
    if (lossCount == losses.size()) return false;
    losses[lossCount++] = {put, frames};
    Tell();
    return true;
}

void FrameRing::End() {
    const std::lock_guard lock(mutex);
    ended = true;
    Tell();
}

std::size_t FrameRing::Room() const {
    const std::lock_guard lock(mutex);
    return capacity - static_cast<std::size_t>(put - taken);
}

bool FrameRing::HasBlock() const {
    const std::lock_guard lock(mutex);
    return HasBlockNow();
}

bool FrameRing::IsOver() const {
    const std::lock_guard lock(mutex);
    return (ended || rest) && put == taken;
}

void FrameRing::TakeRest(std::size_t most) {
    const std::lock_guard lock(mutex);
    rest = true;
    block = most;
    Tell();
}

// Frames up to the next loss that is not right at their beginning.
std::size_t FrameRing::Run() const {
    const std::size_t next = lossCount > 0 && losses[0].before == taken ? 1 : 0;
    const std::int64_t end = next < lossCount ? losses[next].before : put;
    return static_cast<std::size_t>(end - taken);
}

bool FrameRing::HasBlockNow() const {
    const std::size_t run = Run();
    const bool isBounded = ended || rest || (lossCount > 0 && losses[lossCount - 1].before > taken);
    return run > block || (run > 0 && isBounded);
}

FrameRing::Taken FrameRing::Take(std::byte* to) {
    const std::lock_guard lock(mutex);
    Taken answer;
    const bool isOver = (ended || rest) && put == taken;
    if (!HasBlockNow() && !isOver) return answer;
    if (lossCount > 0 && losses[0].before == taken) {
        answer.lost = losses[0].frames;
        lost += answer.lost;
        std::copy(losses.begin() + 1, losses.begin() + static_cast<std::ptrdiff_t>(lossCount),
                  losses.begin());
        --lossCount;
    }
    const std::size_t run = Run();
    answer.first = taken + lost;
    answer.frames = std::min(run, block);
    answer.isLast = rest || run <= block;
    Copy(to, answer.frames);
    taken += static_cast<std::int64_t>(answer.frames);
    Tell();
    return answer;
}

void FrameRing::Copy(std::byte* to, std::size_t frames) {
    const std::size_t at = static_cast<std::size_t>(taken) % capacity;
    const std::size_t toEnd = std::min(frames, capacity - at);
    std::memcpy(to, bytes.data() + at * frameSize, toEnd * frameSize);
    std::memcpy(to + toEnd * frameSize, bytes.data(), (frames - toEnd) * frameSize);
}

// The events are as the content is. Under the lock.
void FrameRing::Tell() {
    if (HasBlockNow() || ((ended || rest) && put == taken))
        hasBlock.Set();
    else
        hasBlock.Reset();
    if (static_cast<std::size_t>(put - taken) * 2 <= capacity)
        hasRoom.Set();
    else
        hasRoom.Reset();
}

}  // namespace live
