#include "sigweave/platform/Fork.h"

#include <pthread.h>
#include <unistd.h>

namespace tc {

int ProcessId() {
    return getpid();
}

void AtFork(void (*prepare)(), void (*parent)(), void (*child)()) {
    pthread_atfork(prepare, parent, child);
}

}  // namespace tc
