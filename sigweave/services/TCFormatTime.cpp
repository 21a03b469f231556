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

// Takes as much text as there is room for.
class Output {
 public:
    Output(char* buffer, int size) : begin(buffer), at(buffer), end(buffer + size - 1) {}

    void Text(std::string_view text) {
        const std::size_t count = std::min(text.size(), static_cast<std::size_t>(end - at));
        std::memcpy(at, text.data(), count);
        at += count;
    }

    // With zeros before it, as printf does.
    void Number(std::int64_t number, int width) {
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
        Text({first, static_cast<std::size_t>(last - first)});
    }

    int Finish() {
        *at = '\0';
        return static_cast<int>(at - begin);
    }

 private:
    char* begin;
    char* at;
    char* end;
};

// What is to be shown.
struct Moment {
    std::tm calendar{};
    double fraction = 0.0;
    double duration = 0.0;  // ms; the whole time without a reference

    std::size_t Month() const { return static_cast<std::size_t>(calendar.tm_mon); }
    std::size_t Weekday() const { return static_cast<std::size_t>(calendar.tm_wday); }
    int Hour12() const { return (calendar.tm_hour + 11) % 12 + 1; }
    std::int64_t Year() const { return std::int64_t{calendar.tm_year} + 1900; }
    std::int64_t Fraction(double parts) const { return static_cast<std::int64_t>(fraction * parts + 0.5); }
    std::int64_t Whole(double unit) const { return static_cast<std::int64_t>(duration / unit); }
};

void PutRounded(Output& out, double number) {
    char digits[512];
    const int count = ftoa(number, digits, FORMAT_FIXED, false, nullptr, 0, 0);
    out.Text({digits, static_cast<std::size_t>(count)});
}

// By the C library.
void PutCalendar(Output& out, const char* format, const Moment& moment) {
    char text[128];
    out.Text({text, std::strftime(text, sizeof text, format, &moment.calendar)});
}

constexpr double SECOND_MS = 1000;
constexpr double MINUTE_MS = 60 * SECOND_MS;
constexpr double HOUR_MS = 60 * MINUTE_MS;
constexpr double DAY_MS = 24 * HOUR_MS;

struct Token {
    std::string_view text;
    TCFormatTime::SystemType system;
    void (*put)(Output&, const Moment&);
};

// clang-format off
constexpr std::array<Token, TCFormatTime::Percent + 1> TOKENS = {{
    {"%MonDe", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_DE.months[m.Month()]); }},
    {"%MonEn", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_EN.months[m.Month()]); }},
    {"%MonFr", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_FR.months[m.Month()]); }},
    {"%dayDe", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_DE.days[m.Weekday()]); }},
    {"%dayEn", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_EN.days[m.Weekday()]); }},
    {"%dayFr", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_FR.days[m.Weekday()]); }},
    {"%yyyy", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.Year(), 4); }},
    {"%MDe", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_DE.shortMonths[m.Month()]); }},
    {"%MEn", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_EN.shortMonths[m.Month()]); }},
    {"%MFr", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_FR.shortMonths[m.Month()]); }},
    {"%dDe", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_DE.shortDays[m.Weekday()]); }},
    {"%dEn", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_EN.shortDays[m.Weekday()]); }},
    {"%dFr", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Text(tc::TIME_NAMES_FR.shortDays[m.Weekday()]); }},
    {"%DoW", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_wday, 1); }},
    {"%DoY", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_yday, 1); }},
    {"%WoY", TCFormatTime::DAY, [](Output& o, const Moment& m) { PutCalendar(o, "%U", m); }},
    {"%HH", TCFormatTime::HOUR, [](Output& o, const Moment& m) { o.Number(m.Hour12(), 2); }},
    {"%hh", TCFormatTime::HOUR, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_hour, 2); }},
    {"%mm", TCFormatTime::MINUTE, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_min, 2); }},
    {"%ss", TCFormatTime::SECOND, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_sec, 2); }},
    {"%Ms", TCFormatTime::FRACTION, [](Output& o, const Moment& m) { o.Number(m.Fraction(1e3), 3); }},
    {"%aMs", TCFormatTime::FRACTION, [](Output& o, const Moment& m) { PutRounded(o, m.duration); }},
    {"%Us", TCFormatTime::FRACTION, [](Output& o, const Moment& m) { o.Number(m.Fraction(1e6), 6); }},
    {"%aUs", TCFormatTime::FRACTION, [](Output& o, const Moment& m) { PutRounded(o, m.duration * 1000); }},
    {"%dd", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_mday, 2); }},
    {"%MM", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_mon + 1, 2); }},
    {"%yy", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.Year() % 100, 2); }},
    {"%PP", TCFormatTime::HOUR, [](Output& o, const Moment& m) { PutCalendar(o, "%p", m); }},
    {"%h", TCFormatTime::HOUR, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_hour, 1); }},
    {"%m", TCFormatTime::MINUTE, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_min, 1); }},
    {"%s", TCFormatTime::SECOND, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_sec, 1); }},
    {"%d", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_mday, 1); }},
    {"%M", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.calendar.tm_mon + 1, 1); }},
    {"%H", TCFormatTime::HOUR, [](Output& o, const Moment& m) { o.Number(m.Hour12(), 1); }},
    {"%ah", TCFormatTime::HOUR, [](Output& o, const Moment& m) { o.Number(m.Whole(HOUR_MS), 1); }},
    {"%am", TCFormatTime::MINUTE, [](Output& o, const Moment& m) { o.Number(m.Whole(MINUTE_MS), 1); }},
    {"%as", TCFormatTime::SECOND, [](Output& o, const Moment& m) { o.Number(m.Whole(SECOND_MS), 1); }},
    {"%ad", TCFormatTime::DAY, [](Output& o, const Moment& m) { o.Number(m.Whole(DAY_MS), 1); }},
    {"%isoWoY", TCFormatTime::DAY, [](Output& o, const Moment& m) { PutCalendar(o, "%V", m); }},
    {"%%", TCFormatTime::NONE, [](Output& o, const Moment&) { o.Text("%"); }},
}};
// clang-format on

