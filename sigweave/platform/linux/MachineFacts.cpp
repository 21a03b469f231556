#include "sigweave/platform/MachineFacts.h"

#include <sys/timex.h>
#include <sys/utsname.h>

namespace tc {

std::string MachineName() {
    utsname names{};
    if (uname(&names) != 0) return "";
    return std::string(names.nodename) + ", " + names.sysname + " " + names.release + ", " + names.machine;
}

bool ReadClockError(ClockError& error) {
    constexpr double MICROSECONDS = 1e6;
    timex state{};  // with no modes it only asks
    const int answer = adjtimex(&state);
    if (answer < 0) return false;
    error.isSynchronised = answer != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
    error.largest = static_cast<double>(state.maxerror) / MICROSECONDS;
    error.estimated = static_cast<double>(state.esterror) / MICROSECONDS;
    return true;
}

}  // namespace tc
