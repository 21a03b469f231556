#include "host/TextLines.h"

#include "host/GraphText.h"

namespace host {

std::vector<EditedLine> SplitLines(std::string_view text) {
    std::vector<EditedLine> lines;
    while (!text.empty()) {
        const TextLine line = TakeTextLine(text);
        lines.push_back({std::string(line.text), std::string(line.end)});
    }
    return lines;
}

std::string JoinLines(const std::vector<EditedLine>& lines) {
    std::string text;
    for (const EditedLine& line : lines) text += line.text + line.end;
    return text;
}

}  // namespace host
