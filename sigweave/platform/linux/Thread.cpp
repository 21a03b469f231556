#include "sigweave/platform/Thread.h"

#include <unistd.h>

#include "sigweave/platform/Fork.h"

namespace tc {

namespace {

thread_local int threadId = 0;  // 0: not asked yet

// The child's thread is another one.
const bool forgetsAtFork = [] {
    AtFork(nullptr, nullptr, [] { threadId = 0; });
    return true;
}();

}  // namespace

int CurrentThreadId() {
    if (threadId == 0) threadId = gettid();
    return threadId;
}

}  // namespace tc
