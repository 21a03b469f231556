#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace live {

// Where samples come from, as bytes. Opened and closed on the thread of the run, read on that of its Feed,
// never at once.
class Device {
 public:
    enum Outcome { DATA, NOTHING, END, FAILED };
    struct Reading {
        Outcome outcome = NOTHING;
        std::size_t bytes = 0;
        std::int64_t lost = 0;  // frames that the device itself lost before these bytes, or UNKNOWN_LOSS
    };

    virtual ~Device() = default;

    // False with the reason, for the user.
    virtual bool Open(std::string& error) = 0;
    virtual void Close() = 0;
    // Never waits. FAILED: Why says why; nothing comes after it, as after END.
    virtual Reading Read(std::span<std::byte> into) = 0;
    virtual std::string Why() const = 0;
    // From another thread: a reading that is under way ends at once. For devices that cannot read without
    // waiting.
    virtual void Cancel() {}
    // For waits: signalled while Read would answer other than NOTHING, or may. It may change with a reading.
    virtual void* Handle() const = 0;

    // For messages: "the peer at 127.0.0.1:5000"
    virtual std::string Name() const = 0;
    // Whether each reading is one packet.
    virtual bool HasPackets() const { return false; }
    // Whether what is not read waits where it comes from, so that nothing is lost meanwhile.
    virtual bool CanHoldBack() const { return true; }
};

}  // namespace live
