#include "sigweave/ui/PropertyText.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace tc {
namespace {

constexpr double DAY = 86400000.0;
constexpr std::string_view BLANKS = " \t";

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(BLANKS) + 1 - first);
}

template <typename Number>
bool ReadWhole(std::string_view text, Number& value) {
    std::string_view digits = Trimmed(text);
    if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
    Number read{};
    const auto [stop, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), read);
    if (digits.empty() || failure != std::errc() || stop != digits.data() + digits.size()) return false;
    value = read;
    return true;
}

// A number of exactly that many digits, after `before`, taken from the front of the text.
bool TakeDigits(std::string_view& text, std::string_view before, std::size_t digits, int& value) {
    if (!text.starts_with(before)) return false;
    const std::string_view number = text.substr(before.size(), digits);
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (number.size() != digits || !std::ranges::all_of(number, isDigit)) return false;
    std::from_chars(number.data(), number.data() + digits, value);
    text.remove_prefix(before.size() + digits);
    return true;
}

struct Style {
    std::string_view name;
    void (*set)(TCLogFont&);
    bool (*isSet)(const TCLogFont&);
};
constexpr std::int32_t REGULAR = 400;
constexpr std::int32_t BOLD = 700;
constexpr Style STYLES[] = {{"bold", [](TCLogFont& font) { font.lfWeight = BOLD; },
                             [](const TCLogFont& font) { return font.lfWeight >= BOLD; }},
                            {"italic", [](TCLogFont& font) { font.lfItalic = 1; },
                             [](const TCLogFont& font) { return font.lfItalic != 0; }},
                            {"underline", [](TCLogFont& font) { font.lfUnderline = 1; },
                             [](const TCLogFont& font) { return font.lfUnderline != 0; }},
                            {"strikeout", [](TCLogFont& font) { font.lfStrikeOut = 1; },
                             [](const TCLogFont& font) { return font.lfStrikeOut != 0; }}};

std::string_view TakeLastWord(std::string_view& text) {
    const std::size_t blank = text.find_last_of(BLANKS);
    const std::string_view word = blank == text.npos ? text : text.substr(blank + 1);
    text = Trimmed(text.substr(0, text.size() - word.size()));
    return word;
}

constexpr std::string_view ESCAPED = "\\\t\n\r";
constexpr std::string_view LETTERS = "\\tnr";

}  // namespace

bool ReadPropertyInt(const CString& text, int& value) {
    return ReadWhole(text, value);
}

bool ReadPropertyDouble(const CString& text, double& value) {
    double read = 0.0;
    if (!ReadWhole(text, read) || !std::isfinite(read)) return false;
    value = read;
    return true;
}

CString WritePropertyTime(double time) {
    using namespace std::chrono;
    constexpr double FIRST = -62167219200000.0;
    constexpr double END = 253402300800000.0;
    const double whole = std::round(time);
    if (!(whole >= FIRST && whole < END)) return "";
    const auto day = static_cast<int>(std::floor(whole / DAY));
    const year_month_day date{sys_days(days(day))};
    const auto rest = static_cast<int>(whole - day * DAY);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d.%03d", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), rest / 3600000,
                  rest / 60000 % 60, rest / 1000 % 60, rest % 1000);
    return text;
}

bool ReadPropertyTime(const CString& written, double& time) {
    using namespace std::chrono;
    std::string_view text = Trimmed(written);
    int years = 0;
    int months = 0;
    int day = 0;
    if (!TakeDigits(text, "", 4, years) || !TakeDigits(text, "-", 2, months) ||
        !TakeDigits(text, "-", 2, day))
        return false;
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int milliseconds = 0;
    if (!text.empty()) {
        if (!TakeDigits(text, text.front() == 'T' ? "T" : " ", 2, hours) ||
            !TakeDigits(text, ":", 2, minutes))
            return false;
        if (TakeDigits(text, ":", 2, seconds)) TakeDigits(text, ".", 3, milliseconds);
        if (text == "Z") text = {};
    }
    const year_month_day date{year(years), month(static_cast<unsigned>(months)),
                              std::chrono::day(static_cast<unsigned>(day))};
    if (!text.empty() || !date.ok() || hours > 23 || minutes > 59 || seconds > 59) return false;
    time = DAY * static_cast<double>(sys_days(date).time_since_epoch().count()) + 3600000.0 * hours +
           60000.0 * minutes + 1000.0 * seconds + milliseconds;
    return true;
}

CString WritePropertyFont(const TCLogFont& font) {
    CString text(font.lfFaceName, strnlen(font.lfFaceName, sizeof font.lfFaceName));
    text += " " + std::to_string(TCLogFont::DeviceUnitsToPixelHeight(font.lfHeight, nullptr));
    for (const Style& style : STYLES)
        if (style.isSet(font)) text += " " + CString(style.name);
    return text;
}

bool ReadPropertyFont(const CString& written, TCLogFont& font) {
    constexpr int MOST_POINTS = 1000;
    std::string_view text = Trimmed(written);
    TCLogFont read = font;
    read.lfWeight = REGULAR;
    read.lfItalic = read.lfUnderline = read.lfStrikeOut = 0;
    std::string_view word = TakeLastWord(text);
    for (;; word = TakeLastWord(text)) {
        const auto style = std::ranges::find(STYLES, word, &Style::name);
        if (style == std::end(STYLES)) break;
        style->set(read);
    }
    int points = 0;
    if (!ReadWhole(word, points) || points < 1 || points > MOST_POINTS) return false;
    if (text.empty() || text.size() >= sizeof read.lfFaceName) return false;
    read.SetFontHeight(points);
    std::memset(read.lfFaceName, 0, sizeof read.lfFaceName);
    std::ranges::copy(text, read.lfFaceName);
    font = read;
    return true;
}

CString WritePropertyColour(unsigned long colour) {
    char text[16];
    std::snprintf(text, sizeof text, "#%02lx%02lx%02lx", colour & 255, colour >> 8 & 255, colour >> 16 & 255);
    return text;
}

bool ReadPropertyColour(const CString& written, unsigned long& colour) {
    const std::string_view text = Trimmed(written);
    unsigned read = 0;
    if (text.size() != 7 || text.front() != '#') return false;
    const auto [stop, failure] = std::from_chars(text.data() + 1, text.data() + text.size(), read, 16);
    if (failure != std::errc() || stop != text.data() + text.size()) return false;
    colour = (read & 255) << 16 | (read & 0xFF00) | read >> 16;
    return true;
}

CString WritePropertyRows(const CArray<CStringArray>& rows) {
    CString text;
    for (const CStringArray& row : rows) {
        for (std::size_t cell = 0; cell < row.size(); ++cell) {
            if (cell > 0) text += '\t';
            for (const char c : row[cell]) {
                const std::size_t escape = ESCAPED.find(c);
                if (escape == ESCAPED.npos)
                    text += c;
                else
                    (text += '\\') += LETTERS[escape];
            }
        }
        text += '\n';
    }
    return text;
}

bool ReadPropertyRows(const CString& text, CArray<CStringArray>& rows) {
    CArray<CStringArray> read;
    CStringArray row(1);
    if (!text.empty() && text.back() != '\n') return false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\t') {
            row.emplace_back();
        } else if (c == '\n') {
            read.push_back(std::exchange(row, CStringArray(1)));
        } else if (c == '\\') {
            const std::size_t letter = LETTERS.find(text[++at]);
            if (letter == LETTERS.npos) return false;
            row.back() += ESCAPED[letter];
        } else {
            row.back() += c;
        }
    }
    rows = std::move(read);
    return true;
}

}  // namespace tc
