#pragma once

#include <string>

// Internal.
namespace tc {

// The folder, with slashes, that a token such as CSIDL_APPDATA means, made when it is missing and
// `create` is set. Empty where there is no such folder here, and for an unknown token. Tokens compare with
// case. The table is also in docs/paths.md.
std::string SpecialFolderPath(const std::string& token, bool create);

}  // namespace tc
