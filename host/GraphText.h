#pragma once

#include <string>
#include <string_view>

#include "host/GraphBuilder.h"

namespace host {

// The form of a graph as parameter text: [sections], name=value lines and # comments.
void ReadGraphText(std::string_view text, GraphBuilder& builder);
// What cannot be said in this form (a parameter's name with an equals sign, say) reads back as something
// else; the caller compares.
std::string WriteGraphText(const GraphFile& graph);
// One setting, as name=value, with the quotation marks that the value needs; without an end of line.
std::string WriteTextSetting(const std::string& name, const std::string& value);

// One line NAME=VALUE of it, with quotation marks where the value needs them.
std::string WriteSettingLine(const std::string& name, const std::string& value);

// The begin of what looks like a comment after a value, which it would be a part of; npos where there is
// none.
std::size_t FindComment(std::string_view value);
// What helps there, to be put after a mistake; empty where nothing looks like a comment.
std::string CommentHint(std::string_view value);

}  // namespace host
