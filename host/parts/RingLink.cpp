#include "host/parts/RingLink.h"

#include <thread>
#include <utility>

namespace host {
namespace {

// Looks this often before the thread sleeps: being woken takes longer.
constexpr int LOOKS = 200;

template <class Ready>
bool Look(Ready ready) {
    static const int looks = std::thread::hardware_concurrency() > 1 ? LOOKS : 1;
    for (int i = 0; i < looks; ++i) {
        if (ready()) return true;
        __builtin_ia32_pause();
    }
    return ready();
}

}  // namespace

bool RingLink::HasRoom() const {
    const std::uint32_t waiting =
        sent.load(std::memory_order_relaxed) - received.load(std::memory_order_acquire);
    return waiting == 0 || (waiting < ROOM && bytes.load(std::memory_order_relaxed) < MOST_BYTES);
}

bool RingLink::Send(PartDelivery& delivery) {
    if (onHandOver) onHandOver();
    while (!Look([this] { return closed || HasRoom(); })) {
        const std::uint32_t before = received.load(std::memory_order_acquire);
        if (!closed && !HasRoom()) received.wait(before, std::memory_order_acquire);
    }
    if (closed) return false;
    const std::uint32_t number = sent.load(std::memory_order_relaxed);
    bytes.fetch_add(static_cast<std::int64_t>(delivery.Bytes()), std::memory_order_relaxed);
    std::swap(slots[number % ROOM], delivery);
    sent.store(number + 1, std::memory_order_release);
    sent.notify_one();
    return true;
}

void RingLink::Receive(PartDelivery& delivery) {
    if (onHandOver) onHandOver();
    const std::uint32_t number = received.load(std::memory_order_relaxed);
    const auto isThere = [&] { return sent.load(std::memory_order_acquire) != number; };
    while (!Look(isThere)) sent.wait(number, std::memory_order_acquire);
    std::swap(slots[number % ROOM], delivery);
    bytes.fetch_sub(static_cast<std::int64_t>(delivery.Bytes()), std::memory_order_relaxed);
    received.store(number + 1, std::memory_order_release);
    received.notify_one();
}

void RingLink::Close() {
    closed = true;
    // Counts as a place that became free, so that a sender who waits looks again.
    received.fetch_add(1);
    received.notify_one();
}

}  // namespace host
