#include "sigweave/platform/Event.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <vector>

#include "sigweave/platform/Clock.h"
#include "sigweave/platform/linux/Handle.h"

namespace tc {

namespace {

constexpr double LONGEST_WAIT = 1e12;  // ms, some thirty years: within every system's bounds

timespec ToTimespec(double milliseconds) {
    const double seconds = std::floor(milliseconds / 1000);
    return {static_cast<time_t>(seconds), static_cast<long>((milliseconds - seconds * 1000) * 1e6)};
}

double Now() {
    return static_cast<double>(PerformanceCounter()) * 1000 / static_cast<double>(PerformanceFrequency());
}

// As poll: the number of handles that something is the matter with, 0 when the time has passed.
int WaitFor(std::span<pollfd> waited, double milliseconds) {
    const double due = Now() + std::min(milliseconds, LONGEST_WAIT);
    while (true) {
        const timespec rest = ToTimespec(std::max(due - Now(), 0.0));
        const int count = ppoll(waited.data(), waited.size(), &rest, nullptr);
        if (count >= 0 || errno != EINTR) return count;
    }
}

}  // namespace

Event::Event() : descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Event::~Event() {
    if (descriptor >= 0) close(descriptor);
}

void Event::Set() {
    eventfd_write(descriptor, 1);
}

void Event::Reset() {
    ResetEvent(GetHandle());
}

void* Event::GetHandle() const {
    return ToHandle(descriptor);
}

WaitResult WaitForHandle(void* handle, double milliseconds) {
    pollfd waited{ToDescriptor(handle), POLLIN, 0};
    if (waited.fd < 0) return WAIT_FAILED;
    const int count = WaitFor({&waited, 1}, milliseconds);
    if (count == 0) return WAIT_TIMED_OUT;
    return count > 0 && (waited.revents & POLLIN) != 0 ? WAIT_SIGNALLED : WAIT_FAILED;
}

int WaitForAnyHandle(std::span<void* const> handles, double milliseconds) {
    pollfd few[8];  // waits of the steady flow allocate nothing
    std::vector<pollfd> many(handles.size() > std::size(few) ? handles.size() : 0);
    const std::span<pollfd> waited(many.empty() ? few : many.data(), handles.size());
    for (std::size_t i = 0; i < handles.size(); ++i) waited[i] = {ToDescriptor(handles[i]), POLLIN, 0};
    const auto isNone = [](const pollfd& entry) { return entry.fd < 0; };
    if (std::ranges::any_of(waited, isNone) || WaitFor(waited, milliseconds) <= 0) return -1;
    const auto isSignalled = [](const pollfd& entry) { return (entry.revents & POLLIN) != 0; };
    const auto found = std::ranges::find_if(waited, isSignalled);
    return found != waited.end() ? static_cast<int>(found - waited.begin()) : -1;
}

void ResetEvent(void* handle) {
    eventfd_t count = 0;
    if (handle != nullptr) eventfd_read(ToDescriptor(handle), &count);
}

void SleepMilliseconds(int milliseconds) {
    timespec rest = ToTimespec(std::max(milliseconds, 0));
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) continue;
}

}  // namespace tc
