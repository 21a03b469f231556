#include "sigweave/persistence/ParameterSyntax.h"

#include <algorithm>

namespace tc {

void TokenList::Clear() {
    tokens.clear();
    starts.fill(false);
}

void TokenList::Add(const char* token) {
    if (token == nullptr || *token == '\0') return;
    tokens.emplace_back(token);
    starts[static_cast<unsigned char>(*token)] = true;
}

void TokenList::AddEachCharacter(const char* characters) {
    if (characters == nullptr) return;
    for (; *characters != '\0'; ++characters) Add(std::string(1, *characters).c_str());
}

std::size_t TokenList::LongestLength() const {
    std::size_t longest = 0;
    for (const std::string& token : tokens) longest = std::max(longest, token.size());
    return longest;
}

std::ptrdiff_t TokenList::LongestMatch(const char* p, const char* end) const {
    const std::string_view rest(p, static_cast<std::size_t>(end - p));
    std::size_t longest = 0;
    for (const std::string& token : tokens)
        if (token.size() > longest && rest.starts_with(token)) longest = token.size();
    return static_cast<std::ptrdiff_t>(longest);
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
