// TCRegExp. Parts of an input: flags of the pattern, flags of the search, the pattern, the format of a
// replacement, and the text. Every operation answers in a time that is bounded, however the pattern repeats.
#include <ctime>

#include "fuzz/Fuzz.h"
#include "sigweave/services/TCRegExp.h"

namespace {

constexpr std::size_t LONGEST_PATTERN = 48;
constexpr std::size_t LONGEST_TEXT = 48;

// The processor's time since the last call is far less than what the steps that are documented may take.
void CheckTime() {
    constexpr double MOST_SECONDS = 8;
    static std::clock_t last = std::clock();
    const std::clock_t now = std::clock();
    fuzz::Require(static_cast<double>(now - last) < MOST_SECONDS * CLOCKS_PER_SEC, "time is bounded");
    last = now;
}

// The matches and what is between them are the text, however it was found.
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
    CheckTime();
    TCRegExp expression;
    const bool isValid = expression.Init(fuzz::Text(pattern), syntax);
    CheckTime();
    if (!isValid) {
        unsigned long code = ~0UL;
        fuzz::Require(expression.IsError(&code) && *tc::RegExpErrorText(code) != '\0', "an error has a text");
        return 0;
    }
    const bool isFound = expression.Find(fuzz::Text(text), flags);
    CheckTime();
    if (expression.IsError(nullptr)) return 0;  // so would the others, in the same time
    expression.SetStoreResults(true);
    const bool isStored = expression.Find(fuzz::Text(text), flags);
    const bool isStopped = expression.IsError(nullptr);
    CheckTime();
    fuzz::Require(isFound == isStored || isStopped, "both ways find it or not");
    fuzz::Require(isStopped || isStored == (expression.GetMatchResults().GetSize() > 0),
                  "what was found is stored");
    CheckResults(expression, text);
    expression.SetFindType(TCRegExp::FIND_WHOLE);
    expression.Find(fuzz::Text(text), flags);
    CheckTime();
    TCString replaced;
    if (expression.Replace(replaced, fuzz::Text(text), "$&", flags & 0xFF))
        fuzz::RequireSame(fuzz::Bytes(replaced), text, "a match replaced by itself changes nothing");
    CheckTime();
    expression.Replace(replaced, fuzz::Text(text), fuzz::Text(format), flags);
    CheckTime();
    return 0;
}
