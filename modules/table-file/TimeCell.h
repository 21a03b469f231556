#pragma once

#include <cstdint>

namespace tc {

// How a table writes its times: as numbers, as a date with a time of day, or as a time of day alone.
enum class TimeForm { NUMBER, DATE, CLOCK };

struct TimeCell {
    std::int64_t day = 0;  // since 1970-01-01; of a time of day 0
    double seconds = 0.0;  // of that day in UTC; with a zone perhaps beyond its ends
    int decimals = 0;      // digits behind the decimal sign
};

// Reads 2026-03-01T12:00:00.5Z, with a blank in place of the T, with a zone as +01:00 or none (UTC),
// 2026/03/01, 01.03.2026, or a date alone; as a time of day 12:00:00.5. The decimal sign is a point or a
// comma. Answers where it ends, null for anything else. The text must end with a byte that belongs to no
// time, as a line feed.
const char* ReadTimeCell(const char* text, TimeForm form, TimeCell& time);

}  // namespace tc
