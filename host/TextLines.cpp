#include "host/TextLines.h"

#include <algorithm>

namespace host {

std::vector<TextLine> SplitLines(std::string_view text) {
    std::vector<TextLine> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find_first_of("\r\n", at), text.size());
        const bool pair = text.substr(end).starts_with("\r\n");
        const std::size_t next = std::min(end + (pair ? 2 : 1), text.size());
        lines.push_back({std::string(text.substr(at, end - at)), std::string(text.substr(end, next - end))});
        at = next;
    }
    return lines;
}

std::string JoinLines(const std::vector<TextLine>& lines) {
    std::string text;
    for (const TextLine& line : lines) text += line.text + line.end;
    return text;
}

}  // namespace host
