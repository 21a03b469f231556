#pragma once

#include <string>

#include "sigweave/platform/Export.h"

// Errors of the operating system, under the numbers of the error-constant table. Any thread.

// The number of the calling thread's last system error; 0 when there is none. Ask before anything else can
// change it.
TC_API unsigned long GetLastError();

namespace tc {
// What the system says about a number, in the locale's language; empty for a number that it does not know.
TC_API std::string SystemErrorText(unsigned long number);
// What it says about the calling thread's last error, also about one without a number of its own. Ask before
// anything else can change it.
TC_API std::string LastSystemErrorText();
}  // namespace tc