constexpr std::size_t CHARACTERS = 128;

// The tokens with the same character behind the percent sign, in their order.
struct Chains {
    std::array<int, CHARACTERS> first;
    std::array<int, TOKENS.size()> next;
};

constexpr Chains CHAINS = [] {
    Chains chains{};
    chains.first.fill(-1);
    for (std::size_t i = TOKENS.size(); i-- > 0;) {
        int& first = chains.first[static_cast<std::size_t>(TOKENS[i].text[1])];
        chains.next[i] = first;
        first = static_cast<int>(i);
    }
    return chains;
}();

static_assert(
    [] {
        for (std::size_t i = 0; i < TOKENS.size(); ++i)
            for (std::size_t k = 0; k < i; ++k)
                if (TOKENS[i].text.starts_with(TOKENS[k].text)) return false;
        return true;
    }(),
    "a token comes before those that it begins with");

// The token that the text begins with, or -1.
int FindToken(std::string_view text) {
    if (text.size() < 2 || static_cast<unsigned char>(text[1]) >= CHARACTERS) return -1;
    int index = CHAINS.first[static_cast<std::size_t>(text[1])];
    while (index >= 0 && !text.starts_with(TOKENS[static_cast<std::size_t>(index)].text))
        index = CHAINS.next[static_cast<std::size_t>(index)];
    return index;
}

// Hands the format's plain texts and tokens over in their order.
template <typename TakeText, typename TakeToken>
void Walk(std::string_view format, TakeText takeText, TakeToken takeToken) {
    while (!format.empty()) {
        const int token = format[0] == '%' ? FindToken(format) : -1;
        if (token >= 0) {
            takeToken(token);
            format.remove_prefix(TOKENS[static_cast<std::size_t>(token)].text.size());
        } else {
            const std::size_t length = std::min(format.find('%', 1), format.size());
            takeText(format.substr(0, length));
            format.remove_prefix(length);
        }
    }
}

bool FillMoment(Moment& moment, double time, double reference) {
    moment.duration = time - reference;
    return TCFormatTime::CalcTime(&moment.calendar, time, reference, moment.fraction) != nullptr;
}

int Print(char* buffer, int size, std::string_view format, const Moment& moment) {
    Output out(buffer, size);
    Walk(
        format, [&](std::string_view text) { out.Text(text); },
        [&](int token) { TOKENS[static_cast<std::size_t>(token)].put(out, moment); });
    return out.Finish();
}

std::string_view View(const char* format) {
    return format != nullptr ? format : "";
}

bool CalcLocal(tm& calendar, double time, double& fraction) {
    constexpr double LIMIT = 9e18;  // of what an integer of 64 bits can tell
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
        View(formatText), [](std::string_view) {},
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

// The room is doubled until something of it is left. The format may be the text of `out`.
TCString& TCFormatTime::FormatTime(TCString& out, const char* format, const double& time,
                                   const double& reference) {
    TCString text;
    Moment moment;
    if (FillMoment(moment, time, reference)) {
        constexpr int FIRST_ROOM = 128;
        int room = FIRST_ROOM;
        int length = 0;
        do {
            room *= 2;
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
