#include "sigweave/services/TCWaitTimeout.h"

#include <cmath>

#include "sigweave/platform/Event.h"

TCWaitTimeout::TCWaitTimeout() {
    Start();
}

TCWaitTimeout::TCWaitTimeout(const double& timeoutMs, int sleepStepMs)
    : timeout(timeoutMs), sleepStep(sleepStepMs) {
    Start();
}

TCWaitTimeout::TCWaitTimeout(const double& timeoutMs, void* handle) : timeout(timeoutMs), event(handle) {
    tc::ResetEvent(event);
    Start();
}

void TCWaitTimeout::Set(const double& timeoutMs) {
    timeout = timeoutMs;
    Start();
}

bool TCWaitTimeout::Sleep(int ms) const {
    const double rest = GetRest();
    if (!(rest > 0)) return false;
    if (ms == -1) ms = sleepStep;
    if (rest < ms) ms = static_cast<int>(rest);
    if (ms > 0) tc::SleepMilliseconds(ms);
    return true;
}

bool TCWaitTimeout::Wait(void* handle, unsigned long* result) {
    const double rest = GetRest();
    if (handle == nullptr) handle = event;
    if (!(rest > 0) || handle == nullptr) return false;
    const tc::WaitResult ended = tc::WaitForHandle(handle, std::floor(rest));
    if (result != nullptr) *result = ended;
    return ended == tc::WAIT_SIGNALLED;
}
