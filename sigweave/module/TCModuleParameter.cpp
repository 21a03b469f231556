#include "sigweave/module/TCModuleParameter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/ValueWording.h"
#include "sigweave/signal/UnitText.h"

namespace {

using tc::Bilingual;

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

// The first of the words between '|', which is taken off.
std::string_view TakeWord(std::string_view& words) {
    const std::string_view word = words.substr(0, words.find('|'));
    words.remove_prefix(std::min(words.size(), word.size() + 1));
    return word;
}

CStringArray SplitWords(std::string_view words) {
    CStringArray split;
    while (!words.empty()) split.emplace_back(TakeWord(words));
    return split;
}

// What more there is to say about a NUMBER that is none, as "; ..."; nothing of what is no number at all.
std::string WhyNoNumber(const TCModuleParameter& parameter, const TCString& value) {
    if (parameter.kind != TCModuleParameter::NUMBER) return {};
    TCString written = value;
    if (written.Replace(",", ".") == 1 && parameter.Allows(written))
        return tc::WRITE_A_POINT.With({static_cast<const char*>(written)});
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
    for (int position = 0; !words.empty(); ++position)
        if (TakeWord(words) == wanted) return position;
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
    switch (kind) {
        case INTEGER:
            return tc::DescribeNumbers(tc::NumberKind::INTEGER, minimum, maximum, unit).c_str();
        case NUMBER:
            return tc::DescribeNumbers(tc::NumberKind::REAL, minimum, maximum, unit).c_str();
        case CHOICE:
            return tc::DescribeWords(SplitWords(choices)).c_str();
        case SWITCH:
            return tc::YES_OR_NO.Text();
        case FILE:
        case OUTPUT_FILE:
            return tc::A_FILE_NAME.Text();
        case TEXT:
            break;
    }
    return tc::ANY_TEXT.Text();
}

TCString TCModuleParameter::DescribeRefusal(const char* value) const {
    const TCString allowed = DescribeAllowed();
    if (secret)
        return Bilingual("%1: the value is not valid; expected %2",
                         "%1: der Wert ist nicht gültig; erwartet wird %2")
            .With({name, static_cast<const char*>(allowed)})
            .c_str();
    const TCString shown(value);
    const CString text = tc::NotValidText(name, CString(shown), CString(allowed));
    return (text + WhyNoNumber(*this, shown)).c_str();
}
