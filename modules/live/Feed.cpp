#include "modules/live/Feed.h"

#include <algorithm>
#include <cmath>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/services/Bilingual.h"

namespace live {
namespace {

using tc::Bilingual;

constexpr std::size_t BUFFER = 65536;   // bytes; no datagram is longer
constexpr double MOST_BYTES = 1 << 26;  // of a ring, unless its blocks are larger
constexpr int MOST_READINGS = 64;       // in one turn

std::size_t RingFrames(const FeedPlan& plan) {
    const double most = MOST_BYTES / plan.packing.frameBytes;
    const auto frames = static_cast<std::size_t>(std::ceil(std::min(plan.rate * plan.seconds, most)));
    return std::max(frames, 4 * plan.block) + 2 * static_cast<std::size_t>(plan.packing.packetFrames);
}

}  // namespace

Feed::Feed(std::unique_ptr<Device> openDevice, const FeedPlan& feedPlan)
    : plan(feedPlan),
      clock(feedPlan.clock != nullptr ? *feedPlan.clock : tc::MachineClock()),
      device(std::move(openDevice)),
      ring(static_cast<std::size_t>(feedPlan.packing.frameBytes), RingFrames(feedPlan), feedPlan.block),
      packets(feedPlan.packing),
      buffer(BUFFER) {}

Feed::~Feed() {
    Stop();
}

void Feed::Start() {
    if (plan.hasThread) thread = std::make_unique<tc::Thread>("live input", [this] { Run(); });
}

void Feed::Stop() {
    stop.Set();
    device->Cancel();
    thread.reset();
    device->Close();
}

// A device that can be held back is not read while the ring is full.
void Feed::Run() {
    while (Pump()) {
        void* const handles[] = {stop.GetHandle(), ReadSize() == 0 ? ring.RoomHandle() : device->Handle()};
        if (tc::WaitForAnyHandle(handles, std::max(0.0, GoneAt() - clock.Milliseconds())) == 0) return;
    }
}

bool Feed::Pump() {
    for (int i = 0; i < MOST_READINGS && !over; ++i)
        if (!ReadOnce()) break;
    if (over || clock.Milliseconds() < GoneAt()) return !over;
    return EndWith(
        Bilingual(
            "nothing came to %1 for %2 s: its sender has gone; start it again, or set silence",
            "an %1 kam %2 s lang nichts an: der Sender ist weg; starten Sie ihn neu, oder setzen Sie silence")
            .With({device->Name(),
                   tc::ShortestText(std::round((clock.Milliseconds() - lastCame) / 100.0) / 10.0)}));
}

// Who sends large pieces may pause for as long as three of them take.
double Feed::GoneAt() const {
    if (plan.silence <= 0.0 || position == 0) return INFINITY;
    return lastCame + std::max(plan.silence, 3.0 * longestPiece);
}

// In bytes; 0: the device is to be held back. Part of a packet may be there already.
std::size_t Feed::ReadSize() const {
    if (!device->CanHoldBack()) return buffer.size();
    const std::size_t room = ring.Room();
    const std::size_t frames = room - std::min(room, static_cast<std::size_t>(plan.packing.packetFrames));
    return std::min(buffer.size(), frames * static_cast<std::size_t>(plan.packing.frameBytes));
}

// False when there is nothing now, or no place for it.
bool Feed::ReadOnce() {
    const std::size_t size = ReadSize();
    if (size == 0) return false;
    const Device::Reading reading = device->Read({buffer.data(), size});
    switch (reading.outcome) {
        case Device::NOTHING:
            return false;
        case Device::DATA:
            Accept(reading.bytes, reading.lost, clock.Milliseconds());
            return true;
        case Device::FAILED:
            return EndWith(device->Why());
        case Device::END:
            break;
    }
    if (packets.Rest() == 0) return EndWith("");
    return EndWith(
        Bilingual("%1 ended in the middle of a sample of all channels: %2 bytes are left over; check format, "
                  "channels and sequence numbers",
                  "%1 endete mitten in einem Abtastwert aller Kanäle: %2 Bytes bleiben übrig; prüfen "
                  "Sie Format, Kanalzahl und Folgenummern")
            .With({device->Name(), std::to_string(packets.Rest())}));
}

void Feed::Accept(std::size_t bytes, std::int64_t lost, double now) {
    const double frames = static_cast<double>(bytes) / plan.packing.frameBytes;
    lastCame = now;
    longestPiece = std::max(longestPiece, 1000.0 * frames / plan.rate);
    if (lost != 0) Lose(lost == UNKNOWN_LOSS ? Estimate(now, bytes) : lost);
    packets.Give({buffer.data(), bytes}, device->HasPackets());
    Packets::Piece piece;
    while (packets.Next(piece)) {
        if (piece.lost != 0)
            Lose(piece.lost == UNKNOWN_LOSS ? Estimate(now, piece.frames.size()) : piece.lost);
        Put(piece, now);
    }
    if (position > 0) meter.Add(now, position);
}

// What is missing by the clock before the bytes that have come now.
std::int64_t Feed::Estimate(double now, std::size_t bytes) const {
    if (began.load() < 0.0) return 0;
    const double due = (now - began.load()) * plan.rate / 1000.0;
    const auto here = static_cast<std::int64_t>(bytes / static_cast<std::size_t>(plan.packing.frameBytes));
    return std::max<std::int64_t>(0, std::llround(due) - position - here);
}

void Feed::Put(const Packets::Piece& piece, double now) {
    const std::size_t frameBytes = static_cast<std::size_t>(plan.packing.frameBytes);
    const std::size_t frames = piece.frames.size() / frameBytes;
    if (began.load() < 0.0)
        began.store(now -
                    1000.0 * static_cast<double>(position + static_cast<std::int64_t>(frames)) / plan.rate);
    if (isFull && ring.Room() * 2 >= ring.Capacity()) isFull = false;
    if (owed > 0 && !isFull && ring.Lose(owed)) owed = 0;
    const std::size_t accepted = isFull || owed > 0 ? 0 : ring.Put(piece.frames);
    position += static_cast<std::int64_t>(frames);
    if (accepted == frames) return;
    isFull = true;
    const auto refused = static_cast<std::int64_t>(frames - accepted);
    owed += refused;
    overrun += refused;
}

void Feed::Lose(std::int64_t frames) {
    position += frames;
    if (owed > 0 || !ring.Lose(frames)) owed += frames;
}

bool Feed::EndWith(const std::string& reason) {
    if (owed > 0) ring.Lose(owed);
    failure = reason;
    over = true;
    ring.End();
    return false;
}

}  // namespace live
