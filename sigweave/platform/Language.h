#pragma once

#include <string_view>

#include "sigweave/platform/Export.h"

namespace tc {

// The language of a locale's name: "de" for "de_DE.UTF-8", "de" and "German_Germany". Any thread.
TC_API bool IsGermanLocaleName(std::string_view name);
// Whether the calling thread's locale, for messages, is German.
TC_API bool IsThreadLocaleGerman();

}  // namespace tc
