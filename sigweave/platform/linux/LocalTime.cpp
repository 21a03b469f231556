#include "sigweave/platform/LocalTime.h"

#include <time.h>

namespace tc {

bool ToLocalTime(std::int64_t seconds, std::tm& calendar) {
    const time_t time = seconds;
    return localtime_r(&time, &calendar) != nullptr;
}

bool FromLocalTime(std::tm calendar, std::int64_t& seconds) {
    calendar.tm_wday = -1;  // set by every success: -1 is also a valid time
    seconds = mktime(&calendar);
    return calendar.tm_wday >= 0;
}

}  // namespace tc
