#include "modules/table-file/TimeCell.h"

#include <chrono>

namespace tc {

namespace {

bool IsDigit(char byte) {
    return static_cast<unsigned char>(byte - '0') < 10;
}

// Exactly that many digits; null when they are not there.
const char* ReadDigits(const char* at, int count, int& value) {
    if (at == nullptr) return nullptr;
    value = 0;
    for (; count > 0; --count, ++at) {
        if (!IsDigit(*at)) return nullptr;
        value = 10 * value + (*at - '0');
    }
    return IsDigit(*at) ? nullptr : at;
}

const char* ReadSign(const char* at, char sign) {
    return at != nullptr && *at == sign ? at + 1 : nullptr;
}

const char* ReadDay(const char* at, TimeCell& time) {
    int year = 0, month = 0, day = 0;
    const char* end = ReadDigits(at, 4, year);
    if (end != nullptr && (*end == '-' || *end == '/')) {
        const char sign = *end;
        end = ReadDigits(ReadSign(ReadDigits(end + 1, 2, month), sign), 2, day);
    } else {
        end = ReadSign(ReadDigits(ReadSign(ReadDigits(at, 2, day), '.'), 2, month), '.');
        end = ReadDigits(end, 4, year);
    }
    if (end == nullptr) return nullptr;
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) return nullptr;
    time.day = std::chrono::sys_days(date).time_since_epoch().count();
    return end;
}

// The seconds may be missing.
const char* ReadClock(const char* at, bool needsSeconds, TimeCell& time) {
    int hours = 0, minutes = 0, seconds = 0;
    const char* end = ReadDigits(ReadSign(ReadDigits(at, 2, hours), ':'), 2, minutes);
    if (end == nullptr || (needsSeconds && *end != ':')) return nullptr;
    if (*end == ':') end = ReadDigits(end + 1, 2, seconds);
    if (end == nullptr || hours > 23 || minutes > 59 || seconds > 60) return nullptr;
    std::int64_t fraction = 0;
    double unit = 1.0;
    time.decimals = 0;
    if ((*end == '.' || *end == ',') && IsDigit(end[1]))
        for (++end; IsDigit(*end); ++end) {
            if (++time.decimals > 15) continue;
            fraction = 10 * fraction + (*end - '0');
            unit *= 10.0;
        }
    time.seconds = 3600.0 * hours + 60.0 * minutes + seconds + static_cast<double>(fraction) / unit;
    return end;
}

// What is no zone is left where it is.
const char* ReadZone(const char* at, TimeCell& time) {
    if (*at == 'Z') return at + 1;
    if (*at != '+' && *at != '-') return at;
    int hours = 0, minutes = 0;
    const char* end = ReadDigits(ReadSign(ReadDigits(at + 1, 2, hours), ':'), 2, minutes);
    if (end == nullptr) {
        end = ReadDigits(at + 1, 4, hours);
        minutes = hours % 100;
        hours /= 100;
    }
    if (end == nullptr) return at;
    const double shift = 3600.0 * hours + 60.0 * minutes;
    time.seconds += *at == '+' ? -shift : shift;
    return end;
}

}  // namespace

const char* ReadTimeCell(const char* text, TimeForm form, TimeCell& time) {
    time = {};
    if (form == TimeForm::CLOCK) return ReadClock(text, true, time);
    const char* const end = ReadDay(text, time);
    if (end == nullptr || (*end != 'T' && *end != ' ')) return end;
    const char* const clock = ReadClock(end + 1, false, time);
    return clock != nullptr ? ReadZone(clock, time) : end;
}

}  // namespace tc
