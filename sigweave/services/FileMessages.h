#pragma once

#include <string>

#include "sigweave/platform/Export.h"

// What people read about files, in the language in use. Any thread.
namespace tc {

// "<path> cannot be written: <reason>", and what helps.
TC_API std::string WhyNotWritten(const std::string& path, const std::string& reason);
// The reason as the system words it; a value of errno.
TC_API std::string WhyNotWritten(const std::string& path, int reason);

}  // namespace tc
