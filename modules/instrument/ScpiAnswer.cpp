#include "modules/instrument/ScpiAnswer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr std::size_t LONGEST = std::size_t{64} << 20;  // bytes of an answer
constexpr std::size_t MOST_SHOWN = 40;                  // of a wrong answer, in messages

// By the standard.
constexpr double NO_NUMBER = 9.91e37;
constexpr double BEYOND_RANGE = 9.9e37;

double Meaning(double number) {
    if (number == NO_NUMBER) return std::numeric_limits<double>::quiet_NaN();
    return std::fabs(number) == BEYOND_RANGE ? std::copysign(INFINITY, number) : number;
}

bool ReadNumber(std::string_view text, double& number) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    if (text.starts_with('+')) text.remove_prefix(1);
    const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
    number = Meaning(number);
    return code == std::errc() && end == text.data() + text.size() && !text.empty();
}

// Without what a terminal would not show.
std::string Shown(const std::string& answer) {
    std::string text = answer.substr(0, std::min(answer.size(), MOST_SHOWN));
    std::ranges::replace_if(
        text, [](char c) { return c < ' ' || c > '~'; }, '.');
    return text + (answer.size() > MOST_SHOWN ? "..." : "");
}

}  // namespace

void ScpiAnswer::Give(std::span<const std::byte> bytes) {
    held.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

ScpiAnswer::State ScpiAnswer::Take(std::vector<double>& values, std::string& error, bool isAll) {
    held.erase(0, std::min(held.find_first_not_of("\r\n"), held.size()));  // what ended the answer before
    values.clear();
    if (held.size() > LONGEST)
        return Refuse(Bilingual("the answer has more than %1 bytes", "die Antwort hat mehr als %1 Bytes")
                          .With({std::to_string(LONGEST)}),
                      error);
    return format != nullptr ? TakeBlock(values, error, isAll) : TakeNumbers(values, error);
}

ScpiAnswer::State ScpiAnswer::Refuse(const std::string& reason, std::string& error) {
    error = reason;
    held.clear();
    return WRONG;
}

ScpiAnswer::State ScpiAnswer::TakeNumbers(std::vector<double>& values, std::string& error) {
    const std::size_t end = held.find('\n');
    if (end == std::string::npos) return INCOMPLETE;
    const std::string line = held.substr(0, end);
    std::size_t at = 0;
    bool areNumbers = true;
    while (at <= line.size() && areNumbers) {
        const std::size_t comma = std::min(line.find_first_of(",;", at), line.size());
        values.push_back(0.0);
        areNumbers = ReadNumber(std::string_view(line).substr(at, comma - at), values.back());
        at = comma + 1;
    }
    if (!areNumbers)
        return Refuse(Bilingual("the answer '%1' is no number; check the query",
                                "die Antwort '%1' ist keine Zahl; prüfen Sie die Abfrage")
                          .With({Shown(line)}),
                      error);
    if (values.size() != count)
        return Refuse(Bilingual("the answer '%1' has %2 values, not %3; set values=%2",
                                "die Antwort '%1' hat %2 Werte, nicht %3; setzen Sie values=%2")
                          .With({Shown(line), std::to_string(values.size()), std::to_string(count)}),
                      error);
    held.erase(0, end + 1);
    return COMPLETE;
}

ScpiAnswer::State ScpiAnswer::TakeBlock(std::vector<double>& values, std::string& error, bool isAll) {
    if (held.empty()) return INCOMPLETE;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto refuse = [&] {
        return Refuse(
            Bilingual("the answer '%1' is no block of samples (#...); check the query",
                      "die Antwort '%1' ist kein Block von Abtastwerten (#...); prüfen Sie die Abfrage")
                .With({Shown(held)}),
            error);
    };
    if (held[0] != '#') return refuse();
    if (held.size() < 2) return INCOMPLETE;
    if (held[1] == '0') return TakeEndless(values, error, isAll);
    if (held[1] < '1' || held[1] > '9') return refuse();
    const std::size_t header = 2 + static_cast<std::size_t>(held[1] - '0');
    if (!std::ranges::all_of(held.substr(2, header - 2), isDigit)) return refuse();
    if (held.size() < header) return INCOMPLETE;
    const std::size_t size = std::stoul(held.substr(2, header - 2));
    if (size > LONGEST) return refuse();
    if (held.size() < header + size) return INCOMPLETE;
    return TakeSamples(header, size, header + size, values, error);
}

// A line feed may also be part of a sample.
ScpiAnswer::State ScpiAnswer::TakeEndless(std::vector<double>& values, std::string& error, bool isAll) {
    constexpr std::size_t HEADER = 2;
    const bool mayEnd = held.size() > HEADER && held.back() == '\n';
    const std::size_t size = held.size() - HEADER - (mayEnd ? 1 : 0);
    const bool isWhole = size % static_cast<std::size_t>(format->bytes) == 0;
    if (isAll && mayEnd) return TakeSamples(HEADER, size, held.size(), values, error);
    if (isAll)
        return Refuse(Bilingual("the block of open length (#0) does not end with a line feed",
                                "der Block offener Länge (#0) endet nicht mit einem Zeilenvorschub")
                          .Text(),
                      error);
    return mayEnd && isWhole ? PERHAPS : INCOMPLETE;
}

// The answer takes the bytes up to `end`.
ScpiAnswer::State ScpiAnswer::TakeSamples(std::size_t header, std::size_t size, std::size_t end,
                                          std::vector<double>& values, std::string& error) {
    const auto sample = static_cast<std::size_t>(format->bytes);
    if (size % sample != 0)
        return Refuse(
            Bilingual("the block has %1 bytes, which is no whole number of samples of %2; check the format",
                      "der Block hat %1 Bytes, keine ganze Zahl von Abtastwerten zu %2; prüfen Sie das "
                      "Format")
                .With({std::to_string(size), std::to_string(sample)}),
            error);
    values.resize(size / sample);
    live::Decode(*format, reinterpret_cast<const std::byte*>(held.data()) + header, sample, values.size(),
                 1.0, 0.0, values.data());
    held.erase(0, end);
    return COMPLETE;
}
