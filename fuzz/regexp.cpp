// TCRegExp. Parts of an input: flags of the pattern, flags of the search, the pattern, the format of a
// replacement, and the text. Pattern and text are short, and repeats are few, for repeats in repeats take
// their time.
#include <algorithm>
#include <cstring>

#include "fuzz/Fuzz.h"
#include "sigweave/services/TCRegExp.h"

namespace {

constexpr std::size_t LONGEST_PATTERN = 24;
constexpr std::size_t LONGEST_TEXT = 10;

bool Holds(const std::string& pattern, const char* part) {
    return pattern.find(part) != std::string::npos;
}

// Whether the expression can be tried in few ways, and none of them is empty.
bool IsCheap(const std::string& pattern) {
    for (const char* empty : {"(|", "|)", "||", "()", "{0"})
        if (Holds(pattern, empty)) return false;
    const std::size_t brace = pattern.find('{');
    if (brace != std::string::npos && pattern.find_first_of("0123456789{", brace + 2) != std::string::npos)
        return false;
    const auto repeats = std::ranges::count_if(pattern, [](char c) { return std::strchr("*+?{", c); });
    return repeats <= 3 && std::ranges::count(pattern, '|') + std::ranges::count(pattern, '\n') <= 3;
}

// The matches and what lies between them are the text, however it was found.
void CheckResults(const TCRegExp& expression, const std::string& text) {
    const TCArray<TCRegExp::MatchResult>& results = expression.GetMatchResults();
    std::size_t at = 0;
    for (int i = 0; i < results.GetSize(); ++i) {
        const TCRegExp::MatchResult& result = results[i];
        const std::string prefix = fuzz::Bytes(result.prefix);
        fuzz::RequireSame(text.substr(at, prefix.size()), prefix, "a prefix follows the match before");
        at += prefix.size();
        const std::string match = fuzz::Bytes(result.match);
        fuzz::RequireSame(text.substr(at, match.size()), match, "a match follows its prefix");
        at += match.size();
        fuzz::RequireSame(text.substr(at), fuzz::Bytes(result.suffix), "a suffix is the rest");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const auto syntax = static_cast<unsigned long>(parts.NextInt(0, 0x1FFF));
    const auto flags = static_cast<unsigned long>(parts.NextInt(0, 0x1FFF));
    const std::string pattern = parts.Next().substr(0, LONGEST_PATTERN);
    const std::string format = parts.Next().substr(0, LONGEST_PATTERN);
    const std::string text = parts.Rest().substr(0, LONGEST_TEXT);
    if (!IsCheap(pattern)) return 0;
    TCRegExp expression;
    if (!expression.Init(fuzz::Text(pattern), syntax)) {
        unsigned long code = ~0UL;
        fuzz::Require(expression.IsError(&code) && *tc::RegExpErrorText(code) != '\0', "an error has a text");
        return 0;
    }
    const bool isFound = expression.Find(fuzz::Text(text), flags);
    const bool hasFailed = expression.IsError(nullptr);
    expression.SetStoreResults(true);
    const bool isStored = expression.Find(fuzz::Text(text), flags);
    fuzz::Require(isFound == isStored || hasFailed || expression.IsError(nullptr),
                  "both ways find it or not");
    fuzz::Require(isStored == (expression.GetMatchResults().GetSize() > 0), "what was found is stored");
    CheckResults(expression, text);
    expression.SetFindType(TCRegExp::FIND_WHOLE);
    expression.Find(fuzz::Text(text), flags);
    TCString replaced;
    if (expression.Replace(replaced, fuzz::Text(text), "$&", flags & 0xFF))
        fuzz::RequireSame(fuzz::Bytes(replaced), text, "a match replaced by itself changes nothing");
    expression.Replace(replaced, fuzz::Text(text), fuzz::Text(format), flags);
    return 0;
}
