#pragma once

namespace tc {

// The number under which the system knows the calling thread. Any thread.
int CurrentThreadId();

}  // namespace tc
