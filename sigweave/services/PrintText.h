#pragma once

#include <cstdarg>

#include "sigweave/foundation/TCString.h"

namespace tc {

// Makes `text` what its `FormatV` would make of it, several times faster, where the format holds only common
// conversions: integers, finite numbers and texts with the usual flags. False where it holds others; then the
// text is undefined. No argument may lie in `text`.
bool PrintText(TCString& text, const char* format, va_list given);

}  // namespace tc
