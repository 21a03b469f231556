#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/GraphFile.h"

namespace host {

using SettingValues = std::vector<std::pair<std::string, std::string>>;  // names and values

// Null when there is none.
const InstanceEntry* FindInstance(const GraphFile& file, const std::string& name);

// Changes settings in the text of a graph file in the form of parameter text: the value in each one's line is
// rewritten, a new one gets a line after the last of its instance, and everything else stays as it is, byte
// for byte.
//
// `file` is what the text was read as. False, with the reason in `error` and the text unchanged, for an
// instance that is not there, a name that is given twice, and what cannot be said in that form.
bool EditSettings(const GraphFile& file, const std::string& instance, const SettingValues& settings,
                  std::string& text, std::string& error);

}  // namespace host
