#include "sigweave/persistence/ParameterQuote.h"

#include "sigweave/foundation/StringConversion.h"

namespace tc {

std::size_t FindQuotedEnd(std::string_view text, bool escapes) {
    const char mark = text.front();
    for (std::size_t at = 1; at < text.size(); ++at) {
        if (escapes && text[at] == '\\' && text.substr(at + 1).starts_with(mark))
            ++at;
        else if (text[at] == mark)
            return at + 1;
    }
    return std::string_view::npos;
}

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
