#pragma once

#include <string>

#include "sigweave/platform/Export.h"

namespace tc {

// The path as the operating system takes it: the library's paths may be written with backslashes, which
// become slashes. A null path is empty. Any thread.
TC_API std::string NativePath(const char* path);

}  // namespace tc
