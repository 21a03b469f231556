#include "modules/table-file/HeadRows.h"

#include <algorithm>

namespace tc {

namespace {

bool IsBlank(char byte) {
    return byte == ' ' || byte == '\t';
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

// Behind the closing quotation mark of a text that begins with one; npos when there is none.
std::size_t QuotedEnd(std::string_view text) {
    for (std::size_t at = 1; (at = text.find('"', at)) != text.npos; at += 2)
        if (text.substr(at + 1, 1) != "\"") return at + 1;
    return text.npos;
}

// A cell in quotation marks, of which two are one.
void Unquote(std::string_view quoted, std::string& cell) {
    for (std::size_t at = 0; at < quoted.size(); ++at) {
        cell += quoted[at];
        if (quoted[at] == '"') ++at;
    }
}

}  // namespace

std::size_t RowLength(std::string_view lines) {
    const std::size_t end = lines.find('\n');
    if (lines.substr(0, end).find('"') == lines.npos) return end == lines.npos ? end : end + 1;
    bool begins = true;
    for (std::size_t at = 0; at < lines.size(); ++at) {
        if (lines[at] == '\n') return at + 1;
        if (lines[at] == '"' && begins) {
            const std::size_t length = QuotedEnd(lines.substr(at));
            if (length == lines.npos) return length;
            at += length - 1;
        }
        begins = std::string_view(",;\t |").find(lines[at]) != std::string_view::npos;
    }
    return lines.npos;
}

std::string_view RowText(std::string_view row) {
    if (row.ends_with('\n')) row.remove_suffix(1);
    if (row.ends_with('\r')) row.remove_suffix(1);
    return row;
}

bool IsBlankRow(std::string_view row) {
    return std::ranges::all_of(row, [](char byte) { return IsBlank(byte) || byte == '\r' || byte == '\n'; });
}

bool IsCommentRow(std::string_view row) {
    return Trim(row).starts_with('#');
}

void SplitRow(std::string_view row, char separator, std::vector<std::string>& cells) {
    std::size_t count = 0;
    if (separator == ' ') row = Trim(row);
    for (bool more = true; more;) {
        if (separator != '\t')
            while (!row.empty() && IsBlank(row.front())) row.remove_prefix(1);
        if (count == cells.size()) cells.emplace_back();
        std::string& cell = cells[count++];
        cell.clear();
        const std::size_t quoted = row.starts_with('"') ? QuotedEnd(row) : row.npos;
        if (quoted != row.npos) {
            Unquote(row.substr(1, quoted - 2), cell);
            row.remove_prefix(quoted);
        }
        const std::size_t end = separator == ' ' ? row.find_first_of(" \t") : row.find(separator);
        cell += Trim(row.substr(0, end));
        more = end != row.npos;
        row.remove_prefix(more ? end + 1 : row.size());
    }
    cells.resize(count);
}

std::vector<TableRow> ReadHeadRows(std::string_view text, std::int64_t line, std::size_t mostRows) {
    std::vector<TableRow> rows;
    while (!text.empty() && rows.size() < mostRows) {
        const std::size_t length = std::min(RowLength(text), text.size());
        const std::string_view row = text.substr(0, length);
        if (!IsBlankRow(row) && !IsCommentRow(row)) rows.push_back({line, std::string(RowText(row))});
        line += std::ranges::count(row, '\n');
        text.remove_prefix(length);
    }
    return rows;
}

}  // namespace tc
