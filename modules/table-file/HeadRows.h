#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tc {

// A row of a table, without its line end.
struct TableRow {
    std::int64_t line = 0;  // in which it begins, from 1
    std::string text;
};

// The bytes of the first row, its line end included; npos where a cell in quotation marks is not closed.
std::size_t RowLength(std::string_view lines);
// Without the line end.
std::string_view RowText(std::string_view row);
// Nothing but blanks, and a comment, which begins with #.
bool IsBlankRow(std::string_view row);
bool IsCommentRow(std::string_view row);
// The cells without quotation marks and the blanks around them. A blank as separator means any number of
// blanks and tabs.
void SplitRow(std::string_view row, char separator, std::vector<std::string>& cells);

// The first rows of the text, comments and blank rows left out, up to a number of bytes. The first line of
// the text has that number.
std::vector<TableRow> ReadHeadRows(std::string_view text, std::int64_t line, std::size_t mostRows);

}  // namespace tc
