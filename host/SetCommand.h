#pragma once

#include <string>
#include <vector>

#include "host/Commands.h"
#include "host/Mistakes.h"
#include "host/ModuleCatalogue.h"
#include "host/SettingEdit.h"
#include "sigweave/services/Bilingual.h"

namespace host {

struct SetOptions {
    std::string graph;
    std::string instance;
    std::vector<std::string> settings;  // name=value; none: ask for them
};

// Writes settings of one instance into its graph file, when the graph has no mistake through them that it did
// not have before; else says what is wrong and leaves the file as it is. Without settings, a person is
// asked for them. Answers the exit code.
int SetInGraph(const SetOptions& set, const CommandOptions& options);

// The same for settings that were read already. What is wrong goes to `mistakes`, as `check` would tell it.
bool WriteSettings(const std::string& graph, const std::string& instance, const SettingValues& settings,
                   const ModuleCatalogue& catalogue, Mistakes& mistakes);

// Said whenever a file stays as it was.
inline constexpr tc::Bilingual NOT_CHANGED("%1 was not changed", "%1 wurde nicht geändert");

// By the options, the environment, or the default.
ModuleCatalogue OpenCatalogue(const CommandOptions& options);

}  // namespace host
