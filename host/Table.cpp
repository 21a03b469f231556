#include "host/Table.h"

#include <algorithm>
#include <charconv>

namespace host {
namespace {

// Columns that UTF-8 text takes, as far as one character is one column.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

std::string Pad(const std::string& text, std::size_t width, bool right) {
    const std::string blanks(width - std::min(width, Width(text)), ' ');
    return right ? blanks + text : text + blanks;
}

}  // namespace

std::string LayOut(const std::vector<std::vector<std::string>>& rows, int rightColumn, const char* indent) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], Width(row[column]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line = indent;
        for (std::size_t column = 0; column < row.size(); ++column)
            line += Pad(row[column], widths[column], static_cast<int>(column) == rightColumn) + "  ";
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string NumberText(double value, int significantDigits) {
    char buffer[64];
    const auto end =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, significantDigits)
            .ptr;
    return {buffer, end};
}

}  // namespace host
