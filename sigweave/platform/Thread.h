#pragma once

#include <functional>
#include <string>
#include <thread>

#include "sigweave/platform/Export.h"

namespace tc {

// The number under which the system knows the calling thread. Any thread.
TC_API int CurrentThreadId();

// The name under which debuggers and the system's tools show the calling thread.
TC_API std::string CurrentThreadName();

// Work on a thread of its own, which lasts until the work returns; the destructor waits for that. The work
// must not throw. No signal reaches the thread: signals stay with those of the program.
class TC_API Thread {
 public:
    // The system keeps the first 15 bytes of the name. Throws std::system_error when there can be no thread.
    Thread(const char* name, std::function<void()> work);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

 private:
    std::thread thread;
};

}  // namespace tc
