#pragma once

#include <span>

#include "sigweave/platform/Export.h"

namespace tc {

// How a wait ended (never change; callers of TCWaitTimeout store it).
enum WaitResult : unsigned long { WAIT_SIGNALLED = 0, WAIT_TIMED_OUT = 258, WAIT_FAILED = 0xFFFFFFFF };

// What one thread sets and others wait for. It stays set until it is reset. Any thread.
class TC_API Event {
 public:
    Event();
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // Also from a signal handler.
    void Set();
    void Reset();
    // What the waiting functions take. Valid while the event lives; null when the system could give none.
    void* GetHandle() const;

 private:
    int descriptor;
};

// Waits until the handle is signalled, at most so long; an infinite time waits for as long as it takes.
TC_API WaitResult WaitForHandle(void* handle, double milliseconds);
// The same for several: answers the position of the first that is signalled, which stays so, or -1 when the
// time has passed or a handle is none (null). Of no handles it waits out the time.
TC_API int WaitForAnyHandle(std::span<void* const> handles, double milliseconds);
TC_API void ResetEvent(void* handle);

TC_API void SleepMilliseconds(int milliseconds);

}  // namespace tc
