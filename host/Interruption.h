#pragma once

#include <atomic>

#include "sigweave/platform/Event.h"

namespace host {

// The wish that a run ends early. It stays. Any thread.
class Interruption {
 public:
    // Also from a signal handler.
    void Raise() {
        raised.store(true);
        event.Set();
    }
    bool IsRaised() const { return raised.load(std::memory_order_relaxed); }
    // For waits: signalled once it is raised.
    void* Handle() const { return event.GetHandle(); }

 private:
    std::atomic<bool> raised{false};
    tc::Event event;
};

}  // namespace host
