#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tc {

// A list of strings that mean the same in a parameter text, as the strings that end a parameter. At one place
// of the text the longest that fits counts.
class TokenList {
 public:
    // Null and empty texts are ignored.
    void Add(const char* token);
    void AddEachCharacter(const char* characters);

    bool IsEmpty() const { return tokens.empty(); }
    // The one that edits write; empty when there is none.
    std::string_view First() const { return tokens.empty() ? std::string_view() : tokens.front(); }
    std::size_t LongestLength() const { return longest; }

    // The number of characters that a token takes at `p`; 0 when there is none.
    std::ptrdiff_t MatchAt(const char* p, const char* end) const {
        if (p == end || !MayStartWith(*p)) return 0;
        return longest == 1 ? 1 : LongestMatch(p, end);
    }
    // The first token from `p` on, or `end`.
    const char* FindFrom(const char* p, const char* end) const;
    bool MayStartWith(char c) const { return starts[static_cast<unsigned char>(c)]; }
    bool IsIn(std::string_view text) const;
    bool IsAtEndOf(std::string_view text) const;

 private:
    std::ptrdiff_t LongestMatch(const char* p, const char* end) const;

    std::vector<std::string> tokens;
    std::array<bool, 256> starts{};  // whether a token starts with that byte
    std::size_t longest = 0;
    int startCount = 0;  // bytes with which a token starts
};

// How a parameter text is written.
struct ParameterSyntax {
    bool unquote = false;
    bool decimalComma = false;
    TokenList prefixes;
    TokenList delimiters;
    TokenList splitStrs;
    TokenList commentStarts;

    std::size_t LongestToken() const;
};

}  // namespace tc
