#pragma once

#include <span>

#include "sigweave/platform/Export.h"

namespace tc {

// How a wait ended (never change; callers of TCWaitTimeout store it).
enum WaitResult : unsigned long { WAIT_SIGNALLED = 0, WAIT_TIMED_OUT = 258, WAIT_FAILED = 0xFFFFFFFF };

// One thread sets it and others wait for it. It stays set until it is reset. Any thread.
class TC_API Event {
 public:
    Event();
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // Also from a signal handler.
    void Set();
    void Reset();
    // What the waiting functions take. Valid while the event lives, which owns it; null when the system could
    // give none: waits for it then fail at once.
    void* GetHandle() const;

 private:
    int descriptor;
};

// Waits until the handle is signalled, at most for this time; an infinite one waits for as long as it takes.
// WAIT_FAILED, at once, for null. With a time that is not positive it only looks.
TC_API WaitResult WaitForHandle(void* handle, double milliseconds);
// The same for several: answers the position of the first that is signalled, which stays so, or -1 when the
// time has passed. A null among them is -1 at once, without a wait. Without any handles it waits out the
// time.
TC_API int WaitForAnyHandle(std::span<void* const> handles, double milliseconds);
// Null is ignored.
TC_API void ResetEvent(void* handle);

TC_API void SleepMilliseconds(int milliseconds);

}  // namespace tc
