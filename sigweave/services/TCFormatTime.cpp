#include "sigweave/services/TCFormatTime.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/platform/LocalTime.h"
#include "sigweave/services/TimeNames.h"

namespace {

// The text is put between `at` and `end`, as much as there is room for; each step answers where it ended.

char* PutCharacter(char* at, char* end, char character) {
    if (at != end) *at++ = character;
    return at;
}

char* PutText(char* at, char* end, std::string_view text) {
    const std::size_t count = std::min(text.size(), static_cast<std::size_t>(end - at));
    std::memcpy(at, text.data(), count);
    return at + count;
}

char* PutAnyNumber(char* at, char* end, std::int64_t number, int width) {
    char digits[24];
    char* const last = std::end(digits);
    char* first = last;
    std::uint64_t rest = static_cast<std::uint64_t>(number < 0 ? -number : number);
    do {
        *--first = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    while (last - first < width - (number < 0)) *--first = '0';
    if (number < 0) *--first = '-';
    return PutText(at, end, {first, static_cast<std::size_t>(last - first)});
}

char* PutPair(char* at, unsigned number) {
    at[0] = static_cast<char>('0' + number / 10);
    at[1] = static_cast<char>('0' + number % 10);
    return at + 2;
}

// With zeros before it, as printf does. Most numbers have two or four digits.
char* PutNumber(char* at, char* end, std::int64_t number, int width) {
    const auto small = static_cast<unsigned>(number);
    if (end - at < 4 || number < 0 || number > 9999) return PutAnyNumber(at, end, number, width);
    if (width <= 2 && small < 100)
        return width == 2 || small >= 10 ? PutPair(at, small)
                                         : PutCharacter(at, end, static_cast<char>('0' + small));
    if (width == 4) return PutPair(PutPair(at, small / 100), small % 100);
    return PutAnyNumber(at, end, number, width);
}

// What is to be shown.
struct Moment {
    std::tm calendar{};
    double fraction = 0.0;
    double duration = 0.0;  // ms; the whole time without a reference

    std::size_t Month() const { return static_cast<std::size_t>(calendar.tm_mon); }
    std::size_t Weekday() const { return static_cast<std::size_t>(calendar.tm_wday); }
    int Hour12() const { return (calendar.tm_hour + 11) % 12 + 1; }
    std::int64_t Year() const { return std::int64_t{calendar.tm_year} + 1900; }
    int Week() const { return (calendar.tm_yday + 7 - calendar.tm_wday) / 7; }
    int IsoWeek() const;
    std::int64_t Fraction(double parts) const { return static_cast<std::int64_t>(fraction * parts + 0.5); }
    std::int64_t Whole(double unit) const { return static_cast<std::int64_t>(duration / unit); }
};

int DaysOf(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 366 : 365;
}

// A week belongs to the year of its Thursday.
int Moment::IsoWeek() const {
    const int thursday = calendar.tm_yday + 3 - (calendar.tm_wday + 6) % 7;
    if (thursday < 0) return (thursday + DaysOf(Year() - 1)) / 7 + 1;
    return thursday < DaysOf(Year()) ? thursday / 7 + 1 : 1;
}

char* PutRounded(char* at, char* end, double number) {
    char digits[512];
    const int count = ftoa(number, digits, FORMAT_FIXED, false, nullptr, 0, 0);
    return PutText(at, end, {digits, static_cast<std::size_t>(count)});
}

char* PutHalfOfDay(char* at, char* end, const Moment& moment) {
    char text[128];
    return PutText(at, end, {text, std::strftime(text, sizeof text, "%p", &moment.calendar)});
}

constexpr double SECOND_MS = 1000;
constexpr double MINUTE_MS = 60 * SECOND_MS;
constexpr double HOUR_MS = 60 * MINUTE_MS;
constexpr double DAY_MS = 24 * HOUR_MS;

struct Token {
    std::string_view text;
    TCFormatTime::SystemType system;
    char* (*put)(char* at, char* end, const Moment& moment);
};

// clang-format off
constexpr std::array<Token, TCFormatTime::Percent + 1> TOKENS = {{
    {"%MonDe", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_DE.months[m.Month()]); }},
    {"%MonEn", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_EN.months[m.Month()]); }},
    {"%MonFr", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_FR.months[m.Month()]); }},
    {"%dayDe", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_DE.days[m.Weekday()]); }},
    {"%dayEn", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_EN.days[m.Weekday()]); }},
    {"%dayFr", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_FR.days[m.Weekday()]); }},
    {"%yyyy", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Year(), 4); }},
    {"%MDe", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_DE.shortMonths[m.Month()]); }},
    {"%MEn", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_EN.shortMonths[m.Month()]); }},
    {"%MFr", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_FR.shortMonths[m.Month()]); }},
    {"%dDe", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_DE.shortDays[m.Weekday()]); }},
    {"%dEn", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_EN.shortDays[m.Weekday()]); }},
    {"%dFr", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutText(at, end, tc::TIME_NAMES_FR.shortDays[m.Weekday()]); }},
    {"%DoW", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_wday, 1); }},
    {"%DoY", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_yday, 1); }},
    {"%WoY", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Week(), 2); }},
    {"%HH", TCFormatTime::HOUR,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Hour12(), 2); }},
    {"%hh", TCFormatTime::HOUR,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_hour, 2); }},
    {"%mm", TCFormatTime::MINUTE,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_min, 2); }},
    {"%ss", TCFormatTime::SECOND,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_sec, 2); }},
    {"%Ms", TCFormatTime::FRACTION,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Fraction(1e3), 3); }},
    {"%aMs", TCFormatTime::FRACTION,
     [](char* at, char* end, const Moment& m) { return PutRounded(at, end, m.duration); }},
    {"%Us", TCFormatTime::FRACTION,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Fraction(1e6), 6); }},
    {"%aUs", TCFormatTime::FRACTION,
     [](char* at, char* end, const Moment& m) { return PutRounded(at, end, m.duration * 1000); }},
    {"%dd", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_mday, 2); }},
    {"%MM", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_mon + 1, 2); }},
    {"%yy", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, (m.Year() % 100 + 100) % 100, 2); }},
    {"%PP", TCFormatTime::HOUR,
     [](char* at, char* end, const Moment& m) { return PutHalfOfDay(at, end, m); }},
    {"%h", TCFormatTime::HOUR,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_hour, 1); }},
    {"%m", TCFormatTime::MINUTE,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_min, 1); }},
    {"%s", TCFormatTime::SECOND,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_sec, 1); }},
    {"%d", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_mday, 1); }},
    {"%M", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.calendar.tm_mon + 1, 1); }},
    {"%H", TCFormatTime::HOUR,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Hour12(), 1); }},
    {"%ah", TCFormatTime::HOUR,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Whole(HOUR_MS), 1); }},
    {"%am", TCFormatTime::MINUTE,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Whole(MINUTE_MS), 1); }},
    {"%as", TCFormatTime::SECOND,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Whole(SECOND_MS), 1); }},
    {"%ad", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.Whole(DAY_MS), 1); }},
    {"%isoWoY", TCFormatTime::DAY,
     [](char* at, char* end, const Moment& m) { return PutNumber(at, end, m.IsoWeek(), 2); }},
    {"%%", TCFormatTime::NONE,
     [](char* at, char* end, const Moment&) { return PutText(at, end, "%"); }},
}};
// clang-format on

