#include "sigweave/persistence/ParameterQuote.h"

#include "sigweave/foundation/StringConversion.h"

namespace tc {

TCString QuoteParameter(const TCString& value) {
    TCString escaped;
    QuoteControlChar(escaped, value);
    // Readers take a backslash before a quotation mark for an escaped mark, even after another backslash.
    const int last = escaped.GetLength() - 1;
    if (escaped[last] == '\\') escaped = escaped.Left(last - 1) + "\\x5c";
    escaped.Replace("\"", "\\\"");
    escaped.Replace("\x7F", "\\x7f");
    return "\"" + escaped + "\"";
}

}  // namespace tc
