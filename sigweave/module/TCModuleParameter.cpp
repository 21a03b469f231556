#include "sigweave/module/TCModuleParameter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace {

using tc::Bilingual;

constexpr double HIGHEST = std::numeric_limits<double>::max();

std::string_view Trimmed(const char* text) {
    std::string_view trimmed(text != nullptr ? text : "");
    const char* blanks = " \t";
    const std::size_t first = trimmed.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return trimmed.substr(first, trimmed.find_last_not_of(blanks) + 1 - first);
}

bool ReadWhole(const char* text, int& number) {
    std::string_view digits = Trimmed(text);
    if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
    const char* end = digits.data() + digits.size();
    int read = 0;
    const auto [stop, failure] = std::from_chars(digits.data(), end, read);
    if (failure != std::errc() || stop != end || digits.empty()) return false;
    number = read;
    return true;
}

// Not for what is no number.
bool IsWithin(const TCModuleParameter& parameter, double number) {
    return std::isfinite(number) && number >= parameter.minimum && number <= parameter.maximum;
}

const char* WordsOf(const TCModuleParameter& parameter) {
    return parameter.kind == TCModuleParameter::SWITCH ? "no|yes" : parameter.choices;
}

// What a number may be: without limits, with a lower one, an upper one, or both.
struct NumberWording {
    Bilingual any;
    Bilingual from;
    Bilingual to;
    Bilingual between;
};

constexpr NumberWording INTEGER_WORDING = {{"an integer", "eine ganze Zahl"},
                                           {"an integer of at least %1", "eine ganze Zahl ab %1"},
                                           {"an integer of at most %2", "eine ganze Zahl bis %2"},
                                           {"an integer from %1 to %2", "eine ganze Zahl von %1 bis %2"}};
constexpr NumberWording NUMBER_WORDING = {{"a number", "eine Zahl"},
                                          {"a number of at least %1", "eine Zahl ab %1"},
                                          {"a number of at most %2", "eine Zahl bis %2"},
                                          {"a number from %1 to %2", "eine Zahl von %1 bis %2"}};

TCString DescribeLimits(const NumberWording& wording, double minimum, double maximum, const char* unit) {
    const bool from = minimum > -HIGHEST;
    const bool to = maximum < HIGHEST;
    const Bilingual& limits = from ? (to ? wording.between : wording.from) : (to ? wording.to : wording.any);
    TCString text(limits.With({tc::ShortestText(minimum), tc::ShortestText(maximum)}).c_str());
    if (*unit != '\0') text += TCString(" (in ") + unit + ")";
    return text;
}

// What more there is to say about a NUMBER that is none, as "; ..."; nothing of what is no number at all.
std::string WhyNoNumber(const TCModuleParameter& parameter, const TCString& value) {
    if (parameter.kind != TCModuleParameter::NUMBER) return {};
    TCString written = value;
    if (written.Replace(",", ".") == 1 && parameter.Allows(written))
        return Bilingual("; write a point: %1", "; schreiben Sie einen Punkt: %1")
            .With({static_cast<const char*>(written)});
    double ignored = 0.0;
    CString reason;
    CString isNone;
    if (tc::ReadQuantity(Trimmed(value), parameter.unit, ignored, reason)) return {};
    tc::ReadQuantity("", parameter.unit, ignored, isNone);
    return reason != isNone ? "; " + reason : std::string();
}

}  // namespace

bool TCModuleParameter::ReadInteger(const char* value, int& number) const {
    int read = 0;
    if (!ReadWhole(value, read) || !IsWithin(*this, read)) return false;
    number = read;
    return true;
}

bool TCModuleParameter::ReadNumber(const char* value, double& number) const {
    double read = 0.0;
    CString ignored;
    if (!tc::ReadQuantity(Trimmed(value), unit, read, ignored) || !IsWithin(*this, read)) return false;
    number = read;
    return true;
}

bool TCModuleParameter::AllowsNumber(double number) const {
    constexpr double LARGEST = std::numeric_limits<int>::max();
    constexpr double SMALLEST = std::numeric_limits<int>::min();
    switch (kind) {
        case INTEGER:
            return IsWithin(*this, number) && number == std::trunc(number) && number <= LARGEST &&
                   number >= SMALLEST;
        case NUMBER:
            return IsWithin(*this, number);
        case SWITCH:
            return number == 0.0 || number == 1.0;
        default:
            return false;
    }
}

TCString TCModuleParameter::AsText(double number) const {
    if (kind == SWITCH && AllowsNumber(number)) return number == 1.0 ? "yes" : "no";
    return tc::ShortestText(number).c_str();
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
            return DescribeLimits(INTEGER_WORDING, std::max<double>(minimum, std::numeric_limits<int>::min()),
                                  std::min<double>(maximum, std::numeric_limits<int>::max()), unit);
        case NUMBER:
            return DescribeLimits(NUMBER_WORDING, minimum, maximum, unit);
        case CHOICE:
            return Bilingual("one of %1", "eins von %1").With({static_cast<const char*>(words)}).c_str();
        case SWITCH:
            return Bilingual("yes or no", "yes oder no").Text();
        case FILE:
        case OUTPUT_FILE:
            return Bilingual("a file name", "ein Dateiname").Text();
        case TEXT:
            break;
    }
    return Bilingual("any text", "ein beliebiger Text").Text();
}

TCString TCModuleParameter::DescribeRefusal(const char* value) const {
    const TCString allowed = DescribeAllowed();
    if (secret)
        return Bilingual("%1: the value is not valid; expected %2",
                         "%1: der Wert ist nicht gültig; erwartet wird %2")
            .With({name, static_cast<const char*>(allowed)})
            .c_str();
    const TCString shown(value);
    const std::string text =
        Bilingual("%1: '%2' is not valid; expected %3", "%1: '%2' ist nicht gültig; erwartet wird %3")
            .With({name, static_cast<const char*>(shown), static_cast<const char*>(allowed)});
    return (text + WhyNoNumber(*this, shown)).c_str();
}