// Where to look for a token: those of two characters by the second, the longer ones, in their order, in the
// chain of the second and third.
struct Index {
    static constexpr std::size_t SIZE = 128;
    static constexpr int NONE = -1;

    static constexpr std::size_t Chain(char second, char third) {
        constexpr unsigned SPREAD = 7;
        return (SPREAD * static_cast<unsigned char>(second) + static_cast<unsigned char>(third)) % SIZE;
    }

    std::array<int, SIZE> shortTokens;
    std::array<int, SIZE> chains;
    std::array<int, TOKENS.size()> next;
};

constexpr Index INDEX = [] {
    Index index{};
    index.shortTokens.fill(Index::NONE);
    index.chains.fill(Index::NONE);
    for (std::size_t i = TOKENS.size(); i-- > 0;) {
        const std::string_view text = TOKENS[i].text;
        int& place = text.size() == 2 ? index.shortTokens[static_cast<std::size_t>(text[1])]
                                      : index.chains[Index::Chain(text[1], text[2])];
        index.next[i] = place;
        place = static_cast<int>(i);
    }
    return index;
}();

static_assert(
    [] {
        for (std::size_t i = 0; i < TOKENS.size(); ++i)
            for (std::size_t k = 0; k < i; ++k)
                if (TOKENS[i].text.starts_with(TOKENS[k].text)) return false;
        return true;
    }(),
    "a token comes before those that it begins with");

bool BeginsWith(std::string_view text, std::string_view token) {
    if (text.size() < token.size()) return false;
    std::size_t same = 1;
    while (same < token.size() && text[same] == token[same]) ++same;
    return same == token.size();
}

// The token that the text, which begins with a percent sign, begins with, or -1.
int FindToken(std::string_view text) {
    if (text.size() < 2) return Index::NONE;
    int index = text.size() > 2 ? INDEX.chains[Index::Chain(text[1], text[2])] : Index::NONE;
    while (index >= 0 && !BeginsWith(text, TOKENS[static_cast<std::size_t>(index)].text))
        index = INDEX.next[static_cast<std::size_t>(index)];
    const auto second = static_cast<unsigned char>(text[1]);
    return index >= 0 || second >= Index::SIZE ? index : INDEX.shortTokens[second];
}

