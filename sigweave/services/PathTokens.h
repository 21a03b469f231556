#pragma once

#include <string>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"

namespace tc {

// What `ResolvePathTokens` resolves.
struct PathTokens {
    bool folders = true;      // %CSIDL_...%, see docs/paths.md
    bool environment = true;  // %NAME%, the names with case
    bool create = true;       // a folder whose token has CSIDL_FLAG_CREATE with it is made when it is missing
};

// Replaces the tokens of a path from the left, folders first, and answers how many became text. Tokens in
// values are resolved too, but not the one that a value came from; so every path ends. What has no value
// vanishes, and its name goes to `unknown` if that is given; tokens vanish, too, after 1000 values and where
// the text would grow beyond 32,767 bytes; a longer text stays as it is. So does a single percent sign. Any
// thread, as long as none changes the environment.
TC_API int ResolvePathTokens(std::string& path, PathTokens which, CStringArray* unknown = nullptr);

}  // namespace tc
