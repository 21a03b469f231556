#pragma once

#include <string_view>

namespace host {

// Names of ports with wildcards, as the lines of a graph have them: * is any text, ? any character, [abc] one
// of them, [!abc] none of them, [a-c] a range, and [8-12] a whole number within these limits.

bool HasWildcard(std::string_view name);
bool MatchesPattern(std::string_view name, std::string_view pattern);

}  // namespace host
