#include "sigweave/platform/WaitableTimer.h"

#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace tc {

namespace {
constexpr std::int64_t TICKS_PER_SECOND = 10'000'000;
constexpr std::int64_t NANOSECONDS_PER_TICK = 100;
}  // namespace

WaitableTimer::WaitableTimer() : descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)) {}

WaitableTimer::~WaitableTimer() {
    if (descriptor >= 0) close(descriptor);
}

void WaitableTimer::WaitFor(std::int64_t hundredNanoseconds) {
    if (hundredNanoseconds <= 0) return;
    timespec due{hundredNanoseconds / TICKS_PER_SECOND,
                 hundredNanoseconds % TICKS_PER_SECOND * NANOSECONDS_PER_TICK};
    const itimerspec once{{}, due};
    if (descriptor < 0 || timerfd_settime(descriptor, 0, &once, nullptr) != 0) {
        while (clock_nanosleep(CLOCK_MONOTONIC, 0, &due, &due) == EINTR) continue;
        return;
    }
    std::uint64_t expirations = 0;
    while (read(descriptor, &expirations, sizeof expirations) < 0 && errno == EINTR) continue;
}

}  // namespace tc
