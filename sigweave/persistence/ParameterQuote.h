#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

namespace tc {

// The value in double quotation marks, as parameter text with unescaping reads it back: every byte string
// comes back the same, and what is written has no control characters.
TC_API TCString QuoteParameter(const TCString& value);

}  // namespace tc
