#include "host/PortPattern.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace host {
namespace {

constexpr auto NONE = std::string_view::npos;

bool ReadNumber(std::string_view text, unsigned& number) {
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
    return !text.empty() && failed == std::errc() && end == text.data() + text.size();
}

// The characters of the name that a bracket takes, without its marks; NONE when it does not fit.
std::size_t TakeNumber(std::string_view name, std::string_view bracket, bool& isRange) {
    const std::size_t hyphen = bracket.find('-');
    unsigned low = 0, high = 0, number = 0;
    isRange = hyphen != NONE && ReadNumber(bracket.substr(0, hyphen), low) &&
              ReadNumber(bracket.substr(hyphen + 1), high);
    if (!isRange) return NONE;
    const std::size_t digits = std::min(name.find_first_not_of("0123456789"), name.size());
    const bool isPlain = digits == 1 || (digits > 1 && name[0] != '0');
    return isPlain && ReadNumber(name.substr(0, digits), number) && number >= low && number <= high ? digits
                                                                                                    : NONE;
}

std::size_t TakeCharacter(std::string_view name, std::string_view bracket) {
    if (name.empty()) return NONE;
    const bool isOther = bracket.starts_with('!');
    if (isOther) bracket.remove_prefix(1);
    bool isIn = false;
    for (std::size_t at = 0; at < bracket.size(); ++at) {
        const bool isRange = at + 2 < bracket.size() && bracket[at + 1] == '-';
        isIn =
            isIn || (isRange ? name[0] >= bracket[at] && name[0] <= bracket[at + 2] : name[0] == bracket[at]);
        at += isRange ? 2 : 0;
    }
    return isIn != isOther ? 1 : NONE;
}

// The first element of a pattern other than a star: its length, and what it takes of the name.
std::size_t TakeElement(std::string_view name, std::string_view pattern, std::size_t& length) {
    length = 1;
    const std::size_t close = pattern.front() == '[' ? pattern.find(']', 2) : NONE;
    if (close == NONE)
        return !name.empty() && (pattern.front() == '?' || pattern.front() == name[0]) ? 1 : NONE;
    length = close + 1;
    const std::string_view bracket = pattern.substr(1, close - 1);
    bool isRange = false;
    const std::size_t taken = TakeNumber(name, bracket, isRange);
    return isRange ? taken : TakeCharacter(name, bracket);
}

}  // namespace

bool HasWildcard(std::string_view name) {
    return name.find_first_of("*?[") != NONE;
}

// Only the last star needs to be tried again: what comes before it fits as early as it can.
bool MatchesPattern(std::string_view name, std::string_view pattern) {
    std::string_view nameAtStar, patternAtStar;
    bool hasStar = false;
    while (!name.empty() || !pattern.empty()) {
        std::size_t length = 0;
        if (!pattern.empty() && pattern.front() == '*') {
            pattern.remove_prefix(1);
            nameAtStar = name;
            patternAtStar = pattern;
            hasStar = true;
            continue;
        }
        const std::size_t taken = pattern.empty() ? NONE : TakeElement(name, pattern, length);
        if (taken != NONE) {
            name.remove_prefix(taken);
            pattern.remove_prefix(length);
            continue;
        }
        if (!hasStar || nameAtStar.empty()) return false;
        nameAtStar.remove_prefix(1);
        name = nameAtStar;
        pattern = patternAtStar;
    }
    return true;
}

}  // namespace host
