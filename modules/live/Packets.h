#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace live {

// How many samples are missing when nobody says.
inline constexpr std::int64_t UNKNOWN_LOSS = -1;

// How frames (a sample of each channel) lie in what arrives.
struct Packing {
    int frameBytes = 1;
    int numberBytes = 0;  // of the sequence number before each packet; 0: there is none
    bool isNumberBigEndian = false;
    bool numbersFrames = false;  // the number is that of the packet's first frame, not of the packet
    int packetFrames = 0;        // of a packet in a stream with numbers
};

// Finds whole frames in bytes that come in pieces of any length, and what the sequence numbers say is
// missing. No port, no clock.
class Packets {
 public:
    explicit Packets(const Packing& usedPacking) : packing(usedPacking) {}

    struct Piece {
        std::int64_t lost = 0;              // frames before these, or UNKNOWN_LOSS
        std::span<const std::byte> frames;  // whole ones; until the next call of Give
    };

    // A part of a stream, or one datagram. All pieces of the bytes before must have been taken.
    void Give(std::span<const std::byte> bytes, bool isDatagram);
    // False when there is no whole frame left.
    bool Next(Piece& piece);

    // Bytes of a frame or packet whose end has not come.
    std::size_t Rest() const { return held.size() - done; }
    // Packets that came after they had been given up, and were left out.
    std::int64_t Late() const { return late; }
    // Bytes of datagrams that were no whole frame, and were left out.
    std::int64_t Broken() const { return broken; }

 private:
    bool NextPlain(Piece& piece);
    bool TakePacket(std::span<const std::byte> packet, Piece& piece);
    std::int64_t LossBefore(std::uint64_t number, std::int64_t frames, bool& isLate);

    const Packing packing;
    std::vector<std::byte> held;
    std::size_t done = 0;
    bool isDatagram = false;
    bool hasNumber = false;
    std::uint64_t expected = 0;
    std::int64_t late = 0;
    std::int64_t broken = 0;
};

}  // namespace live
