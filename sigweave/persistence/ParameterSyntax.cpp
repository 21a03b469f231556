#include "sigweave/persistence/ParameterSyntax.h"

#include <algorithm>
#include <cstring>

namespace tc {

void TokenList::Add(const char* token) {
    if (token == nullptr || *token == '\0') return;
    tokens.emplace_back(token);
    longest = std::max(longest, tokens.back().size());
    startCount += MayStartWith(*token) ? 0 : 1;
    starts[static_cast<unsigned char>(*token)] = true;
}

void TokenList::AddEachCharacter(const char* characters) {
    if (characters == nullptr) return;
    for (; *characters != '\0'; ++characters) Add(std::string(1, *characters).c_str());
}

const char* TokenList::FindFrom(const char* p, const char* end) const {
    while (p != end) {
        if (startCount == 1) {
            const void* start = std::memchr(p, tokens.front().front(), static_cast<std::size_t>(end - p));
            p = start != nullptr ? static_cast<const char*>(start) : end;
        }
        if (MatchAt(p, end) != 0) return p;
        if (p != end) ++p;
    }
    return end;
}

std::ptrdiff_t TokenList::LongestMatch(const char* p, const char* end) const {
    const std::string_view rest(p, static_cast<std::size_t>(end - p));
    std::size_t best = 0;
    for (const std::string& token : tokens)
        if (token.size() > best && rest.starts_with(token)) best = token.size();
    return static_cast<std::ptrdiff_t>(best);
}

bool TokenList::IsIn(std::string_view text) const {
    return std::any_of(tokens.begin(), tokens.end(),
                       [&](const std::string& token) { return text.find(token) != text.npos; });
}

bool TokenList::IsAtEndOf(std::string_view text) const {
    return std::any_of(tokens.begin(), tokens.end(),
                       [&](const std::string& token) { return text.ends_with(token); });
}

std::size_t ParameterSyntax::LongestToken() const {
    return std::max({prefixes.LongestLength(), delimiters.LongestLength(), splitStrs.LongestLength(),
                     commentStarts.LongestLength()});
}

}  // namespace tc
