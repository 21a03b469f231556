#include "sigweave/platform/Thread.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <utility>

#include "sigweave/platform/Fork.h"

namespace tc {

namespace {

constexpr std::size_t LONGEST_NAME = 15;

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

std::string CurrentThreadName() {
    char name[LONGEST_NAME + 1] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

Thread::Thread(const char* name, std::function<void()> work) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // the new thread begins with what this one has
    try {
        thread = std::thread([shown = std::string(name).substr(0, LONGEST_NAME), work = std::move(work)] {
            pthread_setname_np(pthread_self(), shown.c_str());
            work();
        });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Thread::~Thread() {
    thread.join();
}

}  // namespace tc
