#pragma once

#include <string>

#include "host/GraphFile.h"

namespace host {

// The first thing of `written` that `graph` does not say too, in words; empty when they mean the same.
// Comments do not count.
std::string FindDifference(const GraphFile& graph, const GraphFile& written);

// Writes the graph to the file in the other form, whole or not at all: the file is there only when it reads
// back as the same graph. False with the reason in `error`.
bool ConvertTo(const GraphFile& graph, const std::string& path, std::string& error);

}  // namespace host
