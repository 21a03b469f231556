#include "sigweave/persistence/ParameterValue.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <utility>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/foundation/StringConversion.h"
#include "sigweave/persistence/ParameterQuote.h"

namespace tc {
namespace {

std::string_view SkipBlanksAndPlus(std::string_view text) {
    while (!text.empty() && IsAsciiSpace(text.front())) text.remove_prefix(1);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+') text.remove_prefix(1);
    return text;
}

// With the comma as decimal sign a point ends the number.
std::string CommaToPoint(std::string_view text) {
    std::string out(text.substr(0, text.find('.')));
    std::replace(out.begin(), out.end(), ',', '.');
    return out;
}

// The number of characters read; 0 when the text does not begin with a number.
std::size_t ReadInteger(std::string_view text, int& value) {
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::result_out_of_range) value = text.front() == '-' ? INT_MIN : INT_MAX;
    return static_cast<std::size_t>(stop - text.data());
}

// A number too large is infinite, one too small is zero.
double OutOfRange(std::string_view number) {
    const std::size_t mantissaEnd = std::min(number.find_first_of("eE"), number.size());
    const std::size_t point = std::min(number.find('.'), mantissaEnd);
    const std::size_t leadingDigit = std::min(number.find_first_of("123456789"), mantissaEnd);
    int exponent = 0;
    if (mantissaEnd != number.size())
        ReadInteger(SkipBlanksAndPlus(number.substr(mantissaEnd + 1)), exponent);
    const bool large = static_cast<std::int64_t>(point) + exponent > static_cast<std::int64_t>(leadingDigit);
    return std::copysign(large ? HUGE_VAL : 0.0, number.front() == '-' ? -1.0 : 1.0);
}

std::size_t ReadReal(std::string_view text, double& value) {
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const auto length = static_cast<std::size_t>(stop - text.data());
    if (error == std::errc::result_out_of_range) value = OutOfRange(text.substr(0, length));
    // Of words only "inf" and "nan" are numbers, and nothing that merely begins like them.
    const std::size_t word = text.starts_with('-') ? 4 : 3;
    if (!std::isfinite(value) && error == std::errc() && (length != word || length != text.size()))
        return value = 0.0, 0;
    return length;
}

bool MayBeNumber(char c) {
    return IsDigit(c) || std::string_view("+-.,iInN").find(c) != std::string_view::npos;
}

std::string Quoted(std::string_view value, char mark, bool escape) {
    std::string out(1, mark);
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        // Without their escapes backslashes would change the value or break the text. One right before the
        // closing mark would hide the mark.
        if (escape && c == '\\')
            out += i + 1 == value.size() ? "\\x5c" : "\\\\";
        else if (escape && c == mark)
            out.append({'\\', mark});
        else
            out += c;
    }
    return out += mark;
}

}  // namespace

ValueNumbers ReadNumbers(std::string_view text, bool decimalComma) {
    ValueNumbers numbers;
    const std::string_view number = SkipBlanksAndPlus(text);
    if (number.empty() || !MayBeNumber(number.front())) return numbers;
    const std::string pointed = decimalComma ? CommaToPoint(number) : std::string();
    if (ReadReal(decimalComma ? pointed : number, numbers.real) == number.size())
        numbers.type = TCProcessParameters::FLOAT;
    if (ReadInteger(number, numbers.integer) == number.size()) numbers.type = TCProcessParameters::INTEGER;
    return numbers;
}

bool ReadText(TCString& value, std::string_view written, bool escaped) {
    if (!written.empty() && IsQuotationMark(written.front())) written = written.substr(1, written.size() - 2);
    value.AllocCopy(written);
    if (!escaped) return true;
    TCString plain;
    const bool valid = UnQuoteEscapeChar(plain, value);
    value = std::move(plain);
    return valid;
}

std::vector<std::string> WaysToWrite(std::string_view value, const ParameterSyntax& syntax) {
    std::vector<std::string> ways;
    if (!syntax.delimiters.IsIn(value)) ways.emplace_back(value);
    for (const char mark : {'"', '\''})
        if (syntax.unquote || value.find(mark) == value.npos)
            ways.push_back(Quoted(value, mark, syntax.unquote));
    return ways;
}

}  // namespace tc
