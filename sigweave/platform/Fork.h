#pragma once

#include "sigweave/platform/Export.h"

// For code that keeps what a forked child must not share. Any thread.
namespace tc {

TC_API int ProcessId();

// Has `prepare` called in the parent before each fork, `parent` and `child` after it on either side. Stays
// for good.
void AtFork(void (*prepare)(), void (*parent)(), void (*child)());

}  // namespace tc
