#include "modules/live/Packets.h"

namespace live {
namespace {

// A number that is further back belongs to a sender that has begun anew.
constexpr std::int64_t MOST_LATE = 1000;  // packets
// More than that are not missing: the number is another sender's.
constexpr std::int64_t MOST_LOST = std::int64_t{1} << 40;

std::uint64_t ReadNumber(std::span<const std::byte> bytes, bool isBigEndian) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        number = number << 8 | std::to_integer<std::uint64_t>(bytes[isBigEndian ? i : bytes.size() - 1 - i]);
    return number;
}

}  // namespace

void Packets::Give(std::span<const std::byte> bytes, bool isOneDatagram) {
    held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(done));
    done = 0;
    isDatagram = isOneDatagram;
    held.insert(held.end(), bytes.begin(), bytes.end());
}

bool Packets::Next(Piece& piece) {
    if (packing.numberBytes == 0) return NextPlain(piece);
    const auto header = static_cast<std::size_t>(packing.numberBytes);
    while (done < held.size()) {
        const std::size_t frames =
            static_cast<std::size_t>(packing.packetFrames) * static_cast<std::size_t>(packing.frameBytes);
        const std::size_t size = isDatagram ? Rest() : header + frames;
        if (Rest() < size) return false;
        const std::span<const std::byte> packet(held.data() + done, size);
        done += size;
        if (TakePacket(packet, piece)) return true;
    }
    return false;
}

bool Packets::NextPlain(Piece& piece) {
    const auto frame = static_cast<std::size_t>(packing.frameBytes);
    const std::size_t whole = Rest() / frame * frame;
    piece = {0, {held.data() + done, whole}};
    done += whole;
    if (isDatagram) {
        broken += static_cast<std::int64_t>(Rest());
        done = held.size();
    }
    return whole > 0;
}

// False when nothing of it counts.
bool Packets::TakePacket(std::span<const std::byte> packet, Piece& piece) {
    const auto header = static_cast<std::size_t>(packing.numberBytes);
    const auto frame = static_cast<std::size_t>(packing.frameBytes);
    if (packet.size() < header + frame) {
        broken += static_cast<std::int64_t>(packet.size());
        return false;
    }
    const std::uint64_t number = ReadNumber(packet.first(header), packing.isNumberBigEndian);
    const std::size_t count = (packet.size() - header) / frame;
    broken += static_cast<std::int64_t>((packet.size() - header) % frame);
    bool isLate = false;
    const std::int64_t lost = LossBefore(number, static_cast<std::int64_t>(count), isLate);
    if (isLate) {
        ++late;
        return false;
    }
    expected = number + (packing.numbersFrames ? count : 1);
    hasNumber = true;
    piece = {lost, packet.subspan(header, count * frame)};
    return true;
}

// Numbers begin again at 0 after their largest.
std::int64_t Packets::LossBefore(std::uint64_t number, std::int64_t frames, bool& isLate) {
    if (!hasNumber) return 0;
    const int unused = 64 - 8 * packing.numberBytes;
    const auto ahead = static_cast<std::int64_t>((number - expected) << unused) >> unused;
    const std::int64_t unit = packing.numbersFrames ? frames : 1;
    isLate = ahead < 0 && ahead >= -MOST_LATE * unit;
    if (ahead < 0 || ahead > MOST_LOST / frames) return UNKNOWN_LOSS;
    return packing.numbersFrames ? ahead : ahead * frames;
}

}  // namespace live
