#pragma once

#include <string>

namespace tc {

// The path of the library that the address is in, as it was opened; empty when it is in none.
std::string LibraryOf(const void* address);
// From now on libraries that are opened find the symbols of this one, which is loaded already. False when it
// is not.
bool ShowSymbols(const std::string& library);

}  // namespace tc
