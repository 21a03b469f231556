#include "sigweave/module/TCModuleParameter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace {

constexpr double HIGHEST = std::numeric_limits<double>::max();

std::string_view Trimmed(const char* text) {
    std::string_view trimmed(text != nullptr ? text : "");
    const char* blanks = " \t";
    const std::size_t first = trimmed.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return trimmed.substr(first, trimmed.find_last_not_of(blanks) + 1 - first);
}

template <typename Number>
bool ReadWhole(const char* text, Number& number) {
    std::string_view digits = Trimmed(text);
    if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
    const char* end = digits.data() + digits.size();
    Number read{};
    const auto [stop, failure] = std::from_chars(digits.data(), end, read);
    if (failure != std::errc() || stop != end || digits.empty()) return false;
    number = read;
    return true;
}

const char* WordsOf(const TCModuleParameter& parameter) {
    return parameter.kind == TCModuleParameter::SWITCH ? "no|yes" : parameter.choices;
}

TCString NumberText(double number) {
    constexpr double WITHOUT_EXPONENT = 1e15;
    if (std::abs(number) < WITHOUT_EXPONENT && number == std::trunc(number))
        return TCString::FormatS("%.0f", number);
    char text[32];
    return TCString(text, static_cast<int>(std::to_chars(text, text + sizeof text, number).ptr - text));
}

TCString DescribeLimits(const char* what, double minimum, double maximum, const char* unit) {
    TCString text(what);
    const bool from = minimum > -HIGHEST;
    const bool to = maximum < HIGHEST;
    if (from && to) text += " from " + NumberText(minimum) + " to " + NumberText(maximum);
    if (from && !to) text += " of at least " + NumberText(minimum);
    if (to && !from) text += " of at most " + NumberText(maximum);
    if (*unit != '\0') text += TCString(" (in ") + unit + ")";
    return text;
}

}  // namespace

bool TCModuleParameter::ReadInteger(const char* value, int& number) const {
    int read = 0;
    if (!ReadWhole(value, read) || read < minimum || read > maximum) return false;
    number = read;
    return true;
}

bool TCModuleParameter::ReadNumber(const char* value, double& number) const {
    double read = 0.0;
    if (!ReadWhole(value, read) || !std::isfinite(read) || read < minimum || read > maximum) return false;
    number = read;
    return true;
}

int TCModuleParameter::FindChoice(const char* value) const {
    const std::string_view wanted = Trimmed(value);
    std::string_view words = WordsOf(*this);
    for (int position = 0; !words.empty(); ++position) {
        const std::string_view word = words.substr(0, words.find('|'));
        if (word == wanted) return position;
        words.remove_prefix(std::min(words.size(), word.size() + 1));
    }
    return -1;
}

bool TCModuleParameter::Allows(const char* value) const {
    int integer = 0;
    double real = 0.0;
    switch (kind) {
        case INTEGER:
            return ReadInteger(value, integer);
        case NUMBER:
            return ReadNumber(value, real);
        case CHOICE:
        case SWITCH:
            return FindChoice(value) >= 0;
        case FILE:
        case OUTPUT_FILE:
            return defaultValue != nullptr || !Trimmed(value).empty();
        case TEXT:
            break;
    }
    return true;
}

TCString TCModuleParameter::DescribeAllowed() const {
    TCString words(WordsOf(*this));
    words.Replace("|", ", ");
    switch (kind) {
        case INTEGER:
            return DescribeLimits("an integer", std::max<double>(minimum, std::numeric_limits<int>::min()),
                                  std::min<double>(maximum, std::numeric_limits<int>::max()), unit);
        case NUMBER:
            return DescribeLimits("a number", minimum, maximum, unit);
        case CHOICE:
            return "one of " + words;
        case SWITCH:
            return "yes or no";
        case FILE:
        case OUTPUT_FILE:
            return "a file name";
        case TEXT:
            break;
    }
    return "any text";
}
