#pragma once

#include <string>
#include <vector>

namespace host {

// Becomes the program sigweave-studio, which lies next to this one and may be installed or not. Comes back,
// with the exit code after an error message, when it cannot.
int BeginStudio(const std::vector<std::string>& arguments);

}  // namespace host
