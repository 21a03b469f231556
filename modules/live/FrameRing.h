#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "sigweave/platform/Event.h"

namespace live {

// Frames on their way from the thread that reads to the one that uses them, in memory of a fixed size, with
// the places at which some are missing. One thread puts, another takes.
class FrameRing {
 public:
    // `block` frames are what the taker wants at once; less when a signal ends with them. The capacity must
    // be larger.
    FrameRing(std::size_t frameBytes, std::size_t capacityFrames, std::size_t blockFrames);

    // --- The thread that puts

    // Puts as many whole frames as there is room for; answers their number.
    std::size_t Put(std::span<const std::byte> frames);
    // Frames are missing here. False when too many places are known already: to be said again, later.
    bool Lose(std::int64_t frames);
    // Nothing more comes.
    void End();
    std::size_t Room() const;
    std::size_t Capacity() const { return capacity; }
    // For waits: signalled while at least half of it is free.
    void* RoomHandle() const { return hasRoom.GetHandle(); }

    // --- The thread that takes

    // Signalled while Take would give a block, or all has been taken and nothing more comes.
    void* Handle() const { return hasBlock.GetHandle(); }
    // A block is given only when it is known whether the signal ends with it: when there is more than one, or
    // a loss or the end follows.
    bool HasBlock() const;
    bool IsOver() const;
    // Whether nobody waits for a whole block any more: what is there is given, as the last of its signal.
    // `most`: frames, of that.
    void TakeRest(std::size_t most);

    struct Taken {
        std::int64_t first = 0;  // its position, which counts what was lost too
        std::int64_t lost = 0;   // frames right before it
        std::size_t frames = 0;
        bool isLast = false;  // of its signal
    };
    // Copies a block; nothing when there is none. When all is over, what was lost at the end may remain.
    Taken Take(std::byte* to);

 private:
    struct Loss {
        std::int64_t before;  // frames that were put before it
        std::int64_t frames;
    };

    bool HasBlockNow() const;
    std::size_t Run() const;
    void Copy(std::byte* to, std::size_t frames);
    void Tell();

    const std::size_t frameSize;
    const std::size_t capacity;
    std::size_t block;
    std::vector<std::byte> bytes;
    mutable std::mutex mutex;
    std::int64_t put = 0;
    std::int64_t taken = 0;
    std::int64_t lost = 0;  // before what was taken
    std::array<Loss, 64> losses;
    std::size_t lossCount = 0;
    bool ended = false;
    bool rest = false;
    tc::Event hasBlock;
    tc::Event hasRoom;
};

}  // namespace live
