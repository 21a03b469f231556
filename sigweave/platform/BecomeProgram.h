#pragma once

#include <string>
#include <vector>

// A part of the seam that the library does not need: it is built into the host.
namespace tc {

// This process becomes another program, with the same streams and the same folder. Comes back when that is
// not possible, with the system's error number.
int BecomeProgram(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace tc
