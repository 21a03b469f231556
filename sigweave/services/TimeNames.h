#pragma once

#include <array>
#include <string_view>

// Names of months, from January, and weekdays, from Sunday, in the Windows-1252 code page. The short ones
// have three letters.
namespace tc {

using MonthNames = std::array<std::string_view, 12>;
using DayNames = std::array<std::string_view, 7>;

struct TimeNames {
    MonthNames months;
    MonthNames shortMonths;
    DayNames days;
    DayNames shortDays;
};

extern const TimeNames TIME_NAMES_DE;
extern const TimeNames TIME_NAMES_EN;
extern const TimeNames TIME_NAMES_FR;

}  // namespace tc
