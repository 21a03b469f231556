#pragma once

#include <string>

#include "sigweave/platform/Export.h"

namespace tc {

// The path as the operating system takes it: the library's paths may be written with backslashes, which
// become slashes; a byte of another character that looks like one stays. A null path is empty. Any thread.
TC_API std::string NativePath(const char* path);

}  // namespace tc
