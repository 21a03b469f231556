#pragma once

#include <array>
#include <atomic>
#include <functional>

#include "host/parts/PartLink.h"

namespace host {

// A bounded ring in memory from the thread of one part to that of the next.
class RingLink final : public PartLink {
 public:
    // --- The sending thread

    bool Send(PartDelivery& delivery) override;

    // --- The receiving thread

    // Waits for the next delivery and exchanges it for the one given.
    void Receive(PartDelivery& delivery);
    // No more is received; who waits in Send goes on.
    void Close();

    // Called by both threads at each end, for tests that want delays.
    std::function<void()> onHandOver;

 private:
    static constexpr std::uint32_t ROOM = 64;
    static constexpr std::int64_t MOST_BYTES = 64 << 20;  // unless a single delivery is larger

    bool HasRoom() const;

    std::array<PartDelivery, ROOM> slots;
    // Counted up without end; each is written by one thread.
    alignas(64) std::atomic<std::uint32_t> sent{0};
    alignas(64) std::atomic<std::uint32_t> received{0};
    alignas(64) std::atomic<std::int64_t> bytes{0};
    std::atomic<bool> closed{false};
};

}  // namespace host
