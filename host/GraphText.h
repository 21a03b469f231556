#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/GraphBuilder.h"

namespace host {

// The form of a graph as parameter text: [sections], name=value lines and # comments. Who reads or changes
// such a text line by line uses these operations; nothing else knows its grammar.

struct TextLine {
    std::string_view text;
    std::string_view end;  // a line feed, a carriage return, or both; of the last line perhaps empty
};
// The first line of the text, which must not be empty; it is taken off.
TextLine TakeTextLine(std::string_view& text);

// NAME=VALUE without the blanks around the two, the value with its quotation marks. Both are parts of the
// line.
struct TextSetting {
    std::string_view name;
    std::string_view value;
};
// Nothing for a line without an equals sign.
std::optional<TextSetting> SplitTextSetting(std::string_view line);

void ReadGraphText(std::string_view text, GraphBuilder& builder);
// What cannot be said in this form (a parameter's name with an equals sign, say) reads back as something
// else; the caller compares.
std::string WriteGraphText(const GraphFile& graph);
// One setting, as name=value, with the quotation marks that the value needs; without an end of line.
std::string WriteTextSetting(const std::string& name, const std::string& value);

// The begin of what looks like a comment after a value, which it would be a part of; npos where there is
// none.
std::size_t FindComment(std::string_view value);
// What helps there, to be put after a mistake; empty where nothing looks like a comment.
std::string CommentHint(std::string_view value);

}  // namespace host
