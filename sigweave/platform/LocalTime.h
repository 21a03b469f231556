#pragma once

#include <cstdint>
#include <ctime>

namespace tc {

// The local calendar time of the seconds since 1970-01-01 00:00 UTC; false when there is none.
bool ToLocalTime(std::int64_t seconds, std::tm& calendar);
// And back; false when it is not known. Fields out of their ranges are carried over.
bool FromLocalTime(std::tm calendar, std::int64_t& seconds);

}  // namespace tc
