#pragma once

#include <cstddef>
#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// The quotation marks of parameter text, for its reader and for those who check or change it line by line.
namespace tc {

constexpr bool IsQuotationMark(char c) {
    return c == '"' || c == '\'';
}

// The place after the closing mark of a text that begins with a quotation mark; npos when it is not closed.
// With `escapes` a backslash hides the mark right after it. Deliberately also one that is escaped itself:
// two backslashes before the mark hide it as well, for the texts that are stored that way.
TC_API std::size_t FindQuotedEnd(std::string_view text, bool escapes);

// The value in double quotation marks, as parameter text with unescaping reads it back: every byte string
// comes back the same, and what is written has no control characters.
TC_API TCString QuoteParameter(const TCString& value);

}  // namespace tc
