#pragma once

#include <string_view>

#include "sigweave/platform/Export.h"

namespace tc {

// Whether a locale of that name is German, as "de", "de_AT.UTF-8" and "German_Germany" are. Any thread.
TC_API bool IsGermanLocaleName(std::string_view name);
// Whether the calling thread's locale, for messages, is German.
TC_API bool IsThreadLocaleGerman();

}  // namespace tc