// Hands the format's plain characters and tokens over in their order.
template <typename TakeCharacter, typename TakeToken>
void Walk(std::string_view format, TakeCharacter takeCharacter, TakeToken takeToken) {
    while (!format.empty()) {
        const int token = format[0] == '%' ? FindToken(format) : -1;
        if (token >= 0) {
            takeToken(token);
            format.remove_prefix(TOKENS[static_cast<std::size_t>(token)].text.size());
        } else {
            takeCharacter(format[0]);
            format.remove_prefix(1);
        }
    }
}

bool FillMoment(Moment& moment, double time, double reference) {
    moment.duration = time - reference;
    return TCFormatTime::CalcTime(&moment.calendar, time, reference, moment.fraction) != nullptr;
}

int Print(char* buffer, int size, std::string_view format, const Moment& moment) {
    char* at = buffer;
    char* const end = buffer + size - 1;
    Walk(
        format, [&](char character) { at = PutCharacter(at, end, character); },
        [&](int token) { at = TOKENS[static_cast<std::size_t>(token)].put(at, end, moment); });
    *at = '\0';
    return static_cast<int>(at - buffer);
}

std::string_view View(const char* format) {
    return format != nullptr ? format : "";
}

bool CalcLocal(tm& calendar, double time, double& fraction) {
    constexpr double LIMIT = 9e18;  // of what an integer of 64 bits can hold
    const double seconds = std::trunc(time / 1000);
    if (!(std::abs(seconds) < LIMIT)) return false;
    if (!tc::ToLocalTime(static_cast<std::int64_t>(seconds), calendar)) return false;
    calendar.tm_isdst = -1;
    fraction = std::max(time / 1000 - seconds, 0.0);
    return true;
}

}  // namespace

void TCFormatTime::SetFormatString(const char* format) {
    formatText = format;
    tokens.clear();
    Walk(
        View(formatText), [](char) {},
        [this](int token) { tokens.push_back(static_cast<TimeFormat>(token)); });
}

TCFormatTime::SystemType TCFormatTime::GetSystem() const {
    for (const TimeFormat token : tokens) {
        const SystemType system = TOKENS[static_cast<std::size_t>(token)].system;
        if (system != NONE) return system;
    }
    return NONE;
}

int TCFormatTime::Format(char* buffer, int size, const double& time, const double& reference) const {
    return FormatTime(buffer, size, formatText, time, reference);
}

TCString& TCFormatTime::Format(TCString& out, const double& time, const double& reference) const {
    return FormatTime(out, formatText, time, reference);
}

int TCFormatTime::FormatTime(char* buffer, int size, const char* format, const double& time,
                             const double& reference) {
    if (buffer == nullptr || size <= 0) return 0;
    Moment moment;
    if (FillMoment(moment, time, reference)) return Print(buffer, size, View(format), moment);
    buffer[0] = '\0';
    return 0;
}

// The room is doubled until something of it is left, or until it is more than a string can have. The format
// may be the text of `out`.
TCString& TCFormatTime::FormatTime(TCString& out, const char* format, const double& time,
                                   const double& reference) {
    TCString text;
    Moment moment;
    if (FillMoment(moment, time, reference)) {
        constexpr int FIRST_ROOM = 128;
        int room = FIRST_ROOM;
        int length = 0;
        do {
            room = static_cast<int>(std::min<std::int64_t>(std::int64_t{2} * room, INT32_MAX));
            length = Print(text.GetBuffer(room), room, View(format), moment);
        } while (length == room - 1);
        text.ReleaseBuffer(length);
    }
    return out = std::move(text);
}

tm* TCFormatTime::CalcTime(tm* calendar, const double& time, const double& reference, double& fraction) {
    if (reference == 0) return CalcLocal(*calendar, time, fraction) ? calendar : nullptr;
    tm day{};
    std::int64_t seconds = 0;
    if (!CalcLocal(day, reference, fraction)) return nullptr;
    day.tm_hour = day.tm_min = day.tm_sec = 0;
    if (!tc::FromLocalTime(day, seconds) || seconds <= 0) return nullptr;
    const double midnight = static_cast<double>(seconds) * 1000;
    return CalcLocal(*calendar, midnight + (time - reference), fraction) ? calendar : nullptr;
}

double TCFormatTime::CalcDiffTimeLow(const double& time, const double& reference) const {
    const SystemType system = GetSystem();
    if (tokens.empty()) return time - reference;
    tm calendar{};
    double fraction = 0;
    if (CalcTime(&calendar, time, reference, fraction) == nullptr) return 0;
    double duration = calendar.tm_sec * SECOND_MS + fraction * SECOND_MS;
    if (system >= MINUTE) duration += calendar.tm_min * MINUTE_MS;
    if (system >= HOUR) duration += calendar.tm_hour * HOUR_MS;
    if (system >= DAY) duration += calendar.tm_mday * DAY_MS;
    return duration;
}
