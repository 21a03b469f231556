#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

// A line of a text that is edited line by line.
struct EditedLine {
    std::string text;
    std::string end;  // of the last line perhaps empty
};

// As a graph in parameter text counts them: ended by line feed, carriage return, or both.
std::vector<EditedLine> SplitLines(std::string_view text);
// What was split and not changed is the same byte for byte.
std::string JoinLines(const std::vector<EditedLine>& lines);

}  // namespace host
