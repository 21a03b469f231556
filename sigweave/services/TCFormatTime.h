#pragma once

#include <ctime>
#include <vector>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// Times as text, by a format with tokens:
//
//     TCString name;
//     TCFormatTime::FormatTime(name, "run_%yyyy-%MM-%dd_%hh-%mm-%ss.txt", TCSystemTime(), 0);
//
// Times are milliseconds since 1970-01-01 00:00 UTC and are shown in local time. With a reference (not 0) the
// text shows the duration from the reference to the time instead: as the time of day on a clock
// that showed midnight of the reference's day when the duration began. That clock is the local one: on a day
// when summer time begins or ends, it jumps with it.
//
// What is no token stays as it is, also a percent sign at the end. The longest token counts. Names are in the
// Windows-1252 code page.
//
//     %MonDe %MonEn %MonFr    month            Januar      %MDe %MEn %MFr   Jan
//     %dayDe %dayEn %dayFr    weekday          Sonntag     %dDe %dEn %dFr   Son
//     %yyyy %yy               year, of the century (2 digits)
//     %MM %M  %dd %d          month 1 to 12, day of the month; 2 digits or as many as needed
//     %hh %h  %mm %m  %ss %s  hour 0 to 23, minute, second, likewise
//     %HH %H  %PP             hour 1 to 12, likewise, with the AM or PM of the C library's locale
//     %Ms %Us                 milli- and microseconds of the second, rounded, 3 and 6 digits. What rounds up
//                             to a whole second is written so, with a digit more
//     %DoW %DoY               weekday from 0 (Sunday), day of the year from 0
//     %WoY %isoWoY            week of the year, 2 digits: from Sunday, as strftime's %U; by ISO 8601, where
//                             the first and last days of a year may belong to a week of its neighbour
//     %ad %ah %am %as         the whole duration in full days, hours, minutes, seconds
//     %aMs %aUs               the whole duration in milli- and microseconds, rounded
//     %%                      a percent sign
//
// Use one object on one thread at a time; the static functions on any.
class TC_API TCFormatTime {
 public:
    // The tokens, in the order in which they are tried (never change).
    enum TimeFormat : int {
        MonDe,
        MonEn,
        MonFr,
        dayDe,
        dayEn,
        dayFr,
        yyyy,
        MDe,
        MEn,
        MFr,
        dDe,
        dEn,
        dFr,
        DoW,
        DoY,
        WoY,
        HH,
        hh,
        mm,
        ss,
        Ms,
        aMs,
        Us,
        aUs,
        dd,
        MM,
        yy,
        PP,
        h,
        m,
        s,
        d,
        M,
        H,
        ah,
        am,
        as,
        ad,
        isoWoY,
        Percent
    };
    // How far a token reaches: it means its unit and, in a duration, all below.
    enum SystemType : int { NONE = 0, FRACTION = 1, SECOND = 2, MINUTE = 3, HOUR = 4, DAY = 5 };

    TCFormatTime() = default;

    // Null is the empty format.
    void SetFormatString(const char* format);
    const char* GetFormatString() const { return formatText; }
    bool IsEmpty() const { return formatText.IsEmpty(); }
    // The tokens of the format in their order.
    const std::vector<TimeFormat>& GetTokens() const { return tokens; }
    // Of the first token that means a time; NONE without one. Months and years count as DAY.
    SystemType GetSystem() const;

    // Both as `FormatTime`.
    int Format(char* buffer, int size, const double& time, const double& reference) const;
    TCString& Format(TCString& out, const double& time, const double& reference) const;

    // Writes what fits into `size` bytes with the terminating zero; answers the length. What `CalcTime` is
    // null for, such as not-a-number, gives an empty text and 0.
    static int FormatTime(char* buffer, int size, const char* format, const double& time,
                          const double& reference);
    static TCString& FormatTime(TCString& out, const char* format, const double& time,
                                const double& reference);

    // The calendar fields that are shown, daylight saving marked unknown, and the fraction of the second
    // (never negative). Null for a time that no calendar has, or a reference whose day began before 1970.
    static tm* CalcTime(tm* calendar, const double& time, const double& reference, double& fraction);

    // The duration in milliseconds that the calendar fields give up to the unit of `GetSystem`: seconds and
    // their fraction, then minutes, hours and the day of the month as far as it reaches. Without tokens, time
    // - reference; 0 when the calendar does not know the time.
    double CalcDiffTimeLow(const double& time, const double& reference) const;

 private:
    TCString formatText;
    std::vector<TimeFormat> tokens;
};
